#include "manager/manager_link.h"

#include "framing/job_record.h"
#include "manager/manager_library.h"
#include "manager/request_thread.h"
#include "manager/shared_printer_handle.h"
#include "manager/status_driver.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "platform/library.h"
#include "platform/memory.h"
#include "platform/spooler_jobs.h"
#include "platform/sync.h"
#include "platform/text.h"
#include "portkind/port_kind.h"
#include "variables/publication.h"
#include "variables/spooler_status.h"

#include <cstring>

namespace langmon {

namespace {

// The manager's "Port" value: a count, then two names of 128 bytes.
constexpr DWORD PortListBytes = 260;
constexpr uint32_t FirstPortName = 4;
constexpr uint32_t SecondPortName = 132;

// "TerminateManager" is read into a word preset to this, so a read that
// delivers nothing counts as a request to be left alone.
constexpr uint32_t TerminatePreset = 0xFFFFFFFFu;

/* OpenManager: the manager for the link's printer, if the library has one to
   give. 1 with a non-zero handle. */
bool OpenManager(ManagerLink* link) {
    link->managerHandle = 0;
    if (link->OpenManagerExA == nullptr) return false;
    uint32_t handle = 0;
    if (link->OpenManagerExA(link->printerName, STATUS_MANAGER_DEVICE, 1, &handle) != 0 || handle == 0) {
        return false;
    }
    link->managerHandle = handle;
    return true;
}

/* ManagerKeepsLink: reads "Port" and "TerminateManager" from a freshly opened
   manager. True when both were read, the manager doesn't ask to be left alone
   and it serves this port. A terminate word that is not 0 sets PF_NO_MANAGER
   for the port. `terminate` keeps what was last read into it. */
bool ManagerKeepsLink(ManagerLink* link, PortContext* port, uint32_t* terminate) {
    if (link->GetPrinterStatusA == nullptr) return false;
    // One byte more than the manager may fill, always 0, so no compare of
    // its names can run off the end.
    uint8_t portList[PortListBytes + 1] = {};
    DWORD needed = 0;
    const bool portRead =
        link->GetPrinterStatusA(link->managerHandle, "Port", portList, PortListBytes, &needed) == 0;
    const bool terminateRead = link->GetPrinterStatusA(link->managerHandle, "TerminateManager",
                                                       terminate, sizeof *terminate, &needed) == 0;
    if (*terminate != 0) SetPortFlag(port, PF_NO_MANAGER);
    return portRead && terminateRead && *terminate == 0 && ManagerServesPort(portList, port);
}

/* FinishBinding: a link whose manager is open and has accepted it gets what it
   missed, its request thread and the spooler's status. */
void FinishBinding(PortContext* port, ManagerLink* link) {
    ReplayVariables(port, link);
    link->stopEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    StartManagerThread(port, link);
    link->spoolerStatus = 0;
    NotifySpoolerStatus(port);
}

void CloseManagerOf(ManagerLink* link) {
    if (link->managerHandle != 0 && link->CloseManager != nullptr) {
        link->CloseManager(link->managerHandle);
    }
    link->managerHandle = 0;
}

void FreeLink(ManagerLink* link) {
    FreeString(link->printerName);
    UnloadManagerLibrary(link);
    GlobalFree(link);
}

void AppendLink(PortContext* port, ManagerLink* link) {
    ManagerLink** end = &port->managers;
    while (*end != nullptr) end = &(*end)->next;
    *end = link;
}

}  // namespace

bool ManagerNamesOnlyPort(const uint8_t* portList, const PortContext* port) {
    // Only the length of the port's own name is compared: "LPT1" is served
    // by a manager that names "LPT1:".
    const auto* first = reinterpret_cast<const char*>(portList + FirstPortName);
    return CompareNameNoCase(first, port->portName, std::strlen(port->portName)) == 0 &&
           portList[SecondPortName] == 0;
}

bool ManagerServesPort(const uint8_t* portList, const PortContext* port) {
    uint32_t count;
    std::memcpy(&count, portList, sizeof count);
    return count == 0 || ManagerNamesOnlyPort(portList, port);
}

ManagerLink* FindLink(const char* printerName, PortContext* port) {
    if (printerName == nullptr) return nullptr;
    LockPort(port);
    ManagerLink* link = port->managers;
    while (link != nullptr && lstrcmpA(link->printerName, printerName) != 0) link = link->next;
    UnlockPort(port);
    return link;
}

ManagerLink* FindLinkByThread(DWORD threadId, PortContext* port) {
    LockPort(port);
    ManagerLink* link = port->managers;
    while (link != nullptr && link->threadId != threadId) link = link->next;
    UnlockPort(port);
    return link;
}

ManagerLink* CreateManagerLink(const char* printerName, PortContext* port) {
    if (printerName == nullptr || HasPortFlag(port, PF_NO_MANAGER)) return nullptr;
    auto* link = static_cast<ManagerLink*>(GlobalAlloc(GPTR, sizeof(ManagerLink)));
    if (link == nullptr) return nullptr;
    // A printer whose driver is none of the known models gets no link at all.
    if (ReadLinkModel(printerName, link) == 0 ||
        (link->printerName = DuplicateString(printerName)) == nullptr) {
        GlobalFree(link);
        return nullptr;
    }
    if (DriverHasStatusKey(printerName)) LoadManagerLibrary(link);

    LockPort(port);
    const bool bound = OpenManager(link);
    uint32_t terminate = TerminatePreset;
    if (bound && !ManagerKeepsLink(link, port, &terminate)) {
        UnlockPort(port);
        CloseManagerOf(link);
        FreeLink(link);
        return nullptr;
    }
    // Bound or not, the link gives the job check its printer handle; one
    // without a manager is tried again by BindPendingClients.
    AppendLink(port, link);
    OpenLinkPrinter(link);
    if (bound) FinishBinding(port, link);
    UnlockPort(port);
    return link;
}

int BindPendingClients(PortContext* port) {
    LockPort(port);
    uint32_t terminate = TerminatePreset;
    ManagerLink* next = nullptr;
    for (ManagerLink* link = port->managers; link != nullptr && !HasPortFlag(port, PF_NO_MANAGER);
         link = next) {
        next = link->next;
        if (link->managerHandle != 0) continue;
        if (link->library == nullptr && DriverHasStatusKey(link->printerName) &&
            LoadManagerLibrary(link) == 0) {
            continue;
        }
        if (link->OpenManagerExA == nullptr || link->GetPrinterStatusA == nullptr) continue;
        // A manager that won't open now is asked again on the next pass.
        if (!OpenManager(link)) continue;
        if (!ManagerKeepsLink(link, port, &terminate)) {
            RemoveLink(link, port);
            continue;
        }
        FinishBinding(port, link);
    }
    UnlockPort(port);
    return 1;
}

int RemoveLink(ManagerLink* link, PortContext* port) {
    if (link == nullptr) return 0;
    LockPort(port);
    ManagerLink** at = &port->managers;
    while (*at != nullptr && *at != link) at = &(*at)->next;
    if (*at == nullptr) {
        UnlockPort(port);
        return 0;
    }
    *at = link->next;
    // Nothing the port keeps may point at the link once it is gone.
    if (port->jobManager == link) port->jobManager = nullptr;
    for (JobRecord* job = port->jobListHead; job != nullptr; job = job->Next) {
        if (job->Link == link) job->Link = nullptr;
    }
    if (link->stopEvent != nullptr) SetEvent(link->stopEvent);
    NotifyLinkStatus(port, link, nullptr);
    UnlockPort(port);

    CloseManagerOf(link);
    if (link->stopEvent != nullptr) CloseHandle(link->stopEvent);
    // Spooler status threads of this printer may still be retrying with the
    // handle; the last of them closes it.
    ReleasePrinterHandle(link->spoolerShare);
    FreeLink(link);
    return 1;
}

void OpenLinkPrinter(ManagerLink* link) {
    HANDLE printer = nullptr;
    if (!OpenPrinterA(link->printerName, &printer, nullptr)) return;
    link->spoolerShare = SharePrinterHandle(printer);
    if (link->spoolerShare == nullptr) {
        ClosePrinter(printer);
        return;
    }
    link->spoolerHandle = printer;
}

}  // namespace langmon
