// A change made to a running printer at a moment of a command's run, as
// `--at SECONDS:CHANGE` gives it: `status --watch` and `emulate` read the
// same words, so one reader serves both.
#pragma once

#include "emulator/printer.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace langmon::tool {

// A change to the emulated printer (`words` as after "emulator:", e.g.
// "cover-open" or "covers=none", or "power-off"/"power-on"), or a job sent
// through the port (`words` "print=FILE", which only `status --watch` makes).
struct TimedChange {
    uint32_t atMs = 0;
    std::string words;
};

inline constexpr std::string_view PrintWord = "print=";

// Reads the value of one --at into `change`. False with the reason in
// `error` when it is not SECONDS:CHANGE.
bool ParseTimedChange(const std::string& text, TimedChange* change, std::string* error);

// Empty when `words` change the emulated printer; otherwise what is wrong,
// as a message that names the --at.
std::string CheckPrinterChange(const std::string& words);

// Makes the change `words` (which CheckPrinterChange accepted) to `printer`.
void MakePrinterChange(emulator::Printer& printer, const std::string& words);

// The changes in the order of their moments; changes of the same moment
// keep the order they were given in.
void SortChanges(std::vector<TimedChange>& changes);

}  // namespace langmon::tool
