// The handles on stores in langmond. They are numbered apart from the
// handles on this process's own stores (the high bit set), so that every call
// knows from the number alone where the store is.
#pragma once

#include "remote_connection.h"

#include <cstdint>
#include <memory>
#include <string_view>

namespace langmon::status_manager {

// The first number of a handle on a daemon's store; this process's own
// handles are below it.
constexpr uint32_t kFirstRemoteHandle = 0x80000000u;

inline bool IsRemoteHandle(uint32_t handle) { return handle >= kFirstRemoteHandle; }

// Where a printer's store is, decided once, at the opening of a handle.
enum class StorePlace { Here, Daemon };

// The store `printerName` means in this process. Here when the environment
// keeps this process's stores to itself, or when the process has a store of
// that name already (its own monitor made it); else in the daemon when one
// answers on its socket and holds the printer, here otherwise. `made` is the
// daemon's open handle when it is there; a daemon that refuses the open gives
// its result in `result`.
StorePlace ChooseStore(std::string_view printerName, std::shared_ptr<RemoteConnection>* made, int32_t* result);

// Numbers the connection's handle.
int32_t AddRemoteHandle(std::shared_ptr<RemoteConnection> connection, uint32_t* managerHandle);
// The handle's connection, or null.
std::shared_ptr<RemoteConnection> FindRemoteHandle(uint32_t managerHandle);
// Ends the handle: closes it in the daemon, when it is still there, and ends
// its reader thread. BAD_HANDLE for a number that is no handle.
int32_t CloseRemoteHandle(uint32_t managerHandle);

}  // namespace langmon::status_manager
