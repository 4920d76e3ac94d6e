/*
 * langmon: the status manager library as the monitor and its clients call it.
 *
 * The status manager keeps one named variable store per printer. The monitor
 * binds each printer on a port to it and writes the printer's status variables
 * into the store; status display applications open the same store, read the
 * variables, ask for fresh values through "RefreshStatus" and are told of
 * changes through events they hand over.
 *
 * The monitor loads the library at run time by the name "KVTRM.DLL" and looks
 * the eleven functions below up by name; any library that exports them with C
 * linkage can take the place of the one built here. Every argument is 32 bits
 * wide or a pointer, and every function gives 0 for success.
 */
#ifndef LANGMON_STATUS_MANAGER_H
#define LANGMON_STATUS_MANAGER_H

#include <langmon/monitor.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Results. The monitor reads only 0 and, from GetPrinterStatusA, the two
   "too small" answers. */
#define STATUS_MANAGER_OK 0
#define STATUS_MANAGER_BAD_ARGUMENT (-2)
/* A store in langmond that this user may read but not write: only root and
   members of the group lp may. */
#define STATUS_MANAGER_ACCESS_DENIED (-5)
#define STATUS_MANAGER_BAD_HANDLE (-6)
#define STATUS_MANAGER_NO_MEMORY (-8)
#define STATUS_MANAGER_NO_VARIABLE (-20)
#define STATUS_MANAGER_BUFFER_TOO_SMALL (-33)
#define STATUS_MANAGER_MORE_DATA (-36)
#define STATUS_MANAGER_NOT_SUPPORTED (-50)

/* The device name the monitor opens a store with. */
#define STATUS_MANAGER_DEVICE "\\\\.\\takrin"

/* Opens the store of `printerName` (made, with "Port", "PrinterName" and
   "TerminateManager", at its first opening) and gives a non-zero handle. */
LANGMON_API int32_t OpenManagerExA(const char* printerName, const char* deviceName, uint32_t mode,
                                   uint32_t* managerHandle);
/* Ends the handle and every notification made through it. The store stays. */
LANGMON_API int32_t CloseManager(uint32_t managerHandle);
/* Copies a variable's value into `buffer`. A buffer smaller than the value is
   left untouched: the result is STATUS_MANAGER_BUFFER_TOO_SMALL and `needed`
   holds the value's size. `needed` may be null when the buffer is large
   enough. */
LANGMON_API int32_t GetPrinterStatusA(uint32_t managerHandle, const char* name, void* buffer,
                                      DWORD size, DWORD* needed);
/* Stores a copy of `size` bytes as the variable's value and signals every
   event that watches the variable, if the value changed. */
LANGMON_API int32_t UpdatePrinterStatusA(uint32_t managerHandle, const char* name,
                                         const void* value, DWORD size);
/* Watches `count` variables, their names in one text separated by ';', with
   one event each, in the same order: each event is signalled (SetEvent) when
   its variable's value changes. `notificationId` names the watch for
   KillNotificationEvent. */
LANGMON_API int32_t SetNotificationEventExA(uint32_t managerHandle, uint32_t count,
                                            const char* names, const HANDLE* events,
                                            uint32_t* notificationId);
/* Ends a watch; its events are signalled no more. */
LANGMON_API int32_t KillNotificationEvent(uint32_t managerHandle, uint32_t notificationId);
/* SetNotificationEventExA for one variable. */
LANGMON_API int32_t SetNotificationEventA(uint32_t managerHandle, const char* name, HANDLE event,
                                          uint32_t* notificationId);
/* A callback in place of an event: called with the handle, the variable's name
   and `context` on the thread that changed the value. */
typedef void (*StatusManagerCallback)(uint32_t managerHandle, const char* name, void* context);
LANGMON_API int32_t SetNotificationCallbackExA(uint32_t managerHandle, uint32_t count,
                                               const char* names, StatusManagerCallback callback,
                                               void* context, uint32_t* notificationId);
LANGMON_API int32_t KillNotificationCallback(uint32_t managerHandle, uint32_t notificationId);
/* Requests of a client that a printer's status be set through the manager:
   this library has no such requests and answers STATUS_MANAGER_NOT_SUPPORTED. */
LANGMON_API int32_t SetReqPrinterStatusEventA(uint32_t managerHandle, HANDLE event);
LANGMON_API int32_t ResSetPrinterStatus(uint32_t managerHandle, const char* name, const void* value,
                                        DWORD size);

/* The host's calls that a library loaded by the platform may use. The loader
   hands them over through LangmonAttachHost, if the library exports it, before
   any other call; the events that a watch signals are the host's objects. */
typedef struct _LANGMON_HOST_CALLS {
    uint32_t size; /* sizeof(LANGMON_HOST_CALLS) of the host */
    BOOL (*SetEvent)(HANDLE event);
} LANGMON_HOST_CALLS;
LANGMON_API void LangmonAttachHost(const LANGMON_HOST_CALLS* host);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* LANGMON_STATUS_MANAGER_H */
