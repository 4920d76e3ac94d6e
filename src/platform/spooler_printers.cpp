// The spooler's printers: what the machine description says of each, packed
// the way the spooler packs it, and the status words the monitor gives them.
// Handles belong to spooler_jobs.cpp; the gates that make calls fail belong to
// spooler.cpp. Both are asked, not copied, so a handle or a gate means the
// same to every spooler call.

#include "platform/spooler_printers.h"

#include "platform/folded_name.h"
#include "platform/packed_answer.h"
#include "platform/registry.h"
#include "platform/spooler_jobs.h"
#include "platform/text.h"

#include <memory>
#include <unordered_map>
#include <mutex>
#include <optional>
#include <span>

namespace langmon {
namespace {

using platform::AnswerPacked;
using platform::PackedWriter;

constexpr const char* kPrintersKey = "System\\CurrentControlSet\\control\\Print\\Printers";

// A table keyed by a name as the spooler compares names.
template <typename Value>
using ByName = std::unordered_map<std::string, Value, platform::FoldedNameHash, platform::FoldedNameEqual>;

// ---------------------------------------------------------------------------
// Status words, by printer name. Several ports' status threads
// give them at once.

// A host runs for months: each printer keeps its latest words, not all.
constexpr std::size_t KeptStatusWords = 1024;

struct StatusBook {
    std::mutex mutex;
    ByName<std::vector<DWORD>> words;
};

StatusBook& TheStatusBook() {
    static auto* book = new StatusBook();  // never destroyed, see kernel.h
    return *book;
}

// The printer's Status is the last word it was given, so forgetting the
// words returns it to 0 as well: one record, no second copy to drift.
DWORD LastStatusWord(const std::string& printerName) {
    StatusBook& book = TheStatusBook();
    std::lock_guard lock(book.mutex);
    auto found = book.words.find(printerName);
    return found == book.words.end() || found->second.empty() ? 0 : found->second.back();
}

// ---------------------------------------------------------------------------
// Printers as the machine description has them.

struct Driver;

struct Printer {
    std::string name;  // the key's own name, in its own case
    std::optional<std::string> port;
    std::optional<std::string> driver;
    std::optional<std::string> processor;
    const Driver* driverRecord = nullptr;  // the book's record of `driver`
};


std::size_t RecordSize(DWORD level) {
    return level == 2 ? sizeof(PRINTER_INFO_2) : sizeof(PRINTER_INFO_5);
}

std::size_t TextSize(const std::optional<std::string>& text) {
    return text ? text->size() + 1 : 0;
}

std::size_t InfoSize(const Printer& printer, DWORD level) {
    std::size_t size = RecordSize(level) + printer.name.size() + 1 + TextSize(printer.port);
    if (level == 2) size += TextSize(printer.driver) + TextSize(printer.processor) + sizeof "RAW";
    return size;
}

char* PutText(PackedWriter& out, const std::optional<std::string>& text) {
    return text ? out.PutText(*text) : nullptr;
}

void PutInfo(PackedWriter& out, std::size_t index, const Printer& printer, DWORD level) {
    if (level == 5) {
        PRINTER_INFO_5 info{};
        info.pPrinterName = out.PutText(printer.name);
        info.pPortName = PutText(out, printer.port);
        info.Attributes = PRINTER_ATTRIBUTE_LOCAL;
        out.PutRecord(index, info);
        return;
    }
    PRINTER_INFO_2 info{};
    info.pPrinterName = out.PutText(printer.name);
    info.pPortName = PutText(out, printer.port);
    info.pDriverName = PutText(out, printer.driver);
    info.pPrintProcessor = PutText(out, printer.processor);
    // Jobs reach the port as the application made them.
    info.pDatatype = out.PutText("RAW");
    info.Attributes = PRINTER_ATTRIBUTE_LOCAL;
    // The status word and the jobs change without the registry: read as
    // the record is filled, and only then.
    info.Status = LastStatusWord(printer.name);
    info.cJobs = static_cast<DWORD>(platform::QueuedJobCount(printer.name));
    out.PutRecord(index, info);
}

// The one end of GetPrinterA and EnumPrintersA: the size rule, then the
// records in order with their texts behind them.
BOOL AnswerPrinters(std::span<const Printer> list, DWORD level, LPBYTE buffer, DWORD size,
                    LPDWORD needed, LPDWORD returned) {
    std::size_t total = 0;
    for (const Printer& printer : list) total += InfoSize(printer, level);
    return AnswerPacked(buffer, size, total, list.size(), needed, returned, [&] {
        PackedWriter out(buffer, list.size() * RecordSize(level));
        for (std::size_t i = 0; i < list.size(); ++i) PutInfo(out, i, list[i], level);
    });
}

bool FailsAtGate(platform::SpoolerCall call, LPDWORD needed, LPDWORD returned) {
    DWORD error;
    if (!platform::SpoolerCallFails(call, &error)) return false;
    if (needed) *needed = 0;
    if (returned) *returned = 0;
    SetLastError(error);
    return true;
}

// ---------------------------------------------------------------------------
// Drivers as the machine description has them.

constexpr const char* kDriversKey =
    "System\\CurrentControlSet\\control\\Print\\Environments\\Windows 4.0\\Drivers";
constexpr char kEnvironment[] = "Windows 4.0";

struct Driver {
    std::string name;
    std::optional<std::string> path, data, config, help, monitor, datatype;
};

Driver ReadDriver(const std::string& name) {
    const std::string key = std::string(kDriversKey) + "\\" + name;
    auto text = [&](const char* value) {
        return platform::RegistryGetString(HKEY_LOCAL_MACHINE, key, value);
    };
    return Driver{name,         text("Driver"),  text("Data File"), text("Configuration File"),
                  text("Help File"), text("Monitor"), text("Datatype")};
}

std::size_t DriverSize(const Driver& driver) {
    return sizeof(DRIVER_INFO_3) + driver.name.size() + 1 + sizeof kEnvironment +
           TextSize(driver.path) + TextSize(driver.data) + TextSize(driver.config) +
           TextSize(driver.help) + TextSize(driver.monitor) + TextSize(driver.datatype);
}

void PutDriver(PackedWriter& out, const Driver& driver) {
    DRIVER_INFO_3 info{};
    info.pName = out.PutText(driver.name);
    info.pEnvironment = out.PutText(kEnvironment);
    info.pDriverPath = PutText(out, driver.path);
    info.pDataFile = PutText(out, driver.data);
    info.pConfigFile = PutText(out, driver.config);
    info.pHelpFile = PutText(out, driver.help);
    info.pMonitorName = PutText(out, driver.monitor);
    info.pDefaultDataType = PutText(out, driver.datatype);
    out.PutRecord(0, info);
}

// ---------------------------------------------------------------------------
// The book: every printer and driver as the registry held them at one
// generation. A host with a thousand printers is asked about each of them on
// every reconcile of every port; read once, each answer is a lookup until
// the registry changes. A printer's status word and jobs change without the
// registry and are read live.

struct Book {
    std::uint64_t generation = 0;
    std::vector<Printer> printers;                        // in the order of their keys
    ByName<std::size_t> byName;
    ByName<Driver> drivers;
};

std::shared_ptr<const Book> ReadBook(std::uint64_t generation) {
    auto book = std::make_shared<Book>();
    book->generation = generation;
    for (const std::string& keyName : platform::RegistrySubkeys(HKEY_LOCAL_MACHINE, kPrintersKey)) {
        const std::string key = std::string(kPrintersKey) + "\\" + keyName;
        Printer printer;
        printer.name = keyName;
        printer.port = platform::RegistryGetString(HKEY_LOCAL_MACHINE, key, "Port");
        printer.driver = platform::RegistryGetString(HKEY_LOCAL_MACHINE, key, "Printer Driver");
        printer.processor = platform::RegistryGetString(HKEY_LOCAL_MACHINE, key, "Print Processor");
        if (printer.driver) {
            auto known = book->drivers.find(*printer.driver);
            if (known == book->drivers.end()) {
                known = book->drivers.emplace(*printer.driver, ReadDriver(*printer.driver)).first;
            }
            // A map's elements stay where they are as it grows.
            printer.driverRecord = &known->second;
        }
        book->byName.emplace(keyName, book->printers.size());
        book->printers.push_back(std::move(printer));
    }
    return book;
}

// The book of the registry as it is now, read again when it has changed. A
// change in the middle of a reading leaves a book of the older number, read
// again at the next call. Each thread keeps the book it last used, so that
// a call that finds the registry as it was takes no lock and touches no
// count shared with other threads; the book stays the thread's until its
// next call.
const Book& CurrentBook() {
    static std::mutex mutex;
    static auto* shared = new std::shared_ptr<const Book>();  // never destroyed, see kernel.h
    thread_local std::shared_ptr<const Book> mine;
    const std::uint64_t generation = platform::RegistryGeneration();
    if (mine != nullptr && mine->generation == generation) return *mine;
    std::lock_guard lock(mutex);
    if (*shared == nullptr || (*shared)->generation != generation) *shared = ReadBook(generation);
    mine = *shared;
    return *mine;
}

std::size_t PlaceInBook(const void* book, std::string_view name) {
    const auto& byName = static_cast<const Book*>(book)->byName;
    const auto found = byName.find(name);
    return found == byName.end() ? platform::NoPlace : found->second;
}

// The printer a handle was opened for. Null, with the last error set, for a
// bad handle or a printer no longer on the machine.
const Printer* PrinterOfHandle(const Book& book, HANDLE handle) {
    std::size_t index = platform::NoPlace;
    if (!platform::PrinterPlaceOf(handle, book.generation, PlaceInBook, &book, &index)) return nullptr;
    if (index == platform::NoPlace) {
        SetLastError(ERROR_PRINTER_DELETED);
        return nullptr;
    }
    return &book.printers[index];
}

}  // namespace

BOOL GetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed) {
    if (FailsAtGate(platform::SpoolerCall::GetPrinter, needed, nullptr)) return FALSE;
    const Book& book = CurrentBook();
    const Printer* found = PrinterOfHandle(book, printer);
    if (found == nullptr) return FALSE;
    if (level != 2 && level != 5) {
        SetLastError(ERROR_INVALID_LEVEL);
        return FALSE;
    }
    if (!needed) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    DWORD returned = 0;
    return AnswerPrinters({found, 1}, level, buffer, size, needed, &returned);
}

BOOL EnumPrintersA(DWORD /*flags*/, LPSTR /*name*/, DWORD level, LPBYTE buffer, DWORD size,
                   LPDWORD needed, LPDWORD returned) {
    if (FailsAtGate(platform::SpoolerCall::EnumPrinters, needed, returned)) return FALSE;
    if (!needed || !returned) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (level != 2 && level != 5) {
        SetLastError(ERROR_INVALID_LEVEL);
        return FALSE;
    }
    const Book& book = CurrentBook();
    return AnswerPrinters(book.printers, level, buffer, size, needed, returned);
}

BOOL GetPrinterDriverA(HANDLE printer, LPSTR /*environment*/, DWORD level, LPBYTE buffer,
                       DWORD size, LPDWORD needed) {
    if (FailsAtGate(platform::SpoolerCall::GetPrinterDriver, needed, nullptr)) return FALSE;
    const Book& book = CurrentBook();
    const Printer* found = PrinterOfHandle(book, printer);
    if (found == nullptr) return FALSE;
    if (level != 3) {
        SetLastError(ERROR_INVALID_LEVEL);
        return FALSE;
    }
    if (!needed) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (found->driverRecord == nullptr) {
        SetLastError(ERROR_UNKNOWN_PRINTER_DRIVER);
        return FALSE;
    }
    const Driver& driver = *found->driverRecord;
    DWORD returned = 0;
    return AnswerPacked(buffer, size, DriverSize(driver), 1, needed, &returned, [&] {
        PackedWriter out(buffer, sizeof(DRIVER_INFO_3));
        PutDriver(out, driver);
    });
}

BOOL SetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD command) {
    if (FailsAtGate(platform::SpoolerCall::SetPrinter, nullptr, nullptr)) return FALSE;
    const Printer* found = PrinterOfHandle(CurrentBook(), printer);
    if (found == nullptr) return FALSE;
    if (level != 0 || command != PRINTER_CONTROL_SET_STATUS) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    // The status word travels in the place of the buffer pointer: the pointer
    // is the value, nothing is read through it.
    const auto word = static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(buffer));
    StatusBook& book = TheStatusBook();
    std::lock_guard lock(book.mutex);
    std::vector<DWORD>& words = book.words[found->name];
    if (words.size() == KeptStatusWords) words.erase(words.begin());
    words.push_back(word);
    return TRUE;
}

namespace platform {

std::vector<DWORD> PrinterStatusWords(const std::string& printerName) {
    StatusBook& book = TheStatusBook();
    std::lock_guard lock(book.mutex);
    auto found = book.words.find(printerName);
    return found == book.words.end() ? std::vector<DWORD>{} : found->second;
}

void ForgetPrinterStatusWords() {
    StatusBook& book = TheStatusBook();
    std::lock_guard lock(book.mutex);
    book.words.clear();
}

void AddPrinterQueue(const std::string& name, const std::string& driver, const std::string& port,
                     bool statusKey, const std::string& monitor) {
    const std::string key = std::string(kPrintersKey) + "\\" + name;
    RegistryCreateKey(HKEY_LOCAL_MACHINE, key);
    RegistrySetString(HKEY_LOCAL_MACHINE, key, "Port", port);
    RegistrySetString(HKEY_LOCAL_MACHINE, key, "Printer Driver", driver);
    RegistrySetString(HKEY_LOCAL_MACHINE, key, "Print Processor", "WINPRINT");
    if (statusKey) {
        RegistryCreateKey(HKEY_LOCAL_MACHINE,
                          "Software\\Quor\\Status Monitor\\Printers\\" + driver + "\\Status Variables");
    }
    if (!monitor.empty()) {
        const std::string driverKey = std::string(kDriversKey) + "\\" + driver;
        RegistryCreateKey(HKEY_LOCAL_MACHINE, driverKey);
        RegistrySetString(HKEY_LOCAL_MACHINE, driverKey, "Monitor", monitor);
    }
}

bool PrinterOnMachine(std::string_view name, std::uint64_t* generation, std::size_t* index) {
    const Book& book = CurrentBook();
    const auto found = book.byName.find(name);
    if (found == book.byName.end()) return false;
    *generation = book.generation;
    *index = found->second;
    return true;
}

void RemovePrinterQueue(const std::string& name) {
    RegistryDeleteKey(HKEY_LOCAL_MACHINE, std::string(kPrintersKey) + "\\" + name);
}

}  // namespace platform
}  // namespace langmon
