// Printers that take a job slowly or not at all: the spooler keeps passing
// what was not taken, and the job still arrives whole, once, and framed.

#include "scenarios/scenario_fixture.h"
#include "support/port_waits.h"

#include "background/status_thread.h"
#include "platform/clock.h"

namespace langmon::scenario {
namespace {

// A printer that takes at most `writeLimit` bytes a write.
struct SlowCase {
    const char* port;
    DWORD mode;
    uint32_t writeLimit;
    std::size_t jobSize;
};

constexpr SlowCase SlowCases[] = {
    {"LPT1", PM_COMPAT, 37, 9000},
    {"LPT2", PM_COMPAT, 1, 1500},
    {"LPT3", PM_ECP, 37, 9000},
    {"USB001", PM_COMPAT, 37, 9000},
};

// What the port didn't take of the trailer waits in the queue, and the status
// thread sends its rest after the job's document has closed, in documents of
// the monitor's own. The line knows no documents: the printer reads one
// stream, and so one whole EOJ and one job.
TEST_F(ScenarioTest, APrinterThatTakesPartOfEachWriteStillGetsEveryByteOnceInOrderAndOneJob) {
    for (const SlowCase& c : SlowCases) {
        SCOPED_TRACE(std::string(c.port) + ", " + std::to_string(c.writeLimit) + " bytes a write");
        PortContext* port = Connect(c.port, c.mode, true, {.writeLimit = c.writeLimit});
        const std::string job = PostScriptJob(2, c.jobSize);
        const std::string id = Start(port);
        const int jobDocument = documents;
        EXPECT_TRUE(TookAll(Spool(port, job), job.size()));
        ASSERT_TRUE(monitor.EndDocPort(port));
        EXPECT_TRUE(testing::WaitUntilPendingSent(port));
        // The printer's report of the job's end lets the thread go. If the
        // thread read that report in its own poll it says goodbye, in one
        // write: what the printer doesn't take of it is dropped.
        EXPECT_TRUE(testing::WaitUntilThreadEnded(port));
        std::string received = printer->Received();
        const std::string goodbye = std::string(UstatusOffText).substr(0, c.writeLimit);
        if (received.ends_with(goodbye)) received.resize(received.size() - goodbye.size());
        EXPECT_TRUE(FramedJob(received, id, job, Trailer(id)));

        int outside = 0;
        for (const LowerWriteCall& write : writes) outside += write.taken != 0 && write.document != jobDocument;
        EXPECT_GT(outside, 0) << "the trailer's rest left after the job's document";
        EXPECT_TRUE(PrintedAsOneJob(id, 2));
        Close(port);
    }
}

TEST_F(ScenarioTest, ASilentPrinterHoldsTheJobBackUntilItAnswersAgain) {
    // Each call polls the printer: three tries a second apart. On LPT1 the
    // port then refuses the probe byte; on USB the call waits 4 s before the
    // poll and 10 s after it.
    for (const auto& [portName, waitPerCall] : {std::pair{"LPT1", 2000u}, std::pair{"USB001", 16000u}}) {
        SCOPED_TRACE(portName);
        PortContext* port = Connect(portName, PM_COMPAT, true, {.silent = true});
        const std::string job = PostScriptJob(1, 3000);
        const std::string id = Start(port);

        // Each call says nothing went and nothing failed: the spooler calls again.
        const DWORD before = GetTickCount();
        const SpoolerRun held = Spool(port, job, 4096, 20);
        EXPECT_EQ(held.calls, 20);
        EXPECT_EQ(held.taken, 0u);
        EXPECT_EQ(held.failures + held.dirtyErrors, 0);
        // The status thread's polls of the silent printer come between them.
        EXPECT_GE(GetTickCount() - before, 20 * waitPerCall);
        EXPECT_EQ(printer->ReceivedCount(), 0u);

        printer->Change([](emulator::PrinterState& s) { s.faults.silent = false; });
        EXPECT_TRUE(TookAll(Spool(port, job), job.size()));
        ASSERT_TRUE(monitor.EndDocPort(port));
        EXPECT_TRUE(FramedJob(printer->Received(), id, job, Trailer(id)));
        EXPECT_TRUE(PrintedAsOneJob(id, 1));
        Close(port);
    }
}

}  // namespace
}  // namespace langmon::scenario
