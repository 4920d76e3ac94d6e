// The printer's job reports as the job's client sees them: the records of
// PrintingJobInfo2 it is handed from a job's start through its pages to its
// final figures, which job a report belongs to, the jobs that wait in the
// chain behind an open one, and what a job's result does.

#include "parser/job_progress.h"
#include "parser/response_parser.h"

#include "acquisition/poll.h"
#include "framing/job_record.h"
#include "platform/spooler_jobs.h"
#include "support/client_fixture.h"
#include "variables/derived.h"
#include "variables/publication.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

namespace langmon {
namespace {

// A record as the client reads it: JobId, Pages, ColorPages, BwPages, then the
// yellow, magenta, cyan and black coverage.
using Record = std::array<uint32_t, 8>;
using Records = std::vector<Record>;

// A job's identifiers as its header (S) and trailer (E) would name it: 24
// characters that begin with "03".
std::string Id(char which, uint32_t jobId) {
    const std::string number = std::to_string(jobId);
    return "03" + std::string(1, which) + std::string(21 - number.size(), '0') + number;
}
std::string S(uint32_t jobId) { return Id('S', jobId); }
std::string E(uint32_t jobId) { return Id('E', jobId); }

const std::string JobHead = "@PJL USTATUS JOB\r\n";

std::string Started(const std::string& name) { return JobHead + "START\r\nNAME=\"" + name + "\"\r\n\f"; }
std::string Page(uint32_t pages) { return "@PJL USTATUS PAGE\r\n" + std::to_string(pages) + "\r\n\f"; }
// One report's statistics: its colour pages, their coverage of C, M, Y, K,
// and the black and white pages, whose line closes the report.
std::string Figures(uint32_t colour, std::array<uint32_t, 4> cmyk, uint32_t bw) {
    std::string lines = "COLORPAGE=" + std::to_string(colour) + "\r\n";
    for (std::size_t i = 0; i < 4; ++i) {
        lines += std::string("COVERAGE ") + "CMYK"[i] + "=" + std::to_string(cmyk[i]) + "\r\n";
    }
    return lines + "BWPAGE=" + std::to_string(bw) + "\r\n";
}
std::string Statistics(const std::string& lines) { return JobHead + lines + "\f"; }
// The end report repeats the job's whole figures, which the monitor has
// summed already; these would spoil every figure if they were counted.
std::string Ended(const std::string& name, const std::string& result = "RESULT=OK") {
    return JobHead + "END\r\nNAME=\"" + name + "\"\r\nPAGES=99\r\n" + Figures(99, {99, 99, 99, 99}, 99) + result +
           "\r\n\f";
}

class JobProgressTest : public testing::ClientTest {
protected:
    void SetUp() override {
        ClientTest::SetUp();
        port = Open("LPT1");
        ASSERT_NE(port, nullptr);
        ASSERT_EQ(PollPrinterStatus(port), 1);
        testing::DescribePrinter(Printer, testing::Driver6200, "LPT1");
        link = CreateManagerLink(Printer, port);
        ASSERT_NE(link, nullptr);
        manager.ForgetHanded();
    }
    void TearDown() override {
        hold.reset();  // the port's close waits for its status thread
        ClientTest::TearDown();
    }

    // A job of the client's at the end of the port's list, as its start,
    // header and trailer leave it.
    void AddJob(uint32_t jobId) {
        LockPort(port);
        ManagerLink* running = port->jobManager;
        port->jobManager = link;
        AddJobRecord(jobId, port);
        SetJobIdentifier(S(jobId).c_str(), JobStartName, port);
        SetJobIdentifier(E(jobId).c_str(), JobEndName, port);
        port->jobManager = running;
        UnlockPort(port);
    }
    std::vector<uint32_t> JobIds() const {
        std::vector<uint32_t> ids;
        for (const JobRecord* job = port->jobListHead; job != nullptr; job = job->Next) ids.push_back(job->JobId);
        return ids;
    }

    void Feed(const std::string& block) { ParseResponseBuffer(port, block.c_str(), 1); }

    // The job records the client was handed since the last look.
    Records Told() {
        Records told;
        for (const auto& value : manager.HandedTo(Printer, "PrintingJobInfo2")) {
            EXPECT_EQ(value.bytes.size(), 320u);
            EXPECT_TRUE(std::all_of(value.bytes.begin(), value.bytes.begin() + JobIdOffset, [](uint8_t b) { return b == 0; }))
                << "no document or user in this variable";
            Record record{};
            for (std::size_t i = 0; i < record.size(); ++i) record[i] = value.Word(JobIdOffset + 4 * i);
            told.push_back(record);
        }
        manager.ForgetHanded();
        return told;
    }

    PortContext* port = nullptr;
    ManagerLink* link = nullptr;
    std::optional<testing::StatusThreadHold> hold;
};

TEST_F(JobProgressTest, AJobIsShownFromItsStartThroughItsPagesToItsFinalFigures) {
    AddJob(12);
    Feed(Started(S(12)));
    EXPECT_EQ(Told(), (Records{{12}}));

    // Page counts as the printer gives them; a repeat is told again, a smaller
    // one takes pages away. A last count left by an earlier job is no base
    // for a job with no pages yet.
    port->lastPageReport = 7;
    for (uint32_t pages : {1, 2, 2, 3, 5, 3}) Feed(Page(pages));
    EXPECT_EQ(Told(), (Records{{12, 1}, {12, 2}, {12, 2}, {12, 3}, {12, 5}, {12, 3}}));

    // Statistics: 2 colour pages at 12% cyan; a black page at 5% whose
    // report names no colour pages; a report whose BWPAGE is missing, whose numbers the
    // next BWPAGE counts.
    Feed(Statistics(Figures(2, {12, 0, 0, 6}, 1)));
    Feed(Statistics("COVERAGE K=5\r\nBWPAGE=1\r\n"));
    Feed(Statistics("COLORPAGE=1\r\nCOVERAGE C=30\r\nCOVERAGE K=9\r\n"));
    Feed(Statistics("BWPAGE=2\r\n"));
    EXPECT_TRUE(Told().empty()) << "statistics go out with the job's end";

    // 3 colour and 4 black pages; cyan (2 x 12 + 1 x 30) / 3, black
    // (3 x 6 + 1 x 5 + 3 x 9) / 7. Then the record that says the job is over.
    Feed(Ended(E(12)));
    EXPECT_EQ(Told(), (Records{{12, 7, 3, 4, 0, 0, 18, 7}, {0, 0, 3, 4, 0, 0, 18, 7}}));
    EXPECT_FALSE(JobsTracked(port));
}

TEST_F(JobProgressTest, AReportFindsItsJobByTheNameOfItsKindAndAStartNameOnlyOnce) {
    // A spooler job name carries the JobId itself: no identifier is looked up.
    AddJob(11);
    Feed(Started("MSJOB 11"));
    Feed(Ended("MSJOB 11"));
    EXPECT_EQ(Told(), (Records{{11}, {11}, {0}}));

    AddJob(14);
    AddJob(12);
    AddJob(13);
    Feed(Started(S(14)));
    // Its start identifier is used up: the same report again finds no job,
    // and the variable still shows job 14.
    Feed(Started(S(14)));
    Feed(Page(1));
    EXPECT_EQ(Told(), (Records{{14}, {14, 1}}));

    // The end report names the job as its trailer did. Read without
    // publishing, the job keeps that name until its end goes out.
    ParseResponseBuffer(port, Ended(E(14)).c_str(), 0);
    EXPECT_TRUE(Told().empty());
    LockPort(port);
    const JobRecord* job = FindJobRecord(E(14).c_str(), JobEndName, port);
    EXPECT_TRUE(job != nullptr && job->JobId == 14);
    UnlockPort(port);
    PublishVariables(port);
    EXPECT_EQ(Told(), (Records{{14}, {0}}));

    // A NAME ahead of START, or in USTATUS EOJ, has no record to fill, and
    // uses up the start identifier all the same.
    Feed(JobHead + "NAME=\"" + S(12) + "\"\r\nSTART\r\n\f");
    Feed(Started(S(12)));
    Feed("@PJL USTATUS EOJ\r\nEND\r\nNAME=\"" + S(13) + "\"\r\nPAGES=1\r\n\f");
    Feed(Started(S(13)));
    EXPECT_TRUE(Told().empty());
    EXPECT_EQ(JobIds(), (std::vector<uint32_t>{12, 13}));
}

// A job running on the port, its header out; the status thread is held, so
// that only the reports act.
TEST_F(JobProgressTest, AHostCancelEndsTheJobEverywhereWhileOtherResultsChangeLittleOrNothing) {
    platform::SpoolerJob queued;
    queued.jobId = 12;
    platform::SubmitJob(Printer, queued);
    hold.emplace(port);
    ASSERT_TRUE(Start(port, 12));
    const std::string job = "%!PS-Adobe-3.0\n" + std::string(300, 'p') + "showpage\n";
    EXPECT_EQ(Send(port, job), job.size());
    ASSERT_TRUE(HasPortFlag(port, PF_HEADER_SENT));
    Feed(Started(port->jobIdentifier));
    EXPECT_EQ(Told(), (Records{{12}}));

    const auto jobStatus = [&] { return manager.HandedTo(Printer, "JobStatus"); };
    const auto cancels = [] { return std::ranges::count(platform::JobCommands(), std::string("12:3")); };
    Feed(Statistics("RESULT=OK\r\n"));
    Feed(Statistics("RESULT=CANCELED\r\n"));
    EXPECT_TRUE(jobStatus().empty());
    EXPECT_TRUE(Told().empty());
    // The printer cancelled at its panel: the client is told the job is
    // being cancelled; the spooler is not asked to.
    Feed(Statistics("CANCELED\r\n"));
    ASSERT_EQ(jobStatus().size(), 1u);
    EXPECT_EQ(jobStatus()[0].Word(0) & JobCancelling, JobCancelling);
    EXPECT_EQ(cancels(), 0);

    // The host cancelled it: the spooler cancels the job, its client sees it
    // end, the port follows no job, and the rest of its data is swallowed.
    const std::size_t sent = Received("LPT1").size();
    Feed(Statistics("RESULT=HOST_CALCELED\r\n"));
    EXPECT_EQ(cancels(), 1);
    EXPECT_EQ(Told(), (Records{{12}, {0}}));
    EXPECT_FALSE(JobsTracked(port));
    EXPECT_EQ(Send(port, job), job.size());
    EXPECT_EQ(Received("LPT1").size(), sent);
    EXPECT_TRUE(EndDocPort(port));
}

TEST_F(JobProgressTest, ReportsSplitAnywhereIntoTwoReadsTellTheClientTheSame) {
    // A lone form feed ahead of them is an empty response.
    const std::string reports = "\f" + Started(S(12)) + Page(1) + Statistics(Figures(1, {6, 5, 4, 7}, 0)) + Page(2) +
                                Statistics(Figures(0, {0, 0, 0, 5}, 1)) + Ended(E(12));
    for (std::size_t cut = 0; cut <= reports.size(); ++cut) {
        SCOPED_TRACE("cut at " + std::to_string(cut) + ": " + ::testing::PrintToString(reports.substr(cut, 12)));
        AddJob(12);
        Feed(reports.substr(0, cut));
        Feed(reports.substr(cut));
        ASSERT_EQ(Told(), (Records{{12}, {12, 1}, {12, 2}, {12, 2, 1, 1, 4, 5, 6, 6}, {0, 0, 1, 1, 4, 5, 6, 6}}));
        ASSERT_FALSE(JobsTracked(port));
        ASSERT_EQ(port->responseTail, nullptr);
    }
}

}  // namespace
}  // namespace langmon
