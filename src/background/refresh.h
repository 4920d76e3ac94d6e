// A client's refresh: the client lists the variables it wants fresh in its
// manager's "RefreshStatus" and asks through "Refresh:" with its printer's
// name; the monitor polls and, if the list needs it, asks the printer for its
// panel and service tag. What comes back is parsed and published as usual.
#pragma once

#include <cstdint>

namespace langmon {

struct PortContext;
struct ManagerLink;

// Results, as the client reads them.
constexpr int32_t RefreshDone = 0;
constexpr int32_t RefreshNothingDone = -19;
constexpr int32_t RefreshPrinterSilent = -37;
constexpr int32_t RefreshPortUnavailable = -38;
constexpr int32_t RefreshOtherModel = -80;

// The most "RefreshStatus" may hold; a longer list is refused.
constexpr uint32_t RefreshListLimit = 64 * 1024;

// The OR of the RefreshClass of the listed variables, names separated by ';'.
// Names the client can't see, or that are no variable, add nothing.
uint32_t CollectRefreshClasses(const char* names, const ManagerLink* link, PortContext* port);

int32_t RefreshClientStatus(const char* printerName, PortContext* port);

}  // namespace langmon
