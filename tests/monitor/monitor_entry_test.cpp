// The entry table and the port objects as the spooler and the port monitor
// below see them: opening, refusing, closing, and what a port starts with.

#include "monitor/monitor_entry.h"
#include "monitor/device_requests.h"
#include "monitor/job_data.h"
#include "monitor/job_end.h"
#include "monitor/job_start.h"
#include "framing/job_record.h"

#include "platform/clock.h"
#include "platform/thread.h"
#include "portkind/port_kind.h"
#include "support/platform_fixture.h"
#include "support/scripted_port_monitor.h"
#include "variables/status_variable.h"

#include <cstring>
#include <functional>

namespace langmon {
namespace {

using testing::CallKind;
using testing::MonitorTest;
using testing::ScriptedPortMonitor;

class MonitorEntryTest : public MonitorTest {
protected:
    PortContext* Open(const char* name, const char* printer = "Laser") {
        HANDLE handle = nullptr;
        EXPECT_TRUE(OpenPortEx(const_cast<LPSTR>(name), const_cast<LPSTR>(printer), &handle,
                               lower.Table()))
            << "last error " << GetLastError();
        return static_cast<PortContext*>(handle);
    }

    ScriptedPortMonitor lower;
};

TEST_F(MonitorEntryTest, ANewPortHoldsItsOwnCopyOfEverything) {
    std::string name = "LPT1:", printer = "Laser 6200";
    PortContext* port = Open(name.data(), printer.data());
    ASSERT_NE(port, nullptr);
    name = "XXXXX", printer = "XXXXXXXXXX";
    EXPECT_STREQ(port->portName, "LPT1:");
    EXPECT_STREQ(port->printerName, "Laser 6200");
    EXPECT_EQ(port->portKind, uint32_t{PK_MONITORED | PK_LOCAL | PK_BIDI});
    EXPECT_EQ(FindPort(portList, "lpt1:"), port);
    EXPECT_EQ(lower.Port("LPT1:").Count(CallKind::OpenPort), 1);

    // The variables are a copy of the master table: same rows, own storage.
    ASSERT_NE(port->variables, nullptr);
    EXPECT_NE(port->variables, StatusVariableTable);
    for (int i = 0; i <= StatusVariableCount; ++i) {
        EXPECT_EQ(port->variables[i].Name, StatusVariableTable[i].Name);
    }
    StatusVariable* jobStatus = FindVariable("JobStatus", port->variables, port);
    ASSERT_NE(jobStatus, nullptr);
    ASSERT_NE(jobStatus->Value, nullptr) << "JobStatus starts as 0, not absent";
    EXPECT_EQ(*static_cast<uint32_t*>(jobStatus->Value), 0u);

    EXPECT_TRUE(ClosePort(port));
    EXPECT_EQ(portList, nullptr);
    EXPECT_EQ(lower.Port("LPT1:").Count(CallKind::ClosePort), 1);
}

TEST_F(MonitorEntryTest, BadCallsAreRefusedWithTheirErrors) {
    HANDLE handle = nullptr;
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(OpenPortEx(const_cast<LPSTR>("LPT1"), nullptr, nullptr, lower.Table()));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(ClosePort(nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    DWORD written = 7;
    const std::function<BOOL()> nullPortCalls[] = {
        [] { return StartDocPort(nullptr, nullptr, 1, 1, nullptr); },
        [&] { return WritePort(nullptr, nullptr, 0, &written); },
        [] { return EndDocPort(nullptr); },
        [&] { return ReadPort(nullptr, nullptr, 0, &written); },
        [&] { return GetPrinterDataFromPort(nullptr, 17, nullptr, nullptr, 0, nullptr, 0, &written); },
    };
    for (const auto& call : nullPortCalls) {
        SetLastError(0xdeadbeef);
        EXPECT_FALSE(call());
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    }

    PortContext* port = Open("LPT1");
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(OpenPortEx(const_cast<LPSTR>("lpt1"), nullptr, &handle, lower.Table()));
    EXPECT_EQ(GetLastError(), ERROR_BUSY);
    EXPECT_EQ(handle, nullptr);

    // A handle that is no open port is closed without complaint or effect.
    PortContext stranger{};
    EXPECT_TRUE(ClosePort(&stranger));
    EXPECT_EQ(DestroyPortContext(&stranger), 0);
    EXPECT_EQ(portList, port);
    EXPECT_TRUE(ClosePort(port));
}

TEST_F(MonitorEntryTest, APortTheMonitorBelowRefusesLeavesItsNameFree) {
    lower.Port("USB001").FailOpen(ERROR_ACCESS_DENIED);
    HANDLE handle = nullptr;
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(OpenPortEx(const_cast<LPSTR>("USB001"), nullptr, &handle, lower.Table()));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED) << "the port monitor's own reason";
    EXPECT_EQ(portList, nullptr);

    lower.Port("USB001").FailOpen(0);
    PortContext* port = Open("USB001");
    ASSERT_NE(port, nullptr);
    EXPECT_TRUE(ClosePort(port));
}

TEST_F(MonitorEntryTest, ClosingWaitsForTrackedJobsButNotForEver) {
    PortContext* port = Open("LPT1");
    // A job the printer never reports as ended; closing frees its record.
    AddJobRecord(12, port);
    const DWORD closing = GetTickCount();
    EXPECT_TRUE(ClosePort(port));
    EXPECT_EQ(GetTickCount() - closing, 120000u);
    EXPECT_EQ(portList, nullptr);
    EXPECT_EQ(lower.Port("LPT1").Count(CallKind::ClosePort), 1);
}

struct StatusThreadStandIn {
    PortContext* port;
    DWORD wakeResult;
    DWORD wokeAt;
};

// Waits the way the status thread waits between passes, and leaves the way it
// does: the flag first, the event last.
DWORD WaitLikeStatusThread(LPVOID argument) {
    auto* standIn = static_cast<StatusThreadStandIn*>(argument);
    PortContext* port = standIn->port;
    standIn->wakeResult = WaitForSingleObject(port->statusWakeEvent, 30000);
    standIn->wokeAt = GetTickCount();
    ClearPortFlag(port, PF_STATUS_ALIVE | PF_STATUS_RUN);
    HANDLE event = port->statusWakeEvent;
    std::atomic_ref<HANDLE>(port->statusWakeEvent).store(nullptr);
    CloseHandle(event);
    return 0;
}

TEST_F(MonitorEntryTest, ClosingWakesASleepingStatusThreadAndWaitsForIt) {
    PortContext* port = Open("LPT1");
    port->statusWakeEvent = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    SetPortFlag(port, PF_STATUS_RUN | PF_STATUS_ALIVE);
    StatusThreadStandIn standIn{port, WAIT_FAILED, 0};
    HANDLE thread = CreateThread(nullptr, 0, WaitLikeStatusThread, &standIn, 0, nullptr);
    Sleep(1000);  // the thread is in its wait now
    const DWORD closing = GetTickCount();
    EXPECT_TRUE(ClosePort(port));
    EXPECT_EQ(standIn.wakeResult, WAIT_OBJECT_0) << "woken, not timed out";
    EXPECT_EQ(standIn.wokeAt, closing);
    EXPECT_LE(GetTickCount() - closing, 500u) << "no 30 s time-out, no grace sleep of 4 s";
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
}

}  // namespace
}  // namespace langmon
