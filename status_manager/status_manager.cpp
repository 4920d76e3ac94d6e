// The library's C edge: the functions the monitor and status clients look up
// by name. Each checks what it was handed (pointers, lengths, counts) before
// anything is looked at, and lets no exception out: running out of memory is
// STATUS_MANAGER_NO_MEMORY.
//
// Choices where callers could expect more than the header promises:
// - The device name and the mode of OpenManagerExA are accepted as given and
//   not looked at: this library has one kind of store and no device behind it.
//   The monitor passes STATUS_MANAGER_DEVICE; a client may pass anything.
// - Printer and variable names compare byte for byte, case counting.
// - A value may be empty (size 0, the pointer may then be null); one larger
//   than kMaxValueSize is refused with STATUS_MANAGER_BAD_ARGUMENT, and a new
//   variable past kMaxVariables with STATUS_MANAGER_NO_MEMORY.
// - A watch may name variables the store doesn't have yet: the first update
//   that makes one is a change.
// - Of the two "too small" results only STATUS_MANAGER_BUFFER_TOO_SMALL is
//   given.
// - Without a host SetEvent (no LangmonAttachHost yet), event watches are
//   made and kept but signal nothing; callbacks are called all the same.
//
// A store may be in langmond rather than in this process (see
// remote_handles.h for which): a handle on it is numbered from
// kFirstRemoteHandle and its calls go to the daemon, with the same results,
// plus these:
// - The daemon refuses a write by a user outside root and the group lp:
//   STATUS_MANAGER_ACCESS_DENIED.
// - Its limits are the protocol's: a name of more than 64 bytes or one not
//   printable ASCII is no variable to read and a bad argument to write or
//   watch, as is a value over 16 KiB or a watch of more than 64 names.
// - A daemon that goes away, or answers nothing for kDaemonAnswerMs, leaves
//   the handle dead: that call and every later one on it fails with
//   STATUS_MANAGER_BAD_HANDLE, and no change is told any more. CloseManager
//   lets the handle go all the same and gives 0. A restarted daemon is
//   reached by opening the printer again.
// - A callback is called on the handle's reader thread, and may call the
//   library, the same handle included.

#include "host_link.h"
#include "manager_table.h"
#include "remote_handles.h"
#include "watch.h"

#include <langmon/status_manager.h>

#include <new>
#include <optional>

using namespace langmon::status_manager;

namespace {

// Runs one edge call, turning a failed allocation into its result.
template <typename Call>
int32_t Guarded(Call call) noexcept {
    try {
        return call();
    } catch (...) {
        return STATUS_MANAGER_NO_MEMORY;
    }
}

std::optional<std::string_view> VariableName(const char* name) {
    auto text = BoundedText(name, kMaxNameLength);
    if (!text || text->empty()) return std::nullopt;
    return text;
}

// A watch made where the handle's store is.
int32_t WatchStore(uint32_t managerHandle, std::vector<std::string> names, std::vector<HANDLE> events,
                   StatusManagerCallback callback, void* context, uint32_t* notificationId) {
    if (!IsRemoteHandle(managerHandle)) {
        return AddWatch(managerHandle, std::move(names), std::move(events), callback, context, notificationId);
    }
    const auto remote = FindRemoteHandle(managerHandle);
    if (!remote) return STATUS_MANAGER_BAD_HANDLE;
    return remote->AddWatch(std::move(names), std::move(events), callback, context, notificationId);
}

int32_t UnwatchStore(uint32_t managerHandle, uint32_t notificationId, bool callback) {
    if (!IsRemoteHandle(managerHandle)) return EndWatch(managerHandle, notificationId, callback);
    const auto remote = FindRemoteHandle(managerHandle);
    return remote ? remote->EndWatch(notificationId, callback) : STATUS_MANAGER_BAD_HANDLE;
}

}  // namespace

extern "C" {

LANGMON_API int32_t OpenManagerExA(const char* printerName, const char* /*deviceName*/, uint32_t /*mode*/,
                                   uint32_t* managerHandle) {
    return Guarded([&] {
        const auto name = BoundedText(printerName, kMaxPrinterNameLength);
        if (!name || name->empty() || managerHandle == nullptr) return STATUS_MANAGER_BAD_ARGUMENT;
        std::shared_ptr<RemoteConnection> remote;
        int32_t refused = STATUS_MANAGER_OK;
        if (ChooseStore(*name, &remote, &refused) == StorePlace::Here) return OpenStore(*name, managerHandle);
        if (remote == nullptr) return refused;
        return AddRemoteHandle(std::move(remote), managerHandle);
    });
}

LANGMON_API int32_t CloseManager(uint32_t managerHandle) {
    return Guarded([&] {
        return IsRemoteHandle(managerHandle) ? CloseRemoteHandle(managerHandle) : CloseStoreHandle(managerHandle);
    });
}

LANGMON_API int32_t GetPrinterStatusA(uint32_t managerHandle, const char* name, void* buffer, DWORD size,
                                      DWORD* needed) {
    return Guarded([&] {
        const auto variable = VariableName(name);
        if (!variable || (buffer == nullptr && size > 0)) return STATUS_MANAGER_BAD_ARGUMENT;
        if (IsRemoteHandle(managerHandle)) {
            const auto remote = FindRemoteHandle(managerHandle);
            return remote ? remote->Read(*variable, buffer, size, needed) : STATUS_MANAGER_BAD_HANDLE;
        }
        return ReadVariable(managerHandle, *variable, buffer, size, needed);
    });
}

LANGMON_API int32_t UpdatePrinterStatusA(uint32_t managerHandle, const char* name, const void* value,
                                         DWORD size) {
    return Guarded([&] {
        const auto variable = VariableName(name);
        if (!variable || (value == nullptr && size > 0) || size > kMaxValueSize) return STATUS_MANAGER_BAD_ARGUMENT;
        const std::span<const std::byte> bytes{static_cast<const std::byte*>(value), size};
        if (IsRemoteHandle(managerHandle)) {
            const auto remote = FindRemoteHandle(managerHandle);
            return remote ? remote->Write(*variable, bytes) : STATUS_MANAGER_BAD_HANDLE;
        }
        return WriteVariable(managerHandle, *variable, bytes);
    });
}

LANGMON_API int32_t SetNotificationEventExA(uint32_t managerHandle, uint32_t count, const char* names,
                                            const HANDLE* events, uint32_t* notificationId) {
    return Guarded([&] {
        auto list = SplitNames(names, count);
        if (!list || events == nullptr || notificationId == nullptr) return STATUS_MANAGER_BAD_ARGUMENT;
        std::vector<HANDLE> handles(events, events + count);
        for (HANDLE event : handles) {
            if (event == nullptr) return STATUS_MANAGER_BAD_ARGUMENT;
        }
        return WatchStore(managerHandle, std::move(*list), std::move(handles), nullptr, nullptr, notificationId);
    });
}

LANGMON_API int32_t SetNotificationEventA(uint32_t managerHandle, const char* name, HANDLE event,
                                          uint32_t* notificationId) {
    return Guarded([&] {
        const auto variable = VariableName(name);
        if (!variable || event == nullptr || notificationId == nullptr) return STATUS_MANAGER_BAD_ARGUMENT;
        return WatchStore(managerHandle, {std::string(*variable)}, {event}, nullptr, nullptr, notificationId);
    });
}

LANGMON_API int32_t KillNotificationEvent(uint32_t managerHandle, uint32_t notificationId) {
    return Guarded([&] { return UnwatchStore(managerHandle, notificationId, false); });
}

LANGMON_API int32_t SetNotificationCallbackExA(uint32_t managerHandle, uint32_t count, const char* names,
                                               StatusManagerCallback callback, void* context,
                                               uint32_t* notificationId) {
    return Guarded([&] {
        auto list = SplitNames(names, count);
        if (!list || callback == nullptr || notificationId == nullptr) return STATUS_MANAGER_BAD_ARGUMENT;
        return WatchStore(managerHandle, std::move(*list), {}, callback, context, notificationId);
    });
}

LANGMON_API int32_t KillNotificationCallback(uint32_t managerHandle, uint32_t notificationId) {
    return Guarded([&] { return UnwatchStore(managerHandle, notificationId, true); });
}

LANGMON_API int32_t SetReqPrinterStatusEventA(uint32_t /*managerHandle*/, HANDLE /*event*/) {
    return STATUS_MANAGER_NOT_SUPPORTED;
}

LANGMON_API int32_t ResSetPrinterStatus(uint32_t /*managerHandle*/, const char* /*name*/, const void* /*value*/,
                                        DWORD /*size*/) {
    return STATUS_MANAGER_NOT_SUPPORTED;
}

LANGMON_API void LangmonAttachHost(const LANGMON_HOST_CALLS* host) { AttachHost(host); }

}  // extern "C"
