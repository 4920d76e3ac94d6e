// The ground of the scenario tests: the monitor's entry table over the
// emulated printer's port monitor, on the virtual clock, a job driven as a
// spooler drives it, and what the printer then holds.
#pragma once

#include "emulator/port_monitor.h"
#include "emulator/printer.h"
#include "manager/manager_link.h"
#include "monitor/port_context.h"

#include "support/job_frame_texts.h"
#include "support/platform_fixture.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace langmon::scenario {

using testing::Uel;

inline std::string Trailer(const std::string& identifier) { return testing::ExpectedTrailer(identifier); }

// A PostScript job of `pages` pages and about `size` bytes. Every line is
// numbered, so a byte lost, doubled or out of place shows.
std::string PostScriptJob(int pages, std::size_t size);

// `got` is a header naming `identifier` (nothing when it is empty), the
// job's bytes once and in order, then `trailer`.
::testing::AssertionResult FramedJob(const std::string& got, const std::string& identifier,
                                     const std::string& job, const std::string& trailer);

// What the spooler saw while it sent a job.
struct SpoolerRun {
    std::size_t taken = 0;  // bytes of the job the port took
    int calls = 0;
    int failures = 0;       // calls that returned FALSE
    int dirtyErrors = 0;    // calls that returned TRUE with a last error other than 0
    std::vector<DWORD> takes;  // *pcbWritten of each call
};

// Every call succeeded with a clean last error, and the port took `size` bytes.
::testing::AssertionResult TookAll(const SpoolerRun& run, std::size_t size);

// One write the port monitor below was offered, what it took of it, and in
// which of the documents opened below it came (the first is 1).
struct LowerWriteCall {
    std::string offered;
    DWORD taken;
    int document;
};

class ScenarioTest : public testing::MonitorTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // A new printer with these link faults behind the port, opened for jobs
    // in this port mode ("MyPortMode": 1 compatibility, 2 ECP). A client
    // makes the printer one the monitor follows and knows the model of, as
    // the poll and the manager binding will once they are there.
    PortContext* Connect(const char* portName, DWORD mode, bool client, emulator::LinkFaults faults = {});
    // Only the printer behind the port and the port's mode, for a test that
    // opens and closes the port itself through the monitor's table with
    // the port monitor's table below.
    void PlugInPrinter(const char* portName, DWORD mode, emulator::LinkFaults faults = {});
    MONITOR* PortMonitorBelow() { return &below_; }
    // Takes the client away again and closes the port, as the spooler does.
    void Close(PortContext* port);
    // Starts the spooler's job `jobId`; the identifier its header will carry.
    std::string Start(PortContext* port, DWORD jobId = 7);
    // The spooler's loop: blocks of `block` bytes, each passed again from what
    // was not taken, at most `maxCalls` calls; it stops at a call that fails.
    SpoolerRun Spool(PortContext* port, const std::string& job, std::size_t block = 4096,
                     int maxCalls = 100000);
    // Once the printer has printed all it can: it saw one job, named `name`
    // in its JOB and EOJ lines (empty: sent without them), which printed
    // `pages` pages and the printer nothing else.
    ::testing::AssertionResult PrintedAsOneJob(const std::string& name, uint32_t pages);

    std::unique_ptr<emulator::Printer> printer;
    std::vector<LowerWriteCall> writes;
    int documents = 0;  // opened below so far
    // GetPrinterDataFromPort calls that reached the printer's port monitor
    // (the device ID requests of the polls) from the test's own thread, so
    // that the status thread's polls don't count.
    int OwnControlRequests();

private:
    static BOOL RecordWrite(HANDLE port, LPBYTE buffer, DWORD size, LPDWORD written);
    static BOOL RecordControl(HANDLE port, DWORD controlId, LPSTR valueName, LPSTR in, DWORD inSize, LPSTR out,
                              DWORD outSize, LPDWORD returned);
    static BOOL RecordStartDoc(HANDLE port, LPSTR printerName, DWORD jobId, DWORD level, LPBYTE docInfo);

    std::unique_ptr<emulator::PortMonitor> ports_;
    MONITOR below_{};  // the emulator's table, its documents and writes recorded
    std::vector<PortContext*> opened_;
    std::mutex controlMutex_;
    std::vector<DWORD> controlThreads_;  // the caller of each control request
    char printerName_[8] = "Laser";
    char docName_[8] = "report";
    DOC_INFO_1 docInfo_{docName_, nullptr, nullptr};
};

}  // namespace langmon::scenario
