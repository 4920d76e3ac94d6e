#include "support/job_road_fixture.h"

#include "background/reconcile.h"
#include "platform/registry.h"
#include "platform/spooler_jobs.h"

#include <algorithm>

namespace langmon::testing {

namespace {
constexpr const char* MonitorsKey = "System\\CurrentControlSet\\control\\Print\\Monitors\\";
}

void JobRoadTest::SetUp() {
    MonitorTest::SetUp();
    ListPort("LPT1", "Printer Port");
    ListPort("USB001", "Virtual printer port for USB");
    FixPortMode(PM_COMPAT);
}

void JobRoadTest::TearDown() {
    for (PortContext* port : opened_) {
        // The printer's reports would end the jobs; nobody waits for them here.
        LockPort(port);
        FreeJobRecords(port);
        UnlockPort(port);
        EXPECT_TRUE(ClosePort(port));
    }
    SettleThreads();
    MonitorTest::TearDown();
}

void JobRoadTest::ListPort(const std::string& name, const std::string& description) {
    const std::string key = std::string(MonitorsKey) + "Local Port\\Ports\\" + name;
    platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, key);
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, key, "Description", description);
}

void JobRoadTest::FixPortMode(DWORD mode) {
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, PortModeKey, PortModeValue, mode);
}

PortContext* JobRoadTest::Open(const char* name) {
    HANDLE handle = nullptr;
    EXPECT_TRUE(OpenPortEx(const_cast<LPSTR>(name), const_cast<LPSTR>(Printer), &handle, lower.Table()));
    auto* port = static_cast<PortContext*>(handle);
    if (port != nullptr) {
        opened_.push_back(port);
        PrinterAnswers(port, KnownPrinterId);
    }
    return port;
}

BOOL JobRoadTest::Close(PortContext* port) {
    std::erase(opened_, port);
    return ClosePort(port);
}

void JobRoadTest::GiveClient(PortContext* port) {
    DescribePrinter(Printer, "Quor Laser Printer 6200tx PCL6", port->portName, false);
}

void JobRoadTest::TakeClientAway(PortContext* port) {
    ForgetPrinter(Printer);
    ReconcileClients(port);
    // Without clients the status thread has nothing to do, and ends.
    SettleThreads();
}

void JobRoadTest::PrinterAnswers(PortContext* port, const std::string& deviceId) {
    lower.Port(port->portName).SetDeviceId(deviceId);
}

void JobRoadTest::PrinterSilent(PortContext* port) {
    lower.Port(port->portName).FailDeviceId(ERROR_TIMEOUT);
}

BOOL JobRoadTest::Start(PortContext* port, DWORD jobId) {
    return StartDocPort(port, const_cast<LPSTR>(Printer), jobId, 1, reinterpret_cast<LPBYTE>(&doc1));
}

BOOL JobRoadTest::Write(PortContext* port, const std::string& bytes, DWORD* written) {
    std::string copy = bytes;  // the spooler's buffer is its own
    return WritePort(port, reinterpret_cast<LPBYTE>(copy.data()), static_cast<DWORD>(copy.size()), written);
}

std::size_t JobRoadTest::Send(PortContext* port, const std::string& job, std::size_t block, int calls) {
    std::size_t at = 0;
    while (at < job.size() && calls-- > 0) {
        DWORD written = 0;
        const std::string piece = job.substr(at, std::min(block, job.size() - at));
        EXPECT_TRUE(Write(port, piece, &written));
        EXPECT_LE(written, piece.size());
        at += written;
    }
    return at;
}

void JobRoadTest::RunJob(PortContext* port, const std::string& job) {
    ASSERT_TRUE(Start(port));
    EXPECT_EQ(Send(port, job), job.size());
    EXPECT_TRUE(EndDocPort(port));
}

}  // namespace langmon::testing
