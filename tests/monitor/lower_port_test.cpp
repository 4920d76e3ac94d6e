// The calls the monitor makes to the port monitor below, as that port monitor
// sees them: documents opened and closed, bytes offered and taken, requests
// forwarded, and what the monitor's caller gets back.
#include "monitor/lower_port.h"

#include "monitor/monitor_entry.h"
#include "portkind/port_kind.h"
#include "support/platform_fixture.h"
#include "support/scripted_port_monitor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace langmon {
namespace {

using testing::CallKind;
using testing::WriteAnswer;
using Kinds = std::vector<CallKind>;
using Texts = std::vector<std::string>;

constexpr auto TakeAll = &WriteAnswer::TakeAll;
constexpr auto Take = &WriteAnswer::Take;
constexpr auto Refuse = &WriteAnswer::Refuse;
constexpr auto Nothing = &WriteAnswer::TakeNothing;

constexpr DWORD Gen = 31;  // ERROR_GEN_FAILURE, a port monitor's usual complaint
constexpr DWORD Timeout = ERROR_TIMEOUT;
constexpr DWORD Denied = ERROR_ACCESS_DENIED;
constexpr DWORD Unset = 0xdeadbeef;
constexpr DWORD NoTick = 0xFFFFFFFFu;

// 51 bytes of PJL, the size of a typical request the monitor sends.
const std::string R51 = "@PJL USTATUS DEVICE = ON\r\n@PJL USTATUS JOB = ON\r\n\r\n";
const std::string Echo = "@PJL ECHO 1\r\n";

// A call as the port monitor got it, without the time it came.
std::string Said(const testing::PortCall& call) {
    const std::string text = call.Describe();
    return text.substr(text.find(' ') + 1);
}

// Every test has a USB and a parallel port, opened as the spooler opens them.
class LowerPortTest : public testing::MonitorTest {
protected:
    void SetUp() override {
        MonitorTest::SetUp();
        usb = Open("USB001");
        lpt = Open("LPT1");
    }
    void TearDown() override {
        for (PortContext* port : opened_) ClosePort(port);
        MonitorTest::TearDown();
    }

    PortContext* Open(const char* name) {
        HANDLE handle = nullptr;
        EXPECT_TRUE(OpenPortEx(const_cast<LPSTR>(name), const_cast<LPSTR>("Printer"), &handle,
                               lower.Table()));
        lower.Port(name).ForgetCalls();
        return opened_.emplace_back(static_cast<PortContext*>(handle));
    }
    testing::ScriptedPort& Below(const PortContext* port) { return lower.Port(port->portName); }

    // The port's queue as text; an empty queue holds no block.
    static std::string Pending(const PortContext* port) {
        EXPECT_EQ(port->pendingData == nullptr, port->pendingLength == 0);
        const auto* data = reinterpret_cast<const char*>(port->pendingData);
        return port->pendingLength == 0 ? std::string() : std::string(data, port->pendingLength);
    }

    // Empty text is sent as no text at all.
    static int Send(PortContext* port, const std::string& text, DWORD* written, int queueOnFailure,
                    int knownModelOnly = 0) {
        return SendPjl(port, text.empty() ? nullptr : text.data(),
                       static_cast<DWORD>(text.size()), written, queueOnFailure, knownModelOnly);
    }

    testing::ScriptedPortMonitor lower;
    PortContext* usb = nullptr;
    PortContext* lpt = nullptr;

private:
    std::vector<PortContext*> opened_;
};

// ---- SendPjl: the pseudo document and the queue ------------------------------

TEST_F(LowerPortTest, SendPjlSendsTheQueueFirstKeepsTheRestAndClosesWhatItOpened) {
    testing::ScriptedPort& below = Below(lpt);
    // Text for a known model only needs a two-way port and a known printer.
    enum Setup { Plain, DropQueue, JobDocOpen, NoPseudoDoc, ModelUnknown, OneWay, KnownModel };
    // queued: in the queue before the call. stall: the port took exactly one
    // byte, and the time of it is noted.
    struct Case {
        const char* what;
        std::string queued;
        Setup setup;
        std::vector<WriteAnswer> answers;
        std::string text;
        int queueOnFailure, result;
        DWORD error, written;
        std::string pending;
        Texts offered;
        int stall;
    };
    const Case cases[] = {
        {"nothing to send", "", Plain, {}, "", 1, 1, 0, 0, "", {}, 0},
        {"no pseudo document", "", NoPseudoDoc, {}, R51, 1, 0, Denied, 0, "", {}, 0},
        {"all taken", "", Plain, {}, Echo, 0, 1, 0, 13, "", {Echo}, 0},
        {"a job's document is used", "", JobDocOpen, {}, Echo, 0, 1, 0, 13, "", {Echo}, 0},
        {"one byte taken, rest kept unasked", "", Plain, {Take(1)}, R51, 0, 1, 0, 1, R51.substr(1),
         {R51}, 1},
        {"refused, not to wait", "", Plain, {Nothing(Timeout)}, Echo, 0, 0, Timeout, 0, "", {Echo},
         0},
        {"refused, may wait", "", Plain, {Refuse(Gen)}, Echo, 1, 0, Gen, 0, Echo, {Echo}, 0},
        {"queue goes in part", R51, Plain, {Take(20)}, "", 1, 0, 0, 0, R51.substr(20), {R51}, 0},
        {"one byte of the queue", R51, Plain, {Take(1)}, Echo, 1, 0, 0, 0, R51.substr(1) + Echo,
         {R51}, 1},
        {"queue refused, new text dropped", R51, Plain, {Refuse(Gen)}, Echo, 0, 0, Gen, 0, R51, {R51},
         0},
        {"queue refused, new text waits", R51, Plain, {Nothing(Timeout)}, Echo, 1, 0, Timeout, 0,
         R51 + Echo, {R51}, 0},
        {"queue then new text", R51, Plain, {}, Echo, 1, 1, 0, 13, "", {R51, Echo}, 0},
        {"a dropped queue never goes", R51, DropQueue, {}, "", 1, 1, 0, 0, "", {}, 0},
        {"known model only, not known", "", ModelUnknown, {}, Echo, 1, 0, Unset, 0, "", {}, 0},
        {"known model only, one-way port", "", OneWay, {}, Echo, 1, 0, Unset, 0, "", {}, 0},
        {"known model only", "", KnownModel, {}, Echo, 1, 1, 0, 13, "", {Echo}, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        DropPending(lpt);
        lpt->stallTick = NoTick;
        if (!c.queued.empty()) {
            below.QueueWrite(Nothing(0));
            ASSERT_EQ(Send(lpt, c.queued, nullptr, 1), 0);
        }
        if (c.setup == DropQueue) DropPending(lpt);
        if (c.setup == JobDocOpen) SetPortFlag(lpt, PF_DOC_OPEN);
        if (c.setup == OneWay || c.setup == KnownModel) SetPortFlag(lpt, PF_MODEL_KNOWN);
        if (c.setup == OneWay) lpt->portKind &= ~uint32_t{PK_BIDI};
        const int knownModelOnly = c.setup >= ModelUnknown ? 1 : 0;
        below.FailStartDoc(c.setup == NoPseudoDoc ? Denied : 0);
        below.ForgetCalls();
        for (const WriteAnswer& answer : c.answers) below.QueueWrite(answer);

        DWORD written = 77;
        SetLastError(Unset);
        EXPECT_EQ(Send(lpt, c.text, &written, c.queueOnFailure, knownModelOnly), c.result);
        EXPECT_EQ(GetLastError(), c.error);
        EXPECT_EQ(written, c.written);
        EXPECT_EQ(Pending(lpt), c.pending);
        Texts offered;
        for (const auto& call : below.Calls(CallKind::WritePort)) offered.push_back(call.bytes);
        EXPECT_EQ(offered, c.offered);
        EXPECT_EQ(lpt->stallTick, c.stall ? GetTickCount() : NoTick);

        // A document opened for the text is closed again, whatever came of it.
        Kinds kinds(c.offered.size(), CallKind::WritePort);
        if (c.setup != JobDocOpen && c.setup != ModelUnknown && c.setup != OneWay) {
            kinds.insert(kinds.begin(), CallKind::StartDocPort);
            if (c.setup != NoPseudoDoc) kinds.push_back(CallKind::EndDocPort);
            EXPECT_EQ(Said(below.Calls()[0]),
                      std::string(R"(StartDocPort(LPT1, "Printer", job 0, level 2, )") +
                          R"({"TAKRIN Doc", null, null, mode 2, job 0}) -> )" +
                          (c.setup == NoPseudoDoc ? "0" : "1"));
        }
        EXPECT_EQ(below.CallKinds(), kinds) << lower.Log();
        EXPECT_EQ(HasPortFlag(lpt, PF_DOC_OPEN), c.setup == JobDocOpen);
        ClearPortFlag(lpt, PF_DOC_OPEN | PF_MODEL_KNOWN);
        lpt->portKind |= PK_BIDI;
    }
}

TEST_F(LowerPortTest, WithoutMemoryForTheQueueTextIsLostButNothingGoesTwice) {
    auto sendWithoutMemory = [&](WriteAnswer answer, const std::string& text) {
        Below(lpt).QueueWrite(answer);
        platform::FailAllocation(1, false);
        const int result = Send(lpt, text, nullptr, 1);
        EXPECT_TRUE(platform::AllocationFailureHit());
        platform::StopFailingAllocations();
        return result;
    };
    // The rest of a partial write, or refused text, finds no room.
    EXPECT_EQ(sendWithoutMemory(Take(1), R51), 1);
    EXPECT_EQ(sendWithoutMemory(Nothing(0), R51), 0);
    EXPECT_EQ(Pending(lpt), "");
    // Text for a queue finds no room: the queue stays as it was.
    Below(lpt).QueueWrite(Nothing(0));
    EXPECT_EQ(Send(lpt, R51, nullptr, 1), 0);
    EXPECT_EQ(sendWithoutMemory(Refuse(Gen), Echo), 0);
    EXPECT_EQ(Pending(lpt), R51);
    // The rest of the queue finds no new block: the bytes that went stay gone.
    EXPECT_EQ(sendWithoutMemory(Take(20), ""), 0);
    EXPECT_EQ(Pending(lpt), R51.substr(20));
    EXPECT_EQ(Send(lpt, "", nullptr, 1), 1);
    EXPECT_EQ(Below(lpt).Received(), "@" + R51);
}

// ---- Document start and end ----------------------------------------------------

TEST_F(LowerPortTest, AUsbDocumentStartSetsTheTimeOutsAndKeepsTheStartsLastError) {
    const std::string timeouts =
        "SetPortTimeOuts(USB001, {0xFFFFFFFF, 0xFFFFFFFF, 10, 0, 10000}) -> 1";
    testing::ScriptedPort& below = Below(usb);
    below.SetTimeOutsError(0x1234);  // setting time-outs disturbs the last error
    char docName[] = "Quarterly report";
    char datatype[] = "RAW";
    DOC_INFO_1 doc = {docName, nullptr, datatype};
    SetLastError(Unset);
    EXPECT_EQ(LowerStartDoc(usb, const_cast<LPSTR>("Printer"), 12, 1, &doc), 1);
    EXPECT_EQ(GetLastError(), Unset);
    ASSERT_EQ(below.Calls().size(), 2u);
    EXPECT_EQ(Said(below.Calls()[0]), R"(StartDocPort(USB001, "Printer", job 12, level 1, )"
                                      R"({"Quarterly report", null, "RAW", mode 0, job 0}) -> 1)");
    EXPECT_EQ(Said(below.Calls()[1]), timeouts);

    // A failed start gets its time-outs too, and its caller its error.
    below.ForgetCalls();
    below.FailStartDoc(Gen);
    EXPECT_EQ(OpenPseudoDocument(usb), 0);
    EXPECT_EQ(GetLastError(), Gen);
    EXPECT_EQ(Said(below.Calls().back()), timeouts);

    // No time-outs where the port monitor lacks the entry. (Other ports never
    // get them: see the calls LPT1 gets in the SendPjl cases.)
    below.ForgetCalls();
    usb->lower.SetPortTimeOuts = nullptr;
    EXPECT_EQ(OpenPseudoDocument(usb), 0);
    EXPECT_EQ(below.CallKinds(), (Kinds{CallKind::StartDocPort}));
}

// ---- Writes and reads ------------------------------------------------------

TEST_F(LowerPortTest, AWriteRecordsWhatItsOutcomeMeansForThePort) {
    // lastWriteError: kept after a failure on USB only. busy: once job data
    // moves, the ECP port can't give its device ID.
    struct Case {
        const char* what;
        bool onUsb, jobActive;
        uint32_t mode;
        WriteAnswer answer;
        DWORD lastWriteError;
        uint32_t busy;
    };
    const Case cases[] = {
        {"USB failure", true, false, PM_COMPAT, Refuse(Gen), Gen, 0},
        {"USB taking nothing is no failure", true, false, PM_COMPAT, Nothing(Timeout), 0, 0},
        {"other port's failure", false, false, PM_COMPAT, Refuse(Gen), 0, 0},
        {"ECP job, bytes taken", false, true, PM_ECP, Take(2), 0, 1},
        {"ECP job, timed out taking nothing", false, true, PM_ECP, Nothing(Timeout), 0, 1},
        {"ECP job, failed with a time-out", false, true, PM_ECP, Refuse(Timeout), 0, 1},
        {"ECP job, nothing taken", false, true, PM_ECP, Nothing(0), 0, 0},
        {"ECP job, failed otherwise", false, true, PM_ECP, Refuse(Gen), 0, 0},
        {"ECP without a job", false, false, PM_ECP, TakeAll(), 0, 0},
        {"compatible mode job", false, true, PM_COMPAT, TakeAll(), 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        PortContext* port = c.onUsb ? usb : lpt;
        port->portMode = c.mode;
        c.jobActive ? SetPortFlag(port, PF_JOB_ACTIVE) : ClearPortFlag(port, PF_JOB_ACTIVE);
        port->ecpBusy = 0;
        port->lastWriteError = 99;  // left from an earlier write
        port->lastWriteFailed = 1;
        Below(port).QueueWrite(c.answer);
        DWORD written = 77;
        SetLastError(Unset);
        EXPECT_EQ(LowerWrite(port, "data", 4, &written), c.answer.result);
        EXPECT_EQ(GetLastError(), c.answer.error != 0 ? c.answer.error : Unset);
        EXPECT_EQ(written, std::min<DWORD>(c.answer.take, 4));
        EXPECT_EQ(port->lastWriteError, c.lastWriteError);
        EXPECT_EQ(port->lastWriteFailed, c.lastWriteError != 0 ? 1u : 0u);
        EXPECT_EQ(port->ecpBusy, c.busy);
    }
}

// ---- Requests for the port monitor ------------------------------------------

TEST_F(LowerPortTest, RequestsGoDownExceptWhereTheMonitorAnswersThemItself) {
    const std::string deviceId = "MFG:Quor;MDL:Laser 6200;CMD:PJL;";
    for (PortContext* port : {usb, lpt}) {
        Below(port).SetDeviceId(deviceId);
        Below(port).SetControlAnswer(3, "ok");
        Below(port).SetControlAnswer(7, "");
    }
    const ModelMask none{0, 0};
    char valueName[] = "Status";
    // codeBelow: what the port monitor is asked; 0 when the request stays here.
    // noEntry: the port monitor has no GetPrinterDataFromPort.
    struct Case {
        const char* what;
        bool onUsb;
        uint32_t mode, ecpBusy;
        ModelMask mask;
        bool noEntry;
        DWORD control, result, codeBelow;
    };
    const Case cases[] = {
        {"USB device ID, with the USB code", true, PM_COMPAT, 0, none, false, 17, 1, 0x16000C},
        {"parallel device ID, as asked", false, PM_COMPAT, 0, none, false, 17, 1, 17},
        {"other requests unchanged on USB", true, PM_COMPAT, 0, none, false, 3, 1, 3},
        {"the port monitor's failure", false, PM_COMPAT, 0, none, false, 5, 0, 5},
        {"busy ECP port: device ID from here", false, PM_ECP, 1, none, false, 17, 1, 0},
        {"busy ECP port: other requests go", false, PM_ECP, 1, none, false, 3, 1, 3},
        {"busy outside ECP mode counts for nothing", false, PM_COMPAT, 1, none, false, 17, 1, 17},
        {"ECP port not busy", false, PM_ECP, 0, none, false, 17, 1, 17},
        {"no entry below", false, PM_COMPAT, 0, none, true, 17, 0, 0},
        {"no entry below, busy ECP answers first", false, PM_ECP, 1, none, true, 17, 1, 0},
        {"job reset of a 6200 stays here", false, PM_COMPAT, 0, ModelMask6200, false, 7, 0, 0},
        {"job reset of a 6300 stays here", false, PM_COMPAT, 0, ModelMask6300, false, 7, 0, 0},
        {"job reset, printer not known", false, PM_COMPAT, 0, none, false, 7, 1, 7},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        PortContext* port = c.onUsb ? usb : lpt;
        const auto entry = port->lower.GetPrinterDataFromPort;
        if (c.noEntry) port->lower.GetPrinterDataFromPort = nullptr;
        port->portMode = c.mode;
        port->ecpBusy = c.ecpBusy;
        port->modelMask = c.mask;
        Below(port).ForgetCalls();
        char answer[64] = {};
        DWORD returned = 77;
        SetLastError(Unset);
        EXPECT_EQ(ForwardPortRequest(port, c.control, valueName, nullptr, 0, answer, 63, &returned),
                  c.result);
        port->lower.GetPrinterDataFromPort = entry;
        // Answered here: the caller's own (zeroed) buffer as one byte. Answered
        // below: the port monitor's answer, failure included, is the caller's.
        const bool down = c.codeBelow != 0;
        const std::string scripted =
            !down ? "" : c.control == 17 ? deviceId : c.control == 3 ? "ok" : "";
        EXPECT_EQ(answer, scripted);
        EXPECT_EQ(returned, down ? scripted.size() : c.result == 1 ? 1u : 77u);
        EXPECT_EQ(GetLastError(), down && c.result == 0 ? ERROR_NOT_SUPPORTED : Unset);
        const auto calls = Below(port).Calls();
        ASSERT_EQ(calls.size(), down ? 1u : 0u) << lower.Log();
        if (down) {
            EXPECT_EQ(calls[0].controlId, c.codeBelow);
            EXPECT_EQ(calls[0].valueName, "Status");
            EXPECT_EQ(calls[0].outSize, 63u);
        }
    }
}

// ---- The spooler's DOC_INFO ----------------------------------------------------

TEST_F(LowerPortTest, TheSpoolersDocInfoIsCopiedWhollyOrNotAtAll) {
    char name[] = "Report";
    char output[] = "FILE:";
    char datatype[] = "RAW";
    DOC_INFO_1 doc1 = {name, nullptr, datatype};
    DOC_INFO_2 doc2 = {name, output, datatype, 2, 0x77};
    void* copy1 = CopyDocInfo(1, &doc1);
    void* copy2 = CopyDocInfo(2, &doc2);
    ASSERT_TRUE(copy1 != nullptr && copy2 != nullptr);
    name[0] = 'X';
    // The copies are what a job's document start hands down.
    LowerStartDoc(lpt, name, 5, 1, copy1);
    LowerStartDoc(lpt, name, 5, 2, copy2);
    FreeDocInfo(1, copy1);
    FreeDocInfo(2, copy2);
    const auto calls = Below(lpt).Calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(Said(calls[0]), R"(StartDocPort(LPT1, "Xeport", job 5, level 1, )"
                              R"({"Report", null, "RAW", mode 0, job 0}) -> 1)");
    EXPECT_EQ(Said(calls[1]), R"(StartDocPort(LPT1, "Xeport", job 5, level 2, )"
                              R"({"Report", "FILE:", "RAW", mode 2, job 119}) -> 1)");
    // Levels beyond 2 and absent records have no copy, and nothing to free.
    EXPECT_EQ(CopyDocInfo(3, &doc2), nullptr);
    EXPECT_EQ(CopyDocInfo(2, nullptr), nullptr);
    FreeDocInfo(3, &doc2);
    FreeDocInfo(2, nullptr);
    EXPECT_STREQ(doc2.pOutputFile, "FILE:");

    // The record and its three texts: whichever allocation fails, none is kept
    // (the fixture finds any block left behind).
    doc2.pDocName = name;
    for (int i = 0; i < 8; ++i) {
        SCOPED_TRACE(::testing::Message() << "allocation " << i / 2 + 1 << (i % 2 ? " on" : ""));
        platform::FailAllocation(i / 2 + 1, i % 2 == 1);
        EXPECT_EQ(CopyDocInfo(2, &doc2), nullptr);
        EXPECT_TRUE(platform::AllocationFailureHit());
        platform::StopFailingAllocations();
    }
}

}  // namespace
}  // namespace langmon
