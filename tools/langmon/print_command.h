// `langmon print FILE`: one job through the monitor, sent the way the spooler
// sends it, and a report of what the printer received.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace langmon::tool {

struct PrintOptions {
    std::string jobFile;
    std::string printer = "file:langmon-out.prn";  // where the port leads
    std::string portName = "LPT1:";
    std::string printerName = "langmon";
    std::string documentName;  // the job file's name when empty
    unsigned blockSize = 4096;
};

// Reads the words after "print". False with a message in `error` when they
// don't make a job.
bool ParsePrintOptions(const std::vector<std::string>& words, PrintOptions* options,
                       std::string* error);

// Runs the job and writes the report to `out`. Returns the process exit code:
// 0 when the job went through, 1 when a call failed.
int RunPrint(const PrintOptions& options, std::ostream& out);

}  // namespace langmon::tool
