// The end of a job: the trailer and what precedes it, the names it carries,
// what the port keeps of the job, and the spooler's queue.

#include "support/job_road_fixture.h"

#include "framing/job_identifier.h"
#include "platform/registry.h"
#include "platform/spooler_jobs.h"
#include "variables/status_variable.h"

#include <cstring>

namespace langmon {
namespace {

using testing::CallKind;
using testing::ExpectedTrailer;
using testing::JobRoadTest;
using testing::Uel;
using testing::WriteAnswer;

const std::string PostScriptJob = "%!PS-Adobe-3.0\n" + std::string(185, 'p');

// A job that named itself (PostScript, PJL) has its trailer under the
// header's name: the byte-conservation schedules check that. A job of
// neither gets an EOJ under a name of its own, even one made in the same
// millisecond as the job's, while the job's record keeps the job's name.
TEST_F(JobRoadTest, TheTrailerOfAJobThatNamedNothingHasANameOfItsOwn) {
    PortContext* port = Open("LPT1");
    GiveClient(port);
    ASSERT_TRUE(Start(port));
    const std::string id = port->jobIdentifier;
    Send(port, "\x1b" "E" + std::string(100, 'r'));
    NewJobIdentifier(port->jobIdentifier);
    const std::string endId = port->jobIdentifier;
    ASSERT_TRUE(EndDocPort(port));
    EXPECT_STREQ(port->jobListTail->StartIdentifier, id.c_str());
    EXPECT_STREQ(port->jobListTail->EndIdentifier, endId.c_str());
    EXPECT_STRNE(port->trailerIdentifier, endId.c_str());
    EXPECT_EQ(std::strlen(port->trailerIdentifier), 24u);
    EXPECT_TRUE(Received("LPT1").ends_with(ExpectedTrailer(port->trailerIdentifier)));
}

TEST_F(JobRoadTest, AJobWithoutDataLeavesNothingBehind) {
    PortContext* port = Open("LPT1");
    GiveClient(port);
    ASSERT_TRUE(Start(port));
    ASSERT_NE(port->jobListHead, nullptr);
    ASSERT_TRUE(EndDocPort(port));
    EXPECT_EQ(Received("LPT1"), "") << "no trailer for data never looked at";
    EXPECT_EQ(port->jobListHead, nullptr);
    EXPECT_EQ(port->jobListTail, nullptr);
    // An empty queue concerns no client with a job in it: it is not kept.
    StatusVariable* queue = FindVariable("PrinterQueue", port->variables, port);
    ASSERT_NE(queue, nullptr);
    EXPECT_EQ(queue->Value, nullptr);
    EXPECT_EQ(queue->Dirty, 0u);
}

TEST_F(JobRoadTest, AResetJobGetsNoTrailerHere) {
    PortContext* port = Open("LPT1");
    ASSERT_TRUE(Start(port));
    Send(port, std::string(50, 's'));
    SetPortFlag(port, PF_JOB_RESET);
    ASSERT_TRUE(EndDocPort(port));
    EXPECT_EQ(Received("LPT1"), "");
    EXPECT_FALSE(HasPortFlag(port, PF_JOB_RESET));

    // The bytes the reset job left in the delay line never join the next job.
    RunJob(port, PostScriptJob);
    EXPECT_EQ(Received("LPT1"), PostScriptJob + ExpectedTrailer(port->trailerIdentifier));
}

TEST_F(JobRoadTest, ATrailerThePortWontTakeIsTriedForAMinuteThenLetGo) {
    PortContext* port = Open("LPT1");
    ASSERT_TRUE(Start(port));
    Send(port, PostScriptJob);
    auto& below = lower.Port("LPT1");
    below.QueueWrite(WriteAnswer::Take(100));
    for (int i = 0; i < 1000; ++i) below.QueueWrite(WriteAnswer::TakeNothing(ERROR_TIMEOUT));
    const DWORD before = Elapsed();
    ASSERT_TRUE(EndDocPort(port));
    EXPECT_GT(Elapsed() - before, 60000u);
    EXPECT_LT(Elapsed() - before, 61000u);
    EXPECT_EQ(port->pendingLength, 0u);
    EXPECT_EQ(Received("LPT1"), PostScriptJob + ExpectedTrailer(port->trailerIdentifier).substr(0, 20));

    // A port that takes the rest piece by piece gets it whole.
    ASSERT_TRUE(Start(port));
    Send(port, PostScriptJob);
    below.ForgetCalls();
    for (int i = 0; i < 20; ++i) below.QueueWrite(WriteAnswer::Take(7));
    ASSERT_TRUE(EndDocPort(port));
    EXPECT_EQ(Received("LPT1"), PostScriptJob.substr(120) + ExpectedTrailer(port->trailerIdentifier));
}

// The test holds the semaphore, as a status thread whose pass never ends
// would. A job's start on a port that isn't local, and a job's end, go on
// without it after 30 s, and give nothing back: the holder still has it.
TEST_F(JobRoadTest, ACallThatWaitedTheSemaphoreOutGivesNothingBack) {
    PortContext* serial = Open("COM1");
    PortContext* parallel = Open("LPT1");
    ASSERT_TRUE(Start(parallel));
    for (PortContext* port : {serial, parallel}) {
        ASSERT_EQ(WaitForSingleObject(port->serialSemaphore, 0), WAIT_OBJECT_0);
    }
    const DWORD before = Elapsed();
    EXPECT_TRUE(Start(serial));
    EXPECT_TRUE(EndDocPort(parallel));
    EXPECT_GE(Elapsed() - before, 2 * SerialWaitMs);
    EXPECT_LT(Elapsed() - before, 2 * SerialWaitMs + 1000);
    for (PortContext* port : {serial, parallel}) {
        EXPECT_EQ(WaitForSingleObject(port->serialSemaphore, 0), WAIT_TIMEOUT)
            << port->portName << ": a third caller got in beside the holder";
        ReleaseSemaphore(port->serialSemaphore, 1, nullptr);
    }
    EXPECT_TRUE(EndDocPort(serial));
}

// A job on a one-way port passes straight through in a document of its own
// below, and the spooler hears its last page is out.
TEST_F(JobRoadTest, APassThroughJobTellsTheSpoolerItsLastPageIsOut) {
    platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, "System\\CurrentControlSet\\control\\Print\\Printers\\Laser");
    platform::SpoolerJob queued;
    queued.jobId = 31;
    platform::SubmitJob("Laser", queued);
    PortContext* port = Open("COM1");
    ASSERT_FALSE(port->portKind & PK_BIDI);
    const DWORD t0 = GetTickCount();
    ASSERT_TRUE(Start(port, 31));
    EXPECT_TRUE(HasPortFlag(port, PF_JOB_ACTIVE | PF_DOC_OPEN));
    Send(port, PostScriptJob);
    ASSERT_TRUE(EndDocPort(port));
    EXPECT_FALSE(HasPortFlag(port, PF_JOB_ACTIVE | PF_DOC_OPEN));
    EXPECT_EQ(port->jobOpen, 1u) << "a pass-through job's end leaves it to a port reset";
    EXPECT_EQ(Received("COM1"), PostScriptJob) << "no trailer";
    EXPECT_EQ(platform::JobCommands(), std::vector<std::string>{"31:7"});
    const auto starts = lower.Port("COM1").Calls(CallKind::StartDocPort);
    const auto ends = lower.Port("COM1").Calls(CallKind::EndDocPort);
    ASSERT_EQ(starts.size(), 1u);
    ASSERT_EQ(ends.size(), 1u);
    EXPECT_EQ(starts[0].jobId, 31u);
    EXPECT_EQ(starts[0].level, 1u);
    EXPECT_EQ(starts[0].docName, "letter");
    // A serial port gets 100 ms before the document starts and after it ends.
    EXPECT_EQ(starts[0].tick - t0, 100u);
    EXPECT_EQ(ends[0].tick - t0, 100u);
    EXPECT_EQ(GetTickCount() - t0, 200u);
}

TEST_F(JobRoadTest, AnEcpPortStaysBusyWhileTheSpoolerHasJobsWaiting) {
    platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, "System\\CurrentControlSet\\control\\Print\\Printers\\Laser");
    FixPortMode(PM_ECP);
    PortContext* port = Open("LPT1");
    // A job with a header: one without is wound up, and its port let go.
    GiveClient(port);
    const std::pair<DWORD, DWORD> queue[] = {{12, JOB_STATUS_PRINTING}, {13, 0x1 /* paused */}, {14, 0}, {15, 0}};
    for (const auto& [jobId, status] : queue) {
        platform::SpoolerJob job;
        job.jobId = jobId;
        job.status = status;
        platform::SubmitJob("Laser", job);
    }
    EXPECT_EQ(CountWaitingJobs(port), 2u);

    ASSERT_TRUE(Start(port));
    Send(port, PostScriptJob);
    ASSERT_EQ(port->ecpBusy, 1u);
    ASSERT_TRUE(EndDocPort(port));
    EXPECT_EQ(port->ecpBusy, 1u) << "two jobs still wait";

    platform::ForgetJobs();
    ASSERT_TRUE(Start(port, 14));
    Send(port, PostScriptJob);
    ASSERT_TRUE(EndDocPort(port));
    EXPECT_EQ(port->ecpBusy, 0u);
}

}  // namespace
}  // namespace langmon
