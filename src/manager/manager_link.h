// A printer queue's binding to the status manager library: the port's list of
// links, one per printer queue on the port, and how a link is made, bound,
// found and taken down.
//
// One guard for the list: every change of `managers` (creation, binding,
// removal, and the reconciling of clients with the port's printers) happens
// under the port's lock, and so does every walk, so no walk meets a link that
// is half made or half removed.
#pragma once

#include "platform/win32_types.h"
#include "variables/model_mask.h"

#include <langmon/status_manager.h>

#include <cstdint>

namespace langmon {

struct PortContext;
struct SharedPrinterHandle;

// The manager library's functions as the monitor calls them; the library's
// own header says what each does.
using OpenManagerExFn = decltype(&::OpenManagerExA);
using CloseManagerFn = decltype(&::CloseManager);
using GetPrinterStatusFn = decltype(&::GetPrinterStatusA);
using SetReqPrinterStatusEventFn = decltype(&::SetReqPrinterStatusEventA);
using ResSetPrinterStatusFn = decltype(&::ResSetPrinterStatus);
using UpdatePrinterStatusFn = decltype(&::UpdatePrinterStatusA);
using SetNotificationEventFn = decltype(&::SetNotificationEventA);
using SetNotificationEventExFn = decltype(&::SetNotificationEventExA);
using KillNotificationEventFn = decltype(&::KillNotificationEvent);
using SetNotificationCallbackExFn = decltype(&::SetNotificationCallbackExA);
using KillNotificationCallbackFn = decltype(&::KillNotificationCallback);

// linkFlags bits.
enum LinkFlagBits : uint32_t {
    LinkQueueSent = 0x1,   // within one PrinterQueue publication
    LinkSeen = 0x10000,    // within one reconciliation of the port's clients
};

// One printer on a port bound (or waiting to be bound) to the status manager.
// The block is zero-filled at creation, so every field starts as 0 or null.
struct ManagerLink {
    char* printerName;       // own copy, never null on a link in the list
    HANDLE library;          // the manager library's module; null if not loaded
    uint32_t managerHandle;  // 0: no manager bound
    HANDLE spoolerHandle;    // the spooler's printer handle for printerName

    // The manager library's functions, each null if not found.
    OpenManagerExFn OpenManagerExA;
    CloseManagerFn CloseManager;
    GetPrinterStatusFn GetPrinterStatusA;
    SetReqPrinterStatusEventFn SetReqPrinterStatusEventA;
    ResSetPrinterStatusFn ResSetPrinterStatus;
    UpdatePrinterStatusFn UpdatePrinterStatusA;
    SetNotificationEventFn SetNotificationEventA;
    SetNotificationEventExFn SetNotificationEventExA;
    KillNotificationEventFn KillNotificationEvent;
    SetNotificationCallbackExFn SetNotificationCallbackExA;
    KillNotificationCallbackFn KillNotificationCallback;

    DWORD threadId;          // the link's manager request thread
    HANDLE stopEvent;        // manual reset; signalled to end the request thread
    uint32_t linkFlags;      // LinkFlagBits
    uint32_t spoolerStatus;  // the status last given to the spooler
    ModelMask modelMask;     // the mask of this printer's driver
    ManagerLink* next;

    // spoolerHandle outlives the link while the threads that tell the spooler
    // this printer's status still use it: they share it through this.
    SharedPrinterHandle* spoolerShare;
};

// A link can hand values over only with a manager bound behind it.
inline bool LinkUsable(const ManagerLink* link) {
    return link->managerHandle != 0 && link->UpdatePrinterStatusA != nullptr;
}

// The first link of the port whose printerName equals the name, or null.
ManagerLink* FindLink(const char* printerName, PortContext* port);
// The link whose request thread has this id, or null.
ManagerLink* FindLinkByThread(DWORD threadId, PortContext* port);
// Makes a link for the printer, binds it to the manager if it can, and appends
// it to the port's list. Null when the printer gets no link: the port has been
// told to leave the manager alone, the printer's driver is not one of the
// known models, the manager refuses this port, or there is no memory.
ManagerLink* CreateManagerLink(const char* printerName, PortContext* port);
// Tries again to bind every link that has no manager yet. Always 1.
int BindPendingClients(PortContext* port);
// Takes the link out of the port's list, clears every reference the port
// holds to it (jobManager, the job records) and frees it: 1 if it was in the
// list, else 0 and nothing is touched.
int RemoveLink(ManagerLink* link, PortContext* port);
// Opens spoolerHandle for printerName; the field stays null if that fails.
void OpenLinkPrinter(ManagerLink* link);

// The port check of a binding: a manager that names no port, or this port
// alone, may serve the link. `portList` is the manager's "Port" value.
bool ManagerServesPort(const uint8_t* portList, const PortContext* port);
// The list's first name is this port's (over the length of the port's name)
// and there is no second; the count is not looked at. The list holds a
// count, then two names of 128 bytes, and a 0 behind the second.
bool ManagerNamesOnlyPort(const uint8_t* portList, const PortContext* port);

}  // namespace langmon
