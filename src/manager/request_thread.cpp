#include "manager/request_thread.h"

#include "background/thread_throttle.h"
#include "manager/manager_link.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "platform/sync.h"
#include "platform/text.h"
#include "platform/thread.h"

#include <cstdio>
#include <cstring>
#include <optional>

namespace langmon {

namespace {

constexpr SIZE_T RequestThreadStack = 16384;

// The manager's answers: "Port" (a count and two names of 128 bytes) and
// "PrinterName"; one byte more than the manager may fill, always 0.
constexpr DWORD AnswerBytes = 260;

constexpr char WatchedNames[] = "Port;PrinterName;TerminateManager";
constexpr uint32_t WatchedCount = 3;

// Whoever signals an event of this name asks that the printer's link go.
constexpr char DeletionEventPrefix[] = "KVWAT:DEL_PRN:";
// The printer's name in the event's name is cut behind this many bytes.
constexpr std::size_t DeletionNameBytes = 256;

// The wait table, in the order its indexes mean.
enum WaitIndex : DWORD {
    ClosingIndex = 0,    // the port's closingEvent: ClosePort
    PortIndex = 1,       // the manager's "Port" changed
    NameIndex = 2,       // "PrinterName" changed
    TerminateIndex = 3,  // "TerminateManager" changed
    DeletedIndex = 4,    // the printer was deleted
    StopIndex = 5,       // the link's stopEvent: RemoveLink from elsewhere
    WaitCount = 6,
};

// How the thread ends.
enum class Ending { Teardown, Quiet, Closing, Stopped };

/* RequestWatch: the thread's own state. The events at 1 to 4 and the handle
   of stopEvent at 5 are its own; closingEvent belongs to the port, which
   outlives the thread. */
struct RequestWatch {
    PortContext* port;
    DWORD threadId;
    HANDLE events[WaitCount];
    uint32_t notification;
};

/* OwnLink: the thread's link, found again by the thread's id under the
   port's lock, which the caller holds: another thread may have removed it
   since the last look. Null then. */
ManagerLink* OwnLink(const RequestWatch& watch) { return FindLinkByThread(watch.threadId, watch.port); }

/* ReadManager: one of the manager's values, read under the port's lock, which
   keeps the link and its library. False when the read failed. */
bool ReadManager(ManagerLink* link, const char* name, void* buffer, DWORD size) {
    DWORD needed = 0;
    return link->GetPrinterStatusA(link->managerHandle, name, buffer, size, &needed) == 0;
}

/* DeletionEvent: the event that the printer's deletion signals. */
HANDLE DeletionEvent(const char* printerName) {
    char name[sizeof DeletionEventPrefix + DeletionNameBytes];
    std::snprintf(name, sizeof name, "%s%.*s", DeletionEventPrefix, static_cast<int>(DeletionNameBytes),
                  printerName);
    return CreateEventA(nullptr, FALSE, FALSE, name);
}

void CloseOwnEvents(RequestWatch* watch) {
    for (DWORD index = PortIndex; index < WaitCount; ++index) {
        if (watch->events[index] != nullptr) CloseHandle(watch->events[index]);
        watch->events[index] = nullptr;
    }
}

/* KillNotification: the manager stops signalling our events. Port lock held. */
void KillNotification(RequestWatch* watch, ManagerLink* link) {
    if (link != nullptr && link->KillNotificationEvent != nullptr && link->managerHandle != 0 &&
        watch->notification != 0) {
        link->KillNotificationEvent(link->managerHandle, watch->notification);
    }
    watch->notification = 0;
}

/* StartWatch: the events, and the manager's promise to signal them. False
   when the thread can't do its work; the link stays bound without a watcher. */
bool StartWatch(RequestWatch* watch) {
    LockPort(watch->port);
    ManagerLink* link = OwnLink(*watch);
    bool started = link != nullptr && link->SetNotificationEventExA != nullptr &&
                   link->GetPrinterStatusA != nullptr && link->KillNotificationEvent != nullptr;
    if (started) {
        watch->events[ClosingIndex] = watch->port->closingEvent;
        for (DWORD index = PortIndex; index <= TerminateIndex; ++index) {
            watch->events[index] = CreateEventA(nullptr, FALSE, FALSE, nullptr);
        }
        watch->events[DeletedIndex] = DeletionEvent(link->printerName);
        for (DWORD index = PortIndex; index <= DeletedIndex; ++index) started = started && watch->events[index] != nullptr;
    }
    if (started) {
        // A link without a stopEvent can't be stopped by its remover; the
        // thread then learns of the removal when it next finds no link.
        if (link->stopEvent == nullptr ||
            !DuplicateHandle(GetCurrentProcess(), link->stopEvent, GetCurrentProcess(), &watch->events[StopIndex], 0,
                             FALSE, DUPLICATE_SAME_ACCESS)) {
            watch->events[StopIndex] = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        }
        started = watch->events[StopIndex] != nullptr &&
                  link->SetNotificationEventExA(link->managerHandle, WatchedCount, WatchedNames,
                                                &watch->events[PortIndex], &watch->notification) == 0;
        if (!started) KillNotification(watch, link);
    }
    UnlockPort(watch->port);
    if (!started) CloseOwnEvents(watch);
    return started;
}

/* CatchUp: what changed before the notification stood is compared once by
   hand, and our own events are signalled for it. False when a read failed. */
bool CatchUp(RequestWatch* watch) {
    LockPort(watch->port);
    ManagerLink* link = OwnLink(*watch);
    bool read = link != nullptr;
    if (read) {
        uint8_t portList[AnswerBytes + 1] = {};
        read = ReadManager(link, "Port", portList, AnswerBytes);
        if (read && !ManagerServesPort(portList, watch->port)) SetEvent(watch->events[PortIndex]);
    }
    if (read) {
        char name[AnswerBytes + 1] = {};
        read = ReadManager(link, "PrinterName", name, AnswerBytes);
        if (read && link->printerName[0] != '\0' && lstrcmpA(name, link->printerName) != 0) {
            SetEvent(watch->events[NameIndex]);
        }
    }
    if (read) {
        uint32_t terminate = 0;
        read = ReadManager(link, "TerminateManager", &terminate, sizeof terminate);
        if (read && terminate != 0) {
            SetPortFlag(watch->port, PF_NO_MANAGER);
            SetEvent(watch->events[TerminateIndex]);
        }
    }
    UnlockPort(watch->port);
    return read;
}

/* PortChanged: a link stays only while its manager names this port alone;
   an empty list ends it too. Nothing: wait again. */
std::optional<Ending> PortChanged(RequestWatch* watch, ManagerLink* link) {
    uint8_t portList[AnswerBytes + 1] = {};
    if (!ReadManager(link, "Port", portList, AnswerBytes)) return Ending::Quiet;
    if (!ManagerNamesOnlyPort(portList, watch->port)) return Ending::Teardown;
    ResetEvent(watch->events[PortIndex]);
    return std::nullopt;
}

/* NameChanged: the printer was renamed; the link lives on under the new name,
   with the deletion event of that name. Readers of printerName hold the
   port's lock, as the caller does. Nothing: wait again. */
std::optional<Ending> NameChanged(RequestWatch* watch, ManagerLink* link) {
    char name[AnswerBytes + 1] = {};
    if (!ReadManager(link, "PrinterName", name, AnswerBytes)) return Ending::Quiet;
    ResetEvent(watch->events[NameIndex]);
    if (link->printerName[0] == '\0' || lstrcmpA(name, link->printerName) == 0) return std::nullopt;
    char* copy = DuplicateString(name);
    HANDLE deleted = copy != nullptr ? DeletionEvent(copy) : nullptr;
    if (deleted == nullptr) {
        // The old name stays: a link that can't follow its printer goes.
        FreeString(copy);
        return Ending::Teardown;
    }
    FreeString(link->printerName);
    link->printerName = copy;
    CloseHandle(watch->events[DeletedIndex]);
    watch->events[DeletedIndex] = deleted;
    return std::nullopt;
}

/* Watch: waits for the manager and the port until the thread must end. */
Ending Watch(RequestWatch* watch) {
    for (;;) {
        const DWORD index = WaitForMultipleObjects(WaitCount, watch->events, FALSE, INFINITE);
        switch (index) {
        case WAIT_OBJECT_0 + ClosingIndex:
            return Ending::Closing;
        case WAIT_OBJECT_0 + StopIndex:
            return Ending::Stopped;
        case WAIT_OBJECT_0 + TerminateIndex:
            SetPortFlag(watch->port, PF_NO_MANAGER);
            return Ending::Teardown;
        case WAIT_OBJECT_0 + DeletedIndex:
            return Ending::Teardown;
        case WAIT_OBJECT_0 + PortIndex:
        case WAIT_OBJECT_0 + NameIndex: {
            LockPort(watch->port);
            ManagerLink* link = OwnLink(*watch);
            // Removed from elsewhere since the wait: as if stopEvent had come.
            std::optional<Ending> end = Ending::Stopped;
            if (link != nullptr) {
                end = index == WAIT_OBJECT_0 + PortIndex ? PortChanged(watch, link) : NameChanged(watch, link);
            }
            UnlockPort(watch->port);
            if (end) return *end;
            break;
        }
        default:
            return Ending::Quiet;
        }
    }
}

/* Finish: the thread's last acts on the link, by how it ends. */
void Finish(RequestWatch* watch, Ending ending) {
    switch (ending) {
    case Ending::Teardown:
    case Ending::Quiet: {
        LockPort(watch->port);
        ManagerLink* link = OwnLink(*watch);
        // The notification ends before its events are closed; the manager
        // itself is closed last, by RemoveLink.
        KillNotification(watch, link);
        CloseOwnEvents(watch);
        if (ending == Ending::Teardown && link != nullptr) RemoveLink(link, watch->port);
        UnlockPort(watch->port);
        break;
    }
    case Ending::Closing:
        // ClosePort destroys the links itself.
    case Ending::Stopped:
        // RemoveLink ran elsewhere: the link may be gone already.
        CloseOwnEvents(watch);
        break;
    }
}

}  // namespace

void StartManagerThread(PortContext* port, ManagerLink* link) {
    // Counted before it exists: ClosePort waits until no thread can touch the port.
    std::atomic_ref<uint32_t>(port->requestThreads).fetch_add(1);
    DWORD id = 0;
    HANDLE thread = ThrottledCreateThread(nullptr, RequestThreadStack, ManagerRequestThread, port,
                                          CREATE_SUSPENDED, &id);
    if (thread == nullptr) {
        std::atomic_ref<uint32_t>(port->requestThreads).fetch_sub(1);
        return;
    }
    link->threadId = id;
    ResumeThread(thread);
    CloseHandle(thread);
}

DWORD ManagerRequestThread(LPVOID argument) {
    RequestWatch watch{};
    watch.port = static_cast<PortContext*>(argument);
    watch.threadId = GetCurrentThreadId();
    DWORD result = 0;
    if (StartWatch(&watch)) {
        Finish(&watch, CatchUp(&watch) ? Watch(&watch) : Ending::Quiet);
        result = 1;
    }
    // The last touch of the port.
    std::atomic_ref<uint32_t>(watch.port->requestThreads).fetch_sub(1);
    return result;
}

}  // namespace langmon
