// The poll against a scripted port: when a printer counts as lost, foreign,
// known or unchanged, what each of those does to the variables, and how long
// it takes on the clock.

#include "acquisition/poll.h"
#include "framing/job_record.h"
#include "support/client_fixture.h"
#include "variables/derived.h"
#include "variables/status_variable.h"

#include <algorithm>
#include <vector>

namespace langmon {
namespace {

using testing::CallKind;
using testing::ForeignPrinterId;
using testing::KnownPrinterId;

class PollTest : public testing::ClientTest {
protected:
    std::vector<uint32_t> Status(PortContext* port) {
        const StatusVariable* row = FindVariable("PrinterStatus", port->variables, port);
        if (row == nullptr || row->Value == nullptr) return {};
        const auto* words = static_cast<const uint32_t*>(row->Value);
        return {words[0], words[1], words[2]};
    }
    // The port's printer, "Laser", gets a client of the 6200's driver; what a
    // poll changes shows in what the client is handed.
    void Bind(PortContext* port) {
        testing::DescribePrinter(Printer, testing::Driver6200, port->portName);
        ASSERT_NE(CreateManagerLink(Printer, port), nullptr);
    }
    // The names the client was handed since the last ForgetHanded, once each.
    std::vector<std::string> Sent() {
        std::vector<std::string> names;
        for (const std::string& name : manager.NamesHandedTo(Printer)) {
            if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
        }
        return names;
    }
    int DeviceIdRequests(const char* name) { return lower.Port(name).Count(CallKind::GetPrinterDataFromPort); }
};

TEST_F(PollTest, AnIdlePrinterIsLostAtTheFirstSilenceAJobsAfterThreeTriesASecondApart) {
    PortContext* idle = Open("LPT1");
    PrinterSilent(idle);
    EXPECT_EQ(PollPrinterStatus(idle), 0);
    EXPECT_EQ(DeviceIdRequests("LPT1"), 1);
    EXPECT_TRUE(HasPortFlag(idle, PF_OFFLINE));
    EXPECT_FALSE(HasPortFlag(idle, PF_MODEL_KNOWN | PF_DOC_OPEN));
    EXPECT_EQ(Status(idle), (std::vector<uint32_t>{0, 0x100, 0}));

    PortContext* busy = Open("USB001");
    PrinterSilent(busy);
    SetPortFlag(busy, PF_JOB_ACTIVE);
    EXPECT_EQ(PollPrinterStatus(busy), 0);
    const auto tries = lower.Port("USB001").Calls(CallKind::GetPrinterDataFromPort);
    ASSERT_EQ(tries.size(), 3u);
    EXPECT_EQ(tries[0].controlId, 0x16000Cu) << "USB asks by its own code";
    EXPECT_EQ(tries[1].tick - tries[0].tick, 1000u);
    EXPECT_EQ(tries[2].tick - tries[1].tick, 1000u);
    EXPECT_TRUE(HasPortFlag(busy, PF_OFFLINE));
    ClearPortFlag(busy, PF_JOB_ACTIVE);
}

TEST_F(PollTest, EachFailedTryOnAParallelPortReopensTheChannel) {
    PortContext* port = Open("LPT1");
    PrinterSilent(port);
    SetPortFlag(port, PF_JOB_ACTIVE);
    PollPrinterStatus(port);
    // One document of its own, then after each of the three tries the old one
    // ends and a new one opens; the last stays for whoever comes next.
    EXPECT_EQ(lower.Port("LPT1").Count(CallKind::StartDocPort), 4);
    EXPECT_EQ(lower.Port("LPT1").Count(CallKind::EndDocPort), 4);
    EXPECT_FALSE(HasPortFlag(port, PF_DOC_OPEN)) << "the poll closes the document it opened";
    ClearPortFlag(port, PF_JOB_ACTIVE);
}

TEST_F(PollTest, ASecondSilentPollPublishesNothingAndWaitsForNothing) {
    PortContext* port = Open("LPT1");
    Bind(port);
    EXPECT_EQ(PollPrinterStatus(port), 1);
    PrinterSilent(port);
    manager.ForgetHanded();
    PollPrinterStatus(port);
    EXPECT_FALSE(Sent().empty());
    manager.ForgetHanded();
    const DWORD before = Elapsed();
    PollPrinterStatus(port);
    EXPECT_EQ(Sent(), std::vector<std::string>{});
    EXPECT_EQ(Elapsed(), before);
    EXPECT_TRUE(HasPortFlag(port, PF_OFFLINE));
}

// What a device ID that is none changes is the bad-input scenarios' business.
TEST_F(PollTest, AnEcpPortBusyWithAJobIsNotAsked) {
    PortContext* port = Open("LPT1");
    ASSERT_EQ(PollPrinterStatus(port), 1);
    // It answers with one empty byte of its own.
    const int asked = DeviceIdRequests("LPT1");
    port->portMode = PM_ECP;
    port->ecpBusy = 1;
    PrinterSilent(port);
    EXPECT_EQ(PollPrinterStatus(port), 0);
    EXPECT_EQ(DeviceIdRequests("LPT1"), asked) << "nothing reached the port";
    EXPECT_FALSE(HasPortFlag(port, PF_OFFLINE));
    port->ecpBusy = 0;
}

TEST_F(PollTest, AForeignPrinterIsShownOnceUnlessAJobMarksItsStatus) {
    PortContext* port = Open("LPT1");
    Bind(port);
    PrinterAnswers(port, ForeignPrinterId);
    EXPECT_EQ(PollPrinterStatus(port), 0);
    EXPECT_FALSE(HasPortFlag(port, PF_MODEL_KNOWN | PF_OFFLINE));
    EXPECT_EQ(port->modelMask.low | port->modelMask.high, 0u);
    EXPECT_EQ(Status(port), (std::vector<uint32_t>{0, 0x200, 0}));
    const StatusVariable* model = FindVariable("PrinterModel", port->variables, port);
    ASSERT_NE(model->Value, nullptr);
    EXPECT_STREQ(static_cast<const char*>(model->Value), "Office Jet 12");
    EXPECT_EQ(FindVariable("EmulationInfo", port->variables, port)->Value, nullptr) << "no languages of a foreign printer";

    manager.ForgetHanded();
    PollPrinterStatus(port);
    EXPECT_EQ(Sent(), std::vector<std::string>{});

    // With a job's bit in it the status never reads as the foreign form, and
    // each poll sends it again.
    SetPrinterJobBit(port, 1);
    for (int poll = 0; poll < 2; ++poll) {
        manager.ForgetHanded();
        PollPrinterStatus(port);
        EXPECT_EQ(Status(port), (std::vector<uint32_t>{0, 0x200, 0x8}));
        const auto sent = manager.HandedTo(Printer, "PrinterStatus");
        ASSERT_EQ(sent.size(), 1u) << "poll " << poll;
        EXPECT_EQ(sent[0].Word(8), 0x8u);
    }
}

TEST_F(PollTest, TheFirstKnownAnswerAfterALostPhaseSendsEveryValueAgain) {
    PortContext* port = Open("LPT1");
    Bind(port);
    ASSERT_EQ(PollPrinterStatus(port), 1);
    PrinterSilent(port);
    PollPrinterStatus(port);
    manager.ForgetHanded();
    PrinterAnswers(port, KnownPrinterId);
    EXPECT_EQ(PollPrinterStatus(port), 1);
    EXPECT_TRUE(HasPortFlag(port, PF_MODEL_KNOWN));
    EXPECT_FALSE(HasPortFlag(port, PF_OFFLINE));
    const std::vector<std::string> dirty = Sent();
    // Unchanged since the first poll, and still sent again.
    for (const char* name : {"PrinterModel", "PrinterManufacturer", "EmulationInfo", "PrinterMemory"}) {
        EXPECT_NE(std::find(dirty.begin(), dirty.end(), name), dirty.end()) << name;
    }
    EXPECT_EQ(std::find(dirty.begin(), dirty.end(), "JobStatus"), dirty.end()) << "a job's client's own row";
}

TEST_F(PollTest, SilenceWindsUpARunningJobOnceButNotOneStillWaitingForItsHeader) {
    PortContext* port = Open("LPT1");
    GiveClient(port);
    ASSERT_TRUE(Start(port));
    ASSERT_NE(port->jobListHead, nullptr);
    ASSERT_TRUE(HasPortFlag(port, PF_HEADER_DUE));
    PrinterSilent(port);
    PollPrinterStatus(port);
    EXPECT_TRUE(HasPortFlag(port, PF_OFFLINE));
    EXPECT_NE(port->jobListHead, nullptr) << "the job waits for its header";
    EXPECT_FALSE(HasPortFlag(port, PF_DISCARD));
    ASSERT_TRUE(EndDocPort(port));

    // A job whose header is out is cancelled at the first silence only.
    PrinterAnswers(port, KnownPrinterId);
    ASSERT_TRUE(Start(port));
    DWORD written = 0;
    ASSERT_TRUE(Write(port, "%!PS-Adobe-3.0\n" + std::string(200, 'a'), &written));
    ASSERT_TRUE(HasPortFlag(port, PF_HEADER_SENT));
    PrinterSilent(port);
    PollPrinterStatus(port);
    EXPECT_TRUE(HasPortFlag(port, PF_DISCARD | PF_JOB_GONE));
    EXPECT_EQ(port->jobListHead, nullptr) << "the running job's tracking ended with it";
    ClearPortFlag(port, PF_DISCARD);
    PollPrinterStatus(port);
    EXPECT_FALSE(HasPortFlag(port, PF_DISCARD)) << "once, not on each poll";
    ASSERT_TRUE(EndDocPort(port));
}

TEST_F(PollTest, AStalledPortIsNotAskedForTwentySecondsButItsAnswersAreRead) {
    PortContext* port = Open("LPT1");
    LockPort(port);
    AddJobRecord(7, port);
    UnlockPort(port);
    port->stallTick = GetTickCount() - 5000;
    lower.Port("LPT1").QueueRead("@PJL USTATUS DEVICE\r\nCODE=10001\r\n\f");
    EXPECT_EQ(PollRound(port), 1);
    EXPECT_EQ(DeviceIdRequests("LPT1"), 0);
    EXPECT_GE(lower.Port("LPT1").Count(CallKind::ReadPort), 2) << "until a read gives nothing";
    EXPECT_FALSE(HasPortFlag(port, PF_DOC_OPEN)) << "the round's own document closes";

    Sleep(15000);
    PollRound(port);
    EXPECT_EQ(DeviceIdRequests("LPT1"), 1);
    EXPECT_EQ(port->stallTick, 0xFFFFFFFFu);
}

TEST_F(PollTest, DrainingWaitsFourSecondsForAPrinterStillTalking) {
    PortContext* port = Open("LPT1");
    for (const std::size_t stale : {std::size_t{4500}, std::size_t{4501}}) {
        SCOPED_TRACE(stale);
        lower.Port("LPT1").QueueRead(std::string(stale, 'x'));
        const DWORD before = Elapsed();
        EXPECT_EQ(DrainPrinterInput(0, port), 1);
        EXPECT_EQ(Elapsed() - before, stale > 4500 ? 4000u : 0u);
    }
}

TEST_F(PollTest, ReadTimeOutsAreLongerOnParallelPortsOfTheD00Keyboard) {
    PortContext* port = Open("LPT1");
    EXPECT_EQ(SetReadTimeouts(port), 1);
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, "Software\\langmon", "KeyboardSubtype", 0xD00);
    EXPECT_EQ(SetReadTimeouts(port), 1);
    const auto set = lower.Port("LPT1").Calls(CallKind::SetPortTimeOuts);
    ASSERT_GE(set.size(), 2u);
    EXPECT_EQ(set[set.size() - 2].timeouts.ReadTotalTimeoutConstant, 100u);
    EXPECT_EQ(set.back().timeouts.ReadTotalTimeoutConstant, 1001u);
    EXPECT_EQ(set.back().timeouts.ReadIntervalTimeout, 10u);
    lower.RemoveSetPortTimeOuts();
    PortContext* other = Open("LPT2");
    EXPECT_EQ(SetReadTimeouts(other), 0);
}

}  // namespace
}  // namespace langmon
