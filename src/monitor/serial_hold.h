// serialSemaphore, taken and given back one way by everyone who talks to the
// printer. Every wait is bounded by SerialWaitMs, and a caller that goes on
// after a wait that ran out gives nothing back: the semaphore's count is one,
// so a release without a take would let a third caller in while the real
// holder is still talking to the printer.
#pragma once

#include "monitor/port_context.h"

namespace langmon {

class SerialHold {
public:
    // Nothing is taken yet.
    explicit SerialHold(PortContext* port) : port_(port) {}
    ~SerialHold() { Release(); }
    SerialHold(const SerialHold&) = delete;
    SerialHold& operator=(const SerialHold&) = delete;

    // Waits for the semaphore for at most SerialWaitMs; true when it came.
    bool Take();
    // As Take, but on a local port the wait starts again each time it runs
    // out: whoever holds the semaphore there holds it for one poll, and a
    // poll ends. Elsewhere the caller goes on after one wait.
    bool TakeWaitingOnLocalPort();
    // Waits for the semaphore or `other`, whichever comes first, for at most
    // SerialWaitMs; with both signalled the semaphore is taken. True when the
    // semaphore came.
    bool TakeOr(HANDLE other);
    // Gives back what this hold took, and nothing otherwise.
    void Release();

private:
    PortContext* port_;
    bool held_ = false;
};

}  // namespace langmon
