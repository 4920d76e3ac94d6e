#include "monitor/monitor_entry.h"

#include "acquisition/lm_values.h"
#include "background/status_thread.h"
#include "framing/job_record.h"
#include "manager/manager_link.h"
#include "monitor/device_requests.h"
#include "monitor/job_data.h"
#include "monitor/job_end.h"
#include "monitor/job_start.h"
#include "monitor/lower_port.h"
#include "parser/job_progress.h"
#include "parser/response_parser.h"
#include "platform/clock.h"
#include "platform/last_error.h"
#include "platform/machine_description.h"
#include "platform/memory.h"
#include "platform/text.h"
#include "portkind/port_kind.h"
#include "variables/derived.h"
#include "variables/publication.h"
#include "variables/status_variable.h"

#include <atomic>
#include <cstring>
#include <mutex>

namespace langmon {

PortContext* portList = nullptr;
CRITICAL_SECTION globalLock{};
char* registryRoot = nullptr;

namespace {

constexpr DWORD CloseDrainLimit = 120000;  // ms a closing port waits for its jobs
constexpr DWORD CloseDrainStep = 1000;
// The manager request threads end at once on closingEvent; this is how often
// ClosePort looks whether they have.
constexpr DWORD RequestThreadEndStepMs = 10;

// The value PrinterStatus takes when its port closes: no printer behind it.
constexpr uint32_t PrinterStatusClosed[3] = {0, 0x1000, 0};

bool IsListed(const PortContext* port) {
    for (const PortContext* p = portList; p != nullptr; p = p->next) {
        if (p == port) {
            return true;
        }
    }
    return false;
}

void AppendToPortList(PortContext* port) {
    PortContext** link = &portList;
    while (*link != nullptr) {
        link = &(*link)->next;
    }
    *link = port;
}

bool UnlinkFromPortList(PortContext* port) {
    for (PortContext** link = &portList; *link != nullptr; link = &(*link)->next) {
        if (*link == port) {
            *link = port->next;
            port->next = nullptr;
            return true;
        }
    }
    return false;
}

void FreeVariables(StatusVariable* table) {
    if (table == nullptr) {
        return;
    }
    for (StatusVariable* row = table; row->Name != nullptr; ++row) {
        GlobalFree(row->Value);
        row->Value = nullptr;
    }
    GlobalFree(table);
}

// What PrinterStatus says when the port goes: the printer is no longer watched.
void MarkPrinterClosed(PortContext* port) {
    LockPort(port);
    StatusVariable* row = FindVariable("PrinterStatus", port->variables, port);
    if (row != nullptr && row->Value != nullptr) {
        std::memcpy(row->Value, PrinterStatusClosed, sizeof PrinterStatusClosed);
        row->Dirty = 1;
        PublishVariables(port);
        DeriveErrorVariables(port, 1);
        DerivePrinterVariables(port, 1);
    }
    UnlockPort(port);
}

}  // namespace

extern "C" LANGMON_API BOOL InitializeMonitorEx(LPSTR pRegistryRoot, LPMONITOR pMonitor) {
    static std::once_flag initialised;
    std::call_once(initialised, [] {
        InitializeCriticalSection(&globalLock);
        InitializeLmValues();
        platform::LoadMachineFromEnvironmentOnce();
    });
    FreeString(registryRoot);
    registryRoot = (pRegistryRoot != nullptr && *pRegistryRoot != '\0')
                       ? DuplicateString(pRegistryRoot)
                       : nullptr;
    if (pMonitor != nullptr) {
        *pMonitor = MONITOR{};
        pMonitor->OpenPortEx = OpenPortEx;
        pMonitor->StartDocPort = StartDocPort;
        pMonitor->WritePort = WritePort;
        pMonitor->ReadPort = ReadPort;
        pMonitor->EndDocPort = EndDocPort;
        pMonitor->ClosePort = ClosePort;
        pMonitor->GetPrinterDataFromPort = GetPrinterDataFromPort;
    }
    return TRUE;
}

char* DuplicateString(LPCSTR text) {
    if (text == nullptr) {
        return nullptr;
    }
    const std::size_t length = std::strlen(text);
    auto* copy = static_cast<char*>(GlobalAlloc(GPTR, length + 1));
    if (copy != nullptr) {
        std::memcpy(copy, text, length);
    }
    return copy;
}

void FreeString(char* text) { GlobalFree(text); }

void LockPort(PortContext* port) {
    if (port == nullptr) {
        EnterCriticalSection(&globalLock);
    } else if (port->portLock != nullptr) {
        EnterCriticalSection(port->portLock);
    }
}

void UnlockPort(PortContext* port) {
    if (port == nullptr) {
        LeaveCriticalSection(&globalLock);
    } else if (port->portLock != nullptr) {
        LeaveCriticalSection(port->portLock);
    }
}

PortContext* FindPort(PortContext* first, LPCSTR name) {
    if (name == nullptr) {
        return nullptr;
    }
    for (PortContext* port = first; port != nullptr; port = port->next) {
        if (lstrcmpiA(port->portName, name) == 0) {
            return port;
        }
    }
    return nullptr;
}

PortContext* CreatePortContext(LPCSTR name, LPCSTR printerName) {
    // Only the record, its semaphore and its lock are essential: each other
    // piece that can't be had leaves the port working without it (no copy of
    // the variables, no parser, no event).
    const std::size_t nameBytes = std::strlen(name) + 1;
    const std::size_t size = sizeof(PortContext) + nameBytes;
    auto* port = static_cast<PortContext*>(GlobalAlloc(GPTR, size));
    if (port == nullptr) {
        return nullptr;
    }
    port->portName = reinterpret_cast<char*>(port + 1);
    std::memcpy(port->portName, name, nameBytes);
    port->recordSize = static_cast<uint32_t>(size);
    port->usbPort = IsUsbName(port->portName) != 0 ? 1 : 0;
    port->signature = PortSignature;

    port->printerName = DuplicateString(printerName);
    port->flags = 0;

    port->serialSemaphore = CreateSemaphoreA(nullptr, 1, 1, nullptr);
    if (port->serialSemaphore == nullptr) {
        // Every talk with the printer waits for it; a job's start on a
        // local port would wait for ever.
        FreeString(port->printerName);
        GlobalFree(port);
        return nullptr;
    }
    port->stallTick = 0xFFFFFFFFu;
    port->closingEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);

    port->variables = static_cast<StatusVariable*>(GlobalAlloc(GPTR, sizeof StatusVariableTable));
    if (port->variables != nullptr) {
        std::memcpy(port->variables, StatusVariableTable, sizeof StatusVariableTable);
    }
    port->parser = static_cast<PjlParserState*>(GlobalAlloc(GPTR, sizeof(PjlParserState)));
    if (port->parser != nullptr) {
        ResetParser(port->parser, 1);
    }

    AppendToPortList(port);

    DeriveErrorVariables(port, 1);
    ResetJobStatus(port);
    DerivePrinterVariables(port, 1);

    SetMask(&port->modelMask, 0, 0);
    port->jobInfoChain = nullptr;

    port->portLock = static_cast<CRITICAL_SECTION*>(GlobalAlloc(GPTR, sizeof(CRITICAL_SECTION)));
    if (port->portLock == nullptr) {
        // The status thread and the spooler's calls change the same
        // variables and job list; unlocked, one frees what the other writes.
        DestroyPortContext(port);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    InitializeCriticalSection(port->portLock);
    port->statusEndedEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);

    ResetSniffState(port);
    return port;
}

int DestroyPortContext(PortContext* port) {
    if (!UnlinkFromPortList(port)) {
        return 0;
    }
    // Nothing of the port goes while its status thread can still touch it.
    StopStatusThread(port);
    // The LM_ table must never point into a port that is gone.
    UnbindLmValues(port);
    // The chain may share a block with its row: it goes first, while the row
    // can still say which.
    ClearJobInfoChain(port);
    FreeVariables(port->variables);
    port->variables = nullptr;

    if (port->parser != nullptr) {
        DestroyParser(port->parser);
        port->parser = nullptr;
    }
    port->responseTail = nullptr;

    while (port->managers != nullptr && RemoveLink(port->managers, port)) {
    }

    FreeString(port->printerName);
    port->printerName = nullptr;
    CloseHandle(port->serialSemaphore);
    CloseHandle(port->closingEvent);

    FreeJobRecords(port);

    // A port closed in the middle of a job still holds its copy of the job's
    // DOC_INFO and PJL text the printer never took; an unparsed answer went
    // with the parser.
    FreeDocInfo(port->docInfoLevel, port->docInfo);
    port->docInfo = nullptr;
    DropPending(port);

    if (port->portLock != nullptr) {
        DeleteCriticalSection(port->portLock);
        GlobalFree(port->portLock);
        port->portLock = nullptr;
    }
    CloseHandle(port->statusEndedEvent);
    GlobalFree(port);
    return 1;
}

BOOL OpenPortEx(LPSTR pPortName, LPSTR pPrinterName, PHANDLE pHandle, LPMONITOR pMonitor) {
    if (pPortName == nullptr || pHandle == nullptr || pMonitor == nullptr ||
        pMonitor->OpenPort == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    LockPort(nullptr);
    if (FindPort(portList, pPortName) != nullptr) {
        UnlockPort(nullptr);
        SetLastError(ERROR_BUSY);
        return FALSE;
    }
    PortContext* port = CreatePortContext(pPortName, pPrinterName);
    if (port == nullptr) {
        UnlockPort(nullptr);
        return FALSE;
    }
    if (!pMonitor->OpenPort(pPortName, &port->downstreamPort)) {
        // The name is free again: a later open may find the port monitor willing.
        LastErrorKeeper lowerError;
        DestroyPortContext(port);
        UnlockPort(nullptr);
        lowerError.Restore();
        return FALSE;
    }
    *pHandle = port;
    port->lower = *pMonitor;
    ClassifyPort(port);
    UpdatePrinterExtStatus(port);
    InitPrinterStatus(port, 1);
    UnlockPort(nullptr);
    return TRUE;
}

BOOL ClosePort(HANDLE hPort) {
    const DWORD start = GetTickCount();
    auto* port = static_cast<PortContext*>(hPort);
    if (port == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (!IsListed(port)) {
        return TRUE;
    }
    SetPortFlag(port, PF_CLOSING);

    // The printer may still report on jobs sent: give it time, but not for ever.
    while (JobsTracked(port) && TickAge(GetTickCount(), start) < CloseDrainLimit) {
        Sleep(CloseDrainStep);
    }

    StopStatusThread(port);

    SetEvent(port->closingEvent);
    while (PortWord(port->requestThreads) != 0) Sleep(RequestThreadEndStepMs);
    LowerClose(port);

    MarkPrinterClosed(port);
    std::atomic_ref<uint32_t>(port->portKind).fetch_and(~uint32_t{PK_MONITORED});
    UpdatePrinterExtStatus(port);

    LockPort(nullptr);
    DestroyPortContext(port);
    UnlockPort(nullptr);
    return TRUE;
}

}  // namespace langmon
