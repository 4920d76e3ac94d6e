// Time as the logic sees it: a millisecond tick that wraps at 32 bits, and
// sleeps. Every wait of the system takes its deadline from here.
//
// There are two clocks. The real one is the machine's monotonic clock. The
// virtual one, for tests, stands still while any managed thread can run and
// jumps to the earliest pending deadline once every managed thread is blocked in
// a platform wait. A thread is managed from its creation by CreateThread, or
// from its first platform call (a wait, a signal, a sleep, a tick).
#pragma once

#include "platform/win32_types.h"

namespace langmon {

DWORD GetTickCount();
void Sleep(DWORD milliseconds);

// Milliseconds from tick `since` to tick `now`, across the wrap.
constexpr DWORD TickAge(DWORD now, DWORD since) { return now - since; }

namespace platform {

// Switch to the virtual clock, starting at `startTick`. Call it while no
// managed thread other than the caller exists (at the start of a test).
void UseVirtualClock(DWORD startTick = 0x00100000u);
// Back to the machine's clock.
void UseRealClock();
bool UsingVirtualClock();

}  // namespace platform
}  // namespace langmon
