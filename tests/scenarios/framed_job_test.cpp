// Jobs sent through the monitor to the emulated printer, port by port: what
// the printer receives around the job's bytes, how the writes are cut, and
// what the printer makes of it. On a compatible parallel port the job's last
// 80 bytes wait to leave with the trailer; ECP and USB ports hold nothing
// back (at most 4096 bytes a write on ECP), and the trailer follows alone.

#include "scenarios/scenario_fixture.h"

#include <algorithm>

namespace langmon::scenario {
namespace {

TEST_F(ScenarioTest, EachPortFramesThePrintersJobAndCutsItsWritesItsOwnWay) {
    const std::string pjlFramed = Uel + "@PJL JOB NAME=\"Quarterly\"\r\n@PJL ENTER LANGUAGE=POSTSCRIPT\r\n" +
                                  PostScriptJob(2, 5000) + Uel + "@PJL EOJ NAME=\"Quarterly\"\r\n" + Uel;
    struct Case {
        const char* port;
        DWORD mode;
        bool client;
        std::string job;
        uint32_t pages;
        std::size_t block;
        std::size_t largestWrite;  // of the job's data; 0: the delay line's port
    };
    const Case cases[] = {
        // Without a client no header; an EOJ without its JOB frames nothing,
        // and the printer prints the data as a job of its own. (First: once
        // the printer is described, its jobs have a client on any port.)
        {"LPT2", PM_COMPAT, false, PostScriptJob(2, 6000), 2, 4096, 0},
        {"LPT1", PM_COMPAT, true, PostScriptJob(3, 10000), 3, 4096, 0},
        // A job with its own PJL frame gives up its leading UEL once, for the
        // header's, and nests in the header's job.
        {"LPT3", PM_COMPAT, true, pjlFramed, 2, 4096, 0},
        {"LPT4", PM_ECP, true, PostScriptJob(2, 25000), 2, 10000, 4096},
        {"USB001", PM_COMPAT, true, PostScriptJob(2, 25000), 2, 10000, 10000},
        {"USB002", PM_ECP, true, PostScriptJob(2, 25000), 2, 10000, 10000},  // "MyPortMode" has no say over USB
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.port);
        PortContext* port = Connect(c.port, c.mode, c.client);
        const std::string id = Start(port);
        ASSERT_EQ(id.size(), 24u);
        const SpoolerRun run = Spool(port, c.job, c.block);
        EXPECT_TRUE(TookAll(run, c.job.size()));
        ASSERT_TRUE(monitor.EndDocPort(port));

        const bool ownFrame = c.job.starts_with(Uel);
        if (ownFrame) {
            // The first call takes the job's UEL and nothing else.
            ASSERT_FALSE(run.takes.empty());
            EXPECT_EQ(run.takes.front(), Uel.size());
        }
        const std::string sent = ownFrame ? c.job.substr(Uel.size()) : c.job;
        EXPECT_TRUE(FramedJob(printer->Received(), c.client ? id : "", sent, Trailer(id)));
        ASSERT_GE(writes.size(), 2u);
        if (c.largestWrite == 0) {
            EXPECT_EQ(writes.back().offered, c.job.substr(c.job.size() - 80) + Trailer(id));
        } else {
            // The header, the job's data, the trailer.
            ASSERT_GE(writes.size(), 3u);
            EXPECT_EQ(writes.back().offered, Trailer(id));
            EXPECT_EQ(writes.back().offered.size(), 51u);
            std::size_t largest = 0;
            for (std::size_t i = 1; i + 1 < writes.size(); ++i) largest = std::max(largest, writes[i].offered.size());
            EXPECT_EQ(largest, c.largestWrite);
        }
        EXPECT_TRUE(PrintedAsOneJob(c.client ? id : "", c.pages));
        Close(port);
    }
}

}  // namespace
}  // namespace langmon::scenario
