#include "json_document.h"

#include <ostream>

namespace langmon::tool {

nlohmann::ordered_json NewJsonDocument(const std::string& command) {
    nlohmann::ordered_json document = nlohmann::ordered_json::object();
    document["version"] = JsonSchemaVersion;
    document["command"] = command;
    return document;
}

void WriteJsonDocument(std::ostream& out, const nlohmann::ordered_json& document) {
    out << document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n' << std::flush;
}

}  // namespace langmon::tool
