// The parts of `langmon print`'s report that describe what the printer got:
// the job's bytes in what it received, the PJL around them, and what an
// emulated printer made of the job.
#pragma once

#include "stream_record.h"

#include "emulator/printer.h"

#include <iosfwd>
#include <string_view>

namespace langmon::tool {

// Where the job's bytes stand in what the printer received, and the bytes
// ahead of and behind them shown as text lines.
void DescribeReceived(std::ostream& out, const StreamRecord& job, const StreamRecord& received);

// The jobs the printer saw with their pages and results, what it said back,
// and what its panel shows now.
void DescribePrinter(std::ostream& out, emulator::Printer& printer);

// Bytes as a person reads them: the UEL as <UEL>, other control bytes as
// <ESC>, <EOT>, <FF> or \xNN, one line per LF with its CR LF left out.
std::string ShowBytes(std::string_view bytes, std::string_view indent);

}  // namespace langmon::tool
