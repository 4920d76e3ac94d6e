#include "monitor/serial_hold.h"

#include "platform/sync.h"
#include "portkind/port_kind.h"

namespace langmon {

bool SerialHold::Take() {
    if (!held_) held_ = WaitForSingleObject(port_->serialSemaphore, SerialWaitMs) == WAIT_OBJECT_0;
    return held_;
}

bool SerialHold::TakeWaitingOnLocalPort() {
    while (!Take()) {
        if ((port_->portKind & PK_LOCAL) == 0) return false;
    }
    return true;
}

bool SerialHold::TakeOr(HANDLE other) {
    if (held_) return true;
    const HANDLE objects[2] = {port_->serialSemaphore, other};
    held_ = WaitForMultipleObjects(2, objects, FALSE, SerialWaitMs) == WAIT_OBJECT_0;
    return held_;
}

void SerialHold::Release() {
    if (held_) ReleaseSemaphore(port_->serialSemaphore, 1, nullptr);
    held_ = false;
}

}  // namespace langmon
