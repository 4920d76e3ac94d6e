// Every status variable with a value, in hex: the one form in which
// `--variables` shows them for print, status and decode, and the
// "variables" object of their JSON.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace langmon::tool {

struct VariableValue {
    std::string name;
    std::vector<uint8_t> bytes;  // as clients get them
};

// "  NAME                hex" a line, under `heading` (a line of its own).
void WriteVariables(std::ostream& out, const std::string& heading, const std::vector<VariableValue>& values);
// {"NAME": "hex", ...}, in the same order.
nlohmann::ordered_json VariablesJson(const std::vector<VariableValue>& values);

// Lower-case hex, two digits a byte.
std::string HexBytes(const std::vector<uint8_t>& bytes);

}  // namespace langmon::tool
