// `langmon print --json`: the whole job as one JSON document, written at the
// end: each call and its result, the bytes the printer received around the
// job's, the printer as the monitor's last poll made it, as its status
// client saw it, the job as the client followed it, and the status words
// the spooler was given.
#pragma once

#include "job_sender.h"
#include "stream_record.h"
#include "variables_view.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace langmon::tool {

struct PrintOutcome {
    std::string jobFile;
    std::string portName;
    std::string printerName;
    std::string target;  // "the emulated Laser Printer 6200tx", ...
    bool opened = false;
    DWORD openError = 0;
    const SentJob* sent = nullptr;  // none when the port did not open
    std::string stoppedBy;          // what stopped the printer with the job, when it was given up for it
    std::optional<bool> closed;     // ClosePort's result, when called
    DWORD closeError = 0;
    std::optional<StreamRecord> received;  // what the printer took
    nlohmann::ordered_json printer;  // the monitor's last poll; null without one
    std::vector<VariableValue> client;
    std::string clientProblem;  // why the client saw nothing
    std::optional<std::vector<std::vector<uint8_t>>> followed;  // PrintingJobInfo2 values, when watched
    std::vector<uint32_t> spoolerWords;
};

void WritePrintJson(std::ostream& out, const PrintOutcome& outcome);

}  // namespace langmon::tool
