// Ports that hold nothing back: on an ECP port and on USB the job's bytes go
// as the spooler passes them (at most 4096 a write on ECP), and the trailer
// follows alone.

#include "scenarios/scenario_fixture.h"

#include <algorithm>

namespace langmon::scenario {
namespace {

TEST_F(ScenarioTest, OnEcpAndUsbPortsTheTrailerGoesAloneBehindTheWholeJob) {
    struct Case {
        const char* port;
        DWORD mode;
        std::size_t largestWrite;  // of the job's data, from blocks of 10000 bytes
    };
    const Case cases[] = {
        {"LPT1", PM_ECP, 4096},
        {"USB001", PM_COMPAT, 10000},
        {"USB002", PM_ECP, 10000},  // "MyPortMode" has no say over a USB port
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.port);
        PortContext* port = Connect(c.port, c.mode, true);
        const std::string job = PostScriptJob(2, 25000);
        const std::string id = Start(port);
        EXPECT_TRUE(TookAll(Spool(port, job, 10000), job.size()));
        ASSERT_TRUE(monitor.EndDocPort(port));

        EXPECT_TRUE(FramedJob(printer->Received(), id, job, Trailer(id)));
        // The header, the job's data, the trailer.
        ASSERT_GE(writes.size(), 3u);
        EXPECT_EQ(writes.back().offered, Trailer(id));
        EXPECT_EQ(writes.back().offered.size(), 51u);
        std::size_t largest = 0;
        for (std::size_t i = 1; i + 1 < writes.size(); ++i) largest = std::max(largest, writes[i].offered.size());
        EXPECT_EQ(largest, c.largestWrite);
        EXPECT_TRUE(PrintedAsOneJob(id, 2));
        Close(port);
    }
}

}  // namespace
}  // namespace langmon::scenario
