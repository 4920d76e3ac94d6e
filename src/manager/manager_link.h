// A printer queue's binding to the status manager library.
#pragma once

#include "platform/win32_types.h"
#include "variables/model_mask.h"

#include <cstdint>

namespace langmon {

struct PortContext;

// The manager library's calls that the monitor makes on a client's values.
// 0 is success; -33 or -36 from a read: the buffer is too small and
// `needed` says what it takes.
using GetPrinterStatusFn = int32_t (*)(uint32_t managerHandle, const char* name, void* buffer,
                                       DWORD size, DWORD* needed);
using UpdatePrinterStatusFn = int32_t (*)(uint32_t managerHandle, const char* name,
                                          const void* value, DWORD size);

// One printer on a port bound (or waiting to be bound) to the status manager.
// The block is zero-filled at creation, so every field starts as 0 or null.
struct ManagerLink {
    char* printerName;       // own copy, never null on a link in the list
    HANDLE library;          // the manager library's module; null if not loaded
    uint32_t managerHandle;  // 0: no manager bound
    HANDLE spoolerHandle;    // the spooler's printer handle for printerName

    // The manager library's functions, each null if not found. Those the
    // monitor doesn't call yet are plain addresses.
    void* OpenManagerExA;
    void* CloseManager;
    GetPrinterStatusFn GetPrinterStatusA;
    void* SetReqPrinterStatusEventA;
    void* ResSetPrinterStatus;
    UpdatePrinterStatusFn UpdatePrinterStatusA;
    void* SetNotificationEventA;
    void* SetNotificationEventExA;
    void* KillNotificationEvent;
    void* SetNotificationCallbackExA;
    void* KillNotificationCallback;

    DWORD threadId;          // the link's manager request thread
    HANDLE stopEvent;        // manual reset; signalled to end the request thread
    uint32_t linkFlags;      // bit 0 LinkQueueSent, bit 16 LinkSeen
    uint32_t spoolerStatus;  // the status last given to the spooler
    ModelMask modelMask;     // the mask of this printer's driver
    ManagerLink* next;
};

// The first link of the port whose printerName equals the name, or null.
ManagerLink* FindLink(const char* printerName, PortContext* port);
// Binds the printer to the status manager and appends its link; null when the
// printer gets no client.
ManagerLink* CreateManagerLink(const char* printerName, PortContext* port);
// Takes the link out of the port's list and frees it: 1 if it was in the list.
int RemoveLink(ManagerLink* link, PortContext* port);

}  // namespace langmon
