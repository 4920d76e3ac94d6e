// The system's error codes in words, as the command reports a failed call:
// an admin reads what went wrong, and support still gets the number.
#pragma once

#include <langmon/monitor.h>

#include <string>

namespace langmon::tool {

// "the file was not found (error 2)"; a code without words of its own is
// "error N" alone.
std::string ErrorWords(DWORD error);

}  // namespace langmon::tool
