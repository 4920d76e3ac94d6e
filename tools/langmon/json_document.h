// The frame of every JSON document the command writes: one object on one
// line, with the version of docs/langmon.schema.json it follows and the
// command that wrote it.
#pragma once

#include <nlohmann/json.hpp>

#include <iosfwd>
#include <string>

namespace langmon::tool {

// Raised when a document changes in a way a script would notice: a key
// gone, renamed or holding something else. New keys don't raise it.
constexpr int JsonSchemaVersion = 1;

// {"version": 1, "command": COMMAND}, to which the command adds its keys.
nlohmann::ordered_json NewJsonDocument(const std::string& command);

// The document on one line. Bytes that are not UTF-8 (a printer's panel or
// model text may hold any) become U+FFFD rather than stopping the command.
void WriteJsonDocument(std::ostream& out, const nlohmann::ordered_json& document);

}  // namespace langmon::tool
