// The host's calls, as the loader handed them over. The library links nothing
// of the host: the events a watch signals are the host's objects, and only the
// host's own SetEvent can signal them.
#pragma once

#include <langmon/status_manager.h>

namespace langmon::status_manager {

using SetEventFn = BOOL (*)(HANDLE event);

// Keeps a copy of what the host gives; a null host, or one too old to have
// SetEvent, leaves none.
void AttachHost(const LANGMON_HOST_CALLS* host);
// The host's SetEvent, or null before a host with one has attached.
SetEventFn HostSetEvent();

}  // namespace langmon::status_manager
