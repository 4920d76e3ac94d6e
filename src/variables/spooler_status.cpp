#include "variables/spooler_status.h"

#include "background/thread_throttle.h"
#include "manager/manager_link.h"
#include "manager/shared_printer_handle.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "platform/clock.h"
#include "platform/memory.h"
#include "platform/spooler_printers.h"
#include "platform/sync.h"
#include "platform/thread.h"
#include "variables/status_variable.h"

#include <atomic>
#include <cstdint>
#include <cstring>

namespace langmon {

// Grouped by value: a value's masks are the OR of the masks of every state
// that leads to it. StatusWord2 bits 0x1, 0x4, 0x40 and 0x100 lead to none.
const SpoolerStatusRow SpoolerStatusMap[14] = {
    {"PRINTER_STATUS_PAPER_JAM", 0x8, 0, 0, 0x10000},
    {"PRINTER_STATUS_PAPER_OUT", 0x10, 0, 0, 0x40800000},
    {"PRINTER_STATUS_PAPER_PROBLEM", 0x40, 0, 0x8, 0x4040000},
    {"PRINTER_STATUS_BUSY", 0x200, 0, 0, 0x18000200},
    {"PRINTER_STATUS_PRINTING", 0x400, 0, 0, 0x8},
    {"PRINTER_STATUS_OUTPUT_BIN_FULL", 0x800, 0, 0, 0x1000000},
    {"PRINTER_STATUS_NOT_AVAILABLE", 0x1000, 0, 0x200, 0},
    {"PRINTER_STATUS_INITIALIZING", 0x8000, 0, 0, 0x20},
    {"PRINTER_STATUS_WARMING_UP", 0x10000, 0, 0x8000, 0x10},
    {"PRINTER_STATUS_TONER_LOW", 0x20000, 0, 0, 0x20002},
    {"PRINTER_STATUS_USER_INTERVENTION", 0x100000, 0x38, 0xC1004194, 0x87800},
    {"PRINTER_STATUS_OUT_OF_MEMORY", 0x200000, 0, 0, 0x700000},
    {"PRINTER_STATUS_DOOR_OPEN", 0x400000, 0, 0, 0x8000},
    {nullptr, 0, 0, 0, 0},
};

namespace {

constexpr uint32_t NotAvailable = 0x1000;
// States of StatusWord1 that every printer is shown, whatever its driver.
constexpr uint32_t SharedStateBits = 0xF00;
// A StatusWord2 of exactly this is toner low, which the spooler shows as such
// only while a supply is reported low too; otherwise it wants the operator.
constexpr uint32_t TonerLowOnly = 2;
constexpr uint32_t SupplyLowBits = 0xF0000;
constexpr uint32_t OperatorWord2 = 0x800;
constexpr const char* OpenPrinterMutexName = "TAKRINP:OpenPrinterMutex";
constexpr SIZE_T SpoolerStatusStack = 0x4000;

// What a started thread owns: the request and, behind it in the same block,
// the printer's name.
struct SpoolerStatusRequest {
    SharedPrinterHandle* PrinterHandle;
    uint32_t StatusValue;
    char* PrinterName;
};

std::atomic<int> threadsRunning{0};

BOOL GiveStatus(const SpoolerStatusRequest* request) {
    auto* word = reinterpret_cast<LPBYTE>(static_cast<uintptr_t>(request->StatusValue));
    return SetPrinterA(request->PrinterHandle->printer, 0, word, PRINTER_CONTROL_SET_STATUS);
}

DWORD SpoolerStatusThread(LPVOID argument) {
    auto* request = static_cast<SpoolerStatusRequest*>(argument);
    BOOL given = FALSE;
    for (int attempt = 0; attempt < SpoolerStatusAttempts && !given; ++attempt) {
        if (attempt != 0) Sleep(SpoolerStatusRetryMs);
        given = GiveStatus(request);
    }
    if (!given) {
        Sleep(SpoolerStatusLastTryMs);
        given = GiveStatus(request);
    }
    // A status that never gets through is not reported: the link already
    // holds it as given.
    ReleasePrinterHandle(request->PrinterHandle);
    GlobalFree(request);
    --threadsRunning;
    return static_cast<DWORD>(given);
}

uint32_t SuppliesWord(PortContext* port) {
    StatusVariable* row = FindVariable("ErrSupplies", port->variables, port);
    uint32_t word = 0;
    if (row != nullptr && row->Value != nullptr) std::memcpy(&word, row->Value, sizeof word);
    return word;
}

}  // namespace

uint32_t MapSpoolerStatus(const uint32_t words[3]) {
    uint32_t value = 0;
    for (const SpoolerStatusRow* row = SpoolerStatusMap; row->Name != nullptr; ++row) {
        if ((words[0] & row->Word0Mask) != 0 || (words[1] & row->Word1Mask) != 0 ||
            (words[2] & row->Word2Mask) != 0) {
            value |= row->Value;
        }
    }
    return value;
}

int NotifyLinkStatus(PortContext* port, ManagerLink* link, const uint32_t* status) {
    if (link == nullptr || link->spoolerHandle == nullptr || link->managerHandle == 0) return 0;
    uint32_t words[3] = {0, 0, 0};
    if (status != nullptr) {
        std::memcpy(words, status, sizeof words);
        // The whole word, not the bit: 0x20002 is toner low as it stands.
        if (words[2] == TonerLowOnly && (SuppliesWord(port) & SupplyLowBits) == 0) {
            words[2] = OperatorWord2;
        }
    }
    uint32_t value = MapSpoolerStatus(words);
    // The printer on the port is not the model of the printer's driver.
    if (status != nullptr && (words[1] & SharedStateBits) == 0 &&
        MasksIntersect(port->modelMask.low, port->modelMask.high, link->modelMask.low,
                       link->modelMask.high) == 0) {
        value = NotAvailable;
    }
    if (value == link->spoolerStatus) return 1;

    // Shared by every process that tells the spooler: whoever comes second
    // doesn't wait, and leaves the value to the next notification.
    HANDLE mutex = CreateMutexA(nullptr, FALSE, OpenPrinterMutexName);
    if (mutex == nullptr) return 0;
    int started = 0;
    if (WaitForSingleObject(mutex, 0) == WAIT_OBJECT_0) {
        started = StartSpoolerStatusThread(link->spoolerShare, value, link->printerName);
        ReleaseMutex(mutex);
    }
    CloseHandle(mutex);
    if (started == 0) return 0;
    link->spoolerStatus = value;
    return 1;
}

int NotifySpoolerStatus(PortContext* port) {
    LockPort(port);
    StatusVariable* row =
        port->variables != nullptr ? FindVariable("PrinterStatus", port->variables, port) : nullptr;
    if (row == nullptr || row->Value == nullptr) {
        UnlockPort(port);
        return 0;
    }
    uint32_t status[3];
    std::memcpy(status, row->Value, sizeof status);
    int result = 1;
    for (ManagerLink* link = port->managers; link != nullptr; link = link->next) {
        if (NotifyLinkStatus(port, link, status) == 0) result = 0;
    }
    UnlockPort(port);
    return result;
}

int SpoolerStatusThreadsRunning() { return threadsRunning.load(); }

int StartSpoolerStatusThread(SharedPrinterHandle* printer, uint32_t statusValue,
                             const char* printerName) {
    if (printer == nullptr || printer->printer == nullptr) return 0;
    const size_t nameBytes = printerName != nullptr ? std::strlen(printerName) + 1 : 1;
    auto* request =
        static_cast<SpoolerStatusRequest*>(GlobalAlloc(GPTR, sizeof(SpoolerStatusRequest) + nameBytes));
    if (request == nullptr) return 0;
    request->PrinterHandle = printer;
    request->StatusValue = statusValue;
    request->PrinterName = reinterpret_cast<char*>(request + 1);
    if (printerName != nullptr) std::memcpy(request->PrinterName, printerName, nameBytes);

    UsePrinterHandle(printer);
    ++threadsRunning;
    DWORD id = 0;
    HANDLE thread = ThrottledCreateThread(nullptr, SpoolerStatusStack, SpoolerStatusThread, request,
                                          CREATE_SUSPENDED, &id);
    if (thread == nullptr) {
        --threadsRunning;
        ReleasePrinterHandle(printer);
        GlobalFree(request);
        return 0;
    }
    SetThreadPriority(thread, THREAD_PRIORITY_LOWEST);
    ResumeThread(thread);
    CloseHandle(thread);
    return 1;
}

}  // namespace langmon
