// What a status application gets from the monitor through
// GetPrinterDataFromPort with a value name, on the emulated printer and the
// virtual clock: the 4-byte answers and their buffer checks, waking and
// suspending the status thread, the LM_ values fresh and stale, the service
// tag with each of its statuses, and the client's refresh with each result.

#include "scenarios/scenario_fixture.h"

#include "acquisition/lm_values.h"
#include "background/refresh.h"
#include "support/fake_manager.h"
#include "support/port_waits.h"

#include <cstring>

namespace langmon::scenario {
namespace {

const std::string ServiceTagRequestText = Uel + "@PJL INFO SERVICETAG\r\n" + Uel;
const std::string BothLinesRequest = Uel + "@PJL INFO STATUS\r\n@PJL INFO SERVICETAG\r\n" + Uel;
const std::string Job = "%!PS-Adobe-3.0\n0 setgray (" + std::string(200, 'b') + ") show showpage\n%%EOF\n";

// One request's outcome as the application sees it.
struct Reply {
    BOOL ok = FALSE;
    int32_t answer = 0x5A5A5A5A;  // what the buffer holds afterwards
    DWORD returned = 0xdeadbeef;
    DWORD error = 0;  // the last error, preset to 0xdeadbeef
};

class ClientRequestsTest : public ScenarioTest {
protected:
    void SetUp() override {
        ScenarioTest::SetUp();
        port = Connect("LPT1", PM_COMPAT, true);
        // A driver the status manager keeps variables for: the printer's
        // client binds to the test's manager.
        testing::DescribePrinter("Laser", testing::Driver6200, "LPT1");
        ASSERT_NE(port, nullptr);
    }

    Reply Ask(const std::string& name, DWORD size = 4) {
        Reply reply;
        std::string text = name;
        SetLastError(0xdeadbeef);
        reply.ok = monitor.GetPrinterDataFromPort(port, 0, text.data(), nullptr, 0,
                                                  reinterpret_cast<LPSTR>(&reply.answer), size, &reply.returned);
        reply.error = GetLastError();
        return reply;
    }
    // A value of `size` bytes, as the application reads it.
    std::string AskBytes(const std::string& name, DWORD size, BOOL* ok) {
        std::string out(size, '\x5A');
        std::string text = name;
        DWORD returned = 0;
        *ok = monitor.GetPrinterDataFromPort(port, 0, text.data(), nullptr, 0, out.data(), size, &returned);
        return out;
    }
    int32_t Refresh(const std::string& list, const std::string& printer = "Laser") {
        manager.ClientWrites("Laser", "RefreshStatus", list + '\0');
        return Ask("Refresh:" + printer).answer;
    }
    // The printer's bytes since `from`.
    std::string ReceivedSince(std::size_t from) { return printer->Received().substr(from); }
    static std::size_t Count(const std::string& text, const std::string& part) {
        std::size_t count = 0;
        for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
        return count;
    }
    // Ends a job sent through the monitor: the printer prints it and reports
    // its end, and the port lets it go.
    void FinishJob() {
        for (int i = 0; i < 600 && port->jobListHead != nullptr; ++i) Sleep(500);
        ASSERT_EQ(port->jobListHead, nullptr) << "the job never left the port";
    }

    testing::FakeManager manager;
    PortContext* port = nullptr;
};

TEST_F(ClientRequestsTest, FourByteRequestsAnswerInOrderAndRefuseASmallBufferWithTheSizeTheyNeed) {
    Reply reply = Ask("IsWakeup");
    EXPECT_TRUE(reply.ok);
    EXPECT_EQ(reply.answer, 330);
    EXPECT_EQ(reply.returned, 4u);

    reply = Ask("Wake Up", 2);
    EXPECT_FALSE(reply.ok);
    EXPECT_EQ(reply.error, ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(reply.returned, 4u);
    EXPECT_EQ(reply.answer, 0x5A5A5A5A) << "the small buffer is left alone";
    EXPECT_FALSE(HasPortFlag(port, PF_STATUS_ALIVE)) << "a refused request does nothing";

    EXPECT_EQ(Ask("Wake Up").answer, 0);
    EXPECT_TRUE(HasPortFlag(port, PF_STATUS_ALIVE));
    EXPECT_EQ(Ask("Wake Up").answer, -19);
    EXPECT_EQ(Ask("Stop Polling").answer, 0);
    EXPECT_EQ(Ask("Stop Polling").answer, -19);

    reply = Ask("Wake Up Now");
    EXPECT_FALSE(reply.ok) << "\"Wake Up\" is tested exactly";
    EXPECT_EQ(reply.error, 0xdeadbeefu) << "an unknown name leaves the last error alone";
}

TEST_F(ClientRequestsTest, SuspendEndsAnIdleThreadAnswersAtOnceWithoutOneAndIsRefusedDuringAJob) {
    const DWORD before = GetTickCount();
    EXPECT_EQ(Ask("Suspend").answer, 0);
    EXPECT_EQ(GetTickCount(), before) << "no thread, no wait";

    ASSERT_EQ(Ask("Wake Up").answer, 0);
    EXPECT_EQ(Ask("Suspend").answer, 0);
    EXPECT_TRUE(testing::WaitUntilThreadEnded(port, 10000));
    EXPECT_FALSE(HasPortFlag(port, PF_STATUS_ALIVE));

    Start(port);
    EXPECT_EQ(Ask("Suspend").answer, -19);
    EXPECT_TRUE(TookAll(Spool(port, Job), Job.size()));
    EXPECT_TRUE(monitor.EndDocPort(port));
    FinishJob();
}

TEST_F(ClientRequestsTest, LmValuesArePolledWhenAMomentOldAndAnsweredByExactName) {
    BOOL ok = FALSE;
    const int pollsBefore = OwnControlRequests();
    std::string name = AskBytes("LM_SysName", 32, &ok);
    ASSERT_TRUE(ok);
    EXPECT_EQ(name, std::string("Laser Printer 6200tx") + std::string(12, '\0'));
    EXPECT_EQ(OwnControlRequests(), pollsBefore + 1) << "values never read are read";

    Sleep(500);
    AskBytes("LM_MemorySizeInMByte", 4, &ok);
    EXPECT_EQ(OwnControlRequests(), pollsBefore + 1) << "values half a second old stand";
    Sleep(600);
    const std::string memory = AskBytes("LM_MemorySizeInMByte", 4, &ok);
    EXPECT_EQ(OwnControlRequests(), pollsBefore + 2) << "values a second old are read anew";
    uint32_t megabytes = 0;
    std::memcpy(&megabytes, memory.data(), 4);
    EXPECT_EQ(megabytes, 128u);

    // The tray block: the count, then a record of eight words per tray.
    const std::string trays = AskBytes("LM_InputTray", 100, &ok);
    uint32_t count = 0, secondIndex = 0;
    std::memcpy(&count, trays.data(), 4);
    std::memcpy(&secondIndex, trays.data() + 4 + 32, 4);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(secondIndex, 2u);

    Reply size = Ask("LM_SysName", 0);
    EXPECT_TRUE(size.ok);
    EXPECT_EQ(size.returned, 32u) << "a size of 0 asks for the value's size";
    EXPECT_FALSE(Ask("LM_InputTray_9_TrayIndex").ok) << "passes the prefix, is no row";
    EXPECT_FALSE(Ask("LM_SysNameOfAnother").ok);

    printer->PowerOff();
    Sleep(1000);
    Reply silent = Ask("LM_RamDisk");
    EXPECT_TRUE(silent.ok);
    EXPECT_EQ(silent.answer, -1) << "a printer that doesn't answer";
}

TEST_F(ClientRequestsTest, TheServiceTagIsReadWithEachOfItsStatuses) {
    std::size_t sent = printer->Received().size();
    BOOL ok = FALSE;
    std::string tag = AskBytes("LM_ServiceTag", 16, &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(tag, std::string("7QX2K9M") + std::string(9, '\0'));
    EXPECT_EQ(ReceivedSince(sent), ServiceTagRequestText) << "one request of 40 bytes";
    EXPECT_EQ(Ask("LM_ServiceTagStatus").answer, 0);
    EXPECT_TRUE(AskBytes("LM_ServiceTagX", 8, &ok).starts_with("7QX2K9M")) << "any longer name asks for the tag";

    // Not while the port has jobs: the printer isn't asked.
    Start(port);
    EXPECT_TRUE(TookAll(Spool(port, Job), Job.size()));
    EXPECT_TRUE(monitor.EndDocPort(port));
    ASSERT_NE(port->jobListHead, nullptr);
    sent = printer->Received().size();
    tag = AskBytes("LM_ServiceTag", 8, &ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(tag, std::string(8, '\0'));
    EXPECT_EQ(Ask("LM_ServiceTagStatus").answer, static_cast<int32_t>(ERROR_INVALID_PRINTER_STATE));
    EXPECT_EQ(ReceivedSince(sent), "");
    FinishJob();

    // Not when the port can't be had.
    ASSERT_EQ(WaitForSingleObject(port->serialSemaphore, 0), WAIT_OBJECT_0);
    EXPECT_FALSE(AskBytes("LM_ServiceTag", 8, &ok) != std::string(8, '\0') || ok);
    EXPECT_EQ(Ask("LM_ServiceTagStatus").answer, 1);
    ReleaseSemaphore(port->serialSemaphore, 1, nullptr);

    printer->PowerOff();
    EXPECT_EQ(AskBytes("LM_ServiceTag", 8, &ok), std::string(8, '\0'));
    EXPECT_FALSE(ok);
    EXPECT_EQ(Ask("LM_ServiceTagStatus").answer, static_cast<int32_t>(ERROR_DEVICE_NOT_CONNECTED));
}

TEST_F(ClientRequestsTest, ARefreshSendsOneRequestWithTheLinesItsListNeedsAndPublishesTheAnswers) {
    const std::size_t sent = printer->Received().size();
    EXPECT_EQ(Refresh("PrinterDisplay;ServiceTag"), 0);
    EXPECT_EQ(Count(ReceivedSince(sent), BothLinesRequest), 1u);
    EXPECT_EQ(Count(ReceivedSince(sent), "@PJL INFO"), 2u) << "one request with both lines";
    const auto tags = manager.HandedTo("Laser", "ServiceTag");
    ASSERT_FALSE(tags.empty());
    EXPECT_EQ(std::string(tags.back().bytes.begin(), tags.back().bytes.begin() + 7), "7QX2K9M");
    EXPECT_FALSE(manager.HandedTo("Laser", "PrinterDisplay").empty());
}

TEST_F(ClientRequestsTest, ARefreshGivesEachResultCode) {
    std::size_t sent = printer->Received().size();
    int polls = OwnControlRequests();
    EXPECT_EQ(Refresh("NoSuchVariable;Another"), -19);
    EXPECT_EQ(Ask("Refresh:").answer, -19) << "no printer name";
    EXPECT_EQ(Refresh("TonerRemain", "Somebody Else"), -19);
    EXPECT_EQ(ReceivedSince(sent), "");
    EXPECT_EQ(OwnControlRequests(), polls) << "nothing asked of the printer";

    // A list of polled rows: a poll, and nothing sent.
    EXPECT_EQ(Refresh("TonerRemain;PrinterModel"), 0);
    EXPECT_EQ(OwnControlRequests(), polls + 1);
    EXPECT_EQ(ReceivedSince(sent), "");

    // With the status thread running, only a panel row makes its own poll.
    ASSERT_EQ(Ask("Wake Up").answer, 0);
    polls = OwnControlRequests();
    EXPECT_EQ(Refresh("TonerRemain"), -19);
    EXPECT_EQ(OwnControlRequests(), polls);
    EXPECT_EQ(Refresh("OppPaperType"), 0);
    EXPECT_EQ(OwnControlRequests(), polls + 1);
    ASSERT_EQ(Ask("Stop Polling").answer, 0);

    // During a job: busy, before anything is asked.
    Start(port);
    EXPECT_EQ(Refresh("ServiceTag"), -38);
    EXPECT_TRUE(TookAll(Spool(port, Job), Job.size()));
    EXPECT_TRUE(monitor.EndDocPort(port));
    EXPECT_EQ(Refresh("ServiceTag"), -19) << "a job still in the port's list";
    FinishJob();

    printer->PowerOff();
    EXPECT_EQ(Refresh("ServiceTag"), -37);
    EXPECT_EQ(Refresh("PrinterModel"), -37) << "a row that reports a silent printer";
    EXPECT_EQ(Refresh("TonerRemain"), 0) << "a row that doesn't";
    printer->PowerOn();
    Sleep(60000);

    printer->Change([](emulator::PrinterState& state) { state.model = emulator::Model6300; });
    EXPECT_EQ(Refresh("ServiceTag"), -80) << "the client's driver is of another model";
}

}  // namespace
}  // namespace langmon::scenario
