#include "state_keywords.h"

#include "acquisition/status_record.h"
#include "variables/derived.h"

#include <algorithm>
#include <cstdio>

namespace langmon::tool {

namespace {

// StatusWord1 bits that say why the printer's state is not known.
constexpr uint32_t NoWayBackWord = 0x400;
constexpr uint32_t NotReadWord = 0x800;

// Each Condition the monitor makes of the printer's status block. A CUPS
// reason is given where the Condition says what is wrong by itself; for
// supplies the supplies' own states say which one (toner, drum or waste),
// and a fault with no keyword of its own is "other".
struct ConditionRow {
    uint32_t condition;
    const char* keyword;
    const char* words;
    bool stops;  // the printer can't print until someone acts
    const char* reason;
};
constexpr ConditionRow ConditionRows[] = {
    {7, "hardware-failure", "hardware failure", true, "other"},
    {10, "cover-open", "a cover is open", true, "cover-open"},
    {11, "supply-empty", "a supply is empty", true, nullptr},
    {12, "supply-failed", "a supply has failed", true, "other"},
    {13, "drum-failed", "the drum unit has failed", true, "opc-life-over"},
    {15, "sensor-failed", "a sensor has failed", true, "other"},
    {16, "paper-jam", "paper jam", true, "media-jam"},
    {17, "supply-nearly-empty", "a supply is nearly empty", false, nullptr},
    {18, "paper-problem", "paper problem", true, "other"},
    {19, "paper-size-problem", "paper size problem", true, "media-needed"},
    {23, "out-of-memory", "out of memory", true, "other"},
    {26, "paper-out", "paper out", true, "media-empty"},
    {27, "feeding-tray-empty", "the feeding tray is empty", true, "media-empty"},
    {28, "operator-attention", "operator attention", true, "other"},
    {30, "busy", "busy", false, nullptr},
    {31, "warming-up", "warming up", false, nullptr},
    {33, "printing", "printing", false, nullptr},
    {38, "toner-low", "toner low", false, nullptr},
    {40, "engine-off", "idle (engine off)", false, nullptr},
    {41, "ready", "ready", false, nullptr},
};

// The Conditions during which the printer is at work, whatever the job.
bool AtWork(uint32_t condition) { return condition == 30 || condition == 31 || condition == 33; }

std::string Hex32(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", value);
    return text;
}

// A supply's reason by its kind and state.
const char* SupplyReason(const Supply& supply) {
    const bool gone = supply.state == SupplyState::Empty;
    const bool going = supply.state == SupplyState::NearEmpty || supply.state == SupplyState::Low;
    switch (supply.kind) {
        case SupplyKind::Toner: return gone ? "toner-empty" : going ? "toner-low" : nullptr;
        case SupplyKind::Drum:
            return gone || supply.state == SupplyState::Failed ? "opc-life-over" : going ? "opc-near-eol" : nullptr;
        // The waste box's "empty" is the state that stops the printer: the
        // box is full.
        case SupplyKind::Waste: return gone ? "marker-waste-full" : going ? "marker-waste-almost-full" : nullptr;
    }
    return nullptr;
}

}  // namespace

PrinterCondition ConditionOfStatus(uint32_t word1, uint32_t word2) {
    if ((word1 & PrinterLostWord) != 0) {
        return {"not-responding", "the printer does not answer", {}, "stopped", "offline-report"};
    }
    if ((word1 & PrinterForeignWord) != 0) return {"unknown-model", "a printer of no known model", {}, {}, {}};
    if ((word1 & NoWayBackWord) != 0) {
        return {"no-way-back", "the port has no way back from the printer", {}, {}, {}};
    }
    if ((word1 & NotReadWord) != 0) return {"not-read", "not read yet", {}, {}, {}};
    // All words clear is what the monitor leaves once it no longer follows
    // the printer; printing, whose bit is the job-on-port bit, is not it.
    if (word1 == 0 && word2 == 0) return {"none", "monitoring is off", {}, {}, {}};
    for (const ConditionRow& row : ConditionRows) {
        const ConditionStatus status = StatusOfCondition(row.condition);
        // A job on the port adds its bit to any of them.
        if (status.StatusWord1 != word1 || (status.StatusWord2 | JobOnPortBit) != (word2 | JobOnPortBit)) continue;
        PrinterCondition condition{row.keyword, row.words, {}, {}, {}};
        // The icon a status display shows, which the status words carry with
        // them: IconState itself goes once it is published.
        if (status.IconState == 1) condition.severity = "error";
        if (status.IconState == 2) condition.severity = "warning";
        condition.state = row.stops                                             ? "stopped"
                          : AtWork(row.condition) || (word2 & JobOnPortBit) != 0 ? "processing"
                                                                                : "idle";
        if (row.reason != nullptr) condition.reason = row.reason;
        return condition;
    }
    return {"unknown", "status words " + Hex32(word1) + " " + Hex32(word2), {}, {}, {}};
}

std::vector<std::string> StateReasons(const PrinterCondition& condition, const std::vector<Supply>& supplies,
                                      bool coverOpen, bool jammed) {
    std::vector<std::string> reasons;
    const auto add = [&](const char* reason) {
        if (reason != nullptr && std::find(reasons.begin(), reasons.end(), reason) == reasons.end()) {
            reasons.push_back(reason);
        }
    };
    if (condition.reason) add(condition.reason->c_str());
    for (const Supply& supply : supplies) add(SupplyReason(supply));
    if (coverOpen) add("cover-open");
    if (jammed) add("media-jam");
    return reasons;
}

}  // namespace langmon::tool
