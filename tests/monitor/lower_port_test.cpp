// The calls the monitor makes to the port monitor below, as that port monitor
// sees them: documents opened and closed, bytes offered and taken, requests
// forwarded, and what the monitor's caller gets back.
#include "monitor/lower_port.h"

#include "monitor/monitor_entry.h"
#include "portkind/port_kind.h"
#include "support/platform_fixture.h"
#include "support/scripted_port_monitor.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace langmon {
namespace {

using testing::CallKind;
using testing::ReadAnswer;
using testing::WriteAnswer;

constexpr DWORD GenFailure = 31;  // ERROR_GEN_FAILURE, a port monitor's usual complaint
constexpr DWORD Unset = 0xdeadbeef;
constexpr DWORD NoTick = 0xFFFFFFFFu;

// 51 bytes of PJL, the size of a typical request the monitor sends.
const std::string Request51 = "@PJL USTATUS DEVICE = ON\r\n@PJL USTATUS JOB = ON\r\n\r\n";
const std::string Echo = "@PJL ECHO 1\r\n";

class LowerPortTest : public testing::MonitorTest {
protected:
    void TearDown() override {
        for (HANDLE handle : handles_) {
            ClosePort(handle);
        }
        MonitorTest::TearDown();
    }

    // A port opened as the spooler opens it, with the port monitor below
    // scripted by `lower`; the OpenPort call itself is forgotten.
    PortContext* Open(const char* name) {
        HANDLE handle = nullptr;
        EXPECT_TRUE(OpenPortEx(const_cast<LPSTR>(name), const_cast<LPSTR>("Printer"), &handle,
                               lower.Table()))
            << "last error " << GetLastError();
        if (handle != nullptr) {
            handles_.push_back(handle);
        }
        lower.Port(name).ForgetCalls();
        return static_cast<PortContext*>(handle);
    }

    // The port's queue as text.
    static std::string Pending(const PortContext* port) {
        if (port->pendingData == nullptr) {
            return {};
        }
        return std::string(reinterpret_cast<const char*>(port->pendingData), port->pendingLength);
    }

    // Puts `text` into the port's queue the way it gets there: the port takes
    // none of it.
    void QueueText(PortContext* port, const std::string& text) {
        testing::ScriptedPort& below = lower.Port(port->portName);
        below.QueueWrite(WriteAnswer::TakeNothing());
        ASSERT_EQ(SendPjl(port, text.data(), static_cast<DWORD>(text.size()), nullptr, 1, 0), 0);
        ASSERT_EQ(Pending(port), text);
        below.ForgetCalls();
    }

    int Send(PortContext* port, const std::string& text, DWORD* written, int queueOnFailure,
             int knownModelOnly = 0) {
        return SendPjl(port, text.data(), static_cast<DWORD>(text.size()), written,
                       queueOnFailure, knownModelOnly);
    }

    // The bytes each write offered, in order.
    std::vector<std::string> Offered(const char* portName) {
        std::vector<std::string> out;
        for (const testing::PortCall& call : lower.Port(portName).Calls(CallKind::WritePort)) {
            out.push_back(call.bytes);
        }
        return out;
    }

    testing::ScriptedPortMonitor lower;

private:
    std::vector<HANDLE> handles_;
};

using Kinds = std::vector<CallKind>;

// ---- The pseudo document -----------------------------------------------------

TEST_F(LowerPortTest, NothingToSendStillOpensAndClosesThePseudoDocument) {
    PortContext* port = Open("LPT1");
    DWORD written = 77;
    SetLastError(Unset);
    EXPECT_EQ(SendPjl(port, nullptr, 0, &written, 1, 0), 1);
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_EQ(written, 0u);

    const auto calls = lower.Port("LPT1").Calls();
    ASSERT_EQ(calls.size(), 2u) << lower.Log();
    const testing::PortCall& start = calls[0];
    EXPECT_EQ(start.kind, CallKind::StartDocPort);
    EXPECT_EQ(start.printerName, "Printer");
    EXPECT_EQ(start.jobId, 0u);
    EXPECT_EQ(start.level, 2u);
    ASSERT_TRUE(start.hasDocInfo);
    EXPECT_EQ(start.docName, "TAKRIN Doc");
    EXPECT_EQ(start.outputFile, std::nullopt);
    EXPECT_EQ(start.datatype, std::nullopt);
    EXPECT_EQ(start.dwMode, 2u);
    EXPECT_EQ(start.docJobId, 0u);
    EXPECT_EQ(calls[1].kind, CallKind::EndDocPort);
    EXPECT_FALSE(HasPortFlag(port, PF_DOC_OPEN));
    EXPECT_FALSE(lower.Port("LPT1").DocumentOpen());
}

TEST_F(LowerPortTest, TextGoesIntoTheOpenDocumentOrIntoAPseudoDocumentOfItsOwn) {
    PortContext* port = Open("LPT1");
    testing::ScriptedPort& below = lower.Port("LPT1");

    DWORD written = 0;
    EXPECT_EQ(Send(port, Echo, &written, 0), 1);
    EXPECT_EQ(written, Echo.size());
    EXPECT_EQ(below.CallKinds(), (Kinds{CallKind::StartDocPort, CallKind::WritePort,
                                        CallKind::EndDocPort}))
        << lower.Log();

    // A document open already (a job's) is used as it is and stays open.
    below.ForgetCalls();
    SetPortFlag(port, PF_DOC_OPEN);
    EXPECT_EQ(Send(port, Echo, &written, 0), 1);
    EXPECT_EQ(below.CallKinds(), (Kinds{CallKind::WritePort})) << lower.Log();
    EXPECT_TRUE(HasPortFlag(port, PF_DOC_OPEN));
    EXPECT_EQ(below.Received(), Echo);
}

TEST_F(LowerPortTest, NoPseudoDocumentNoText) {
    PortContext* port = Open("LPT1");
    lower.Port("LPT1").FailStartDoc(ERROR_ACCESS_DENIED);
    DWORD written = 77;
    SetLastError(Unset);
    EXPECT_EQ(Send(port, Request51, &written, 1), 0);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(lower.Port("LPT1").CallKinds(), (Kinds{CallKind::StartDocPort})) << lower.Log();
    EXPECT_FALSE(HasPortFlag(port, PF_DOC_OPEN));
    EXPECT_EQ(port->pendingLength, 0u);
    EXPECT_EQ(port->pendingData, nullptr);
}

// ---- Partial writes and the queue --------------------------------------------

TEST_F(LowerPortTest, APortThatTakesOneByteLeavesTheRestQueuedAndMarksTheStall) {
    PortContext* port = Open("LPT1");
    ASSERT_EQ(Request51.size(), 51u);
    ASSERT_EQ(port->stallTick, NoTick);
    lower.Port("LPT1").QueueWrite(WriteAnswer::Take(1));

    DWORD written = 0;
    SetLastError(Unset);
    // The rest is queued whatever queueOnFailure says.
    EXPECT_EQ(Send(port, Request51, &written, 0), 1);
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_EQ(written, 1u);
    EXPECT_EQ(port->stallTick, GetTickCount());
    EXPECT_EQ(Pending(port), Request51.substr(1));
    EXPECT_EQ(lower.Port("LPT1").Received(), "@");
}

TEST_F(LowerPortTest, QueuedTextGoesOutBeforeNewText) {
    PortContext* port = Open("LPT1");
    testing::ScriptedPort& below = lower.Port("LPT1");
    QueueText(port, Request51);

    // The queue goes out only in part: nothing new is tried, nothing is written.
    below.QueueWrite(WriteAnswer::Take(20));
    DWORD written = 77;
    SetLastError(Unset);
    EXPECT_EQ(SendPjl(port, nullptr, 0, &written, 1, 0), 0);
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(Pending(port), Request51.substr(20));
    EXPECT_EQ(port->stallTick, NoTick);  // more than one byte went

    // New text waits behind what is left, then both go, in order.
    EXPECT_EQ(Send(port, Echo, &written, 1), 1);
    EXPECT_EQ(written, Echo.size());
    EXPECT_EQ(port->pendingData, nullptr);
    EXPECT_EQ(port->pendingLength, 0u);
    EXPECT_EQ(Offered("LPT1"),
              (std::vector<std::string>{Request51, Request51.substr(20), Echo}));
    EXPECT_EQ(below.Received(), Request51 + Echo);
}

TEST_F(LowerPortTest, OneByteOfTheQueueAlsoMarksTheStall) {
    PortContext* port = Open("LPT1");
    QueueText(port, Request51);
    Sleep(500);
    lower.Port("LPT1").QueueWrite(WriteAnswer::Take(1));
    EXPECT_EQ(Send(port, Echo, nullptr, 1), 0);
    EXPECT_EQ(port->stallTick, GetTickCount());
    EXPECT_EQ(Pending(port), Request51.substr(1) + Echo);
}

TEST_F(LowerPortTest, ARefusedQueueDropsNewTextUnlessItMayWait) {
    PortContext* port = Open("LPT1");
    testing::ScriptedPort& below = lower.Port("LPT1");
    QueueText(port, Request51);

    below.QueueWrite(WriteAnswer::Refuse(GenFailure));
    DWORD written = 77;
    SetLastError(Unset);
    EXPECT_EQ(Send(port, Echo, &written, 0), 0);
    EXPECT_EQ(GetLastError(), GenFailure);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(Pending(port), Request51);  // the new text is gone without a trace
    EXPECT_EQ(Offered("LPT1"), (std::vector<std::string>{Request51}));

    below.QueueWrite(WriteAnswer::TakeNothing(ERROR_TIMEOUT));
    SetLastError(Unset);
    EXPECT_EQ(Send(port, Echo, &written, 1), 0);
    EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
    EXPECT_EQ(Pending(port), Request51 + Echo);

    // A willing port takes it all at the next chance.
    EXPECT_EQ(SendPjl(port, nullptr, 0, nullptr, 1, 0), 1);
    EXPECT_EQ(below.Received(), Request51 + Echo);
    EXPECT_EQ(port->pendingLength, 0u);
}

TEST_F(LowerPortTest, NewTextThePortRefusesIsQueuedOnlyWhenAsked) {
    PortContext* port = Open("LPT1");
    testing::ScriptedPort& below = lower.Port("LPT1");

    below.QueueWrite(WriteAnswer::TakeNothing(ERROR_TIMEOUT));
    DWORD written = 77;
    SetLastError(Unset);
    EXPECT_EQ(Send(port, Echo, &written, 0), 0);
    EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(port->pendingLength, 0u);

    below.QueueWrite(WriteAnswer::Refuse(GenFailure));
    SetLastError(Unset);
    EXPECT_EQ(Send(port, Echo, &written, 1), 0);
    EXPECT_EQ(GetLastError(), GenFailure);
    EXPECT_EQ(Pending(port), Echo);
    // The document opened for the try is closed all the same.
    EXPECT_FALSE(below.DocumentOpen());
    EXPECT_FALSE(HasPortFlag(port, PF_DOC_OPEN));
}

TEST_F(LowerPortTest, WithoutMemoryForTheQueueTheRestIsLostButNothingGoesTwice) {
    PortContext* port = Open("LPT1");
    testing::ScriptedPort& below = lower.Port("LPT1");

    // The rest of a partial write finds no room.
    below.QueueWrite(WriteAnswer::Take(1));
    platform::FailAllocation(1, false);
    DWORD written = 0;
    EXPECT_EQ(Send(port, Request51, &written, 1), 1);
    EXPECT_TRUE(platform::AllocationFailureHit());
    platform::StopFailingAllocations();
    EXPECT_EQ(written, 1u);
    EXPECT_EQ(port->pendingData, nullptr);
    EXPECT_EQ(port->pendingLength, 0u);

    // Text for an existing queue finds no room: the queue stays as it was.
    QueueText(port, Request51);
    below.QueueWrite(WriteAnswer::Refuse(GenFailure));
    platform::FailAllocation(1, false);
    EXPECT_EQ(Send(port, Echo, nullptr, 1), 0);
    platform::StopFailingAllocations();
    EXPECT_EQ(Pending(port), Request51);

    // The queue goes out in part and its rest finds no new block: the bytes
    // that went are not sent again.
    below.QueueWrite(WriteAnswer::Take(20));
    platform::FailAllocation(1, false);
    EXPECT_EQ(SendPjl(port, nullptr, 0, nullptr, 1, 0), 0);
    platform::StopFailingAllocations();
    EXPECT_EQ(Pending(port), Request51.substr(20));
    EXPECT_EQ(SendPjl(port, nullptr, 0, nullptr, 1, 0), 1);
    EXPECT_EQ(below.Received(), Request51);
}

TEST_F(LowerPortTest, KnownModelOnlyTextNeedsATwoWayPortAndAKnownPrinter) {
    PortContext* port = Open("LPT1");
    testing::ScriptedPort& below = lower.Port("LPT1");
    struct Case {
        uint32_t kind;
        bool modelKnown;
        int result;
    };
    const Case cases[] = {
        {PK_MONITORED | PK_LOCAL | PK_BIDI, false, 0},
        {PK_MONITORED | PK_LOCAL, true, 0},
        {PK_MONITORED | PK_LOCAL | PK_BIDI, true, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << "kind " << c.kind << " known " << c.modelKnown);
        port->portKind = c.kind;
        if (c.modelKnown) {
            SetPortFlag(port, PF_MODEL_KNOWN);
        } else {
            ClearPortFlag(port, PF_MODEL_KNOWN);
        }
        below.ForgetCalls();
        SetLastError(Unset);
        EXPECT_EQ(Send(port, Echo, nullptr, 1, 1), c.result);
        if (c.result == 0) {
            EXPECT_TRUE(below.Calls().empty()) << lower.Log();
            EXPECT_EQ(GetLastError(), Unset);
            EXPECT_EQ(port->pendingLength, 0u);
        } else {
            EXPECT_EQ(below.Received(), Echo);
            EXPECT_EQ(GetLastError(), 0u);
        }
    }
}

TEST_F(LowerPortTest, DroppedQueueIsNeverSent) {
    PortContext* port = Open("LPT1");
    QueueText(port, Request51);
    DropPending(port);
    EXPECT_EQ(port->pendingData, nullptr);
    EXPECT_EQ(port->pendingLength, 0u);
    DropPending(port);  // an empty queue is left alone

    EXPECT_EQ(SendPjl(port, nullptr, 0, nullptr, 1, 0), 1);
    EXPECT_EQ(lower.Port("LPT1").Count(CallKind::WritePort), 0) << lower.Log();
}

// ---- Document start and end ----------------------------------------------------

TEST_F(LowerPortTest, AUsbDocumentStartSetsTheTimeOutsAndKeepsTheStartsLastError) {
    PortContext* port = Open("USB001");
    testing::ScriptedPort& below = lower.Port("USB001");
    below.SetTimeOutsError(0x1234);  // setting time-outs disturbs the last error
    char docName[] = "Quarterly report";
    char datatype[] = "RAW";
    DOC_INFO_1 doc = {docName, nullptr, datatype};

    SetLastError(Unset);
    EXPECT_EQ(LowerStartDoc(port, const_cast<LPSTR>("Printer"), 12, 1, &doc), 1);
    EXPECT_EQ(GetLastError(), Unset);
    auto calls = below.Calls();
    ASSERT_EQ(calls.size(), 2u) << lower.Log();
    EXPECT_EQ(calls[0].kind, CallKind::StartDocPort);
    EXPECT_EQ(calls[0].printerName, "Printer");
    EXPECT_EQ(calls[0].jobId, 12u);
    EXPECT_EQ(calls[0].level, 1u);
    EXPECT_EQ(calls[0].docName, "Quarterly report");
    EXPECT_EQ(calls[0].outputFile, std::nullopt);
    EXPECT_EQ(calls[0].datatype, "RAW");
    EXPECT_EQ(calls[1].kind, CallKind::SetPortTimeOuts);
    const COMMTIMEOUTS& t = calls[1].timeouts;
    EXPECT_EQ(t.ReadIntervalTimeout, 0xFFFFFFFFu);
    EXPECT_EQ(t.ReadTotalTimeoutMultiplier, 0xFFFFFFFFu);
    EXPECT_EQ(t.ReadTotalTimeoutConstant, 10u);
    EXPECT_EQ(t.WriteTotalTimeoutMultiplier, 0u);
    EXPECT_EQ(t.WriteTotalTimeoutConstant, 10000u);

    // A failed start gets its time-outs too, and its caller its error.
    below.ForgetCalls();
    below.FailStartDoc(GenFailure);
    SetLastError(Unset);
    EXPECT_EQ(OpenPseudoDocument(port), 0);
    EXPECT_EQ(GetLastError(), GenFailure);
    EXPECT_EQ(below.CallKinds(), (Kinds{CallKind::StartDocPort, CallKind::SetPortTimeOuts}));
}

TEST_F(LowerPortTest, TimeOutsOnlyForUsbPortsAndOnlyWhereTheMonitorHasTheEntry) {
    lower.RemoveSetPortTimeOuts();
    PortContext* usb = Open("USB002");
    SetLastError(Unset);
    EXPECT_EQ(OpenPseudoDocument(usb), 1);
    EXPECT_EQ(GetLastError(), Unset);
    EXPECT_EQ(lower.Port("USB002").CallKinds(), (Kinds{CallKind::StartDocPort}));

    PortContext* lpt = Open("LPT1");
    EXPECT_EQ(OpenPseudoDocument(lpt), 1);
    EXPECT_EQ(lower.Port("LPT1").CallKinds(), (Kinds{CallKind::StartDocPort}));
    EXPECT_EQ(LowerEndDoc(lpt), 1);
    EXPECT_EQ(LowerEndDoc(usb), 1);
}

TEST_F(LowerPortTest, SerialPortsPauseBeforeAStartAndAfterAnEnd) {
    PortContext* port = Open("COM1");
    ASSERT_NE(port->portKind & PK_SERIAL, 0u);
    testing::ScriptedPort& below = lower.Port("COM1");

    const DWORD t0 = GetTickCount();
    EXPECT_EQ(OpenPseudoDocument(port), 1);
    EXPECT_EQ(GetTickCount() - t0, 100u);
    EXPECT_EQ(LowerEndDoc(port), 1);
    EXPECT_EQ(GetTickCount() - t0, 200u);
    const auto calls = below.Calls();
    ASSERT_EQ(calls.size(), 2u) << lower.Log();
    EXPECT_EQ(calls[0].tick - t0, 100u);  // the start came after the pause
    EXPECT_EQ(calls[1].tick - t0, 100u);  // the end came before it

    // Other ports don't wait.
    PortContext* lpt = Open("LPT1");
    const DWORD t1 = GetTickCount();
    EXPECT_EQ(SendPjl(lpt, Echo.data(), static_cast<DWORD>(Echo.size()), nullptr, 0, 0), 1);
    EXPECT_EQ(GetTickCount(), t1);
}

// ---- Writes and reads ---------------------------------------------------------

TEST_F(LowerPortTest, AFailedUsbWriteIsRememberedUntilTheNextWrite) {
    PortContext* usb = Open("USB001");
    testing::ScriptedPort& below = lower.Port("USB001");
    DWORD written = 77;

    below.QueueWrite(WriteAnswer::Refuse(GenFailure));
    SetLastError(Unset);
    EXPECT_EQ(LowerWrite(usb, "abc", 3, &written), 0);
    EXPECT_EQ(GetLastError(), GenFailure);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(usb->lastWriteError, GenFailure);
    EXPECT_EQ(usb->lastWriteFailed, 1u);

    // Taking nothing is not a failure of the call.
    below.QueueWrite(WriteAnswer::TakeNothing(ERROR_TIMEOUT));
    EXPECT_EQ(LowerWrite(usb, "abc", 3, &written), 1);
    EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
    EXPECT_EQ(usb->lastWriteError, 0u);
    EXPECT_EQ(usb->lastWriteFailed, 0u);

    EXPECT_EQ(LowerWrite(usb, "abc", 3, &written), 1);
    EXPECT_EQ(written, 3u);
    EXPECT_EQ(below.Received(), "abc");

    // Other ports keep no record of it.
    PortContext* lpt = Open("LPT1");
    lower.Port("LPT1").QueueWrite(WriteAnswer::Refuse(GenFailure));
    SetLastError(Unset);
    EXPECT_EQ(LowerWrite(lpt, "abc", 3, &written), 0);
    EXPECT_EQ(GetLastError(), GenFailure);
    EXPECT_EQ(lpt->lastWriteError, 0u);
    EXPECT_EQ(lpt->lastWriteFailed, 0u);
}

TEST_F(LowerPortTest, AnEcpPortBecomesBusyOnceJobDataMoves) {
    PortContext* port = Open("LPT1");
    testing::ScriptedPort& below = lower.Port("LPT1");
    struct Case {
        const char* what;
        uint32_t mode;
        bool jobActive;
        WriteAnswer answer;
        uint32_t busy;
    };
    const Case cases[] = {
        {"ECP job, bytes taken", PM_ECP, true, WriteAnswer::Take(2), 1},
        {"ECP job, timed out taking nothing", PM_ECP, true, WriteAnswer::TakeNothing(ERROR_TIMEOUT), 1},
        {"ECP job, failed with a time-out", PM_ECP, true, WriteAnswer::Refuse(ERROR_TIMEOUT), 1},
        {"ECP job, nothing taken", PM_ECP, true, WriteAnswer::TakeNothing(), 0},
        {"ECP job, failed otherwise", PM_ECP, true, WriteAnswer::Refuse(GenFailure), 0},
        {"ECP without a job", PM_ECP, false, WriteAnswer::TakeAll(), 0},
        {"compatible mode job", PM_COMPAT, true, WriteAnswer::TakeAll(), 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        port->portMode = c.mode;
        port->ecpBusy = 0;
        if (c.jobActive) {
            SetPortFlag(port, PF_JOB_ACTIVE);
        } else {
            ClearPortFlag(port, PF_JOB_ACTIVE);
        }
        below.QueueWrite(c.answer);
        DWORD written = 0;
        SetLastError(Unset);
        const BOOL result = LowerWrite(port, "data", 4, &written);
        EXPECT_EQ(result, c.answer.result);
        EXPECT_EQ(GetLastError(), c.answer.error != 0 ? c.answer.error : Unset);
        EXPECT_EQ(port->ecpBusy, c.busy);
    }
    ClearPortFlag(port, PF_JOB_ACTIVE);
}

TEST_F(LowerPortTest, ReadsComeAsThePortGivesThem) {
    PortContext* port = Open("LPT1");
    testing::ScriptedPort& below = lower.Port("LPT1");
    below.QueueRead("@PJL INFO");
    below.QueueRead(ReadAnswer::Fail(GenFailure));

    char buffer[8] = {};
    DWORD read = 0;
    EXPECT_EQ(LowerRead(port, buffer, 4, &read), 1);
    EXPECT_EQ(std::string(buffer, read), "@PJL");
    EXPECT_EQ(LowerRead(port, buffer, sizeof buffer, &read), 1);
    EXPECT_EQ(std::string(buffer, read), " INFO");
    SetLastError(Unset);
    EXPECT_EQ(LowerRead(port, buffer, sizeof buffer, &read), 0);
    EXPECT_EQ(GetLastError(), GenFailure);
    EXPECT_EQ(below.Count(CallKind::ReadPort), 3);
}

TEST_F(LowerPortTest, ClosingGoesDownToThePortMonitor) {
    PortContext* port = Open("LPT1");
    EXPECT_EQ(LowerClose(port), 1);
    EXPECT_EQ(lower.Port("LPT1").CallKinds(), (Kinds{CallKind::ClosePort}));
    EXPECT_FALSE(lower.Port("LPT1").IsOpen());
}

// ---- Requests for the port monitor ------------------------------------------

TEST_F(LowerPortTest, TheDeviceIdIsAskedForWithTheUsbCodeOnUsbPorts) {
    const std::string deviceId = "MFG:Quor;MDL:Laser 6200;CMD:PJL;";
    struct Case {
        const char* port;
        DWORD codeBelow;
    };
    for (const Case c : {Case{"USB001", 0x16000Cu}, Case{"LPT1", 17u}}) {
        SCOPED_TRACE(c.port);
        PortContext* port = Open(c.port);
        testing::ScriptedPort& below = lower.Port(c.port);
        below.SetDeviceId(deviceId);
        char answer[2048] = {};
        DWORD returned = 0;
        EXPECT_EQ(ForwardPortRequest(port, 17, nullptr, nullptr, 0, answer, 2047, &returned), 1);
        EXPECT_EQ(returned, deviceId.size());
        EXPECT_STREQ(answer, deviceId.c_str());
        const auto calls = below.Calls();
        ASSERT_EQ(calls.size(), 1u) << lower.Log();
        EXPECT_EQ(calls[0].controlId, c.codeBelow);
        EXPECT_EQ(calls[0].valueName, std::nullopt);
        EXPECT_EQ(calls[0].outSize, 2047u);

        // The port monitor's failure is the caller's.
        below.FailDeviceId(GenFailure);
        SetLastError(Unset);
        EXPECT_EQ(ForwardPortRequest(port, 17, nullptr, nullptr, 0, answer, 2047, &returned), 0);
        EXPECT_EQ(GetLastError(), GenFailure);
    }

    // Other requests go down unchanged, USB or not.
    PortContext* usb = static_cast<PortContext*>(FindPort(portList, "USB001"));
    lower.Port("USB001").SetControlAnswer(3, "ok");
    char answer[16] = {};
    DWORD returned = 0;
    char valueName[] = "Status";
    EXPECT_EQ(ForwardPortRequest(usb, 3, valueName, nullptr, 0, answer, sizeof answer, &returned),
              1);
    const auto last = lower.Port("USB001").Calls().back();
    EXPECT_EQ(last.controlId, 3u);
    EXPECT_EQ(last.valueName, "Status");
    EXPECT_STREQ(answer, "ok");
}

TEST_F(LowerPortTest, ABusyEcpPortAnswersTheDeviceIdRequestItself) {
    PortContext* port = Open("LPT1");
    testing::ScriptedPort& below = lower.Port("LPT1");
    below.SetDeviceId("MFG:Quor;MDL:Laser 6200;");
    below.SetControlAnswer(3, "x");
    port->portMode = PM_ECP;
    port->ecpBusy = 1;

    char answer[32] = {};
    DWORD returned = 0;
    EXPECT_EQ(ForwardPortRequest(port, 17, nullptr, nullptr, 0, answer, 31, &returned), 1);
    EXPECT_EQ(returned, 1u);
    EXPECT_EQ(answer[0], '\0');  // the caller's own empty buffer
    EXPECT_TRUE(below.Calls().empty()) << lower.Log();

    // Other requests still go down, and so does the device ID request once the
    // port is not busy or not in ECP mode.
    EXPECT_EQ(ForwardPortRequest(port, 3, nullptr, nullptr, 0, answer, 31, &returned), 1);
    port->portMode = PM_COMPAT;
    EXPECT_EQ(ForwardPortRequest(port, 17, nullptr, nullptr, 0, answer, 31, &returned), 1);
    port->portMode = PM_ECP;
    port->ecpBusy = 0;
    EXPECT_EQ(ForwardPortRequest(port, 17, nullptr, nullptr, 0, answer, 31, &returned), 1);
    EXPECT_EQ(below.Count(CallKind::GetPrinterDataFromPort), 3);
    EXPECT_STREQ(answer, "MFG:Quor;MDL:Laser 6200;");
}

TEST_F(LowerPortTest, APortMonitorWithoutTheEntryGetsNoRequests) {
    lower.RemoveGetPrinterDataFromPort();
    PortContext* port = Open("LPT1");
    char answer[32] = {};
    DWORD returned = 0;
    EXPECT_EQ(ForwardPortRequest(port, 17, nullptr, nullptr, 0, answer, 31, &returned), 0);
    EXPECT_EQ(ForwardPortRequest(port, 3, nullptr, nullptr, 0, answer, 31, &returned), 0);

    // A busy ECP port answers before the entry is even looked for.
    port->portMode = PM_ECP;
    port->ecpBusy = 1;
    EXPECT_EQ(ForwardPortRequest(port, 17, nullptr, nullptr, 0, answer, 31, &returned), 1);
    EXPECT_EQ(returned, 1u);
    EXPECT_TRUE(lower.Port("LPT1").Calls().empty()) << lower.Log();
}

TEST_F(LowerPortTest, AJobResetOnAPrinterOfTheFamilyStaysWithTheMonitor) {
    PortContext* port = Open("LPT1");
    testing::ScriptedPort& below = lower.Port("LPT1");
    below.SetControlAnswer(7, "");
    char answer[8] = {};
    DWORD returned = 0;

    port->modelMask = ModelMask6200;
    EXPECT_EQ(ForwardPortRequest(port, 7, nullptr, nullptr, 0, answer, 8, &returned), 0);
    port->modelMask = ModelMask6300;
    EXPECT_EQ(ForwardPortRequest(port, 7, nullptr, nullptr, 0, answer, 8, &returned), 0);
    EXPECT_TRUE(below.Calls().empty()) << lower.Log();

    // Before the printer is known the port monitor gets it.
    port->modelMask = ModelMask{0, 0};
    EXPECT_EQ(ForwardPortRequest(port, 7, nullptr, nullptr, 0, answer, 8, &returned), 1);
    ASSERT_EQ(below.Count(CallKind::GetPrinterDataFromPort), 1) << lower.Log();
    EXPECT_EQ(below.Calls().back().controlId, 7u);
}

// ---- The spooler's DOC_INFO ----------------------------------------------------

TEST_F(LowerPortTest, CopyDocInfoMakesACopyOfItsOwn) {
    char name[] = "Report";
    char output[] = "FILE:";
    char datatype[] = "RAW";
    const std::size_t blocks = platform::LiveBlockCount();

    DOC_INFO_1 doc1 = {name, nullptr, datatype};
    auto* copy1 = static_cast<DOC_INFO_1*>(CopyDocInfo(1, &doc1));
    ASSERT_NE(copy1, nullptr);
    EXPECT_EQ(platform::LiveBlockCount(), blocks + 3);  // the record and two texts
    name[0] = 'X';
    EXPECT_STREQ(copy1->pDocName, "Report");
    EXPECT_EQ(copy1->pOutputFile, nullptr);
    EXPECT_STREQ(copy1->pDatatype, "RAW");
    FreeDocInfo(1, copy1);
    EXPECT_EQ(platform::LiveBlockCount(), blocks);

    DOC_INFO_2 doc2 = {name, output, nullptr, 2, 0x77};
    auto* copy2 = static_cast<DOC_INFO_2*>(CopyDocInfo(2, &doc2));
    ASSERT_NE(copy2, nullptr);
    EXPECT_NE(copy2->pDocName, name);
    EXPECT_STREQ(copy2->pDocName, "Xeport");
    EXPECT_STREQ(copy2->pOutputFile, "FILE:");
    EXPECT_EQ(copy2->pDatatype, nullptr);
    EXPECT_EQ(copy2->dwMode, 2u);
    EXPECT_EQ(copy2->JobId, 0x77u);
    FreeDocInfo(2, copy2);
    EXPECT_EQ(platform::LiveBlockCount(), blocks);

    // Levels beyond 2 and absent records have no copy, and nothing to free.
    EXPECT_EQ(CopyDocInfo(3, &doc2), nullptr);
    EXPECT_EQ(CopyDocInfo(2, nullptr), nullptr);
    FreeDocInfo(3, &doc2);
    FreeDocInfo(2, nullptr);
    EXPECT_EQ(platform::LiveBlockCount(), blocks);
    EXPECT_STREQ(doc2.pOutputFile, "FILE:");
}

TEST_F(LowerPortTest, CopyDocInfoLeavesNothingBehindWhenAnAllocationFails) {
    char name[] = "Report";
    char output[] = "FILE:";
    char datatype[] = "RAW";
    DOC_INFO_2 doc = {name, output, datatype, 2, 5};
    const std::size_t blocks = platform::LiveBlockCount();

    for (bool everyOneAfter : {false, true}) {
        int failures = 0;
        for (std::size_t nth = 1;; ++nth) {
            SCOPED_TRACE(::testing::Message() << "allocation " << nth << (everyOneAfter ? " on" : ""));
            platform::FailAllocation(nth, everyOneAfter);
            auto* copy = static_cast<DOC_INFO_2*>(CopyDocInfo(2, &doc));
            const bool hit = platform::AllocationFailureHit();
            platform::StopFailingAllocations();
            if (!hit) {
                ASSERT_NE(copy, nullptr);
                EXPECT_STREQ(copy->pDocName, "Report");
                EXPECT_STREQ(copy->pOutputFile, "FILE:");
                EXPECT_STREQ(copy->pDatatype, "RAW");
                EXPECT_EQ(copy->JobId, 5u);
                FreeDocInfo(2, copy);
                break;
            }
            ++failures;
            EXPECT_EQ(copy, nullptr);
            EXPECT_EQ(platform::LiveBlockCount(), blocks);
            ASSERT_LT(nth, 10u);
        }
        EXPECT_GT(failures, 0);
    }
    EXPECT_EQ(platform::LiveBlockCount(), blocks);
}

TEST_F(LowerPortTest, OnlyALevelTwoDocumentWithoutANameIsAChannel) {
    char name[] = "Report";
    DOC_INFO_2 named = {name, nullptr, nullptr, 0, 0};
    DOC_INFO_2 unnamed = {nullptr, nullptr, nullptr, 0, 0};
    EXPECT_EQ(IsChannelDoc(2, &unnamed), 1);
    EXPECT_EQ(IsChannelDoc(2, &named), 0);
    EXPECT_EQ(IsChannelDoc(1, &unnamed), 0);
    EXPECT_EQ(IsChannelDoc(1, &named), 0);
    EXPECT_EQ(IsChannelDoc(2, nullptr), 0);
}

}  // namespace
}  // namespace langmon
