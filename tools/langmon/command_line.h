// The langmon command line: the command a line names, run on the machine
// that LANGMON_REGISTRY describes.
#pragma once

#include <atomic>
#include <iosfwd>
#include <string>
#include <vector>

namespace langmon::tool {

// Runs the command `words` name (the words after "langmon"), writing what it
// shows to `out` and every error to `err`, input echoed in them with its
// unprintable bytes escaped. Help and the version asked for go to `out`; a
// wrong command line is one line on `err`, and no words at all the short
// usage. Returns the exit code: the command's own; 0 for help and the
// version; 2 for a wrong command line, or when the machine description is
// refused, as the command would run on a machine other than the one
// described.
int RunCommandLine(const std::vector<std::string>& words, std::ostream& out, std::ostream& err,
                   const std::atomic<bool>& interrupted);

}  // namespace langmon::tool
