// The requests of status applications: GetPrinterDataFromPort with ControlID 0
// and a value name that says what is wanted; a 4-byte answer comes back.
#pragma once

#include "platform/win32_types.h"

namespace langmon {

struct PortContext;

// The answers, as signed 32-bit values in the caller's buffer.
constexpr int32_t RequestDone = 0;
constexpr int32_t RequestRefused = -19;
constexpr int32_t RequestPortBusy = -38;
constexpr int32_t RequestPrinterSilent = -1;  // an LM_ value while the printer doesn't answer
// "IsWakeup" always answers this: the monitor knows the requests.
constexpr int32_t WakeupKnown = 330;

// The names are tested in a fixed order, some exactly and some by prefix.
// TRUE after writing the answer; FALSE for an unknown name (the last error
// as it was) or a buffer of less than 4 bytes (ERROR_INSUFFICIENT_BUFFER,
// with *returned 4, the size the caller needs).
BOOL AnswerValueRequest(PortContext* port, LPSTR name, LPSTR out, DWORD outSize, LPDWORD returned);

}  // namespace langmon
