// What one status record does to the port's variables: the values clients
// get, the one Condition that wins, what stays untouched, when the port gives
// up on its jobs, and what an allocation failure may leave behind.
#include "acquisition/acquisition_fixture.h"

#include "platform/memory.h"
#include "support/device_ids.h"
#include "support/status_codes.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace langmon {
namespace {

using testing::AcquisitionTest;
using testing::ReadyRecord;

// One PrinterBinConfig entry, from the numbers clients read.
std::vector<uint8_t> Entry(uint16_t binId, uint16_t inputType, uint16_t size, uint8_t level,
                           uint8_t type) {
    std::vector<uint8_t> e(12, 0);
    for (const auto& [at, value] : {std::pair{0, binId}, {2, inputType}, {4, size}}) {
        std::memcpy(&e[at], &value, 2);
    }
    e[6] = level, e[7] = type;
    return e;
}
std::vector<uint8_t> BinConfig(uint32_t count, std::vector<std::vector<uint8_t>> entries) {
    std::vector<uint8_t> v(4, 0);
    std::memcpy(v.data(), &count, 4);
    for (const auto& e : entries) v.insert(v.end(), e.begin(), e.end());
    v.resize(40, 0);
    return v;
}
std::vector<uint8_t> NoPaper(uint16_t binId, uint16_t size, uint8_t type) {
    std::vector<uint8_t> v = Entry(binId, size, 0, 0, 0);
    v.resize(8);
    v[5] = type;
    return v;
}

using StatusRecordTest = AcquisitionTest;

// The lowest Condition wins, with the exceptions the printer's states need.
// Each case changes the ready record in the status code, the cover word, the
// engine state or the tray of slot 1, which the feed word names.
TEST_F(StatusRecordTest, OneConditionWinsAndBecomesPrinterStatus) {
    const struct {
        const char* what;
        uint32_t code;
        uint16_t cover;
        uint8_t engine;
        uint16_t tray1;
        bool job;
        uint32_t coverOpen, word1, word2, icon;
    } cases[] = {
        {"cover open on idle", 0x0F01, 0x0200, 0, 0x8082, false, 0x7F, 0, 0x8000, 1},
        {"no Condition, cover open", 0x1000, 0x0200, 0, 0x8082, false, 0x7F, 0, 0, 0},
        {"cancelling, cover open", 0x0400, 0, 0, 0x8082, false, 0x27F, 0, 0, 0},
        {"jam with a job", 0x0700, 0x027F, 0, 0x8082, true, 0, 0, 0x10000, 1},
        {"idle with a job", 0x0F01, 0x027F, 0, 0x8082, true, 0, 0, 0x8, 0},
        {"paper problem, feeder empty, job", 0x0A02, 0x027F, 0, 0xA082, true, 0, 0, 0x800000, 1},
        {"paper problem, feeder empty", 0x0A02, 0x027F, 0, 0xA082, false, 0, 0, 0x4000000, 1},
        {"paper problem, paper there, job", 0x0A02, 0x027F, 0, 0x8082, true, 0, 0, 0x4000000, 1},
        {"paper out, feeder empty, job", 0x0A00, 0x027F, 0, 0xA082, true, 0, 0, 0x40000000, 1},
        {"engine printing", 0x0F01, 0x027F, 1, 0x8082, false, 0, 0, 0x8, 0},
        {"engine busy", 0x0F01, 0x027F, 2, 0x8082, false, 0, 0, 0x200, 2},
        {"engine busy, cover open", 0x0F01, 0, 2, 0x8082, false, 0x27F, 0, 0x8000, 1},
        {"idle 40", 0x0C02, 0x027F, 0, 0x8082, false, 0, 0, 0x40, 0},
        {"idle 39", 0x0E0F, 0x027F, 0, 0x8082, false, 0, 0, 0, 0},
        {"paper problem 19", 0x0A01, 0x027F, 0, 0x8082, false, 0, 0, 0x40000, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        FreeJobRecords(port);
        if (c.job) AddJobRecord(3, port);
        StatusRecord r = ReadyRecord();
        r.StatusCode = c.code;
        r.CoverWord = c.cover;
        r.EngineState = c.engine;
        r.TrayWord[1] = c.tray1;
        Apply(r);
        EXPECT_EQ(Word("ErrCoverOpen"), c.coverOpen);
        EXPECT_EQ(Words("PrinterStatus", 3), (std::vector<uint32_t>{0, c.word1, c.word2}));
        EXPECT_EQ(Word("IconState"), c.icon);
    }
    // Idle 39 shows in the supply flags.
    StatusRecord idle = ReadyRecord();
    idle.StatusCode = 0x0E0F;
    Apply(idle);
    EXPECT_EQ(Word("ErrSupplies"), 0x40000000u);
    // Every class and low byte, codes the emulator never sends included; a
    // code with bits above the low 16 is none.
    for (uint32_t code = 0; code <= 0x10FF; ++code) {
        ASSERT_EQ(ConditionOfStatusCode(code), testing::ConditionOfCode(code)) << std::hex << "code 0x" << code;
    }
    for (const uint32_t code : {0x00010F01u, ~0u}) {
        StatusRecord r = ReadyRecord();
        r.StatusCode = code;
        MapStatusCode(&r);
        EXPECT_EQ(uint32_t{r.StatusCode}, 0u) << std::hex << code;
    }
    // The block's "=" is a zero: the 'P' of the ready code gone leaves 0x0001.
    std::string equals = testing::ReadyStatusBlock;
    equals[3] = '=';
    StatusRecord decoded{};
    ASSERT_EQ(DecodeStsBlock(equals.c_str(), &decoded), 1);
    EXPECT_EQ(uint32_t{decoded.StatusCode}, 1u);
}

TEST_F(StatusRecordTest, TraysFillTheEntriesWithoutGapsAndTheFeederIsFoundById) {
    const struct {
        const char* what;
        uint16_t trays[3];
        uint16_t feed;
        std::vector<uint8_t> config;
        uint32_t feeder;
        std::vector<uint8_t> noPaper;
    } cases[] = {
        // clang-format off
        {"the ready trays", {0x5082, 0x8082, 0}, 0x4102,
         BinConfig(2, {Entry(2001, 2001, 9, 254, 0), Entry(1, 1, 9, 253, 0)}), 1,
         NoPaper(1, 9, 0)},
        {"slot 1 empty", {0x5082, 0, 0x8082}, 0x8F1B,
         BinConfig(2, {Entry(2001, 2001, 9, 254, 0), Entry(2, 1, 9, 253, 0)}), 2,
         NoPaper(2, 0xFFFF, 7)},
        {"feed slot 3 names no tray", {0x5082, 0x8082, 0}, 0xC002,
         BinConfig(2, {Entry(2001, 2001, 9, 254, 0), Entry(1, 1, 9, 253, 0)}), 2001,
         NoPaper(0, 9, 15)},
        {"fed from an absent tray", {0, 0x8082, 0}, 0x0002,
         BinConfig(1, {Entry(1, 1, 9, 253, 0)}), 1, NoPaper(2001, 9, 15)},
        {"no trays", {0, 0, 0}, 0x4102, BinConfig(0, {}), 0, NoPaper(1, 9, 0)},
        // clang-format on
    };
    // The feeder is the business of a port with jobs alone.
    const auto feeder = Bytes("CurrentFeeder", 4), noPaper = Bytes("ErrNoPaper2", 8);
    EXPECT_EQ(Apply(ReadyRecord()), 1);
    EXPECT_EQ(Bytes("CurrentFeeder", 4), feeder);
    EXPECT_EQ(Bytes("ErrNoPaper2", 8), noPaper);
    AddJobRecord(4, port);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        StatusRecord r = ReadyRecord();
        r.StatusCode = 0x0D00;  // printing: an idle printer would close the job
        for (int i = 0; i < 3; ++i) r.TrayWord[i] = c.trays[i];
        r.FeedWord = c.feed;
        Apply(r);
        EXPECT_EQ(Bytes("PrinterBinConfig", 40), c.config);
        EXPECT_EQ(Word("CurrentFeeder"), c.feeder);
        EXPECT_EQ(Bytes("ErrNoPaper2", 8), c.noPaper);
    }
}

// The rows a status record can change, by name.
constexpr const char* RecordRows[] = {
    "PrinterMemory", "ErrCoverOpen",  "TonerRemain", "CRURemain",         "ErrPaperJam",
    "PrinterBinConfig", "CurrentFeeder", "ErrNoPaper2", "PrinterOptConfig", "ErrHWError",
    "ErrSupplies",   "ErrPeriodicChange", "PrinterStatus", "IconState"};

TEST_F(StatusRecordTest, AnUnchangedRecordChangesNothingClientsWouldSee) {
    AddJobRecord(9, port);
    EXPECT_EQ(Apply(ReadyRecord()), 1);
    ClearDirty();
    EXPECT_EQ(Apply(ReadyRecord()), 0);
    for (const char* name : RecordRows) {
        // With jobs on the port the feeder goes out on every record.
        EXPECT_EQ(Var(name)->Dirty, std::string(name) == "CurrentFeeder" ? 1u : 0u) << name;
    }
    // A printer that reports no memory leaves the last figure.
    StatusRecord r = ReadyRecord();
    r.MemoryUnits = 0;
    Apply(r);
    EXPECT_EQ(Word("PrinterMemory"), 131072u);

    // An IconState that publication freed is stored again.
    r.CoverWord = 0x0200;
    EXPECT_EQ(Apply(r), 1);
    EXPECT_EQ(Apply(r), 0);
    GlobalFree(Var("IconState")->Value);
    Var("IconState")->Value = nullptr;
    EXPECT_EQ(Apply(r), 1);
    EXPECT_EQ(Word("IconState"), 1u);
}

TEST_F(StatusRecordTest, TheThirdIdleRecordWithNoJobBeingSentClosesTheJobs) {
    AddJobRecord(21, port);
    AddJobRecord(22, port);
    for (const uint32_t code : {0x0F01, 0x0C02, 0x0D00, 0x0E0F}) {  // idle, idle, printing, idle
        ASSERT_NE(port->jobListHead, nullptr) << std::hex << code;
        StatusRecord r = ReadyRecord();
        r.StatusCode = code;
        Apply(r);
    }
    EXPECT_EQ(port->jobListHead, nullptr);
    EXPECT_EQ(Words("PrinterStatus", 3), (std::vector<uint32_t>{0, 0, 0}));  // 39: nothing to show

    // A job being sent starts the count again.
    AddJobRecord(23, port);
    for (const bool sending : {false, false, true, false, false}) {
        if (sending) SetPortFlag(port, PF_JOB_ACTIVE);
        Apply(ReadyRecord());
        ClearPortFlag(port, PF_JOB_ACTIVE);
    }
    EXPECT_NE(port->jobListHead, nullptr);
    Apply(ReadyRecord());
    EXPECT_EQ(port->jobListHead, nullptr);
    EXPECT_EQ(Words("PrinterStatus", 3), (std::vector<uint32_t>{0, 0, 1}));
}

// What a record leaves in the variables clients read, by name; none for no
// value. The options as a sorted set: a list's order depends on how it grew.
using Picture = std::map<std::string, std::optional<std::vector<uint64_t>>>;

Picture Take(PortContext* p) {
    Picture taken;
    for (const char* name : RecordRows) {
        const StatusVariable* row = FindVariable(name, p->variables, p);
        const std::size_t skip = std::strcmp(name, "PrinterOptConfig") == 0 ? 4 : 0;
        if (row->Value == nullptr) {
            taken[name] = std::nullopt;
            continue;
        }
        std::vector<uint64_t> v((VariableSize(row) + 7 - skip) / 8, 0);
        std::memcpy(v.data(), static_cast<const uint8_t*>(row->Value) + skip,
                    VariableSize(row) - skip);
        if (skip != 0) std::sort(v.begin(), v.end());
        taken[name] = v;
    }
    taken["LM_InputTray"] = std::vector<uint64_t>{p->lmBlock.LM_InputTray};
    return taken;
}

TEST_F(StatusRecordTest, AFailedAllocationLeavesEachVariableOldOrNew) {
    StatusRecord record = ReadyRecord();
    record.SupplyWord[2] = 0x3C20;  // an empty toner: the level override runs too
    auto start = [&] {
        PortContext* p = Open("USB001");
        if (p != nullptr) AddJobRecord(1, p);
        return p;
    };
    PortContext* p = start();
    Apply(record, p);
    const Picture expected = Take(p);
    Close(p);

    for (const bool andAllAfter : {false, true}) {
        for (std::size_t nth = 1;; ++nth) {
            SCOPED_TRACE(::testing::Message() << "allocation " << nth << (andAllAfter ? "+" : ""));
            p = start();
            ASSERT_NE(p, nullptr);
            const Picture before = Take(p);
            platform::FailAllocation(nth, andAllAfter);
            Apply(record, p);
            const bool hit = platform::AllocationFailureHit();
            platform::StopFailingAllocations();
            const Picture after = Take(p);
            for (const auto& [name, value] : after) {
                if (name == "PrinterOptConfig" && value.has_value()) {
                    // Each option comes by itself: one that couldn't be had is missing.
                    const auto& all = *expected.at(name);
                    EXPECT_TRUE(
                        std::includes(all.begin(), all.end(), value->begin(), value->end()));
                } else {
                    EXPECT_TRUE(value == before.at(name) || value == expected.at(name)) << name;
                }
            }
            // The trays and their LM_ picture change together or not at all.
            EXPECT_EQ(after.at("PrinterBinConfig") == expected.at("PrinterBinConfig"),
                      after.at("LM_InputTray") == expected.at("LM_InputTray"));
            Apply(record, p);  // and the port works on as if nothing had happened
            EXPECT_EQ(Take(p), expected);
            Close(p);
            if (!hit) break;
        }
    }
}

}  // namespace
}  // namespace langmon
