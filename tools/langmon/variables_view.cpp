#include "variables_view.h"

#include <nlohmann/json.hpp>

#include <ostream>

namespace langmon::tool {

namespace {
// The longest variable name, "PrinterManufacturer", and a blank.
constexpr std::size_t NameColumn = 20;
}  // namespace

std::string HexBytes(const std::vector<uint8_t>& bytes) {
    static constexpr char Digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const uint8_t byte : bytes) {
        text += Digits[byte >> 4];
        text += Digits[byte & 0xF];
    }
    return text;
}

void WriteVariables(std::ostream& out, const std::string& heading, const std::vector<VariableValue>& values) {
    out << heading << '\n';
    if (values.empty()) out << "  none\n";
    for (const VariableValue& value : values) {
        out << "  " << value.name << std::string(value.name.size() < NameColumn ? NameColumn - value.name.size() : 1, ' ')
            << HexBytes(value.bytes) << '\n';
    }
}

nlohmann::ordered_json VariablesJson(const std::vector<VariableValue>& values) {
    nlohmann::ordered_json json = nlohmann::ordered_json::object();
    for (const VariableValue& value : values) json[value.name] = HexBytes(value.bytes);
    return json;
}

}  // namespace langmon::tool
