// The job header and trailer byte for byte, on two-way ports and others, and
// the user name the JOB line may carry.

#include "framing/job_frame.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "platform/registry.h"
#include "platform/spooler_jobs.h"
#include "portkind/port_kind.h"
#include "variables/status_variable.h"

#include "support/job_frame_texts.h"
#include "support/platform_fixture.h"

#include <cstring>
#include <string>

namespace langmon {
namespace {

using testing::MonitorTest;

const std::string Identifier = "035043000000F17D00001A2B";
using testing::Uel;

class JobFrameTest : public MonitorTest {
protected:
    void SetUp() override {
        MonitorTest::SetUp();
        port = CreatePortContext("LPT1", "Laser");
        ASSERT_NE(port, nullptr);
        port->portKind = PK_BIDI;
        port->jobId = 12;
    }
    void TearDown() override {
        LockPort(nullptr);
        DestroyPortContext(port);
        UnlockPort(nullptr);
        platform::ForgetJobs();
        MonitorTest::TearDown();
    }
    static JobFrameRequest Request(uint32_t status, uint32_t job, uint32_t name, const std::string& text,
                                   uint32_t user) {
        JobFrameRequest r{};
        r.wantStatus = status;
        r.wantJob = job;
        r.wantName = name;
        std::memcpy(r.name, text.c_str(), text.size() + 1);
        r.wantUser = user;
        r.quantity = r.copies = NoCount;
        return r;
    }
    std::string Header(const JobFrameRequest& r) {
        char out[JobFrameBufferSize] = {};
        uint32_t n = BuildJobHeader(out, &r, port);
        EXPECT_EQ(n, std::strlen(out));
        return std::string(out, n);
    }
    std::string Trailer(const JobFrameRequest& r) {
        char out[JobFrameBufferSize] = {};
        uint32_t n = BuildJobTrailer(out, &r, port);
        EXPECT_EQ(n, std::strlen(out));
        return std::string(out, n);
    }
    void SetSendingUser(const char* user) {
        StatusVariable* row = GetVariable("SendingJobInfo", port->variables, port, 1);
        ASSERT_NE(row, nullptr);
        GlobalFree(row->Value);
        row->Value = GlobalAlloc(GPTR, 292);
        std::strncpy(static_cast<char*>(row->Value) + 256, user, 32);
    }

    PortContext* port = nullptr;
};

// The whole header and trailer are the documents' example of a two-way port;
// these are the other shapes a request and a port give them.
TEST_F(JobFrameTest, TheFrameHasTheLinesItsRequestAndItsPortCallFor) {
    SetSendingUser("alice");
    const std::string eoj = "@PJL EOJ NAME=\"" + Identifier + "\"\r\n" + Uel;
    const struct {
        uint32_t kind, eof;
        JobFrameRequest request;
        std::string header, trailer;
    } cases[] = {
        {PK_BIDI, 1, Request(0, 1, 1, Identifier, 1), Uel + "@PJL JOB NAME=\"" + Identifier + "\" USER=\"alice\"\r\n",
         "\x04" + Uel + eoj},
        {PK_BIDI, 0, Request(0, 1, 0, Identifier, 1), Uel + "@PJL JOB\r\n", "@PJL EOJ\r\n" + Uel},  // the user only with the name
        // Without two-way answers: no status lines, and no name.
        {0, 1, Request(1, 1, 1, Identifier, 1), Uel + "@PJL JOB USER=\"alice\"\r\n", "\x04" + Uel + "@PJL EOJ\r\n" + Uel},
        {PK_BIDI, 0, Request(0, 0, 1, Identifier, 0), "", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.header);
        port->portKind = c.kind;
        port->trailerEof = c.eof;
        EXPECT_EQ(Header(c.request), c.header);
        EXPECT_EQ(Trailer(c.request), c.trailer);
    }
    // Nothing asked for: no text at all, not even a UEL, and `out` untouched.
    char out[4] = "abc";
    const JobFrameRequest none = Request(0, 0, 1, Identifier, 0);
    EXPECT_EQ(BuildJobHeader(out, &none, port), 0u);
    EXPECT_STREQ(out, "abc");
}

TEST_F(JobFrameTest, TheUserNameIsCutTo16AndRefusedWithDoubleByteCharacters) {
    const struct {
        const char* stored;
        const char* expected;
    } cases[] = {
        {"exactly16bytes!!", "exactly16bytes!!"},
        {"seventeen-bytes!!", "seventeen-byt..."},
        {"ab\x82\xA0""cd", ""},       // a Shift-JIS pair: no name at all
        {"ab\x82\x20""cd", "ab\x82 cd"},  // a lead byte without its trail byte is a byte
        {"", ""},
    };
    for (const auto& c : cases) {
        SetSendingUser(c.stored);
        char out[17] = "unchanged";
        uint32_t n = ResolveUserName(out, port);
        EXPECT_EQ(n, std::strlen(c.expected)) << c.stored;
        if (n != 0) {
            EXPECT_STREQ(out, c.expected);
        }
    }
}

TEST_F(JobFrameTest, WithoutAValueTheUserComesFromTheSpoolersRecordOfTheJob) {
    char out[17] = {};
    EXPECT_EQ(ResolveUserName(out, port), 0u);  // the spooler has no printer "Laser"

    platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, "System\\CurrentControlSet\\control\\Print\\Printers\\Laser");
    EXPECT_EQ(ResolveUserName(out, port), 0u);  // nor a job 12
    platform::SpoolerJob job;
    job.jobId = 12;
    job.userName = "bob";
    platform::SubmitJob("Laser", job);
    EXPECT_EQ(ResolveUserName(out, port), 3u);
    EXPECT_STREQ(out, "bob");
    EXPECT_EQ(platform::OpenPrinterHandleCount(), 0u);  // the printer it opened is closed again
}

}  // namespace
}  // namespace langmon
