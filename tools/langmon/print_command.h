// `langmon print FILE`: one job through the monitor, sent the way the spooler
// sends it, and a report of what the printer received and, for the emulated
// printer, what it printed and said.
#pragma once

#include "command_words.h"

#include <atomic>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace langmon::tool {

// Without a printer of the machine on the port, the printer is "langmon".
struct PrintOptions : PortChoice {
    std::string jobFile;
    std::string documentName;  // the job file's name when empty
    unsigned blockSize = 4096;
    bool json = false;       // one JSON document at the end in place of the report
    bool variables = false;  // the client's variables in hex too
};

// Reads the words after "print". False with a message in `error` when they
// don't make a job.
bool ParsePrintOptions(const std::vector<std::string>& words, PrintOptions* options,
                       std::string* error);

// Runs the job and writes the report to `out`, and what went wrong to `err`.
// Returns the process exit code: 0 when the job went through, 1 when the
// job file can't be read or a call failed. With the emulated printer it then
// waits, on the platform clock, until the printer has printed the job or
// stopped making progress.
int RunPrint(const PrintOptions& options, std::ostream& out, std::ostream& err, const std::atomic<bool>& interrupted);

}  // namespace langmon::tool
