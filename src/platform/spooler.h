// The print spooler as the monitor calls it. The spooler's printers, drivers and
// ports come from the registry, under the keys where the spooler keeps them.
// Results come back packed the way the spooler packs them: the fixed records
// first, the texts they point at behind them in the same buffer.
#pragma once

#include "platform/win32_types.h"

// A level that the call does not have.
#ifndef ERROR_INVALID_LEVEL
#define ERROR_INVALID_LEVEL 124u
#endif

namespace langmon {

constexpr DWORD PORT_TYPE_WRITE = 0x1u;
constexpr DWORD PORT_TYPE_READ = 0x2u;

// Levels 1 and 2; any other fails with ERROR_INVALID_LEVEL. With a buffer too small (or none) the result is FALSE, the
// last error ERROR_INSUFFICIENT_BUFFER, *needed the size that would do and
// *returned 0.
BOOL EnumPortsA(LPSTR serverName, DWORD level, LPBYTE ports, DWORD bufferSize, LPDWORD needed,
                LPDWORD returned);

namespace platform {

// The calls that can be made to fail; keep SetPrinter last.
enum class SpoolerCall { EnumPorts, GetPrinter, EnumPrinters, GetPrinterDriver, SetPrinter };

// Makes the next `times` calls of `call` fail with `error` (times < 0: every
// call until StopFailingSpoolerCalls).
void FailSpoolerCall(SpoolerCall call, DWORD error, int times);
void StopFailingSpoolerCalls();
// Calls made since the last StopFailingSpoolerCalls.
std::size_t SpoolerCallCount(SpoolerCall call);

// For the spooler's calls themselves, asked before anything else they do:
// counts the call, and is true with the error to fail with when one is due.
bool SpoolerCallFails(SpoolerCall call, DWORD* error);

}  // namespace platform
}  // namespace langmon
