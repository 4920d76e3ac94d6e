// A job's data on its way down: what the first block shows, the header gate,
// the ports that hold the spooler back, and the three ways of writing.

#include "support/job_road_fixture.h"

#include "monitor/write_strategy.h"

#include <cstring>
#include <optional>

namespace langmon {
namespace {

using testing::CallKind;
using testing::ExpectedHeader;
using testing::JobRoadTest;
using testing::Uel;
using testing::WriteAnswer;

TEST(SniffJobStartTest, TheFirstBlockTellsWhoseJobItIs) {
    struct Case {
        const char* what;
        std::string block;
        int result;
        uint32_t hasUel;
        bool trailerNamed;  // the trailer will carry the header's name
    };
    const Case cases[] = {
        {"PostScript", "%!PS-Adobe-3.0\n%%Pages: 1\nshowpage\n", 1, 0, true},
        {"a PJL job of its own", Uel + "@PJL SET RESOLUTION=600\r\n@PJL JOB NAME=\"x\"\r\n", 2, 1, true},
        {"ENTER ends the look before JOB", Uel + "@PJL ENTER LANGUAGE=PCL\n@PJL JOB\n", -1, 1, false},
        {"JOB only at a line's start", Uel + "@PJL COMMENT @PJL JOB\r\n......\n", -1, 1, false},
        {"a keyword cut by the block's end", Uel + "@PJL SET X=1234567\n@PJL JO", -1, 1, false},
        {"19 bytes, even behind a UEL", Uel + "@PJL JOB\r\n", -1, 0, false},
        {"anything else", "plain text of twenty bytes or more", -1, 0, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        PortContext port{};
        std::memcpy(port.jobIdentifier, "0312345678ABCD0000000001", 25);
        SniffJobStart(&port, reinterpret_cast<const uint8_t*>(c.block.data()), static_cast<DWORD>(c.block.size()));
        EXPECT_EQ(port.sniffResult, c.result);
        EXPECT_EQ(port.jobHasUel, c.hasUel);
        EXPECT_STREQ(port.trailerIdentifier, c.trailerNamed ? port.jobIdentifier : "");
        EXPECT_EQ(port.jobIsPostScript, c.result == 1 ? 1u : 0u);
    }
}

// A job started on LPT1 for a client. Behind a silent printer the port's
// status thread is held, so that only the spooler's calls act.
class JobDataTest : public JobRoadTest {
protected:
    void TearDown() override {
        hold_.reset();  // the port's close waits for its status thread
        JobRoadTest::TearDown();
    }
    PortContext* Started(bool silent = false) {
        PortContext* port = Open("LPT1");
        GiveClient(port);
        if (silent) {
            PrinterSilent(port);
            hold_.emplace(port);
        }
        EXPECT_TRUE(Start(port));
        return port;
    }
    std::optional<testing::StatusThreadHold> hold_;
};

// All but the 80 bytes the delay line keeps for the trailer.
std::string Passed(const std::string& job) { return job.substr(0, job.size() - 80); }

TEST_F(JobDataTest, AnAnsweringPrinterOfNoKnownModelGetsNoHeader) {
    PortContext* port = Open("LPT1");
    GiveClient(port);
    PrinterAnswers(port, testing::ForeignPrinterId);
    ASSERT_TRUE(Start(port));
    const std::string job = "%!PS-Adobe-3.0\n" + std::string(100, 'c');
    EXPECT_EQ(Send(port, job), job.size());
    EXPECT_FALSE(HasPortFlag(port, PF_HEADER_DUE | PF_HEADER_SENT));
    EXPECT_EQ(Received("LPT1"), Passed(job));
    EXPECT_TRUE(EndDocPort(port));
    EXPECT_EQ(port->jobListHead, nullptr) << "the printer will never report on it";
}

TEST_F(JobDataTest, ASilentPrinterIsProbedTwiceThenTheJobGoesOnWithoutHeader) {
    PortContext* port = Started(true);
    EXPECT_TRUE(HasPortFlag(port, PF_OFFLINE));
    const std::string job = "%!PS-Adobe-3.0\n" + std::string(100, 'd');
    DWORD written = 0;
    const DWORD started = Elapsed();
    ASSERT_TRUE(Write(port, job, &written));
    EXPECT_EQ(written, job.size());
    // Three polls of three tries a second apart, two NUL probes 100 ms
    // apart between them, then the data behind the probes.
    EXPECT_EQ(Elapsed() - started, 3 * 2000u + 2 * 100u);
    // The start's poll and the gate's three, of three tries each.
    EXPECT_EQ(lower.Port("LPT1").Count(CallKind::GetPrinterDataFromPort), 4 * 3);
    const auto writes = lower.Port("LPT1").Calls(CallKind::WritePort);
    ASSERT_GE(writes.size(), 3u);
    EXPECT_EQ(writes[0].bytes + writes[1].bytes, std::string(2, '\0'));
    EXPECT_EQ(Received("LPT1"), std::string(2, '\0') + Passed(job));
    EXPECT_FALSE(HasPortFlag(port, PF_HEADER_DUE)) << "the whole block went with probes out";
    EXPECT_TRUE(EndDocPort(port));
}

TEST_F(JobDataTest, APrinterBackAtTheGateGetsTwoSecondsBeforeItsHeader) {
    PortContext* port = Started(true);
    ASSERT_TRUE(HasPortFlag(port, PF_OFFLINE));
    PrinterAnswers(port, testing::KnownPrinterId);
    const std::string job = "%!PS-Adobe-3.0\n" + std::string(200, 'k');
    DWORD written = 7;
    const DWORD started = Elapsed();
    SetLastError(0xdeadbeef);
    ASSERT_TRUE(Write(port, job, &written));
    EXPECT_EQ(written, 0u) << "the printer settles first";
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_EQ(Elapsed() - started, 2000u);
    EXPECT_FALSE(HasPortFlag(port, PF_OFFLINE));
    EXPECT_EQ(Received("LPT1"), "");
    EXPECT_EQ(Send(port, job), job.size());
    EXPECT_EQ(Received("LPT1"), ExpectedHeader(port->jobIdentifier) + Passed(job));
    EXPECT_TRUE(EndDocPort(port));
}

// A silent USB printer holds the spooler back (the scenarios time it), except
// once its job is discarded: then each block is swallowed at once.
TEST_F(JobDataTest, ADiscardedJobOnASilentUsbPrinterIsSwallowedAtOnce) {
    PortContext* port = Open("USB001");
    PrinterSilent(port);
    ASSERT_TRUE(Start(port));
    ASSERT_TRUE(HasPortFlag(port, PF_OFFLINE));
    SetPortFlag(port, PF_DISCARD);
    // An error some earlier call left on the spooler's thread is no failure
    // of a block that is swallowed.
    SetLastError(ERROR_TIMEOUT);
    const DWORD started = Elapsed();
    DWORD written = 7;
    ASSERT_TRUE(Write(port, std::string(50, 'f'), &written));
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_EQ(written, 50u) << "swallowed";
    EXPECT_EQ(Elapsed(), started) << "at once";
    EXPECT_EQ(Received("USB001"), "");
    EXPECT_TRUE(EndDocPort(port));
}

TEST_F(JobDataTest, AUsbDocumentThatWouldNotOpenIsTriedAgainByEachWrite) {
    PortContext* port = Open("USB001");
    lower.Port("USB001").FailStartDoc(ERROR_ACCESS_DENIED, true);
    ASSERT_TRUE(Start(port));
    DWORD written = 7;
    const DWORD started = Elapsed();
    ASSERT_TRUE(Write(port, std::string(30, 'g'), &written));
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(Elapsed() - started, 4000u);
    lower.Port("USB001").FailStartDoc(0);
    ASSERT_TRUE(Write(port, std::string(30, 'g'), &written));
    EXPECT_EQ(written, 30u);
    EXPECT_TRUE(HasPortFlag(port, PF_DOC_OPEN));
    const auto starts = lower.Port("USB001").Calls(CallKind::StartDocPort);
    EXPECT_EQ(lower.Port("USB001").JobDocumentStarts(), 3);
    EXPECT_EQ(starts.back().jobId, 12u) << "the job's own document";
    EXPECT_EQ(starts.back().docName, "letter");
    EXPECT_EQ(Received("USB001"), std::string(30, 'g'));
    EXPECT_TRUE(EndDocPort(port));
}

}  // namespace
}  // namespace langmon
