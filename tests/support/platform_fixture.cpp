#include "support/platform_fixture.h"

#include "background/thread_throttle.h"
#include "platform/spooler_jobs.h"
#include "platform/spooler_printers.h"
#include "platform/thread.h"

namespace langmon::testing {

void PlatformTest::SetUp() {
    platform::UseVirtualClock(TestStartTick);
    platform::ClearRegistry();
    platform::StopFailingAllocations();
    platform::StopFailingSpoolerCalls();
    platform::ForgetJobs();
    platform::ForgetPrinterStatusWords();
    ForgetThrottleSettings();
    SetLastError(0);
    // The test thread's own thread object lives as long as the thread does.
    CloseHandle(GetCurrentThread());
    blocksAtStart_ = platform::LiveBlockCount();
    objectsAtStart_ = platform::LiveObjectCount();
    keysAtStart_ = platform::OpenRegistryKeyCount();
}

void PlatformTest::TearDown() {
    platform::StopFailingAllocations();
    platform::StopFailingSpoolerCalls();
    EXPECT_EQ(platform::LiveBlockCount(), blocksAtStart_) << "heap blocks leaked";
    EXPECT_EQ(platform::LiveObjectCount(), objectsAtStart_) << "kernel objects leaked";
    EXPECT_EQ(platform::OpenRegistryKeyCount(), keysAtStart_) << "registry keys left open";
    EXPECT_EQ(platform::OpenPrinterHandleCount(), 0u) << "printer handles left open";
}

void PlatformTest::SettleThreads() {
    // The longest of them, a status word for the spooler, retries for 17 s.
    for (int second = 0; second < 600 && platform::ManagedThreadCount() > 1; ++second) Sleep(1000);
    EXPECT_EQ(platform::ManagedThreadCount(), 1u) << "threads still running after ten minutes";
}

void MonitorTest::SetUp() {
    // Initialise first: the process-wide lock it makes lives for ever and is not
    // a leak of the test.
    InitializeMonitorEx(nullptr, &monitor);
    PlatformTest::SetUp();
}

}  // namespace langmon::testing
