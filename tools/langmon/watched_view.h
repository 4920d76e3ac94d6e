// What `langmon status --watch` and `langmon emulate` show as a printer
// changes: the moment since the start ("+1.2 s"), and the view shown again
// as it changes: with JSON a whole document each time the printer's object
// changed, else only the lines that changed, under the moment they did.
#pragma once

#include "printer_view.h"

#include "platform/win32_types.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

namespace langmon::tool {

// "+1.2 s": a moment `ms` after the start.
std::string Seconds(DWORD ms);
// "following the printer for 3.0 s:" (`forMs` 0: "until interrupted").
void TellFollowing(std::ostream& out, DWORD forMs);

class WatchedView {
public:
    // The printer as first shown.
    WatchedView(std::vector<ViewLine> lines, nlohmann::ordered_json json)
        : lines_(std::move(lines)), json_(std::move(json)) {}

    // Shows what changed in the printer's view at `at`. With `json`, the
    // document `document` makes of the printer's object, when the object
    // changed. Changes told within the same tenth of a second read as one.
    using Document = std::function<nlohmann::ordered_json(const nlohmann::ordered_json& printer)>;
    void Show(std::ostream& out, bool json, const PrinterFacts& facts, DWORD at, const Document& document);

    // The lines shown last.
    const std::vector<ViewLine>& Lines() const { return lines_; }
    // Something else was written since: the next change names its moment.
    void ForgetMoment() { lastMoment_.clear(); }

private:
    std::vector<ViewLine> lines_;
    nlohmann::ordered_json json_;
    std::string lastMoment_;
};

}  // namespace langmon::tool
