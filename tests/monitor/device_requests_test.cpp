// The spooler's requests that reach the port outside a job's data: the job
// reset (ControlID 7) as the printer and the job's tracking see it, other
// control codes passed below, and ReadPort.

#include "monitor/device_requests.h"

#include "monitor/lower_port.h"

#include "support/job_road_fixture.h"

namespace langmon {
namespace {

using testing::CallKind;
using testing::ExpectedTrailer;
using testing::JobRoadTest;
using testing::Uel;

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

TEST_F(DeviceRequestsTest, AResetPostScriptJobIsClosedAtThePrinterUnderItsNameAndTheRestSwallowed) {
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
}

TEST_F(DeviceRequestsTest, AResetJobOfAnotherLanguageIsCancelledWithoutAWordToThePrinter) {
    PortContext* port = Running("LPT1", PclJob);
    const std::size_t before = ReceivedSize("LPT1");
    EXPECT_FALSE(Control(port, JobResetControl));
    EXPECT_EQ(ReceivedSize("LPT1"), before);
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

TEST_F(DeviceRequestsTest, OtherCodesGoBelowAndAPortMonitorWithoutTheEntryGivesZero) {
    PortContext* port = Open("LPT1");
    lower.Port("LPT1").SetControlAnswer(99, "answer");
    DWORD returned = 0;
    EXPECT_TRUE(Control(port, 99, &returned));
    EXPECT_EQ(returned, 6u);
    EXPECT_EQ(ControlCalls("LPT1", 99), 1);

    lower.RemoveGetPrinterDataFromPort();
    PortContext* other = Open("USB001");
    EXPECT_FALSE(Control(other, 99));
    EXPECT_EQ(WaitForSingleObject(other->serialSemaphore, 0), WAIT_OBJECT_0) << "the semaphore was given back";
    ReleaseSemaphore(other->serialSemaphore, 1, nullptr);
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

    SetLastError(0xdeadbeef);
    EXPECT_FALSE(ReadPort(nullptr, reinterpret_cast<LPBYTE>(buffer), sizeof buffer, &read));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

}  // namespace
}  // namespace langmon
