// `langmon print FILE`: one job through the monitor, sent the way the spooler
// sends it, and a report of what the printer received and, for the emulated
// printer, what it printed and said.
#pragma once

#include "command_words.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

namespace langmon::tool {

// Without a printer of the machine on the port, the printer is "langmon": a
// queue of the command's own for the emulated printer's model, or a queue
// without a client for a file.
struct PrintOptions : PortChoice {
    std::string jobFile;
    std::string documentName;  // the job file's name when empty
    unsigned blockSize = 4096;
    // Whether the report goes to a terminal, which is shown how far a long
    // wait has come.
    bool terminal = false;
    // What becomes of the port when the printer stopped with the job at it:
    // none, it is closed, and the monitor waits up to two minutes for the
    // printer's report of the job's end; the command itself leaves it
    // instead (see LeaveAtOnce), once the report is written.
    std::function<void(int exitCode)> leaveStoppedPort;
    bool json = false;       // one JSON document at the end in place of the report
    bool variables = false;  // the client's variables in hex too
    // Set when --printer is no address: it may name a printer of langmond,
    // else this is what is wrong with it.
    std::string addressProblem;
};

// The exit code of a job that the printer stopped: a jam, an open cover, no
// paper, a printer that does not answer.
inline constexpr int StoppedJobExitCode = 3;

// Reads the words after "print". False with a message in `error` when they
// don't make a job.
bool ParsePrintOptions(const std::vector<std::string>& words, PrintOptions* options,
                       std::string* error);

// A printer langmond owns, named by --printer (its name, or the address of
// the same printer), gets the job through the daemon (see RunDaemonPrint).
// Otherwise the command runs the job and writes the report to `out`, and what went wrong to `err`.
// Returns the process exit code: 0 when the job went through, 1 when the
// job file can't be read, a call failed or the printer took nothing for a
// minute, StoppedJobExitCode when the printer stopped with the job. With the emulated printer it then
// waits, on the platform clock, until the printer has printed the job or
// stopped making progress.
int RunPrint(const PrintOptions& options, std::ostream& out, std::ostream& err, const std::atomic<bool>& interrupted);

}  // namespace langmon::tool
