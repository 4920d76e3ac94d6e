// Describing an emulated printer in words: the state file a user writes, and
// the short form after "emulator:" on the command line. Both come down to
// `key = value` settings of a PrinterState; the README lists every key.
//
//     # a 6300tx with a jam and little cyan toner
//     model = Laser Printer 6300tx
//     jam = 3
//     toner.cyan = 4
//
//     --printer emulator:model=Laser Printer 6300tx,jam=3,toner.cyan=4
//     --printer emulator:paper-out,one-byte,state=my-printer.txt
//     --printer emulator:covers=front,top,jam=3,5,toner.cyan=4
#pragma once

#include "emulator/printer_state.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace langmon::emulator {

// A state file is read up to this many bytes; a longer one is refused. Every
// key set once, with comments, takes a few kilobytes.
inline constexpr std::size_t PrinterStateFileByteLimit = 64u << 10;

// Sets one key. Returns an empty text, or what is wrong with the key or value.
std::string SetPrinterValue(PrinterState& state, std::string_view key, std::string_view value);

// Reads a state file: one `key = value` a line, '#' starts a comment, blank
// lines are passed over. Returns an empty text, or the first problem with
// the file's name and line number (or why it can't be read, a directory or a
// file too long among them); the state is then partly changed.
std::string LoadPrinterStateFile(const std::string& path, PrinterState& state);
// The same for a state file's text; `source` names it in a problem.
std::string ReadPrinterStateText(std::string_view text, std::string_view source, PrinterState& state);

// The words after "emulator:", separated by commas: `key=value`, `state=FILE`
// (a state file, read in its place), or one of the fault words that the
// README lists ("jam", "paper-out", "silent", ...). The value of a list
// (covers, jam, options, commands) takes in the words after it up to the
// next setting or fault word: "covers=front,top,toner.cyan=4".
std::string ApplyPrinterDescription(std::string_view description, PrinterState& state);

}  // namespace langmon::emulator
