// Which printer queues stand on a port. The monitor is told only of the
// printer whose job it handles; the others that share the port, and want a
// status client as much, it learns from the spooler.
#pragma once

#include "platform/win32_types.h"

#include <cstdint>

namespace langmon {

struct PortContext;

// The language monitor a printer must use to be listed when the port's own
// printer can't say which one it uses.
inline constexpr const char* DefaultReferenceMonitor =
    "Status Monitor Language Monitor for Quor Laser Printer 6200tx";

// One printer on the port. The node owns printerInfo, a block of infoSize
// bytes that holds the PRINTER_INFO_2 with its texts.
struct PrinterList {
    PRINTER_INFO_2* printerInfo;
    uint32_t infoSize;
    PrinterList* next;
};

// The printers on the port: the port's own printer first, whatever its
// language monitor, then every other local printer on the port that uses the
// own printer's monitor, in the spooler's order. Port names are compared
// exactly. 1 on success, also with an empty list; 0 (and an empty list) if an
// argument is missing, the spooler can't list its printers, or there is no
// memory for the own printer's node.
int ListPrintersOnPort(PortContext* port, PrinterList** list);
// Frees every node with its block; null is an empty list.
void FreePrinterList(PrinterList* list);

}  // namespace langmon
