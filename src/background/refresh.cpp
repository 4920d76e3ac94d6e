#include "background/refresh.h"

#include "acquisition/poll.h"
#include "background/reconcile.h"
#include "manager/manager_link.h"
#include "monitor/lower_port.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "monitor/serial_hold.h"
#include "platform/clock.h"
#include "platform/memory.h"
#include "platform/sync.h"
#include "portkind/port_kind.h"
#include "variables/derived.h"
#include "variables/status_variable.h"

#include <cstring>

namespace langmon {

namespace {

constexpr char Uel[] = "\x1b%-12345X";
constexpr char InfoStatusLine[] = "@PJL INFO STATUS\r\n";
constexpr char InfoServiceTagLine[] = "@PJL INFO SERVICETAG\r\n";
constexpr std::size_t RequestRoom = 64;
static_assert(2 * (sizeof Uel - 1) + sizeof InfoStatusLine - 1 + sizeof InfoServiceTagLine - 1 < RequestRoom);

// The printer has five reads, this far apart, to answer.
constexpr int AnswerReads = 5;
constexpr DWORD AnswerPauseMs = 300;

// StatusWord2 bits of a printer in a state that can't take a request.
constexpr uint32_t BusyWord2 = 0x1200 | JobOnPortBit;
// The longest variable name a list can usefully hold.
constexpr std::size_t NameRoom = 64;

constexpr uint32_t PollClasses = RefreshPoll | RefreshPollOnline;
constexpr uint32_t RequestClasses = RefreshInfoStatus | RefreshInfoServiceTag;

bool JobOnPort(PortContext* port) {
    return port->jobListHead != nullptr || HasPortFlag(port, PF_JOB_ACTIVE) || PortWord(port->jobOpen) != 0;
}

/* ReadClientList: the client's "RefreshStatus", as a NUL-terminated copy of
   the platform allocator's, or null (no such value, too long, no memory).
   Called under the port's lock, which keeps the link and its library. */
char* ReadClientList(ManagerLink* link) {
    if (link->GetPrinterStatusA == nullptr) return nullptr;
    DWORD size = 0;
    // Asked with no room, the manager answers "too small" with the size; an
    // answer without a size ends the refresh here, whatever it says.
    link->GetPrinterStatusA(link->managerHandle, "RefreshStatus", nullptr, 0, &size);
    if (size == 0 || size > RefreshListLimit) return nullptr;
    // One byte more than the value, always 0: the list ends there at the latest.
    auto* list = static_cast<char*>(GlobalAlloc(GPTR, size + 1));
    if (list == nullptr) return nullptr;
    if (link->GetPrinterStatusA(link->managerHandle, "RefreshStatus", list, size, &size) != 0) {
        GlobalFree(list);
        return nullptr;
    }
    return list;
}

/* LinkNamed: the port's link of this printer, its name compared byte for
   byte. The caller holds the port's lock. */
ManagerLink* LinkNamed(const char* printerName, PortContext* port) {
    ManagerLink* link = port->managers;
    while (link != nullptr && std::strcmp(link->printerName, printerName) != 0) link = link->next;
    return link;
}

/* ClientClasses: what the client named by `printerName` wants refreshed; 0
   when there is no such client or it wants nothing we know. */
uint32_t ClientClasses(const char* printerName, PortContext* port) {
    LockPort(port);
    ManagerLink* link = LinkNamed(printerName, port);
    uint32_t classes = 0;
    if (link != nullptr) {
        if (char* list = ReadClientList(link)) {
            classes = CollectRefreshClasses(list, link, port);
            GlobalFree(list);
        }
    }
    UnlockPort(port);
    return classes;
}

bool LinkOfModel(const char* printerName, PortContext* port) {
    LockPort(port);
    const ManagerLink* link = LinkNamed(printerName, port);
    const bool model = link != nullptr && MasksIntersect(link->modelMask.low, link->modelMask.high,
                                                         port->modelMask.low, port->modelMask.high) != 0;
    UnlockPort(port);
    return model;
}

/* AskPrinter: one request with the lines the list needs, between two UELs,
   and five reads of the answer. The port is the caller's: it holds the
   semaphore. */
int32_t AskPrinter(uint32_t classes, PortContext* port) {
    PrinterConversation conversation(port);
    if (!conversation.Ready()) return RefreshNothingDone;
    DrainPrinterInput(0, port);
    char request[RequestRoom];
    std::size_t length = 0;
    const auto append = [&](const char* text, std::size_t size) {
        std::memcpy(request + length, text, size);
        length += size;
    };
    append(Uel, sizeof Uel - 1);
    if ((classes & RefreshInfoStatus) != 0) append(InfoStatusLine, sizeof InfoStatusLine - 1);
    if ((classes & RefreshInfoServiceTag) != 0) append(InfoServiceTagLine, sizeof InfoServiceTagLine - 1);
    append(Uel, sizeof Uel - 1);
    // A tag that comes back may be stored and published from now on.
    port->serviceTagPublish = 1;
    DWORD written = 0;
    if (!SendPjl(port, request, static_cast<DWORD>(length), &written, 0, 0) || written != length) {
        return RefreshPortUnavailable;
    }
    for (int read = 0; read < AnswerReads; ++read) {
        ReadPrinterResponses(port, 1);
        Sleep(AnswerPauseMs);
    }
    return RefreshDone;
}

/* RefreshHoldingPort: steps from the poll on, with the semaphore held. */
int32_t RefreshHoldingPort(const char* printerName, uint32_t classes, PortContext* port) {
    PollPrinterStatus(port);
    uint32_t words[3];
    const bool known = ReadPrinterStatusWords(port, words);
    const bool silent = (words[1] & PrinterLostWord) != 0;
    if ((classes & RequestClasses) == 0) {
        return (classes & RefreshPollOnline) != 0 && known && silent ? RefreshPrinterSilent : RefreshDone;
    }
    if (!known) return RefreshNothingDone;
    if (silent) return RefreshPrinterSilent;
    if (!LinkOfModel(printerName, port)) return RefreshOtherModel;
    if ((words[2] & BusyWord2) != 0) return RefreshPortUnavailable;
    return AskPrinter(classes, port);
}

}  // namespace

uint32_t CollectRefreshClasses(const char* names, const ManagerLink* link, PortContext* port) {
    if (names == nullptr) return 0;
    uint32_t classes = 0;
    while (*names != '\0') {
        const char* end = std::strchr(names, ';');
        const std::size_t length = end != nullptr ? static_cast<std::size_t>(end - names) : std::strlen(names);
        if (length < NameRoom) {
            char name[NameRoom];
            std::memcpy(name, names, length);
            name[length] = '\0';
            if (const StatusVariable* row = FindVariableForClient(name, port->variables, link, port)) {
                classes |= row->RefreshClass;
            }
        }
        if (end == nullptr) break;
        names = end + 1;
    }
    return classes;
}

int32_t RefreshClientStatus(const char* printerName, PortContext* port) {
    if (port != nullptr) port->serviceTagPublish = 0;
    if (printerName == nullptr || port == nullptr || port->variables == nullptr) return RefreshNothingDone;
    ReconcileClients(port);
    BindPendingClients(port);
    if ((port->portKind & PK_BIDI) == 0) return RefreshNothingDone;
    const uint32_t classes = ClientClasses(printerName, port);
    if (classes == 0) return RefreshNothingDone;
    // A running status thread keeps these current; no extra poll is made.
    if ((classes & PollClasses) != 0 && (classes & RefreshPollAlways) == 0 && HasPortFlag(port, PF_STATUS_ALIVE)) {
        return RefreshNothingDone;
    }
    if (JobOnPort(port)) return RefreshNothingDone;
    SerialHold serial(port);
    if (!serial.Take()) return RefreshPortUnavailable;
    // A job may have started while we waited.
    if (JobOnPort(port)) return RefreshNothingDone;
    const int32_t result = RefreshHoldingPort(printerName, classes, port);
    serial.Release();
    // Without a status thread nobody else clears what the refresh left.
    if (!HasPortFlag(port, PF_STATUS_ALIVE)) ResetPortState(port);
    return result;
}

}  // namespace langmon
