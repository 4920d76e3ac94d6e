#include "support/platform_fixture.h"

#include "background/thread_throttle.h"
#include "platform/spooler_jobs.h"
#include "platform/thread.h"

namespace langmon::testing {

void PlatformTest::SetUp() {
    platform::UseVirtualClock(TestStartTick);
    platform::ClearRegistry();
    platform::StopFailingAllocations();
    platform::StopFailingSpoolerCalls();
    platform::ForgetJobs();
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

void MonitorTest::SetUp() {
    // Initialise first: the process-wide lock it makes lives for ever and is not
    // a leak of the test.
    InitializeMonitorEx(nullptr, &monitor);
    PlatformTest::SetUp();
}

}  // namespace langmon::testing
