// The spooler's printers as the monitor asks for them and tells them: their
// settings (GetPrinterA, EnumPrintersA) and drivers (GetPrinterDriverA) from
// the machine description, and the status word the spooler shows for each
// (SetPrinterA). Every status word a printer is given is recorded, so that a
// host can show the spooler's view.
#pragma once

#include "platform/spooler.h"
#include "platform/win32_types.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace langmon {

constexpr DWORD PRINTER_ENUM_LOCAL = 0x00000002u;
constexpr DWORD PRINTER_CONTROL_SET_STATUS = 4;
constexpr DWORD PRINTER_ATTRIBUTE_LOCAL = 0x00000040u;

// A handle whose printer has since left the machine description.
#ifndef ERROR_PRINTER_DELETED
#define ERROR_PRINTER_DELETED 1905u
#endif
#ifndef ERROR_UNKNOWN_PRINTER_DRIVER
#define ERROR_UNKNOWN_PRINTER_DRIVER 1797u
#endif

// Levels 2 and 5 of a printer opened with OpenPrinterA, packed as the spooler
// packs them. A buffer too small (or none): FALSE, ERROR_INSUFFICIENT_BUFFER and
// *needed the size that would do. pPortName is the printer's "Port",
// pDriverName its "Printer Driver", pPrintProcessor its "Print Processor",
// each null when the printer's key lacks the value; pPrinterName is the key's
// own name, pDatatype "RAW". Status is the status word it was last given (0
// before any), cJobs the jobs in its queue, Attributes PRINTER_ATTRIBUTE_LOCAL.
// Everything else the machine description can't say: null texts, zero numbers.
BOOL GetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed);
// Every printer of the machine, at level 2 or 5, with the same size rules and
// *returned the number of records. The flags and the name are not looked at:
// there is one machine and its printers are all local.
BOOL EnumPrintersA(DWORD flags, LPSTR name, DWORD level, LPBYTE buffer, DWORD size,
                   LPDWORD needed, LPDWORD returned);
// Level 3 of the printer's driver, from the driver's key under
// "System\CurrentControlSet\control\Print\Environments\Windows 4.0\Drivers":
// pMonitorName is its "Monitor" (the driver's language monitor), pDriverPath
// its "Driver", pDataFile "Data File", pConfigFile "Configuration File",
// pHelpFile "Help File", pDefaultDataType "Datatype", each null when absent.
// A driver without a key of its own is installed all the same, with nothing
// but its name. The environment is "Windows 4.0" whatever is asked; a printer
// that names no driver fails with ERROR_UNKNOWN_PRINTER_DRIVER. Sizes as
// GetPrinterA.
BOOL GetPrinterDriverA(HANDLE printer, LPSTR environment, DWORD level, LPBYTE buffer, DWORD size,
                       LPDWORD needed);
// Level 0 with PRINTER_CONTROL_SET_STATUS: the status word travels in the
// place of the buffer pointer and becomes the printer's Status. Other levels
// and commands fail with ERROR_NOT_SUPPORTED.
BOOL SetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD command);

namespace platform {

// Every status word given to the printer (case does not matter) through
// SetPrinterA, in order, the refused ones left out; the latest 1024 of them.
std::vector<DWORD> PrinterStatusWords(const std::string& printerName);
// Forgets the status words given to every printer; their Status is 0 again.
void ForgetPrinterStatusWords();

// Adds to the machine a printer queue that its description could have held:
// `name` on `port` with `driver`. With `statusKey` the driver gets its status
// key, so that the status manager keeps its printers' variables; a `monitor`
// names the driver's language monitor.
void AddPrinterQueue(const std::string& name, const std::string& driver, const std::string& port,
                     bool statusKey, const std::string& monitor = "");
// The printer queue leaves the machine; its driver stays.
void RemovePrinterQueue(const std::string& name);
// Whether the machine has a printer queue of that name (case does not
// matter), and where it stands in the spooler's book of printers as it is
// now: the book's generation and the printer's index (see PrinterPlaceOf).
bool PrinterOnMachine(std::string_view name, std::uint64_t* generation, std::size_t* index);

}  // namespace platform
}  // namespace langmon
