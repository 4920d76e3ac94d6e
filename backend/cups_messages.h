// What CUPS is told of the printer, in the message forms of filter(7): the
// printer-state-reasons as "STATE: +keyword" and "STATE: -keyword" lines,
// each once per change; the supplies as one "ATTR: marker-..." line; the
// panel's text as "INFO:"; the pages of a job as "PAGE: total N". Everything
// comes from the printer's view as `langmon status --json` gives it (its
// "printer" object), so that a backend fed by another process's view says
// the same.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace langmon::backend {

// One row of the mapping from the view's state reasons (and conditions
// that have no reason of their own) to CUPS's keywords, with the severity
// suffix CUPS shows them by. A reason may give two keywords: the standard
// one and one beside it (the general supply warning beside the toner's, a
// vendor keyword beside "other-error").
struct CupsKeywordRow {
    const char* from;  // a state reason, or "condition:KEYWORD"
    const char* keyword;
    const char* beside;  // nullptr, or a second keyword
};

// The whole table, in the order the keywords are announced.
const std::vector<CupsKeywordRow>& CupsKeywordTable();

// Every keyword that stands for `printer` (a "printer" view object), each
// once.
std::set<std::string> CupsKeywords(const nlohmann::ordered_json& printer);

// The marker attributes of the four toners, the drum unit and, where the
// printer reports it, the waste toner box: "ATTR: marker-colors=... ...";
// empty when the printer's supplies are not read.
std::string MarkerAttributes(const nlohmann::ordered_json& printer);

// The panel's two lines as one "INFO:" text, empty when the view has none.
std::string PanelInfo(const nlohmann::ordered_json& printer);

// The lines for CUPS as the view changes: every keyword is announced when
// it starts and withdrawn when it ends, the markers and the panel when they
// change; nothing when nothing changed. Not thread-safe: one announcer
// follows one printer.
class StateAnnouncer {
public:
    std::vector<std::string> Update(const nlohmann::ordered_json& printer);
    // What is announced now, e.g. for a side channel's state question.
    const std::set<std::string>& Standing() const { return standing_; }
    // Withdraws every keyword: the backend is done with the printer.
    std::vector<std::string> WithdrawAll();

private:
    std::set<std::string> standing_;
    std::string markers_;
    std::string info_;
};

}  // namespace langmon::backend
