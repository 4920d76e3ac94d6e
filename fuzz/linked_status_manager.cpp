#include "linked_status_manager.h"

#include "platform/library.h"
#include "platform/sync.h"
#include "status_manager/manager_table.h"

#include <langmon/status_manager.h>

#include <cstring>
#include <mutex>

namespace langmon::fuzz {

namespace {

struct Export {
    const char* name;
    void* address;
};

// The library's edge, as its version script exports it.
const Export Exports[] = {
    {"OpenManagerExA", reinterpret_cast<void*>(&::OpenManagerExA)},
    {"CloseManager", reinterpret_cast<void*>(&::CloseManager)},
    {"GetPrinterStatusA", reinterpret_cast<void*>(&::GetPrinterStatusA)},
    {"UpdatePrinterStatusA", reinterpret_cast<void*>(&::UpdatePrinterStatusA)},
    {"SetNotificationEventExA", reinterpret_cast<void*>(&::SetNotificationEventExA)},
    {"KillNotificationEvent", reinterpret_cast<void*>(&::KillNotificationEvent)},
    {"SetNotificationEventA", reinterpret_cast<void*>(&::SetNotificationEventA)},
    {"SetNotificationCallbackExA", reinterpret_cast<void*>(&::SetNotificationCallbackExA)},
    {"KillNotificationCallback", reinterpret_cast<void*>(&::KillNotificationCallback)},
    {"SetReqPrinterStatusEventA", reinterpret_cast<void*>(&::SetReqPrinterStatusEventA)},
    {"ResSetPrinterStatus", reinterpret_cast<void*>(&::ResSetPrinterStatus)},
    {"LangmonAttachHost", reinterpret_cast<void*>(&::LangmonAttachHost)},
};

void* LookUp(const char* name) {
    for (const Export& entry : Exports) {
        if (std::strcmp(entry.name, name) == 0) return entry.address;
    }
    return nullptr;
}

}  // namespace

void LinkStatusManager() {
    static std::once_flag once;
    std::call_once(once, [] {
        LANGMON_HOST_CALLS host{};
        host.size = sizeof host;
        host.SetEvent = &SetEvent;
        ::LangmonAttachHost(&host);
        platform::RegisterLibrary("KVTRM.DLL", LookUp);
    });
}

void EmptyStatusManager() {
    status_manager::ForgetEverything();
}

}  // namespace langmon::fuzz
