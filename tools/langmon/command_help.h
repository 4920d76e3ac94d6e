// What `langmon --help`, `langmon help COMMAND` and a bare `langmon` print:
// the first thing an admin reads of the command, so each text stands alone.
#pragma once

#include <string>

namespace langmon::tool {

// A few lines on standard error when langmon is run with no command.
extern const char* const ShortUsage;

// The help of `command` ("print", "status", "decode", "help", "version"):
// synopsis, every option, exit status, examples; for "", the commands and
// how to learn more. Empty for any other word.
std::string CommandHelp(const std::string& command);

}  // namespace langmon::tool
