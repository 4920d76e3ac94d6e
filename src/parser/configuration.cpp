#include "parser/configuration.h"

#include "acquisition/status_record.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "parser/operator_panel.h"
#include "parser/pjl_text.h"
#include "variables/status_variable.h"

#include <cstring>

namespace langmon {

namespace {

// PrinterOptConfig ids: the duplex unit, the second output tray, and one that
// a configuration reply only ever takes away.
constexpr uint16_t DuplexOption = 1;
constexpr uint16_t SecondOutTrayOption = 6001;
constexpr uint16_t RetiredOption = 1001;

// BinInputType of a tray by its size class.
constexpr uint16_t LargeTray = 3;
constexpr uint16_t NormalTray = 2;

// "PAGECOUNT=" stands ahead of the number; its bytes aren't compared.
constexpr std::size_t PageCountLead = 10;
constexpr std::size_t ServiceTagLength = 7;
constexpr uint32_t ServiceTagBytes = 32;

/* ValueLine: the end of the one line at `text`, LF included, if the line is
   whole and ends ahead of any form feed; else null. */
const char* ValueLine(const char* text) {
    const char* lf = std::strchr(text, '\n');
    if (lf == nullptr ||
        std::memchr(text, FormFeed, static_cast<std::size_t>(lf - text)) != nullptr) {
        return nullptr;
    }
    return lf + 1;
}

/* SetBinInputType: the size class of the tray `binId` in PrinterBinConfig,
   if the printer's trays list it. The caller holds the port's lock. */
void SetBinInputType(uint32_t binId, uint16_t inputType, PortContext* port) {
    StatusVariable* row = GetVariable("PrinterBinConfig", port->variables, port, 0);
    if (row == nullptr || row->Value == nullptr) return;
    auto* value = static_cast<uint8_t*>(row->Value);
    uint32_t count = 0;
    std::memcpy(&count, value, sizeof count);
    for (uint32_t i = 0; i < count; ++i) {
        uint8_t* entry = value + 4 + BinEntryBytes * i;
        uint16_t id = 0;
        uint16_t type = 0;
        std::memcpy(&id, entry, 2);
        if (id != binId) continue;
        std::memcpy(&type, entry + 2, 2);
        if (type != inputType) {
            std::memcpy(entry + 2, &inputType, 2);
            row->Dirty = 1;
        }
        return;
    }
}

// A TAB line of the OUT TRAYS entry that names the second output tray.
bool NamesSecondOutTray(const char* line) {
    constexpr std::size_t Length = 8;
    return line[0] == '\t' && StartsWith(line + 1, "OUTTRAY2") &&
           std::strchr("\r\n ", line[1 + Length]) != nullptr;
}

}  // namespace

constexpr KeyRow InfoConfigKeys[8] = {
    {"INTRAY", ConfigTrayKeyHandler},
    {"DUPLEX", ConfigDuplexKeyHandler},
    {"OUT TRAYS", ConfigOutTraysKeyHandler},
    {"PAPER", SkipLineKeyHandler},
    {"LANGUAGES", SkipLineKeyHandler},
    {"USTATUS", SkipLineKeyHandler},
    {"MEMORY", SkipLineKeyHandler},
    {nullptr, nullptr},
};

/* InfoConfigHandler: the options a reply doesn't name are gone, so the
   first pass clears the duplex unit before the entries can name it again;
   continuations (LastResult 6) leave it. */
int InfoConfigHandler(const char* text, const char** cursor, PjlParserState* state,
                      PortContext* port) {
    if (state->LastResult == 5) {
        LockPort(port);
        RemoveOption(RetiredOption, RetiredOption, port);
        RemoveOption(DuplexOption, DuplexOption, port);
        UnlockPort(port);
    }
    return LenientScan(text, cursor, InfoConfigKeys, state, port);
}

/* ConfigTrayKeyHandler: "INTRAY", one digit, "TYPE=" and LARGE or NORMAL.
   Only the first digit is stepped over, so a tray number of two digits
   doesn't match; an entry without "=" has no value and counts as unknown. */
int ConfigTrayKeyHandler(const char* text, const char** cursor, PjlParserState*,
                         PortContext* port) {
    if (SkipEntry(text, cursor) == 0) return 0;
    const uint32_t tray = ParseDecimal(text);
    if (tray == 0 || !StartsWith(text + 1, "TYPE")) return 1;
    const void* equals = std::memchr(text, '=', static_cast<std::size_t>(*cursor - text));
    if (equals == nullptr) return 1;
    const char* value = static_cast<const char*>(equals) + 1;
    const uint16_t type = StartsWith(value, "LARGE")    ? LargeTray
                          : StartsWith(value, "NORMAL") ? NormalTray
                                                        : 0;
    if (type == 0) return 1;
    LockPort(port);
    SetBinInputType(tray, type, port);
    UnlockPort(port);
    return 1;
}

int ConfigDuplexKeyHandler(const char* text, const char** cursor, PjlParserState*,
                           PortContext* port) {
    if (SkipEntry(text, cursor) == 0) return 0;
    LockPort(port);
    AddOption(DuplexOption, DuplexOption, 0, port);
    UnlockPort(port);
    return 1;
}

/* ConfigOutTraysKeyHandler: the entry is the keyword line and one TAB line
   per output tray. Once it is complete it is taken, second tray or not, so
   that the entries behind it are still read. */
int ConfigOutTraysKeyHandler(const char* text, const char** cursor, PjlParserState*,
                             PortContext* port) {
    if (SkipEntry(text, cursor) == 0) return 0;
    for (const char* line = text; line < *cursor; line = std::strchr(line, '\n') + 1) {
        if (NamesSecondOutTray(line)) {
            LockPort(port);
            AddOption(SecondOutTrayOption, SecondOutTrayOption, 0, port);
            UnlockPort(port);
            break;
        }
    }
    return 1;
}

int InfoVariablesHandler(const char* text, const char** cursor, PjlParserState* state,
                         PortContext* port) {
    state->ParseFlags &= ~InquireForm;
    return LenientScan(text, cursor, OppVariableKeys, state, port);
}

/* InquireHandler: the reply names its variable behind "@PJL INQUIRE " and
   gives the value on the next line. It is read only once it is in hand as a
   whole; until then all of it waits. */
int InquireHandler(const char* text, const char** cursor, PjlParserState* state,
                   PortContext* port) {
    const char* feed = text;
    if (SkipToFormFeed(text, &feed, state) == 0) {
        state->SkippingToFormFeed = 0;
        *cursor = text;
        return 6;
    }
    // Without an LF ahead of the form feed the reply has no value line, and
    // whatever follows the form feed belongs to another response.
    if (std::memchr(text, '\n', static_cast<std::size_t>(feed - text)) != nullptr) {
        state->ParseFlags |= InquireForm;
        // Every row is tried against the text moved behind the keywords
        // found so far; the key order keeps POWERSAVETIME from the
        // POWERSAVE handler.
        const char* at = text;
        for (const KeyRow* row = OppVariableKeys; row->Keyword != nullptr; ++row) {
            if (!StartsWith(at, row->Keyword)) continue;
            at += std::strlen(row->Keyword);
            const char* unused = at;
            row->Handler(at, &unused, state, port);
        }
        state->ParseFlags &= ~InquireForm;
    }
    *cursor = feed;
    return 5;
}

/* PageCountHandler: one line and the form feed right behind it. The count
   is marked dirty even when it is the old one. */
int PageCountHandler(const char* text, const char** cursor, PjlParserState*, PortContext* port) {
    *cursor = text;
    const char* end = ValueLine(text);
    if (end != nullptr && *end == FormFeed) {
        const std::size_t length = static_cast<std::size_t>(end - text);
        const uint32_t pages = length > PageCountLead ? ParseDecimal(text + PageCountLead) : 0;
        LockPort(port);
        if (StatusVariable* row = GetVariable("PageCount", port->variables, port, 1);
            row != nullptr) {
            SetVariable(row, &pages);
            row->Dirty = 1;
        }
        UnlockPort(port);
        *cursor = end;
    }
    return **cursor == FormFeed ? 5 : 6;
}

/* ServiceTagHandler: the tag is the first seven bytes of the line. It goes
   to the variable only while a refresh asks for it. */
int ServiceTagHandler(const char* text, const char** cursor, PjlParserState*, PortContext* port) {
    *cursor = text;
    const char* end = ValueLine(text);
    if (end != nullptr) {
        // A short line gives a short tag; its CR LF isn't part of it.
        std::size_t length = 0;
        while (length < ServiceTagLength && text[length] != '\r' && text[length] != '\n') ++length;
        LockPort(port);
        std::memset(port->serviceTagText, 0, sizeof port->serviceTagText);
        std::memcpy(port->serviceTagText, text, length);
        if (port->serviceTagPublish != 0) {
            uint8_t value[ServiceTagBytes] = {};
            std::memcpy(value, port->serviceTagText, sizeof port->serviceTagText);
            UpdateVariable(GetVariable("ServiceTag", port->variables, port, 1), value);
        }
        UnlockPort(port);
        *cursor = end;
    }
    return **cursor == FormFeed ? 5 : 6;
}

}  // namespace langmon
