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

#include "host_link.h"
#include "manager_table.h"
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

}  // namespace

extern "C" {

LANGMON_API int32_t OpenManagerExA(const char* printerName, const char* /*deviceName*/, uint32_t /*mode*/,
                                   uint32_t* managerHandle) {
    return Guarded([&] {
        const auto name = BoundedText(printerName, kMaxPrinterNameLength);
        if (!name || name->empty() || managerHandle == nullptr) return STATUS_MANAGER_BAD_ARGUMENT;
        return OpenStore(*name, managerHandle);
    });
}

LANGMON_API int32_t CloseManager(uint32_t managerHandle) {
    return Guarded([&] { return CloseStoreHandle(managerHandle); });
}

LANGMON_API int32_t GetPrinterStatusA(uint32_t managerHandle, const char* name, void* buffer, DWORD size,
                                      DWORD* needed) {
    return Guarded([&] {
        const auto variable = VariableName(name);
        if (!variable || (buffer == nullptr && size > 0)) return STATUS_MANAGER_BAD_ARGUMENT;
        return ReadVariable(managerHandle, *variable, buffer, size, needed);
    });
}

LANGMON_API int32_t UpdatePrinterStatusA(uint32_t managerHandle, const char* name, const void* value,
                                         DWORD size) {
    return Guarded([&] {
        const auto variable = VariableName(name);
        if (!variable || (value == nullptr && size > 0) || size > kMaxValueSize) return STATUS_MANAGER_BAD_ARGUMENT;
        return WriteVariable(managerHandle, *variable, {static_cast<const std::byte*>(value), size});
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
        return AddWatch(managerHandle, std::move(*list), std::move(handles), nullptr, nullptr, notificationId);
    });
}

LANGMON_API int32_t SetNotificationEventA(uint32_t managerHandle, const char* name, HANDLE event,
                                          uint32_t* notificationId) {
    return Guarded([&] {
        const auto variable = VariableName(name);
        if (!variable || event == nullptr || notificationId == nullptr) return STATUS_MANAGER_BAD_ARGUMENT;
        return AddWatch(managerHandle, {std::string(*variable)}, {event}, nullptr, nullptr, notificationId);
    });
}

LANGMON_API int32_t KillNotificationEvent(uint32_t managerHandle, uint32_t notificationId) {
    return Guarded([&] { return EndWatch(managerHandle, notificationId, false); });
}

LANGMON_API int32_t SetNotificationCallbackExA(uint32_t managerHandle, uint32_t count, const char* names,
                                               StatusManagerCallback callback, void* context,
                                               uint32_t* notificationId) {
    return Guarded([&] {
        auto list = SplitNames(names, count);
        if (!list || callback == nullptr || notificationId == nullptr) return STATUS_MANAGER_BAD_ARGUMENT;
        return AddWatch(managerHandle, std::move(*list), {}, callback, context, notificationId);
    });
}

LANGMON_API int32_t KillNotificationCallback(uint32_t managerHandle, uint32_t notificationId) {
    return Guarded([&] { return EndWatch(managerHandle, notificationId, true); });
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
