// The spooler's requests that reach the port outside a job's data: the job
// reset (ControlID 7) as the printer and the job's tracking see it, other
// control codes passed below, and ReadPort.

#include "monitor/device_requests.h"

#include "monitor/lower_port.h"
#include "platform/spooler_jobs.h"
#include "platform/thread.h"
#include "variables/derived.h"

#include "support/fake_manager.h"
#include "support/job_road_fixture.h"

#include <vector>

namespace langmon {
namespace {

using testing::CallKind;
using testing::ExpectedTrailer;
using testing::JobRoadTest;
using testing::Uel;
using testing::WriteAnswer;

const std::string PostScriptJob = "%!PS-Adobe-3.0\n" + std::string(300, 'p');
const std::string PclJob = "\x1b" "E" + std::string(300, 'r');

class DeviceRequestsTest : public JobRoadTest {
protected:
    // Starts a job on a port whose printer has a client and sends `job`.
    PortContext* Running(const char* name, const std::string& job) {
        PortContext* port = Open(name);
        GiveClient(port);
        EXPECT_TRUE(Start(port));
        Send(port, job);
        return port;
    }
    BOOL Control(PortContext* port, DWORD controlId, DWORD* returned = nullptr) {
        char out[64] = {};
        DWORD count = 0;
        return GetPrinterDataFromPort(port, controlId, nullptr, nullptr, 0, out, sizeof out,
                                      returned != nullptr ? returned : &count);
    }
    std::size_t ReceivedSize(const char* name) { return Received(name).size(); }
    int ControlCalls(const char* name, DWORD controlId) {
        int calls = 0;
        for (const auto& call : lower.Port(name).Calls(CallKind::GetPrinterDataFromPort)) {
            calls += call.controlId == controlId;
        }
        return calls;
    }
};

TEST_F(DeviceRequestsTest, AResetPostScriptJobIsClosedAtThePrinterUnderItsNameAnyOtherJobSilently) {
    PortContext* port = Running("LPT1", PostScriptJob);
    const std::string id = port->jobIdentifier;
    const std::size_t before = ReceivedSize("LPT1");
    EXPECT_FALSE(Control(port, JobResetControl)) << "the family's reset gives 0 though it ran";
    const std::string sent = Received("LPT1").substr(before);
    // The end of file for the interpreter, a UEL, then the trailer naming the job.
    EXPECT_EQ(sent.size(), 61u);
    EXPECT_EQ(sent, "\x04" + Uel + ExpectedTrailer(id));
    EXPECT_EQ(ControlCalls("LPT1", JobResetControl), 0) << "the port monitor below never sees it";
    EXPECT_TRUE(HasPortFlag(port, PF_JOB_RESET));
    EXPECT_TRUE(HasPortFlag(port, PF_DISCARD));

    // What the spooler still sends of the job counts as taken and goes nowhere.
    const std::size_t afterReset = ReceivedSize("LPT1");
    DWORD written = 0;
    Write(port, std::string(200, 'x'), &written);
    EXPECT_EQ(written, 200u);
    EXPECT_EQ(ReceivedSize("LPT1"), afterReset);
    EXPECT_TRUE(EndDocPort(port));

    // A job of another language is cancelled without a word to the printer.
    ASSERT_TRUE(Start(port));
    Send(port, PclJob);
    const std::size_t pcl = ReceivedSize("LPT1");
    EXPECT_FALSE(Control(port, JobResetControl));
    EXPECT_EQ(ReceivedSize("LPT1"), pcl);
    EXPECT_TRUE(HasPortFlag(port, PF_DISCARD));
    EXPECT_TRUE(EndDocPort(port));
}

TEST_F(DeviceRequestsTest, APrinterNotYetSeenHasItsResetPassedBelowAndAnEcpPortFlushedBehindIt) {
    FixPortMode(PM_ECP);
    PortContext* port = Open("LPT1");
    PrinterAnswers(port, testing::ForeignPrinterId);
    ASSERT_TRUE(Start(port));
    ASSERT_EQ(port->modelMask.low | port->modelMask.high, 0u) << "a printer of no model we know";
    lower.Port("LPT1").SetControlAnswer(JobResetControl, "");
    const std::size_t before = ReceivedSize("LPT1");
    EXPECT_TRUE(Control(port, JobResetControl));
    EXPECT_EQ(ControlCalls("LPT1", JobResetControl), 1);
    EXPECT_EQ(Received("LPT1").substr(before), std::string(64, '\0')) << "64 NUL bytes push the job out";
    EXPECT_TRUE(HasPortFlag(port, PF_DOC_OPEN)) << "the document stays open behind the request";
}

// A job on USB whose printer's client is bound to a status manager, so that
// the client's own copy of JobStatus shows what a reset tells it.
class StuckUsbResetTest : public DeviceRequestsTest {
protected:
    // The spooler's reset, made on a thread of its own: it blocks for as long
    // as the port refuses the job's last bytes.
    struct Reset {
        PortContext* port = nullptr;
        BOOL result = TRUE;
        DWORD returnedAt = 0;
    };
    static DWORD RunReset(LPVOID argument) {
        auto* reset = static_cast<Reset*>(argument);
        char out[64] = {};
        DWORD returned = 0;
        reset->result = GetPrinterDataFromPort(reset->port, JobResetControl, nullptr, nullptr, 0, out,
                                               sizeof out, &returned);
        reset->returnedAt = GetTickCount();
        return 0;
    }

    // The WritePort calls below that came after tick `since`.
    std::vector<testing::PortCall> WritesAfter(DWORD since) {
        std::vector<testing::PortCall> writes;
        for (const auto& call : lower.Port("USB001").Calls(CallKind::WritePort)) {
            if (call.tick > since) writes.push_back(call);
        }
        return writes;
    }
    // Every JobStatus the client was handed, in order.
    std::vector<uint32_t> JobStatusWords() {
        std::vector<uint32_t> words;
        for (const auto& value : manager.HandedTo(Printer, "JobStatus")) words.push_back(value.Word(0));
        return words;
    }

    testing::FakeManager manager;
};

TEST_F(StuckUsbResetTest, AResetOfAStuckUsbJobRewritesItsLastBytesEveryFourSecondsUntilThePortTakesThem) {
    testing::DescribePrinter(Printer, testing::Driver6200, "USB001");
    platform::SpoolerJob queued;
    queued.jobId = 12;
    platform::SubmitJob(Printer, queued);
    PortContext* port = Open("USB001");
    ASSERT_TRUE(Start(port));
    ASSERT_EQ(Send(port, PclJob), PclJob.size());
    const std::vector<uint32_t> held = JobStatusWords();
    ASSERT_FALSE(held.empty());
    const uint32_t before = held.back();
    ASSERT_EQ(before & JobCancelling, 0u);

    // The port refuses the spooler's next block, and from then on whatever
    // it is offered, until the test lets it take again.
    std::string tail;
    for (int i = 0; i < 80; ++i) tail += static_cast<char>('a' + i % 26);
    const std::string block = std::string(120, '-') + tail;
    for (int i = 0; i < 40; ++i) lower.Port("USB001").QueueWrite(WriteAnswer::Refuse(ERROR_TIMEOUT));
    const std::string received = Received("USB001");
    DWORD written = 99;
    Write(port, block, &written);
    EXPECT_EQ(written, 0u);
    ASSERT_NE(port->lastWriteFailed, 0u) << lower.Log();

    Reset reset{port};
    const DWORD start = GetTickCount();
    HANDLE thread = CreateThread(nullptr, 0, &StuckUsbResetTest::RunReset, &reset, 0, nullptr);
    ASSERT_NE(thread, nullptr);
    Sleep(2000);
    EXPECT_EQ(JobStatusWords().size(), held.size() + 1);
    EXPECT_EQ(JobStatusWords().back(), before | JobCancelling) << "the client sees the job cancelling";
    EXPECT_TRUE(WritesAfter(start).empty()) << "the first try comes after a pause";

    Sleep(60000);  // 62 s into the reset: fifteen tries refused
    EXPECT_EQ(WaitForSingleObject(thread, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WritesAfter(start).size(), 15u);
    EXPECT_EQ(JobStatusWords().back(), before | JobCancelling) << "a minute has not yet passed";
    Sleep(4000);  // 66 s: the try at 64 s was refused too, past the minute
    EXPECT_EQ(WaitForSingleObject(thread, 0), WAIT_TIMEOUT) << "the reset still tries";
    EXPECT_EQ(JobStatusWords().size(), held.size() + 2);
    EXPECT_EQ(JobStatusWords().back(), before) << "the client no longer sees the stuck job cancelling";

    // The port takes again: the next try goes through and the reset returns.
    lower.Port("USB001").ForgetQueuedWrites();
    ASSERT_EQ(WaitForSingleObject(thread, 20000), WAIT_OBJECT_0);
    CloseHandle(thread);
    const auto tries = WritesAfter(start);
    ASSERT_EQ(tries.size(), 17u) << lower.Log();
    for (std::size_t i = 0; i < tries.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(tries[i].bytes, tail) << "the job's last 80 bytes, every time";
        EXPECT_EQ(tries[i].tick - start, 4000u * (i + 1));
        EXPECT_EQ(tries[i].count, i + 1 < tries.size() ? 0u : 80u);
    }
    EXPECT_EQ(Received("USB001"), received + tail) << "the refused block went no further";
    const DWORD taken = tries.back().tick;
    EXPECT_GE(reset.returnedAt, taken);
    EXPECT_LT(reset.returnedAt - taken, 4000u) << "no try after the one the port took";
    EXPECT_FALSE(reset.result) << "the family's reset gives 0 though it ran";
    EXPECT_TRUE(EndDocPort(port));
}

TEST_F(DeviceRequestsTest, ReadPortReadsInADocumentOfItsOwn) {
    PortContext* port = Open("LPT1");
    lower.Port("LPT1").QueueRead("@PJL USTATUS PAGE\r\n1\r\n\f");
    char buffer[64] = {};
    DWORD read = 0;
    EXPECT_TRUE(ReadPort(port, reinterpret_cast<LPBYTE>(buffer), sizeof buffer, &read));
    EXPECT_EQ(std::string(buffer, read), "@PJL USTATUS PAGE\r\n1\r\n\f");
    EXPECT_EQ(lower.Port("LPT1").Count(CallKind::EndDocPort), lower.Port("LPT1").Count(CallKind::StartDocPort));
    EXPECT_FALSE(HasPortFlag(port, PF_DOC_OPEN));

    // A read the port monitor fails, fails with its reason.
    lower.Port("LPT1").QueueRead(testing::ReadAnswer::Fail(31));
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(ReadPort(port, reinterpret_cast<LPBYTE>(buffer), sizeof buffer, &read));
    EXPECT_EQ(GetLastError(), 31u);
    EXPECT_FALSE(HasPortFlag(port, PF_DOC_OPEN));
}

}  // namespace
}  // namespace langmon
