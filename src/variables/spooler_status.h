// The status word the spooler shows for each printer on the port: the three
// words of PrinterStatus become one value of PRINTER_STATUS bits, given to the
// spooler once per change on a short thread of its own.
#pragma once

#include "platform/win32_types.h"

#include <cstdint>

namespace langmon {

struct PortContext;
struct ManagerLink;
struct SharedPrinterHandle;

// One row of the map: the value that a PrinterStatus gets when any of its
// words shares a bit with the row's mask for that word. `Name` is the
// spooler's name of the value; null ends the table.
struct SpoolerStatusRow {
    const char* Name;
    uint32_t Value;
    uint32_t Word0Mask;
    uint32_t Word1Mask;
    uint32_t Word2Mask;
};
extern const SpoolerStatusRow SpoolerStatusMap[14];

// The spooler's value for three PrinterStatus words, by the map alone.
uint32_t MapSpoolerStatus(const uint32_t words[3]);

// Tells the spooler the port's PrinterStatus, for each printer on the port. 1
// when every printer was told or had the value already (or there is none), 0
// without a PrinterStatus value or when a printer could not be told.
int NotifySpoolerStatus(PortContext* port);
// The same for one printer; `status` is three words, or null for the empty
// status of a printer that is no longer watched. 1 when the spooler has the
// value already or a thread was started to give it; 0 for a printer that
// isn't bound, or when no thread could be started, and the next notification
// tries again.
int NotifyLinkStatus(PortContext* port, ManagerLink* link, const uint32_t* status);
// Starts the thread that gives `statusValue` to the spooler for the printer.
// 1 once it runs, 0 for a missing handle or without memory or thread.
int StartSpoolerStatusThread(SharedPrinterHandle* printer, uint32_t statusValue,
                             const char* printerName);

// Threads started to give the spooler a status word that have not ended:
// a host that ends waits for them.
int SpoolerStatusThreadsRunning();

// The spooler's retry plan: five attempts this far apart, then one more after
// the long pause.
inline constexpr int SpoolerStatusAttempts = 5;
inline constexpr DWORD SpoolerStatusRetryMs = 500;
inline constexpr DWORD SpoolerStatusLastTryMs = 15000;

}  // namespace langmon
