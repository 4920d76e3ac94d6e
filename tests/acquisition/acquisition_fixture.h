// The ground of the acquisition tests: an open port whose printer is a known
// model, status records written out field by field, and the port's variables
// read back as a client gets them.
#pragma once

#include "acquisition/status_record.h"
#include "acquisition/sts_block.h"
#include "framing/job_record.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "support/job_road_fixture.h"
#include "variables/status_variable.h"

#include <cstring>
#include <string>
#include <vector>

namespace langmon::testing {

// The ready 6200tx of device_ids.h: idle (41), 4 x 32 MB, covers closed, four
// toners fitted at 90/75/60/45 and the unit at 100 with nothing to report,
// the multi-purpose tray and a cassette of size index 2, fed from slot 1,
// the duplex module fitted.
inline StatusRecord ReadyRecord() {
    StatusRecord r{};
    r.StatusCode = 0x0F01;
    r.MemoryUnits = 4;
    r.CoverWord = 0x027F;
    r.SupplyWord[0] = 0x5A23, r.SupplyWord[1] = 0x4B23, r.SupplyWord[2] = 0x3C23;
    r.SupplyWord[3] = 0x2D23, r.CruWord = 0x6403, r.AuxByte = 3;
    r.TrayWord[0] = 0x5082, r.TrayWord[1] = 0x8082, r.FeedWord = 0x4102, r.OptionWord = 1;
    return r;
}

class AcquisitionTest : public JobRoadTest {
protected:
    void SetUp() override {
        JobRoadTest::SetUp();
        port = Open("LPT1");
        ASSERT_NE(port, nullptr);
    }

    // A port as a poll leaves it once the device ID named a 6200tx.
    PortContext* Open(const char* name) {
        PortContext* opened = JobRoadTest::Open(name);
        if (opened != nullptr) opened->modelMask = ModelMask6200;
        return opened;
    }
    // Nobody waits for the printer to report the port's jobs.
    void Close(PortContext* p) {
        ClearPortFlag(p, PF_JOB_ACTIVE);
        FreeJobRecords(p);
        EXPECT_TRUE(JobRoadTest::Close(p));
    }

    int Apply(StatusRecord record, PortContext* p = nullptr) {
        return ApplyStatusRecord(&record, p != nullptr ? p : port);
    }
    StatusVariable* Var(const char* name, PortContext* p = nullptr) {
        PortContext* on = p != nullptr ? p : port;
        return FindVariable(name, on->variables, on);
    }
    // The first `n` bytes of the value; none while the row has no value.
    std::vector<uint8_t> Bytes(const char* name, std::size_t n) {
        const auto* value = static_cast<const uint8_t*>(Var(name)->Value);
        return value != nullptr ? std::vector<uint8_t>(value, value + n) : std::vector<uint8_t>{};
    }
    std::vector<uint32_t> Words(const char* name, std::size_t n) {
        const std::vector<uint8_t> bytes = Bytes(name, 4 * n);
        std::vector<uint32_t> words(bytes.size() / 4);
        std::memcpy(words.data(), bytes.data(), bytes.size());
        return words;
    }
    // A 32-bit value, or 0xDEADBEEF while the row has none.
    uint32_t Word(const char* name) {
        const auto words = Words(name, 1);
        return words.empty() ? 0xDEADBEEFu : words[0];
    }
    // What publication does to the rows it sends.
    void ClearDirty() {
        for (StatusVariable* row = port->variables; row->Name != nullptr; ++row) row->Dirty = 0;
    }

    PortContext* port = nullptr;
};

}  // namespace langmon::testing
