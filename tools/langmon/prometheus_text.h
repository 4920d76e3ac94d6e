// Printers' status in the Prometheus text exposition format, so that a fleet
// of print hosts is watched with the monitoring people already run: each
// printer's state and condition, every supply's level and state, open
// covers, jams and pages printed, labelled by printer.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <utility>
#include <vector>

namespace langmon::tool {

// `printers` pairs a printer's name with its view (the "printer" object of
// `langmon status --json`); a view that says nothing gives only
// langmon_printer_up 0.
std::string PrometheusMetrics(const std::vector<std::pair<std::string, nlohmann::json>>& printers);

}  // namespace langmon::tool
