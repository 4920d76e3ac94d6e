// The manager's process-wide state: the stores by printer name, the open
// handles on them and the watches made through the handles, under one lock.
// The exported functions check their arguments and come here; every function
// answers with a STATUS_MANAGER_ result.
#pragma once

#include "variable_store.h"

#include <langmon/status_manager.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace langmon::status_manager {

// Printers with a store. Stores live as long as the library is loaded, so a
// client that opens names without end is stopped here.
constexpr std::size_t kMaxStores = 1024;

// Whether this process uses a store of that name: one written to (its own
// monitor's), or one a handle is open on. A store only opened and read, and
// closed again, is not: a client that opened a printer while no daemon
// answered reaches the daemon's printer when it opens it again.
bool HasStore(std::string_view printerName);
// Opens the printer's store, making it at its first opening.
int32_t OpenStore(std::string_view printerName, uint32_t* managerHandle);
// Ends the handle and its watches. Returns once no change is being delivered
// to them on another thread.
int32_t CloseStoreHandle(uint32_t managerHandle);

int32_t ReadVariable(uint32_t managerHandle, std::string_view name, void* buffer, DWORD size, DWORD* needed);
// Stores the value; if it changed, signals the events and calls the callbacks
// of the watches on the variable, without the lock, on the calling thread.
int32_t WriteVariable(uint32_t managerHandle, std::string_view name, std::span<const std::byte> value);

// A watch with one event per name, or (events empty) a callback.
int32_t AddWatch(uint32_t managerHandle, std::vector<std::string> names, std::vector<HANDLE> events,
                 StatusManagerCallback callback, void* context, uint32_t* notificationId);
// Ends a watch of the handle, of the kind asked for (an event watch cannot be
// ended as a callback, nor the other way round). Returns once no change is
// being delivered to it on another thread.
int32_t EndWatch(uint32_t managerHandle, uint32_t notificationId, bool callback);

// Ends every handle and watch and forgets every store: the library as it is
// when first loaded. For a program that links the library in and so can't
// unload it, as the fuzz targets do between two inputs. No other call may be
// running.
void ForgetEverything();

}  // namespace langmon::status_manager
