// The status thread as the printer, the spooler and a status client see it:
// the polls it makes and their spacing, what it tells the client, the goodbye
// it sends, and a port that closes under it.

#include "background/status_thread.h"

#include "framing/job_record.h"
#include "monitor/device_requests.h"
#include "platform/spooler_jobs.h"
#include "platform/sync.h"
#include "platform/thread.h"
#include "support/client_fixture.h"
#include "support/port_waits.h"
#include "variables/derived.h"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace langmon {
namespace {

using testing::CallKind;

constexpr uint32_t MonitoringBit = 0x10;  // PrinterExtStatus: monitoring runs
// What the printer is told when the monitor stops following it.
const std::string Goodbye = "\x1b%-12345X@PJL USTATUSOFF\r\n\x1b%-12345X";
const std::string Job = "%!PS-Adobe-3.0\n" + std::string(300, 'p') + "showpage\n";

class StatusThreadTest : public testing::ClientTest {
protected:
    void SetUp() override {
        ClientTest::SetUp();
        testing::DescribePrinter(Printer, testing::Driver6200, "LPT1");
        port = Open("LPT1");
        ASSERT_NE(port, nullptr);
    }

    bool WaitForThreadEnd(DWORD limitMs = 120000) { return testing::WaitUntilThreadEnded(port, limitMs); }

    // A client's request by name; its 4-byte answer.
    int32_t Ask(const char* request) {
        std::string name = request;
        int32_t answer = -1;
        DWORD returned = 0;
        GetPrinterDataFromPort(port, 0, name.data(), nullptr, 0, reinterpret_cast<LPSTR>(&answer), 4, &returned);
        return answer;
    }

    // The ticks of the device ID requests that came after `since`.
    std::vector<DWORD> PollTicks(DWORD since) {
        std::vector<DWORD> ticks;
        for (const auto& call : lower.Port("LPT1").Calls(CallKind::GetPrinterDataFromPort)) {
            if (call.controlId == 17 && call.tick > since) ticks.push_back(call.tick);
        }
        return ticks;
    }

    static std::vector<DWORD> Gaps(const std::vector<DWORD>& ticks) {
        std::vector<DWORD> gaps;
        for (std::size_t i = 1; i < ticks.size(); ++i) gaps.push_back(ticks[i] - ticks[i - 1]);
        return gaps;
    }

    // The monitoring mark of each PrinterExtStatus the client was handed.
    std::vector<bool> MonitoringMarks() {
        std::vector<bool> marks;
        for (const auto& value : manager.HandedTo(Printer, "PrinterExtStatus")) {
            marks.push_back((value.Word(0) & MonitoringBit) != 0);
        }
        return marks;
    }

    // JOB_CONTROL_CANCEL commands the spooler was given for job 12.
    static long Cancels() {
        const auto commands = platform::JobCommands();
        return std::count(commands.begin(), commands.end(), "12:3");
    }

    PortContext* port = nullptr;
};

// The printer reports itself idle while the port still lists the job: on the
// third such poll the job is taken as lost there, during the thread's own
// poll, so the thread tells the printer to stop reporting before it goes.
TEST_F(StatusThreadTest, AJobIsFollowedEveryThreeSecondsUntilItLeavesThenThePrinterIsToldGoodbye) {
    ASSERT_TRUE(Start(port));
    EXPECT_TRUE(HasPortFlag(port, PF_STATUS_ALIVE)) << "a job with a client starts the thread";
    EXPECT_EQ(Send(port, Job), Job.size());
    ASSERT_TRUE(EndDocPort(port));
    const DWORD ended = GetTickCount();
    const std::string beforeGoodbye = Received("LPT1");

    ASSERT_TRUE(WaitForThreadEnd());
    const std::vector<DWORD> polls = PollTicks(ended);
    ASSERT_GE(polls.size(), 2u);
    for (DWORD gap : Gaps(polls)) EXPECT_EQ(gap, StatusPassJobMs);
    EXPECT_EQ(port->jobListHead, nullptr);
    EXPECT_EQ(Received("LPT1"), beforeGoodbye + Goodbye);

    // The client saw monitoring switched on, and off at the end.
    const std::vector<bool> marks = MonitoringMarks();
    ASSERT_FALSE(marks.empty());
    EXPECT_NE(std::find(marks.begin(), marks.end(), true), marks.end());
    EXPECT_FALSE(marks.back());
    // The thread has left nothing behind that a new job would trip on.
    EXPECT_EQ(port->statusWakeEvent, nullptr);
    EXPECT_EQ(WaitForSingleObject(port->statusEndedEvent, 0), WAIT_OBJECT_0);
    EXPECT_FALSE(HasPortFlag(port, PF_STATUS_RUN));

    // The next job starts a thread of its own.
    ASSERT_TRUE(Start(port, 13));
    EXPECT_TRUE(HasPortFlag(port, PF_STATUS_ALIVE));
    EXPECT_EQ(WaitForSingleObject(port->statusEndedEvent, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(EndDocPort(port));

    // The port closes: its client hears that it is neither watched nor
    // two-way any more, and that the printer is gone from it.
    ASSERT_TRUE(Close(port));
    const auto ext = manager.HandedTo(Printer, "PrinterExtStatus");
    ASSERT_FALSE(ext.empty());
    EXPECT_EQ(ext.back().Word(0), 0u);
    const auto status = manager.HandedTo(Printer, "PrinterStatus");
    ASSERT_FALSE(status.empty());
    EXPECT_EQ(status.back().Word(4), 0x1000u);
}

TEST_F(StatusThreadTest, APausedJobIsToldToItsClientAndAnIdlePortIsPolledEveryFourSeconds) {
    platform::SpoolerJob paused;
    paused.jobId = 12;
    paused.document = "letter";
    paused.status = 0x1;  // JOB_STATUS_PAUSED
    platform::SubmitJob(Printer, paused);
    ASSERT_TRUE(Start(port));
    Sleep(StatusPassJobMs + 500);
    const auto statuses = manager.HandedTo(Printer, "JobStatus");
    ASSERT_FALSE(statuses.empty());
    EXPECT_NE(statuses.back().Word(0) & JobPaused, 0u) << "the spooler holds the job";

    // A client asked the thread to stay ("Wake Up"): with the job gone the
    // port is idle and the passes slow down.
    SetPortWord(port->wakeRequested, 1);
    ASSERT_TRUE(EndDocPort(port));
    Sleep(StatusPassIdleMs);  // the pass that sees the job gone
    const DWORD idle = GetTickCount();
    Sleep(4 * StatusPassIdleMs);
    EXPECT_EQ(Gaps(PollTicks(idle)), (std::vector<DWORD>{4000, 4000, 4000}));
    EXPECT_TRUE(HasPortFlag(port, PF_STATUS_ALIVE));

    // "Stop Polling", and "Wake Up" again just as the thread, on its way
    // out, tells the client that monitoring is off: the client's wish came
    // after the thread chose to go, and the thread stays for it.
    int32_t woken = -1;
    manager.WhenHanded([&](const testing::HandedValue& value) {
        if (woken != -1 || value.name != "PrinterExtStatus" || (value.Word(0) & MonitoringBit) != 0) return;
        char wake[] = "Wake Up";
        DWORD returned = 0;
        GetPrinterDataFromPort(port, 0, wake, nullptr, 0, reinterpret_cast<LPSTR>(&woken), 4, &returned);
    });
    EXPECT_EQ(Ask("Stop Polling"), 0);
    Sleep(StatusPassIdleMs);
    manager.WhenHanded(nullptr);
    EXPECT_EQ(woken, 0);
    const DWORD woke = GetTickCount();
    Sleep(2 * StatusPassIdleMs);
    EXPECT_TRUE(HasPortFlag(port, PF_STATUS_ALIVE)) << "the thread polls on";
    EXPECT_EQ(PollTicks(woke).size(), 2u);

    // "Stop Polling": nothing holds the thread any more.
    EXPECT_EQ(Ask("Stop Polling"), 0);
    EXPECT_TRUE(WaitForThreadEnd(StatusPassIdleMs + 1000));
    EXPECT_EQ(Received("LPT1").find("USTATUSOFF"), std::string::npos)
        << "the job left before a poll of the thread";
}

TEST_F(StatusThreadTest, APrinterThatFallsSilentLosesTheJobOnceAndTheRestIsSwallowed) {
    platform::SpoolerJob queued;
    queued.jobId = 12;
    platform::SubmitJob(Printer, queued);
    ASSERT_TRUE(Start(port));
    const std::string first = Job.substr(0, 100);
    EXPECT_EQ(Send(port, first), first.size());
    const std::size_t sent = Received("LPT1").size();
    PrinterSilent(port);
    Sleep(StatusPassJobMs + 4000);  // a pass, with its three tries

    uint32_t words[3] = {};
    std::memcpy(words, RowOf(port, "PrinterStatus")->Value, sizeof words);
    EXPECT_NE(words[1] & PrinterLostWord, 0u) << "the thread's poll found the printer gone";
    EXPECT_EQ(Cancels(), 1) << "the spooler cancels the job, once";
    int cancelling = 0;
    for (const auto& value : manager.HandedTo(Printer, "JobStatus")) {
        cancelling += (value.Word(0) & JobCancelling) != 0;
    }
    EXPECT_GE(cancelling, 1);

    // The spooler sends the rest; none of it reaches the printer. What it
    // sent before the printer fell silent does, with the trailer that closes
    // the job there, and no goodbye.
    const std::string rest = Job.substr(100);
    EXPECT_EQ(Send(port, rest), rest.size());
    EXPECT_EQ(Received("LPT1").size(), sent);
    EXPECT_TRUE(EndDocPort(port));
    EXPECT_TRUE(WaitForThreadEnd());
    const std::string id = port->trailerIdentifier;
    EXPECT_EQ(Received("LPT1"), testing::ExpectedHeader(id) + first + testing::ExpectedTrailer(id));
    EXPECT_EQ(Cancels(), 1);
}

// "Suspend" sets the request and wakes the thread, as a client that wants
// the port left alone between jobs does.
TEST_F(StatusThreadTest, ASuspendDuringAJobIsDroppedAndOneAfterItEndsTheThreadWithItsQueue) {
    ASSERT_TRUE(Start(port));
    SetPortWord(port->suspendRequested, 1);
    WakeStatusThread(port);
    Sleep(StatusPassJobMs);
    EXPECT_TRUE(HasPortFlag(port, PF_STATUS_ALIVE)) << "too late: a job has begun";
    EXPECT_EQ(PortWord(port->suspendRequested), 0u);

    EXPECT_EQ(Send(port, Job), Job.size());
    ASSERT_TRUE(EndDocPort(port));
    const std::string sent = Received("LPT1");
    manager.ForgetHanded();
    SetPortWord(port->suspendRequested, 1);
    WakeStatusThread(port);
    ASSERT_TRUE(WaitForThreadEnd(StatusPassJobMs));
    // The job still listed is given up: its client hears the queue is empty,
    // and the printer is told to stop reporting.
    const auto queue = manager.HandedTo(Printer, "PrinterQueue");
    ASSERT_FALSE(queue.empty());
    EXPECT_EQ(queue.back().Word(0), 0u);
    EXPECT_EQ(port->jobListHead, nullptr);
    EXPECT_EQ(Received("LPT1"), sent + Goodbye);
    EXPECT_EQ(PortWord(port->suspendRequested), 0u);

    // A job whose trailer the port won't take: on its way out the thread
    // offers it for a minute, then lets it go, and the next job reaches the
    // printer clean.
    ASSERT_TRUE(Start(port, 13));
    EXPECT_EQ(Send(port, Job), Job.size());
    auto& below = lower.Port("LPT1");
    for (int i = 0; i < 1000; ++i) below.QueueWrite(testing::WriteAnswer::TakeNothing(ERROR_TIMEOUT));
    ASSERT_TRUE(EndDocPort(port));
    ASSERT_NE(port->pendingLength, 0u);
    const std::string stuck = Received("LPT1");
    SetPortWord(port->suspendRequested, 1);
    WakeStatusThread(port);
    const DWORD suspended = GetTickCount();
    ASSERT_TRUE(WaitForThreadEnd(StatusPassJobMs + 61000));
    EXPECT_GT(GetTickCount() - suspended, 60000u);
    EXPECT_EQ(port->pendingLength, 0u);
    EXPECT_EQ(Received("LPT1"), stuck);
    below.ForgetQueuedWrites();
    below.ForgetCalls();
    ASSERT_TRUE(Start(port, 14));
    const std::string id = port->jobIdentifier;
    EXPECT_EQ(Send(port, Job), Job.size());
    ASSERT_TRUE(EndDocPort(port));
    EXPECT_EQ(Received("LPT1"), testing::ExpectedHeader(id) + Job + testing::ExpectedTrailer(id));
}

// A client's "Wake Up" and a job's start at the same moment share one status
// thread, whichever comes first: a second would be left out of the port's
// closing, which waits for one. The client asks the moment the job's start
// has a job to watch, right where the start looks for a thread.
TEST_F(StatusThreadTest, AWakeUpAndAJobStartingTogetherShareOneThread) {
    struct Round {
        PortContext* port;
        DOC_INFO_1* doc;
        DWORD jobId;
        int32_t woken;
    };
    const LPTHREAD_START_ROUTINE client = [](LPVOID argument) -> DWORD {
        auto* round = static_cast<Round*>(argument);
        // A busy look, to be on hand at that moment; bounded, in case the
        // start waits on the clock on its way.
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(2);
        while (PortWord(round->port->watchJob) == 0 && std::chrono::steady_clock::now() < giveUp) {
        }
        char wake[] = "Wake Up";
        char stop[] = "Stop Polling";
        int32_t stopped = 0;
        DWORD returned = 0;
        GetPrinterDataFromPort(round->port, 0, wake, nullptr, 0, reinterpret_cast<LPSTR>(&round->woken), 4,
                               &returned);
        GetPrinterDataFromPort(round->port, 0, stop, nullptr, 0, reinterpret_cast<LPSTR>(&stopped), 4, &returned);
        return 0;
    };
    const LPTHREAD_START_ROUTINE spooler = [](LPVOID argument) -> DWORD {
        auto* round = static_cast<Round*>(argument);
        char printer[] = "Laser";
        StartDocPort(round->port, printer, round->jobId, 1, reinterpret_cast<LPBYTE>(round->doc));
        EndDocPort(round->port);
        return 0;
    };
    // The printer's client is made by a first job, alone. Without data it
    // ends at once: the port no longer lists it when the thread next takes
    // the semaphore, and the thread ends without a word to the printer.
    ASSERT_TRUE(Start(port));
    ASSERT_TRUE(EndDocPort(port));
    EXPECT_EQ(port->jobListHead, nullptr);
    ASSERT_TRUE(WaitForThreadEnd(10000));
    EXPECT_EQ(Received("LPT1"), "");
    std::size_t objects = 0;
    for (int n = 0; n < 300; ++n) {
        ASSERT_EQ(PortWord(port->watchJob), 0u);
        Round round{port, &doc1, static_cast<DWORD>(100 + n), 1};
        HANDLE threads[2] = {CreateThread(nullptr, 0, client, &round, 0, nullptr),
                             CreateThread(nullptr, 0, spooler, &round, 0, nullptr)};
        for (HANDLE thread : threads) {
            ASSERT_NE(thread, nullptr);
            WaitForSingleObject(thread, INFINITE);
            CloseHandle(thread);
        }
        EXPECT_EQ(round.woken, 0) << "round " << n;
        ASSERT_TRUE(WaitForThreadEnd()) << "round " << n;
        SettleThreads();
        // The last thread's handle and event stay until the next start joins
        // them; those of a second thread would stay for ever.
        if (n == 0) objects = platform::LiveObjectCount();
        ASSERT_EQ(platform::LiveObjectCount(), objects) << "round " << n;
    }
}

// ClosePort while the thread rests between passes, polls, or winds up by
// itself: the thread wakes, ends, and the port goes only after it. The
// address sanitizer sees any touch of the freed port.
TEST_F(StatusThreadTest, ClosingThePortAtAnyMomentEndsTheThreadBeforeThePortGoes) {
    for (int round = 0; round < 1000; ++round) {
        HANDLE handle = nullptr;
        ASSERT_TRUE(OpenPortEx(const_cast<LPSTR>("LPT2"), const_cast<LPSTR>(Printer), &handle,
                               lower.Table()));
        auto* other = static_cast<PortContext*>(handle);
        lower.Port("LPT2").SetDeviceId(testing::KnownPrinterId);
        testing::DescribePrinter(Printer, testing::Driver6200, "LPT2");
        ASSERT_TRUE(StartDocPort(other, const_cast<LPSTR>(Printer), 100 + round, 1,
                                 reinterpret_cast<LPBYTE>(&doc1)));
        if (round % 3 != 0) {
            std::string job = Job;
            DWORD written = 0;
            WritePort(other, reinterpret_cast<LPBYTE>(job.data()), static_cast<DWORD>(job.size()),
                      &written);
        }
        EndDocPort(other);
        Sleep(static_cast<DWORD>(round * 37 % 12000));
        const DWORD closing = GetTickCount();
        ASSERT_TRUE(ClosePort(other)) << "round " << round;
        EXPECT_LE(GetTickCount() - closing, 12000u) << "round " << round;
    }
    // How much of the printer's time the rounds stand for, in the report.
    RecordProperty("virtual_seconds", static_cast<int>(Elapsed() / 1000));
}

}  // namespace
}  // namespace langmon
