#include "manager/manager_library.h"

#include "manager/manager_link.h"
#include "platform/library.h"

#include <cstddef>
#include <cstring>

namespace langmon {

namespace {

// Where each of the library's functions lives in the link: one list serves
// the lookup and the forgetting, so the two can't drift apart.
struct ManagerFunction {
    const char* name;
    std::size_t offset;
};
constexpr ManagerFunction ManagerFunctions[] = {
    {"OpenManagerExA", offsetof(ManagerLink, OpenManagerExA)},
    {"CloseManager", offsetof(ManagerLink, CloseManager)},
    {"GetPrinterStatusA", offsetof(ManagerLink, GetPrinterStatusA)},
    {"SetReqPrinterStatusEventA", offsetof(ManagerLink, SetReqPrinterStatusEventA)},
    {"ResSetPrinterStatus", offsetof(ManagerLink, ResSetPrinterStatus)},
    {"UpdatePrinterStatusA", offsetof(ManagerLink, UpdatePrinterStatusA)},
    {"SetNotificationEventA", offsetof(ManagerLink, SetNotificationEventA)},
    {"SetNotificationEventExA", offsetof(ManagerLink, SetNotificationEventExA)},
    {"KillNotificationEvent", offsetof(ManagerLink, KillNotificationEvent)},
    {"SetNotificationCallbackExA", offsetof(ManagerLink, SetNotificationCallbackExA)},
    {"KillNotificationCallback", offsetof(ManagerLink, KillNotificationCallback)},
};

// Each slot holds a function pointer, which on this platform has the size and
// representation of the address GetProcAddress gives.
static_assert(sizeof(OpenManagerExFn) == sizeof(void*));

void StoreFunction(ManagerLink* link, const ManagerFunction& function, void* address) {
    std::memcpy(reinterpret_cast<char*>(link) + function.offset, &address, sizeof address);
}

}  // namespace

int LoadManagerLibrary(ManagerLink* link) {
    link->library = LoadLibraryA(ManagerLibraryName);
    if (link->library == nullptr) return 0;
    for (const ManagerFunction& function : ManagerFunctions) {
        StoreFunction(link, function, GetProcAddress(link->library, function.name));
    }
    return 1;
}

void UnloadManagerLibrary(ManagerLink* link) {
    if (link->library == nullptr) return;
    FreeLibrary(link->library);
    link->library = nullptr;
    for (const ManagerFunction& function : ManagerFunctions) StoreFunction(link, function, nullptr);
}

}  // namespace langmon
