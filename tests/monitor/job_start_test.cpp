// The start of a job: the port's mode, what a job with and without a client
// gets, and the spooler thread's priority.

#include "support/job_road_fixture.h"

#include "platform/registry.h"
#include "platform/spooler.h"
#include "platform/thread.h"

#include <cstring>

namespace langmon {
namespace {

using testing::JobRoadTest;

class PortModeTest : public JobRoadTest {
protected:
    // The mode a fresh port gets at its first job start.
    uint32_t ModeOf(const char* name) {
        PortContext port{};
        port.portName = const_cast<char*>(name);
        CheckPortMode(&port);
        return port.portMode;
    }
};

TEST_F(PortModeTest, TheSpoolersDescriptionDecidesUnlessTheRegistryFixesIt) {
    FixPortMode(0);  // a value of 0 counts as none
    ListPort("LPT2", "Parallel port with ECP support");
    ListPort("LPT3", "ECP \xCC\xDF\xD8\xDD\xC0 \xCE\xDF\xB0\xC4");
    ListPort("LPT4", "ECP \x83\x76\x83\x8A\x83\x93\x83\x5E \x83\x7C\x81\x5B\x83\x67");
    ListPort("LPT5", "ecp in lower case is not ECP... but this says it");
    ListPort("LPT6", "Printer Port (ecp)");
    EXPECT_EQ(ModeOf("LPT1"), uint32_t{PM_COMPAT});
    EXPECT_EQ(ModeOf("LPT2"), uint32_t{PM_ECP}) << "ECP anywhere in the description";
    EXPECT_EQ(ModeOf("LPT3"), uint32_t{PM_ECP});
    EXPECT_EQ(ModeOf("LPT4"), uint32_t{PM_ECP});
    EXPECT_EQ(ModeOf("LPT5"), uint32_t{PM_ECP});
    EXPECT_EQ(ModeOf("LPT6"), uint32_t{PM_COMPAT}) << "the letters count in upper case only";
    EXPECT_EQ(ModeOf("LPT9"), uint32_t{PM_ECP}) << "a port the spooler doesn't list";

    FixPortMode(0x7);
    EXPECT_EQ(ModeOf("LPT1"), 0x7u) << "a fixed mode is taken whole";
}

TEST_F(PortModeTest, AKeyboardOfClassD00MeansCompatibleWithoutAskingTheSpooler) {
    FixPortMode(0);
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, "Software\\langmon", "KeyboardSubtype", 0x0D01);
    platform::StopFailingSpoolerCalls();  // resets the call count
    EXPECT_EQ(ModeOf("LPT9"), uint32_t{PM_COMPAT});
    EXPECT_EQ(platform::SpoolerCallCount(platform::SpoolerCall::EnumPorts), 0u);
}

TEST_F(PortModeTest, AnEcpPortIsLookedAtAgainForEachJobACompatibleOneIsNot) {
    FixPortMode(0);
    ListPort("LPT2", "ECP Printer Port");
    PortContext* ecp = Open("LPT2");
    PortContext* compat = Open("LPT1");
    for (PortContext* port : {ecp, compat}) {
        ASSERT_TRUE(Start(port));
        ASSERT_TRUE(EndDocPort(port));
    }
    EXPECT_EQ(ecp->portMode, 0u) << "PM_ECP falls at the job's end";
    EXPECT_EQ(compat->portMode, uint32_t{PM_COMPAT});

    // The second job of the compatible port doesn't ask the spooler again.
    platform::StopFailingSpoolerCalls();
    ASSERT_TRUE(Start(compat));
    EXPECT_EQ(platform::SpoolerCallCount(platform::SpoolerCall::EnumPorts), 0u);
    ASSERT_TRUE(Start(ecp));
    EXPECT_EQ(ecp->portMode, uint32_t{PM_ECP});
    EXPECT_GT(platform::SpoolerCallCount(platform::SpoolerCall::EnumPorts), 0u);
    EXPECT_TRUE(EndDocPort(compat));
    EXPECT_TRUE(EndDocPort(ecp));
}

// Only a job with a client is tracked and gets a header; every job is named.
// (What the printer then receives, the scenarios check through the printer.)
TEST_F(JobRoadTest, AJobWithAClientIsFollowedOneWithoutIsNot) {
    PortContext* port = Open("LPT1");
    ASSERT_TRUE(Start(port, 7));
    EXPECT_FALSE(HasPortFlag(port, PF_HEADER_DUE)) << "no client: no header";
    EXPECT_EQ(port->jobListHead, nullptr);
    EXPECT_EQ(std::strlen(port->jobIdentifier), 24u) << "the job is named all the same";
    EXPECT_TRUE(EndDocPort(port));

    GiveClient(port);
    // The status thread waits at its first step: what follows is the
    // spooler's calls alone.
    testing::StatusThreadHold hold(port);
    ASSERT_TRUE(Start(port, 8));
    EXPECT_TRUE(HasPortFlag(port, PF_JOB_ACTIVE | PF_DOC_OPEN | PF_HEADER_DUE));
    ASSERT_NE(port->jobListTail, nullptr);
    EXPECT_EQ(port->jobListTail->JobId, 8u);
    EXPECT_NE(port->jobManager, nullptr);
    EXPECT_EQ(port->jobListTail->Link, port->jobManager);
    EXPECT_TRUE(EndDocPort(port));

    // The next job, for another printer on the port without a client, gets none.
    char stranger[] = "Stranger";
    ASSERT_TRUE(StartDocPort(port, stranger, 9, 1, reinterpret_cast<LPBYTE>(&doc1)));
    EXPECT_EQ(port->jobManager, nullptr);
    EXPECT_FALSE(HasPortFlag(port, PF_HEADER_DUE));
    EXPECT_TRUE(EndDocPort(port));
}

// The starts that open no job of their own: the channel form opens nothing
// below, a second start while a job runs is busy, and a start the port
// monitor below refuses fails with its reason (on USB the writes open the
// document instead: see the job's data).
TEST_F(JobRoadTest, AStartThatOpensNoJobLeavesThePortAsItWas) {
    PortContext* port = Open("LPT1");
    auto& below = lower.Port("LPT1");
    DOC_INFO_2 channel{nullptr, nullptr, nullptr, 0, 0};
    ASSERT_TRUE(StartDocPort(port, const_cast<LPSTR>(Printer), 12, 2, reinterpret_cast<LPBYTE>(&channel)));
    EXPECT_TRUE(HasPortFlag(port, PF_CHANNEL_DOC));
    EXPECT_FALSE(HasPortFlag(port, PF_JOB_ACTIVE));
    EXPECT_TRUE(EndDocPort(port));
    EXPECT_FALSE(HasPortFlag(port, PF_CHANNEL_DOC));
    EXPECT_EQ(below.JobDocumentStarts(), 0);

    // Level 1 without a document name is an ordinary job.
    DOC_INFO_1 unnamed{nullptr, nullptr, nullptr};
    ASSERT_TRUE(StartDocPort(port, const_cast<LPSTR>(Printer), 1, 1, reinterpret_cast<LPBYTE>(&unnamed)));
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(Start(port, 2));
    EXPECT_EQ(GetLastError(), ERROR_BUSY);
    EXPECT_EQ(port->jobId, 1u);
    EXPECT_TRUE(HasPortFlag(port, PF_JOB_ACTIVE));
    EXPECT_EQ(below.JobDocumentStarts(), 1);
    EXPECT_TRUE(EndDocPort(port)) << "the busy start gave the semaphore back";

    below.FailStartDoc(ERROR_ACCESS_DENIED);
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(Start(port));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED) << "the port monitor's reason";
    EXPECT_FALSE(HasPortFlag(port, PF_JOB_ACTIVE));
    EXPECT_EQ(port->jobOpen, 0u);
}

TEST_F(JobRoadTest, TheRegistryRaisesTheSpoolersThreadForTheJobAndTheEndPutsItBack) {
    const char* root = "System\\CurrentControlSet\\control\\Print\\Monitors\\Quor Language Monitor";
    // The monitor keeps a copy of the root: the spooler's string is its own.
    std::string spoolers = root;
    ASSERT_TRUE(InitializeMonitorEx(spoolers.data(), &monitor));
    spoolers.assign(spoolers.size(), 'x');
    PortContext* port = Open("LPT1");
    HANDLE self = GetCurrentThread();
    SetThreadPriority(self, 0);

    // No value: the priority stays.
    ASSERT_TRUE(Start(port));
    EXPECT_EQ(GetThreadPriority(self), 0);
    EXPECT_TRUE(EndDocPort(port));

    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, root, "PrintingPriority", 2);
    ASSERT_TRUE(Start(port));
    EXPECT_EQ(GetThreadPriority(self), 2);
    std::string job(100, 'x');
    Send(port, job);
    EXPECT_EQ(GetThreadPriority(self), 2) << "raised across the job's writes";
    EXPECT_TRUE(EndDocPort(port));
    EXPECT_EQ(GetThreadPriority(self), 0);
    CloseHandle(self);
    InitializeMonitorEx(nullptr, &monitor);
}

}  // namespace
}  // namespace langmon
