#include "host_link.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>

namespace langmon::status_manager {

namespace {
std::atomic<SetEventFn> hostSetEvent{nullptr};
}

void AttachHost(const LANGMON_HOST_CALLS* host) {
    LANGMON_HOST_CALLS calls{};
    if (host != nullptr) {
        // A host built against an older header hands a shorter record: take
        // what it has, the rest stays null.
        std::memcpy(&calls, host, std::min<std::size_t>(host->size, sizeof calls));
        if (host->size < offsetof(LANGMON_HOST_CALLS, SetEvent) + sizeof calls.SetEvent) calls.SetEvent = nullptr;
    }
    hostSetEvent.store(calls.SetEvent);
}

SetEventFn HostSetEvent() { return hostSetEvent.load(); }

}  // namespace langmon::status_manager
