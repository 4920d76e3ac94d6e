// Ctrl-C and SIGTERM as a user of the command means them. The first asks the
// command to wind up the way it should end: a job ended, polling stopped, the
// port closed, which may mean waiting on the printer. A second, while the
// command waits, ends it at once, saying on standard error what it leaves
// undone.
#pragma once

#include <atomic>
#include <string>

namespace langmon::tool {

// Installs the handlers for SIGINT and SIGTERM; `Interrupted()` is set by the
// first signal.
void CatchInterruptions();
const std::atomic<bool>& Interrupted();
// The exit code of a command that a signal ended: 128 and the signal's
// number, as the shell reports a process the signal killed.
int InterruptedExitCode();

// Ends the process at once with `exitCode`, its output flushed: no thread is
// waited for, as for a second interruption. For a port the command leaves as
// it stands, which it would otherwise wait on.
[[noreturn]] void LeaveAtOnce(int exitCode);

// For as long as it lives, a second signal ends the command with this note
// ("langmon: interrupted again: <what>"). Without one, a second signal ends
// it with a plain note. One at a time.
class AbandonNote {
public:
    explicit AbandonNote(const std::string& what);
    ~AbandonNote();
    AbandonNote(const AbandonNote&) = delete;
    AbandonNote& operator=(const AbandonNote&) = delete;
};

}  // namespace langmon::tool
