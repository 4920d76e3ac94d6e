#include "background/printer_lookup.h"

#include "monitor/port_context.h"
#include "platform/memory.h"
#include "platform/spooler_jobs.h"
#include "platform/spooler_printers.h"
#include "platform/text.h"

#include <cstring>

namespace langmon {

namespace {

constexpr std::size_t ReferenceMonitorChars = 255;

/* FetchSized: the spooler's two-call size rule, once: ask with no buffer to
   learn the size, then into a zero-filled block of that size. False if the
   spooler fails or there is no memory; an answer of no bytes is true with
   no block. */
template <typename Call>
bool FetchSized(Call call, void** block, DWORD* size) {
    *block = nullptr;
    DWORD needed = 0;
    if (call(nullptr, 0, &needed)) return true;
    if (needed == 0) return false;
    void* made = GlobalAlloc(GPTR, needed);
    if (made == nullptr) return false;
    if (!call(static_cast<LPBYTE>(made), needed, &needed)) {
        GlobalFree(made);
        return false;
    }
    *block = made;
    *size = needed;
    return true;
}

// A printer's settings and its driver's record, each in a block of its own.
struct PrinterRecords {
    PRINTER_INFO_2* info = nullptr;
    DWORD infoSize = 0;
    DRIVER_INFO_3* driver = nullptr;

    void Release() {
        GlobalFree(info);
        GlobalFree(driver);
        info = nullptr;
        driver = nullptr;
    }
};

/* FetchPrinterRecords: both records of one printer, or neither. */
bool FetchPrinterRecords(LPSTR name, PrinterRecords* records) {
    HANDLE printer = nullptr;
    if (!OpenPrinterA(name, &printer, nullptr)) return false;
    void* info = nullptr;
    void* driver = nullptr;
    DWORD driverSize = 0;
    if (FetchSized([&](LPBYTE buffer, DWORD size,
                       LPDWORD needed) { return GetPrinterA(printer, 2, buffer, size, needed); },
                   &info, &records->infoSize)) {
        FetchSized([&](LPBYTE buffer, DWORD size, LPDWORD needed) {
            return GetPrinterDriverA(printer, nullptr, 3, buffer, size, needed);
        }, &driver, &driverSize);
    }
    records->info = static_cast<PRINTER_INFO_2*>(info);
    records->driver = static_cast<DRIVER_INFO_3*>(driver);
    ClosePrinter(printer);
    if (records->info == nullptr || records->driver == nullptr) {
        records->Release();
        return false;
    }
    return true;
}

bool Equal(LPCSTR a, LPCSTR b) { return a != nullptr && b != nullptr && lstrcmpA(a, b) == 0; }

/* Append: the node takes the block; false without memory for the node. */
bool Append(PrinterList*** tail, PRINTER_INFO_2* info, DWORD infoSize) {
    auto* node = static_cast<PrinterList*>(GlobalAlloc(GPTR, sizeof(PrinterList)));
    if (node == nullptr) return false;
    node->printerInfo = info;
    node->infoSize = infoSize;
    **tail = node;
    *tail = &node->next;
    return true;
}

}  // namespace

int ListPrintersOnPort(PortContext* port, PrinterList** list) {
    if (list != nullptr) *list = nullptr;
    if (port == nullptr || list == nullptr) return 0;
    DWORD count = 0;
    DWORD enumSize = 0;
    void* block = nullptr;
    if (!FetchSized([&](LPBYTE buffer, DWORD size, LPDWORD needed) {
            return EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 5, buffer, size, needed, &count);
        }, &block, &enumSize)) {
        return 0;
    }
    auto* printers = static_cast<PRINTER_INFO_5*>(block);
    if (printers == nullptr) count = 0;

    const PRINTER_INFO_5* own = nullptr;
    for (DWORD i = 0; i < count && own == nullptr; ++i) {
        if (Equal(printers[i].pPrinterName, port->printerName)) own = &printers[i];
    }
    char referenceMonitor[ReferenceMonitorChars + 1] = {};
    PrinterRecords ownRecords;
    if (own != nullptr && FetchPrinterRecords(own->pPrinterName, &ownRecords)) {
        if (ownRecords.driver->pMonitorName != nullptr) {
            std::strncpy(referenceMonitor, ownRecords.driver->pMonitorName, ReferenceMonitorChars);
        }
        GlobalFree(ownRecords.driver);
        ownRecords.driver = nullptr;
    }
    if (referenceMonitor[0] == '\0') {
        std::strncpy(referenceMonitor, DefaultReferenceMonitor, ReferenceMonitorChars);
    }

    PrinterList** tail = list;
    if (const PRINTER_INFO_2* info = ownRecords.info; info != nullptr) {
        // The port's own printer stands first whatever its monitor: it is
        // the one whose job the port is running.
        if (info->pPrintProcessor != nullptr && Equal(info->pPortName, port->portName)) {
            if (!Append(&tail, ownRecords.info, ownRecords.infoSize)) {
                ownRecords.Release();
                GlobalFree(printers);
                return 0;
            }
        } else {
            ownRecords.Release();
        }
    }

    for (DWORD i = 0; i < count; ++i) {
        if (&printers[i] == own || printers[i].pPrinterName == nullptr) continue;
        PrinterRecords records;
        if (!FetchPrinterRecords(printers[i].pPrinterName, &records)) continue;
        const PRINTER_INFO_2* info = records.info;
        const bool listed = info->pPrintProcessor != nullptr && info->pDriverName != nullptr &&
                            Equal(info->pPortName, port->portName) &&
                            Equal(records.driver->pMonitorName, referenceMonitor);
        GlobalFree(records.driver);
        // A printer that finds no memory for its node is left out.
        if (!listed || !Append(&tail, records.info, records.infoSize)) GlobalFree(records.info);
    }
    GlobalFree(printers);
    return 1;
}

void FreePrinterList(PrinterList* list) {
    while (list != nullptr) {
        PrinterList* next = list->next;
        GlobalFree(list->printerInfo);
        GlobalFree(list);
        list = next;
    }
}

}  // namespace langmon
