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

TEST_F(JobFrameTest, TheHeaderOfATwoWayPortIsExactly136Bytes) {
    const std::string expected = Uel +                      // 9
                                 "@PJL USTATUS DEVICE=ON\r\n"  // 24
                                 "@PJL USTATUS JOB=ON\r\n"     // 21
                                 "@PJL USTATUS PAGE=ON\r\n"    // 22
                                 "@PJL INFO STATUS\r\n"        // 18
                                 "@PJL JOB NAME=\"" + Identifier + "\"\r\n";  // 42
    ASSERT_EQ(expected.size(), 136u);
    EXPECT_EQ(Header(Request(1, 1, 1, Identifier, 0)), expected);

    // Nothing asked for: no text at all, not even a UEL, and `out` untouched.
    char out[4] = "abc";
    JobFrameRequest none = Request(0, 0, 1, Identifier, 0);
    EXPECT_EQ(BuildJobHeader(out, &none, port), 0u);
    EXPECT_STREQ(out, "abc");
    EXPECT_EQ(BuildJobHeader(nullptr, &none, port), 0u);
}

TEST_F(JobFrameTest, TheTrailerIs51BytesAnd61WithTheEndOfFileMark) {
    const std::string expected = "@PJL EOJ NAME=\"" + Identifier + "\"\r\n" + Uel;
    ASSERT_EQ(expected.size(), 51u);
    EXPECT_EQ(Trailer(Request(0, 1, 1, Identifier, 0)), expected);

    port->trailerEof = 1;
    EXPECT_EQ(Trailer(Request(0, 1, 1, Identifier, 1)), "\x04" + Uel + expected);
    EXPECT_EQ(Trailer(Request(0, 1, 1, Identifier, 1)).size(), 61u);

    // Without two-way answers the reset trailer names no job.
    port->portKind = 0;
    EXPECT_EQ(Trailer(Request(0, 1, 0, "", 1)), "\x04" + Uel + "@PJL EOJ\r\n" + Uel);
    EXPECT_EQ(Trailer(Request(0, 0, 1, Identifier, 0)), "");
}

TEST_F(JobFrameTest, APortWithoutAnswersGetsNoStatusLinesAndNoName) {
    port->portKind = 0;
    SetSendingUser("alice");
    EXPECT_EQ(Header(Request(1, 1, 1, Identifier, 1)), Uel + "@PJL JOB USER=\"alice\"\r\n");
    port->portKind = PK_BIDI;
    EXPECT_EQ(Header(Request(0, 1, 1, Identifier, 1)),
              Uel + "@PJL JOB NAME=\"" + Identifier + "\" USER=\"alice\"\r\n");
    EXPECT_EQ(Header(Request(0, 1, 0, Identifier, 1)), Uel + "@PJL JOB\r\n");  // the user only with the name
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
