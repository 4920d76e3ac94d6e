#include "parser/operator_panel.h"

#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "parser/pjl_text.h"
#include "variables/status_variable.h"

#include <cstring>

namespace langmon {

namespace {

// The value of a complete entry that ends at `end`: one byte behind the first
// separator from `from` on, or null. The search stops with the entry, so an
// entry without a separator of its own has no value rather than a later
// line's. An INQUIRE reply has its value on the line after the keyword, so
// there the LF that ends the entry is the separator.
const char* ValueIn(const char* from, const char* end, const PjlParserState* state) {
    const char separator = (state->ParseFlags & InquireForm) != 0 ? '\n' : '=';
    if (from >= end) return nullptr;
    const void* at = std::memchr(from, separator, static_cast<std::size_t>(end - from));
    return at != nullptr ? static_cast<const char*>(at) + 1 : nullptr;
}

/* StoreNumber: `number` into the variable, marked dirty if it changed. A
   variable that has no row on this port takes nothing. */
int StoreNumber(const char* variableName, uint32_t number, PortContext* port) {
    LockPort(port);
    const int changed =
        UpdateVariable(GetVariable(variableName, port->variables, port, 0), &number);
    UnlockPort(port);
    return changed;
}

/* ParseNumberEntry: the decimal number behind the entry's separator, stored
   when it lies in [low, high]. */
int ParseNumberEntry(const char* text, const char** cursor, const char* variableName, uint32_t low,
                     uint32_t high, PjlParserState* state, PortContext* port) {
    if (SkipEntry(text, cursor) == 0) return 0;
    const char* value = ValueIn(text, *cursor, state);
    if (value == nullptr) return 1;
    const uint32_t number = ParseDecimal(value);
    if (number >= low && number <= high) StoreNumber(variableName, number, port);
    return 1;
}

constexpr uint32_t AnyNumber = 0xFFFFFFFFu;

// The second of a pair of settings is named with a "2" behind the keyword.
const char* FirstOrSecond(const char* text, const char* first, const char* second) {
    return text[0] == '2' ? second : first;
}

}  // namespace

// The printer's own spelling "PORTLAIT" stands beside the right one: it is
// what the printer sends, and it stays.
constexpr ValueRow OrientationValues[] = {
    {"PORTRAIT", 0}, {"PORTLAIT", 0}, {"LANDSCAPE", 1}, {nullptr, 0}};
constexpr ValueRow RetValues[] = {{"MEDIUM", 1}, {"OFF", 0}, {nullptr, 0}};
constexpr ValueRow OnOffValues[] = {{"ON", 1}, {"OFF", 0}, {nullptr, 0}};
constexpr ValueRow DuplexValues[] = {{"OFF", 0}, {"ON", 1}, {nullptr, 0}};
constexpr ValueRow BindPositionValues[] = {
    {"LONGEDGE1", 0}, {"SHORTEDGE1", 1}, {"LONGEDGE2", 2}, {"SHORTEDGE2", 3}, {nullptr, 0}};
constexpr ValueRow OutBinValues[] = {{"OUTTRAY1", 1}, {"OUTTRAY2", 2}, {nullptr, 0}};
constexpr ValueRow TrayDirectionValues[] = {{"SHORT", 0}, {"LONG", 1}, {nullptr, 0}};
// "COATED" also takes "COATED2", with the same number.
constexpr ValueRow PaperTypeValues[] = {
    {"NORMAL", 16}, {"HEAVY", 18}, {"OHP", 2},      {"CARD", 3},    {"RECYCLE", 16},
    {"COATED", 17}, {"LABEL", 6},  {"ENVELOPE", 7}, {"MLIGHT", 11}, {"COATED2", 17},
    {"SHEAVY", 18}, {"NOSEL", 14}, {"USER", 19},    {nullptr, 0}};
// "A3W" ahead of "A3" and "JPOSTD" ahead of "JPOST": the shorter word is a
// prefix of the longer one.
constexpr ValueRow MediaSizeValues[] = {{"LETTER", 1}, {"A3W", 1234}, {"A3", 8},    {"A4", 9},
                                        {"A5", 11},    {"B4", 12},    {"B5", 13},   {"JPOSTD", 69},
                                        {"JPOST", 43}, {"ENV4", 91},  {"LEGAL", 5}, {"LEDGER", 4},
                                        {"USER", 256}, {nullptr, 0}};

// "POWERSAVETIME" ahead of "POWERSAVE", which is a prefix of it.
constexpr KeyRow OppVariableKeys[13] = {
    {"COPIES", CopiesKeyHandler},
    {"ORIENTATION", OrientationKeyHandler},
    {"RET", RetKeyHandler},
    {"ECONOMODE", EconoModeKeyHandler},
    {"INTRAY", TrayKeyHandler},
    {"POWERSAVETIME", PowerSaveTimeKeyHandler},
    {"POWERSAVE", PowerSaveKeyHandler},
    {"PAPER", PaperKeyHandler},
    {"TIMEOUT", TimeoutKeyHandler},
    {"DUPLEX", DuplexKeyHandler},
    {"BINDPOSITION", BindPositionKeyHandler},
    {"OUTBIN", OutBinKeyHandler},
    {nullptr, nullptr},
};

namespace {

// Compile-time facts of the tables: the first prefix wins, so an earlier
// keyword that a later one begins with hides it.

constexpr bool IsPrefix(const char* prefix, const char* text) {
    for (; *prefix != '\0'; ++prefix, ++text) {
        if (*prefix != *text) return false;
    }
    return true;
}

// No key hides another.
constexpr bool NoKeyHidden(const KeyRow* keys) {
    for (const KeyRow* row = keys; row->Keyword != nullptr; ++row) {
        for (const KeyRow* later = row + 1; later->Keyword != nullptr; ++later) {
            if (IsPrefix(row->Keyword, later->Keyword)) return false;
        }
    }
    return true;
}

// A word that hides a later one gives the same number, as "COATED" does for
// "COATED2".
constexpr bool NoValueChanged(const ValueRow* table) {
    for (const ValueRow* row = table; row->Keyword != nullptr; ++row) {
        for (const ValueRow* later = row + 1; later->Keyword != nullptr; ++later) {
            if (IsPrefix(row->Keyword, later->Keyword) && row->Value != later->Value) return false;
        }
    }
    return true;
}

static_assert(NoKeyHidden(OppVariableKeys));
static_assert(NoValueChanged(OrientationValues) && NoValueChanged(RetValues) &&
              NoValueChanged(OnOffValues) && NoValueChanged(DuplexValues) &&
              NoValueChanged(BindPositionValues) && NoValueChanged(OutBinValues) &&
              NoValueChanged(TrayDirectionValues) && NoValueChanged(PaperTypeValues) &&
              NoValueChanged(MediaSizeValues));

constexpr const char* PaperTypeVariables[] = {"OppPaperType",  "OppPaperType1", "OppPaperType2",
                                              "OppPaperType3", "OppPaperType4", "OppPaperType5"};

}  // namespace

int SetKeywordVariable(const char* valueText, const char* variableName, const ValueRow* table,
                       PortContext* port) {
    for (const ValueRow* row = table; row->Keyword != nullptr; ++row) {
        if (StartsWith(valueText, row->Keyword)) return StoreNumber(variableName, row->Value, port);
    }
    return 0;
}

int ParseKeywordEntry(const char* text, const char** cursor, const char* variableName,
                      const ValueRow* table, PortContext* port, PjlParserState* state) {
    if (SkipEntry(text, cursor) == 0) return 0;
    const char* value = ValueIn(text, *cursor, state);
    if (value != nullptr) SetKeywordVariable(value, variableName, table, port);
    return 1;
}

/* CopiesKeyHandler: a number of copies out of 1 to 999 is ignored. */
int CopiesKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                     PortContext* port) {
    return ParseNumberEntry(text, cursor, "OppCopies", 1, 999, state, port);
}

int OrientationKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                          PortContext* port) {
    return ParseKeywordEntry(text, cursor, "OppOrientation", OrientationValues, port, state);
}

int RetKeyHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port) {
    return ParseKeywordEntry(text, cursor, "OppRet", RetValues, port, state);
}

int EconoModeKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                        PortContext* port) {
    return ParseKeywordEntry(text, cursor, "OppEconoMode", OnOffValues, port, state);
}

/* TrayKeyHandler: the multi-purpose tray's size and direction, and the tray
   in use. The entries of a numbered tray would feed OppIntrayFixed, which no
   port keeps a row for. */
int TrayKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                   PortContext* port) {
    if (SkipEntry(text, cursor) == 0) return 0;
    const char* end = *cursor;
    if (ParseDecimal(text) != 0) return 1;
    if (StartsWith(text, "MTSIZE")) {
        const char* value = ValueIn(text + 6, end, state);
        if (value != nullptr) SetKeywordVariable(value, "OppIntrayMTSize", MediaSizeValues, port);
        return 1;
    }
    // The tray in use stands right behind the keyword's separator, as
    // "INTRAY" and its number.
    const char* separator = (state->ParseFlags & InquireForm) != 0 ? "\r\n" : "=";
    if (StartsWith(text, separator)) {
        const char* tray = text + std::strlen(separator);
        if (!StartsWith(tray, "INTRAY")) return 1;
        const uint32_t number = ParseDecimal(tray + 6);
        if (number != 0) StoreNumber("OppIntray", number, port);
        return 1;
    }
    if (StartsWith(text, "MTDIR")) {
        const char* value = ValueIn(text, end, state);
        if (value != nullptr)
            SetKeywordVariable(value, "OppIntrayMTDir", TrayDirectionValues, port);
    }
    return 1;
}

int PowerSaveTimeKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                            PortContext* port) {
    return ParseNumberEntry(text, cursor,
                            FirstOrSecond(text, "OppPowerSaveTime", "OppPowerSaveTime2"), 0,
                            AnyNumber, state, port);
}

int PowerSaveKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                        PortContext* port) {
    return ParseKeywordEntry(text, cursor, FirstOrSecond(text, "OppPowerSave", "OppPowerSave2"),
                             OnOffValues, port, state);
}

/* PaperKeyHandler: sorting, and the paper type of the default and of each
   numbered tray. The feed would go to OppPaperFeed, which no port keeps a
   row for. */
int PaperKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                    PortContext* port) {
    if (SkipEntry(text, cursor) == 0) return 0;
    const char* end = *cursor;
    if (StartsWith(text, "FEED")) return 1;
    if (StartsWith(text, "SORT")) {
        const char* value = ValueIn(text + 4, end, state);
        if (value != nullptr) SetKeywordVariable(value, "OppPaperSort", OnOffValues, port);
        return 1;
    }
    if (StartsWith(text, "TYPE")) {
        const uint32_t tray = ParseDecimal(text + 4);
        const char* value = ValueIn(text + 4, end, state);
        if (value == nullptr) return 1;
        SetKeywordVariable(value, PaperTypeVariables[tray >= 1 && tray <= 5 ? tray : 0],
                           PaperTypeValues, port);
    }
    return 1;
}

/* TimeoutKeyHandler: the printer's own range is taken as it comes. */
int TimeoutKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                      PortContext* port) {
    return ParseNumberEntry(text, cursor, "OppTimeout", 0, AnyNumber, state, port);
}

int DuplexKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                     PortContext* port) {
    return ParseKeywordEntry(text, cursor, "OppDuplex", DuplexValues, port, state);
}

int BindPositionKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                           PortContext* port) {
    return ParseKeywordEntry(text, cursor, "OppBindPosition", BindPositionValues, port, state);
}

int OutBinKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                     PortContext* port) {
    return ParseKeywordEntry(text, cursor, "OppOuttray", OutBinValues, port, state);
}

}  // namespace langmon
