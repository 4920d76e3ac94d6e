#include "portkind/port_list.h"

#include "platform/clock.h"
#include "platform/last_error.h"
#include "platform/memory.h"
#include "platform/spooler.h"
#include "platform/text.h"

namespace langmon {

namespace {
constexpr DWORD SpoolerRetryMs = 300;
// What to ask for when the spooler won't say how much it needs.
constexpr DWORD FallbackPortListSize = 3072;
}  // namespace

PORT_INFO_2* FetchPortList(DWORD* count) {
    DWORD needed = 0;
    *count = 0;
    EnumPortsA(nullptr, 2, nullptr, 0, &needed, count);
    if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
        Sleep(SpoolerRetryMs);
        EnumPortsA(nullptr, 2, nullptr, 0, &needed, count);
    }
    const DWORD size = GetLastError() == ERROR_INSUFFICIENT_BUFFER ? needed : FallbackPortListSize;

    auto* list = static_cast<LPBYTE>(GlobalAlloc(GPTR, size));
    if (list == nullptr) return nullptr;
    if (!EnumPortsA(nullptr, 2, list, size, &needed, count)) {
        Sleep(SpoolerRetryMs);
        if (!EnumPortsA(nullptr, 2, list, size, &needed, count)) {
            GlobalFree(list);
            *count = 0;
            return nullptr;
        }
    }
    return reinterpret_cast<PORT_INFO_2*>(list);
}

const PORT_INFO_2* FindListedPort(const PORT_INFO_2* list, DWORD count, const char* name) {
    for (DWORD i = 0; list != nullptr && i < count; ++i) {
        if (lstrcmpA(list[i].pPortName, name) == 0) return &list[i];
    }
    return nullptr;
}

}  // namespace langmon
