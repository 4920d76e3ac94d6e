// Jobs sent through the monitor to the emulated printer on a parallel port,
// where the job's last 80 bytes wait to leave with the trailer: what the
// printer receives, and what it makes of it.

#include "scenarios/scenario_fixture.h"

namespace langmon::scenario {
namespace {

TEST_F(ScenarioTest, APostScriptJobIsFramedAndPrintedUnderItsNameWhenItHasAClient) {
    PortContext* port = Connect("LPT1", PM_COMPAT, true);
    const std::string job = PostScriptJob(3, 10000);
    const std::string id = Start(port);
    ASSERT_EQ(id.size(), 24u);
    EXPECT_TRUE(TookAll(Spool(port, job), job.size()));
    ASSERT_TRUE(monitor.EndDocPort(port));

    EXPECT_TRUE(FramedJob(printer->Received(), id, job, Trailer(id)));
    // The job's last 80 bytes and the trailer reach the port in one write.
    ASSERT_FALSE(writes.empty());
    EXPECT_EQ(writes.back().offered, job.substr(job.size() - 80) + Trailer(id));
    EXPECT_TRUE(PrintedAsOneJob(id, 3));
}

TEST_F(ScenarioTest, WithoutAClientAJobGetsNoHeaderButStillItsTrailer) {
    PortContext* port = Connect("LPT1", PM_COMPAT, false);
    const std::string job = PostScriptJob(2, 6000);
    const std::string id = Start(port);
    EXPECT_TRUE(TookAll(Spool(port, job), job.size()));
    ASSERT_TRUE(monitor.EndDocPort(port));

    EXPECT_TRUE(FramedJob(printer->Received(), "", job, Trailer(id)));
    // An EOJ without its JOB frames nothing: the printer prints the data as
    // a job of its own.
    EXPECT_TRUE(PrintedAsOneJob("", 2));
}

TEST_F(ScenarioTest, AJobWithItsOwnPjlFrameGivesUpItsLeadingUelOnceAndNestsInTheHeadersJob) {
    PortContext* port = Connect("LPT1", PM_COMPAT, true);
    const std::string job = Uel + "@PJL JOB NAME=\"Quarterly\"\r\n@PJL ENTER LANGUAGE=POSTSCRIPT\r\n" +
                            PostScriptJob(2, 5000) + Uel + "@PJL EOJ NAME=\"Quarterly\"\r\n" + Uel;
    const std::string id = Start(port);

    // The first call takes the job's UEL and nothing else: the header's UEL
    // stands for it.
    const SpoolerRun run = Spool(port, job);
    EXPECT_TRUE(TookAll(run, job.size()));
    ASSERT_FALSE(run.takes.empty());
    EXPECT_EQ(run.takes.front(), Uel.size());
    ASSERT_TRUE(monitor.EndDocPort(port));

    EXPECT_TRUE(FramedJob(printer->Received(), id, job.substr(Uel.size()), Trailer(id)));
    EXPECT_TRUE(PrintedAsOneJob(id, 2));
}

}  // namespace
}  // namespace langmon::scenario
