// Jobs on the emulated printer, followed by the port's status thread on the
// virtual clock: what the job's client is handed of PrintingJobInfo2 from
// the printer's start report to its end, and when the port lets a job go,
// for jobs that print through, wait behind another, are cancelled at the
// panel or by the host, or whose reports the printer loses.

#include "scenarios/scenario_fixture.h"

#include "framing/job_record.h"
#include "platform/clock.h"
#include "support/fake_manager.h"
#include "variables/derived.h"

#include <array>

namespace langmon::scenario {
namespace {

// A record as the client reads it: JobId, Pages, ColorPages, BwPages, then the
// yellow, magenta, cyan and black coverage.
using Record = std::array<uint32_t, 8>;
using Records = std::vector<Record>;

// A PostScript job whose pages are colour ('c') or black ('b') as `pages`
// says, and `tail` where its end would stand.
std::string Job(const std::string& pages, const std::string& tail = "%%EOF\n") {
    std::string job = "%!PS-Adobe-3.0\n";
    for (char page : pages) {
        job += std::string(page == 'c' ? "1 0 0 setrgbcolor" : "0 setgray") + " (" + std::string(200, page) +
               ") show showpage\n";
    }
    return job + tail;
}

class JobReportsTest : public ScenarioTest {
protected:
    // LPT1 with a client whose driver the status manager keeps variables
    // for, so that the client has a manager to be handed them.
    PortContext* Open(emulator::LinkFaults faults = {}) {
        PortContext* port = Connect("LPT1", PM_COMPAT, true, faults);
        testing::DescribePrinter("Laser", "Quor Laser Printer 6200tx PCL6", "LPT1");
        return port;
    }
    // A job through the monitor, as the spooler sends it; the identifier
    // its header carried.
    std::string Print(PortContext* port, DWORD jobId, const std::string& job) {
        const std::string id = Start(port, jobId);
        EXPECT_TRUE(TookAll(Spool(port, job), job.size()));
        EXPECT_TRUE(monitor.EndDocPort(port));
        return id;
    }
    // Lets virtual time run until `done` holds, at most ten minutes of it.
    template <typename Done>
    bool Until(Done done) {
        for (int i = 0; i < 1200 && !done(); ++i) Sleep(500);
        return done();
    }
    bool Printed(std::size_t job, uint32_t pages) {
        const auto jobs = printer->Jobs();
        return jobs.size() > job && (jobs[job].finished || jobs[job].pagesPrinted >= pages);
    }

    Records Told() {
        Records told;
        for (const auto& value : manager.HandedTo("Laser", "PrintingJobInfo2")) {
            Record record{};
            for (std::size_t i = 0; i < record.size(); ++i) record[i] = value.Word(JobIdOffset + 4 * i);
            told.push_back(record);
        }
        manager.ForgetHanded();
        return told;
    }
    // The final record of the printer's `job`th job, as its figures and the
    // printer's coverage of a colour and a black page make it.
    Record Final(std::size_t job, uint32_t jobId) {
        const emulator::JobRecordOfPrinter printed = printer->Jobs().at(job);
        const emulator::PrinterState state = printer->State();
        const uint32_t colour = printed.colorPages, bw = printed.bwPages;
        const auto& c = state.colorCoverage;  // C, M, Y, K
        const uint32_t black = colour + bw != 0 ? (c[3] * colour + state.monoCoverage * bw) / (colour + bw) : 0;
        if (colour == 0) return {jobId, bw, 0, bw, 0, 0, 0, black};
        return {jobId, colour + bw, colour, bw, c[2], c[1], c[0], black};
    }
    static Record Over(Record final) {
        final[0] = final[1] = 0;
        return final;
    }

    testing::FakeManager manager;
};

// Each job's start, pages and figures reach its client, and the port lets
// it go at its end. Both jobs are in the printer before it prints a page:
// the second one's start report comes while the first is open, and waits.
TEST_F(JobReportsTest, AJobBehindAnotherIsShownOnlyOnceTheFirstHasEnded) {
    PortContext* port = Open();
    const std::string firstId = Print(port, 1, Job("cb"));
    const std::string secondId = Print(port, 2, Job("bbc"));
    EXPECT_TRUE(JobsTracked(port));
    ASSERT_TRUE(Until([&] { return !JobsTracked(port); }));
    ASSERT_TRUE(Printed(1, 3));
    const auto printed = printer->Jobs();
    ASSERT_EQ(printed.size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(printed[i].name, i == 0 ? firstId : secondId);
        EXPECT_EQ(printed[i].endName, printed[i].name);
        EXPECT_TRUE(printed[i].finished);
        EXPECT_EQ(printed[i].result, emulator::JobResult::Ok);
    }
    const Record first = Final(0, 1), second = Final(1, 2);
    EXPECT_EQ(Told(), (Records{{1}, {1, 1}, {1, 2}, first, Over(first), {2}, {2, 1}, {2, 2}, {2, 3}, second,
                               Over(second)}));
}

// Cancelled at the panel after its first page: the printer ends the job
// with what it printed, and the client is told it is being cancelled.
TEST_F(JobReportsTest, AJobCancelledAtThePanelEndsWithThePagesItPrinted) {
    PortContext* port = Open();
    Print(port, 7, Job("ccbb"));
    ASSERT_TRUE(Until([&] { return Printed(0, 1); }));
    printer->CancelAtPanel();
    ASSERT_TRUE(Until([&] { return !JobsTracked(port); }));
    const auto printed = printer->Jobs();
    ASSERT_EQ(printed.size(), 1u);
    EXPECT_EQ(printed[0].result, emulator::JobResult::CancelledAtPanel);
    EXPECT_EQ(printed[0].pagesPrinted, 1u);
    const auto status = manager.HandedTo("Laser", "JobStatus");
    ASSERT_FALSE(status.empty());
    EXPECT_EQ(status.back().Word(0) & JobCancelling, JobCancelling);
    const Record final = Final(0, 7);
    EXPECT_EQ(Told(), (Records{{7}, {7, 1}, final, Over(final)}));
}

// The application gives up on its PostScript program: a Ctrl-D and a UEL
// before the program's end. The printer drops what it has not printed and
// reports the job cancelled by the host; the port winds up its tracking.
TEST_F(JobReportsTest, AJobTheHostCancelledEndsTowardsItsClientAndThePortLetsItGo) {
    PortContext* port = Open();
    const std::string job = Job("cbcb", "");
    const std::string abort = "\x04" + Uel + "@PJL COMMENT given up\r\n";
    Start(port, 7);
    EXPECT_TRUE(TookAll(Spool(port, job), job.size()));
    ASSERT_TRUE(Until([&] { return Printed(0, 2); }));
    EXPECT_TRUE(TookAll(Spool(port, abort), abort.size()));
    EXPECT_TRUE(monitor.EndDocPort(port));
    ASSERT_TRUE(Until([&] { return !JobsTracked(port); }));
    const auto printed = printer->Jobs();
    ASSERT_EQ(printed.size(), 1u);
    EXPECT_EQ(printed[0].result, emulator::JobResult::CancelledByHost);
    EXPECT_EQ(printed[0].pagesPrinted, 2u);
    for (const auto& status : manager.HandedTo("Laser", "JobStatus")) {
        EXPECT_EQ(status.Word(0) & JobCancelling, 0u) << "not taken for a cancel at the panel";
    }
    const Record final = Final(0, 7);
    EXPECT_EQ(Told(), (Records{{7}, {7, 1}, {7, 2}, final, Over(final)}));
}

// The printer loses every job report of the first job. When the second
// job's start arrives, the first is ended towards its client in one step,
// and the second goes on as usual.
TEST_F(JobReportsTest, AJobWhoseReportsWereLostEndsWhenTheNextJobStarts) {
    PortContext* port = Open({.loseJobReports = true});
    Print(port, 1, Job("c"));
    ASSERT_TRUE(Until([&] { return Printed(0, 2); }));
    ASSERT_TRUE(printer->Jobs()[0].finished);
    EXPECT_TRUE(Told().empty()) << "the page count of a job never started tells nothing";
    EXPECT_TRUE(JobsTracked(port));

    printer->Change([](emulator::PrinterState& s) { s.faults.loseJobReports = false; });
    Print(port, 2, Job("bc"));
    ASSERT_TRUE(Until([&] { return !JobsTracked(port); }));
    const Record second = Final(1, 2);
    EXPECT_EQ(Told(), (Records{{1}, {0}, {2}, {2, 1}, {2, 2}, second, Over(second)}));
}

}  // namespace
}  // namespace langmon::scenario
