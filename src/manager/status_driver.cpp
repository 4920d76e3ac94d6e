#include "manager/status_driver.h"

#include "acquisition/device_id.h"
#include "manager/manager_link.h"
#include "monitor/monitor_entry.h"
#include "platform/memory.h"
#include "platform/registry.h"
#include "platform/spooler_jobs.h"
#include "platform/spooler_printers.h"
#include "platform/text.h"

#include <cstdio>
#include <cstring>

namespace langmon {

namespace {

constexpr const char* PrintersKey = "System\\CurrentControlSet\\control\\Print\\Printers";
constexpr const char* StatusPrintersKey = "Software\\Quor\\Status Monitor\\Printers";
constexpr const char* StatusVariablesKey = "Status Variables";
constexpr const char* VendorPrefix = "Quor ";
constexpr size_t VendorPrefixLength = 5;
constexpr DWORD KeyNameBytes = 256;

// The printer's PRINTER_INFO_2 in a block of its own, or null.
PRINTER_INFO_2* ReadPrinterInfo(const char* printerName) {
    HANDLE printer = nullptr;
    if (!OpenPrinterA(const_cast<LPSTR>(printerName), &printer, nullptr)) return nullptr;
    DWORD needed = 0;
    GetPrinterA(printer, 2, nullptr, 0, &needed);
    void* block = needed != 0 ? GlobalAlloc(GPTR, needed) : nullptr;
    if (block != nullptr && !GetPrinterA(printer, 2, static_cast<LPBYTE>(block), needed, &needed)) {
        block = GlobalFree(block);
    }
    ClosePrinter(printer);
    return static_cast<PRINTER_INFO_2*>(block);
}

bool NamesStatusDriver(const char* driver, const StatusDriver* node) {
    if (lstrcmpA(driver, node->name) == 0) return true;
    return std::strncmp(driver, VendorPrefix, VendorPrefixLength) == 0 &&
           lstrcmpA(driver + VendorPrefixLength, node->name) == 0;
}

}  // namespace

int ReadLinkModel(const char* printerName, ManagerLink* link) {
    char path[256];
    const int length = std::snprintf(path, sizeof path, "%s\\%s", PrintersKey, printerName);
    if (length < 0 || static_cast<size_t>(length) >= sizeof path) return 0;
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key) != ERROR_SUCCESS) return 0;
    // One byte short of the buffer, so the text always ends in the NUL.
    char driver[256] = {};
    DWORD size = sizeof driver - 1;
    int found = 0;
    if (RegQueryValueExA(key, "Printer Driver", nullptr, nullptr, reinterpret_cast<LPBYTE>(driver),
                         &size) == ERROR_SUCCESS) {
        for (const ModelRow* row = ModelTable; row->ModelName != nullptr; ++row) {
            if (lstrcmpA(driver, row->DriverName) == 0) {
                link->modelMask = row->RowMask;
                found = 1;
                break;
            }
        }
    }
    RegCloseKey(key);
    return found;
}

int ListStatusDrivers(StatusDriver** list) {
    *list = nullptr;
    HKEY printers = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, StatusPrintersKey, 0, KEY_READ, &printers) != ERROR_SUCCESS) {
        return 0;
    }
    StatusDriver** tail = list;
    char name[KeyNameBytes];
    DWORD size = sizeof name;
    for (DWORD index = 0;
         RegEnumKeyExA(printers, index, name, &size, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
         ++index, size = sizeof name) {
        HKEY driver = nullptr;
        if (RegOpenKeyExA(printers, name, 0, KEY_READ, &driver) != ERROR_SUCCESS) continue;
        HKEY variables = nullptr;
        const bool hasKey =
            RegOpenKeyExA(driver, StatusVariablesKey, 0, KEY_READ, &variables) == ERROR_SUCCESS;
        if (hasKey) RegCloseKey(variables);
        RegCloseKey(driver);
        if (!hasKey) continue;
        auto* node = static_cast<StatusDriver*>(GlobalAlloc(GPTR, sizeof(StatusDriver)));
        char* copy = node != nullptr ? DuplicateString(name) : nullptr;
        if (copy == nullptr) {
            GlobalFree(node);
            break;
        }
        node->name = copy;
        *tail = node;
        tail = &node->next;
    }
    RegCloseKey(printers);
    return 1;
}

void FreeStatusDrivers(StatusDriver* list) {
    while (list != nullptr) {
        StatusDriver* next = list->next;
        FreeString(list->name);
        GlobalFree(list);
        list = next;
    }
}

int DriverHasStatusKey(const char* printerName) {
    StatusDriver* list = nullptr;
    ListStatusDrivers(&list);
    if (list == nullptr) return 0;
    int found = 0;
    if (PRINTER_INFO_2* info = ReadPrinterInfo(printerName); info != nullptr) {
        for (const StatusDriver* node = list; node != nullptr && found == 0; node = node->next) {
            if (info->pDriverName != nullptr && NamesStatusDriver(info->pDriverName, node)) found = 1;
        }
        GlobalFree(info);
    }
    FreeStatusDrivers(list);
    return found;
}

}  // namespace langmon
