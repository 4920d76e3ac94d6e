// Links come and go on one thread while publication walks them on another:
// every walk sees whole links, and every value goes to a client that exists.
// Run under the thread sanitizer, this is where a missing guard shows.

#include "acquisition/poll.h"
#include "manager/manager_link.h"
#include "monitor/job_end.h"
#include "platform/registry.h"
#include "platform/spooler_jobs.h"
#include "platform/thread.h"
#include "support/client_fixture.h"
#include "variables/derived.h"
#include "variables/publication.h"

#include <atomic>

namespace langmon {
namespace {

using testing::DescribePrinter;
using testing::Driver6200;

constexpr int Rounds = 200;
// The job's client comes and goes this often while the job is asked about.
constexpr int ClientRounds = 1000;

class LinkConcurrencyTest : public testing::ClientTest {
protected:
    struct Shared {
        LinkConcurrencyTest* test;
        PortContext* port;
        std::atomic<bool> changing{true};
    };

    // Runs both on threads of their own and waits until both have ended.
    static void RunTogether(LPTHREAD_START_ROUTINE first, LPTHREAD_START_ROUTINE second, Shared* shared) {
        HANDLE threads[2] = {CreateThread(nullptr, 0, first, shared, 0, nullptr),
                             CreateThread(nullptr, 0, second, shared, 0, nullptr)};
        for (HANDLE thread : threads) {
            ASSERT_NE(thread, nullptr);
            EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
            CloseHandle(thread);
        }
    }

    static DWORD Publisher(LPVOID argument) {
        auto* shared = static_cast<Shared*>(argument);
        for (uint32_t round = 0; round < Rounds; ++round) {
            LockPort(shared->port);
            SetPrinterStatus(shared->port, 0, 0, round);
            UnlockPort(shared->port);
            PublishVariables(shared->port);
        }
        return 0;
    }

    // The spooler's job check, a job reset's word to the client, and the
    // count of the printer's waiting jobs at the job's end, for as long as
    // the job's client comes and goes.
    static DWORD JobAsker(LPVOID argument) {
        auto* shared = static_cast<Shared*>(argument);
        for (int round = 0; shared->changing.load(); ++round) {
            CheckSpoolerJob(shared->port);
            UpdateJobStatus(shared->port, JobCancelling, round & 1);
            CountWaitingJobs(shared->port);
        }
        return 0;
    }

    // The job's client comes with a job's start and goes as its request
    // thread or a reconciling of the port takes it down.
    static DWORD JobClientChanger(LPVOID argument) {
        auto* shared = static_cast<Shared*>(argument);
        for (int round = 0; round < ClientRounds; ++round) {
            LockPort(shared->port);
            ManagerLink* link = CreateManagerLink("Office", shared->port);
            shared->port->jobManager = link;
            UnlockPort(shared->port);
            if (link != nullptr) RemoveLink(link, shared->port);
        }
        shared->changing = false;
        return 0;
    }

    static DWORD Binder(LPVOID argument) {
        auto* shared = static_cast<Shared*>(argument);
        for (int round = 0; round < Rounds; ++round) {
            ManagerLink* first = CreateManagerLink("First", shared->port);
            ManagerLink* second = CreateManagerLink("Second", shared->port);
            BindPendingClients(shared->port);
            if (first != nullptr) RemoveLink(first, shared->port);
            if (second != nullptr) RemoveLink(second, shared->port);
        }
        return 0;
    }
};

TEST_F(LinkConcurrencyTest, PublicationAndBindingOnTwoThreadsMeetOnlyWholeLinks) {
    DescribePrinter("First", Driver6200, "LPT1");
    DescribePrinter("Second", Driver6200, "LPT1");
    // One that binds only on a later pass, so binding changes the list too.
    DescribePrinter("Steady", Driver6200, "LPT1");
    manager.DontOpen("Steady");
    PortContext* port = Open("LPT1");
    ASSERT_NE(port, nullptr);
    ASSERT_EQ(PollPrinterStatus(port), 1);  // the 6200 on the port fits every driver here
    ASSERT_NE(CreateManagerLink("Steady", port), nullptr);
    manager.DontOpen("Steady", false);

    Shared shared{this, port};
    RunTogether(Publisher, Binder, &shared);

    // The steady client saw the last status, and no call reached a manager
    // after its link had closed it.
    const auto steady = manager.HandedTo("Steady", "PrinterStatus");
    ASSERT_FALSE(steady.empty());
    EXPECT_EQ(steady.back().Word(8), static_cast<uint32_t>(Rounds - 1));
    EXPECT_EQ(manager.StaleCalls(), 0);
    EXPECT_EQ(manager.OpenManagers(), 1);
}

// The job's client is taken down while the job is asked about through it:
// every use holds the link whole, and no call reaches a manager its link has
// closed. Under the address sanitizer a use of a freed link shows here.
TEST_F(LinkConcurrencyTest, TheJobsClientGoesWhileTheJobIsAskedAboutThroughIt) {
    // Threads start without a pause between them, so that both loops run at
    // the same time on the virtual clock.
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, "SOFTWARE\\Quor\\Status Monitor", "CreateThreadInterval", 0);
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, "SOFTWARE\\Quor\\Status Monitor", "CTIFlag", 0);
    DescribePrinter("Office", Driver6200, "LPT1");
    PortContext* port = Open("LPT1");
    ASSERT_NE(port, nullptr);
    ASSERT_EQ(PollPrinterStatus(port), 1);
    platform::SpoolerJob job;
    job.jobId = 12;
    job.status = 0x1;  // JOB_STATUS_PAUSED
    platform::SubmitJob("Office", job);
    port->jobId = 12;
    SetPortFlag(port, PF_JOB_ACTIVE);

    Shared shared{this, port};
    RunTogether(JobAsker, JobClientChanger, &shared);
    ClearPortFlag(port, PF_JOB_ACTIVE);
    EXPECT_EQ(port->jobManager, nullptr);
    EXPECT_EQ(manager.StaleCalls(), 0);
    EXPECT_EQ(manager.OpenManagers(), 0);
    // The client heard that its job is paused, from the job check.
    bool paused = false;
    for (const auto& value : manager.HandedTo("Office", "JobStatus")) {
        paused = paused || (value.Word(0) & JobPaused) != 0;
    }
    EXPECT_TRUE(paused);
}

}  // namespace
}  // namespace langmon
