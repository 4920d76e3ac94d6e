// A job on a port as the spooler runs it, while jobs pass straight through:
// the document below, the bytes that reach it, nesting and failures.

#include "monitor/job_data.h"
#include "monitor/job_end.h"
#include "monitor/job_start.h"
#include "monitor/monitor_entry.h"

#include "support/platform_fixture.h"
#include "support/scripted_port_monitor.h"

namespace langmon {
namespace {

using testing::CallKind;
using testing::MonitorTest;
using testing::ScriptedPortMonitor;

class JobPassThroughTest : public MonitorTest {
protected:
    void SetUp() override {
        MonitorTest::SetUp();
        // The spooler lists the ports, so the job start asks for the list once.
        for (const char* name : {"COM1", "LPT1", "USB001"}) {
            platform::RegistryCreateKey(HKEY_LOCAL_MACHINE,
                                        std::string("System\\CurrentControlSet\\control\\Print\\Monitors\\Local Port\\Ports\\") + name);
        }
    }

    PortContext* Open(const char* name) {
        HANDLE handle = nullptr;
        EXPECT_TRUE(OpenPortEx(const_cast<LPSTR>(name), const_cast<LPSTR>("Laser"), &handle,
                               lower.Table()));
        return static_cast<PortContext*>(handle);
    }
    BOOL Start(PortContext* port, DWORD level, void* docInfo, DWORD jobId = 12) {
        return StartDocPort(port, const_cast<LPSTR>("Laser"), jobId, level,
                            static_cast<LPBYTE>(docInfo));
    }
    BOOL Write(PortContext* port, std::string bytes, DWORD* written) {
        return WritePort(port, reinterpret_cast<LPBYTE>(bytes.data()),
                         static_cast<DWORD>(bytes.size()), written);
    }

    ScriptedPortMonitor lower;
    char docName[8] = "letter";
    DOC_INFO_1 doc1{docName, nullptr, nullptr};
};

TEST_F(JobPassThroughTest, AJobOpensItsDocumentBelowAndItsBytesGoThrough) {
    PortContext* port = Open("COM1");
    const DWORD t0 = GetTickCount();
    ASSERT_TRUE(Start(port, 1, &doc1));
    EXPECT_TRUE(HasPortFlag(port, PF_JOB_ACTIVE | PF_DOC_OPEN));
    EXPECT_EQ(port->jobOpen, 1u);
    EXPECT_EQ(port->jobId, 12u);
    DWORD written = 0;
    EXPECT_TRUE(Write(port, "%!PS-Adobe-3.0\nshowpage\n", &written));
    EXPECT_EQ(written, 24u);
    EXPECT_TRUE(EndDocPort(port));
    EXPECT_FALSE(HasPortFlag(port, PF_JOB_ACTIVE | PF_DOC_OPEN));
    EXPECT_EQ(port->jobOpen, 1u) << "a pass-through job's end leaves it to a port reset";

    auto& below = lower.Port("COM1");
    EXPECT_EQ(below.Received(), "%!PS-Adobe-3.0\nshowpage\n") << lower.Log();
    const auto starts = below.Calls(CallKind::StartDocPort);
    ASSERT_EQ(starts.size(), 1u);
    EXPECT_EQ(starts[0].jobId, 12u);
    EXPECT_EQ(starts[0].level, 1u);
    EXPECT_EQ(starts[0].docName, "letter");
    const auto ends = below.Calls(CallKind::EndDocPort);
    ASSERT_EQ(ends.size(), 1u);
    // A serial port gets 100 ms before the document starts and after it ends.
    EXPECT_EQ(starts[0].tick - t0, 100u);
    EXPECT_EQ(ends[0].tick - t0, 100u);
    EXPECT_EQ(Elapsed(), 200u);
    EXPECT_TRUE(ClosePort(port));
}

TEST_F(JobPassThroughTest, TheChannelFormNeedsNothingBelow) {
    PortContext* port = Open("LPT1");
    DOC_INFO_2 channel{nullptr, nullptr, nullptr, 0, 0};
    ASSERT_TRUE(Start(port, 2, &channel));
    EXPECT_TRUE(HasPortFlag(port, PF_CHANNEL_DOC));
    EXPECT_FALSE(HasPortFlag(port, PF_JOB_ACTIVE));
    EXPECT_TRUE(EndDocPort(port));
    EXPECT_FALSE(HasPortFlag(port, PF_CHANNEL_DOC));
    EXPECT_EQ(lower.Port("LPT1").Count(CallKind::StartDocPort), 0);
    EXPECT_EQ(lower.Port("LPT1").Count(CallKind::EndDocPort), 0);

    // Level 1 with no document name is an ordinary job.
    DOC_INFO_1 unnamed{nullptr, nullptr, nullptr};
    ASSERT_TRUE(Start(port, 1, &unnamed));
    EXPECT_EQ(lower.Port("LPT1").JobDocumentStarts(), 1);
    EXPECT_TRUE(EndDocPort(port));
    EXPECT_TRUE(ClosePort(port));
}

TEST_F(JobPassThroughTest, ASecondStartWhileAJobRunsIsBusy) {
    PortContext* port = Open("LPT1");
    ASSERT_TRUE(Start(port, 1, &doc1, 1));
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(Start(port, 1, &doc1, 2));
    EXPECT_EQ(GetLastError(), ERROR_BUSY);
    EXPECT_EQ(port->jobOpen, 0u) << "cleared although the first job goes on";
    EXPECT_EQ(port->jobId, 1u);
    EXPECT_TRUE(HasPortFlag(port, PF_JOB_ACTIVE));
    EXPECT_EQ(lower.Port("LPT1").JobDocumentStarts(), 1);
    // The semaphore was given back: the first job still ends.
    EXPECT_TRUE(EndDocPort(port));
    EXPECT_TRUE(ClosePort(port));
}

TEST_F(JobPassThroughTest, AFailedStartBelowFailsTheJobExceptOnUsb) {
    PortContext* parallel = Open("LPT1");
    lower.Port("LPT1").FailStartDoc(ERROR_ACCESS_DENIED);
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(Start(parallel, 1, &doc1));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED) << "the port monitor's reason";
    EXPECT_FALSE(HasPortFlag(parallel, PF_JOB_ACTIVE));
    EXPECT_EQ(parallel->jobOpen, 0u);

    PortContext* usb = Open("USB001");
    lower.Port("USB001").FailStartDoc(ERROR_ACCESS_DENIED);
    EXPECT_TRUE(Start(usb, 1, &doc1)) << "a USB job goes on; its writes open the document";
    EXPECT_TRUE(HasPortFlag(usb, PF_JOB_ACTIVE));
    EXPECT_FALSE(HasPortFlag(usb, PF_DOC_OPEN));
    EXPECT_TRUE(EndDocPort(usb));
    EXPECT_TRUE(ClosePort(parallel));
    EXPECT_TRUE(ClosePort(usb));
}

TEST_F(JobPassThroughTest, NullPortsAreInvalidParameters) {
    DWORD written = 7;
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(StartDocPort(nullptr, nullptr, 1, 1, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(WritePort(nullptr, nullptr, 0, &written));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(EndDocPort(nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

}  // namespace
}  // namespace langmon
