#include "status_report.h"

#include "acquisition/device_id.h"
#include "acquisition/lm_values.h"
#include "acquisition/status_record.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "variables/derived.h"
#include "variables/status_variable.h"

#include <cstdio>
#include <cstring>
#include <ostream>
#include <string>
#include <string_view>

namespace langmon::tool {

namespace {

std::string Hex(const void* bytes, uint32_t size) {
    static constexpr char Digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * size);
    const auto* p = static_cast<const uint8_t*>(bytes);
    for (uint32_t i = 0; i < size; ++i) {
        text += Digits[p[i] >> 4];
        text += Digits[p[i] & 0xF];
    }
    return text;
}

std::string Hex32(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", value);
    return text;
}

const StatusVariable* Value(PortContext* port, const char* name) {
    const StatusVariable* row = FindVariable(name, port->variables, port);
    return row != nullptr && row->Value != nullptr ? row : nullptr;
}

uint32_t Word(const StatusVariable* row, uint32_t index = 0) {
    uint32_t value = 0;
    std::memcpy(&value, static_cast<const uint8_t*>(row->Value) + 4 * index, sizeof value);
    return value;
}

uint16_t Half(const uint8_t* at) {
    uint16_t value = 0;
    std::memcpy(&value, at, sizeof value);
    return value;
}

// A text value, at most the 64 bytes of its block.
std::string Text(const StatusVariable* row) {
    const char* text = static_cast<const char*>(row->Value);
    return std::string(text, strnlen(text, 64));
}

// What the monitor makes of the printer's status, by the words it shows.
struct StatusName {
    uint32_t Condition;
    const char* Name;
};
constexpr StatusName StatusNames[] = {
    {7, "hardware failure"},     {10, "a cover is open"},        {11, "a supply is empty"},
    {12, "a supply has failed"}, {13, "the drum unit has failed"}, {15, "a sensor has failed"},
    {16, "paper jam"},           {17, "a supply is nearly empty"}, {18, "paper problem"},
    {19, "paper size problem"},  {23, "out of memory"},            {26, "paper out"},
    {27, "the feeding tray is empty"}, {28, "operator attention"}, {30, "busy"},
    {31, "warming up"},          {33, "printing"},                 {38, "toner low"},
    {40, "idle (engine off)"},   {41, "ready"},
};

}  // namespace

std::string PrinterStatusText(uint32_t word1, uint32_t word2) {
    if ((word1 & 0x100) != 0) return "the printer does not answer";
    if ((word1 & 0x200) != 0) return "a printer of no known model";
    if ((word1 & 0x400) != 0) return "the port has no way back from the printer";
    if ((word1 & 0x800) != 0) return "not read yet";
    for (const StatusName& name : StatusNames) {
        const ConditionStatus status = StatusOfCondition(name.Condition);
        // A job on the port adds its bit to any of them.
        if (status.StatusWord1 == word1 && (status.StatusWord2 | 0x8u) == (word2 | 0x8u)) {
            // The icon a status display shows for it, which the status words
            // carry with them: IconState itself goes once it is published.
            const char* severity = status.IconState == 1 ? " (error)" : status.IconState == 2 ? " (warning)" : "";
            return std::string(name.Name) + severity;
        }
    }
    return word1 == 0 && (word2 & ~0x8u) == 0 ? "nothing to report" : "status words " + Hex32(word1) + " " + Hex32(word2);
}

namespace {

std::string Level(uint8_t level) {
    if (level == 254) return "unknown";
    if (level == 255) return "empty or failed";
    return std::to_string(level);
}

std::string TrayLevel(uint8_t level) {
    switch (level) {
        case 0: return "empty";
        case 253: return "some paper";
        case 254: return "full";
        case 255: return "unknown";
        default: return std::to_string(level);
    }
}

std::string Dimension(uint32_t tenths) {
    if (tenths == 0xFFFFFFFFu) return "?";
    char text[16];
    std::snprintf(text, sizeof text, "%u.%u", tenths / 10, tenths % 10);
    return text;
}

std::string TrayName(uint16_t binId) {
    switch (binId) {
        case 2001: return "multi-purpose tray";
        case 1: return "cassette 1";
        case 2: return "cassette 2";
        default: return "tray " + std::to_string(binId);
    }
}

void DescribeTrays(std::ostream& out, PortContext* port) {
    const StatusVariable* bins = Value(port, "PrinterBinConfig");
    if (bins == nullptr) return;
    const uint32_t count = Word(bins);
    const uint8_t* entry = static_cast<const uint8_t*>(bins->Value) + 4;
    out << "  trays        " << count << '\n';
    for (uint32_t i = 0; i < count && i < 3; ++i, entry += BinEntryBytes) {
        const LmTray& lm = port->lmBlock.LmTrays[i];
        out << "    " << TrayName(Half(entry)) << ": paper size " << Half(entry + 4);
        if (lm.MediaDimFeedDirChosen != 0 && lm.MediaDimFeedDirChosen != 0xFFFFFFFFu) {
            out << " (" << Dimension(lm.MediaDimXFeedDirChosen) << " x " << Dimension(lm.MediaDimFeedDirChosen)
                << " mm)";
        }
        out << ", media type " << unsigned{entry[7]} << ", " << TrayLevel(entry[6]) << '\n';
    }
}

void DescribeOptions(std::ostream& out, PortContext* port) {
    const StatusVariable* options = Value(port, "PrinterOptConfig");
    if (options == nullptr) return;
    const uint32_t count = Word(options);
    out << "  options     ";
    if (count == 0) out << " none";
    const uint8_t* entry = static_cast<const uint8_t*>(options->Value) + 4;
    for (uint32_t i = 0; i < count; ++i, entry += sizeof(OptionEntry)) {
        const uint16_t id = Half(entry);
        out << ' ' << (id == 1 ? "duplex" : id >= 8001 && id <= 8004 ? "toner" + std::to_string(id - 8000) : std::to_string(id));
    }
    out << '\n';
}

void DescribeLanguages(std::ostream& out, PortContext* port) {
    const StatusVariable* languages = Value(port, "EmulationInfo");
    if (languages == nullptr) return;
    out << "  languages   ";
    const uint32_t count = Word(languages);
    if (count == 0) out << " none known";
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t code = Word(languages, i + 1);
        const char* name = nullptr;
        for (const EmulationRow& row : EmulationTable) {
            if (row.EmulationCode == code) name = row.EmulationName;
        }
        out << ' ' << (name != nullptr ? name : std::to_string(code).c_str());
    }
    out << '\n';
}

}  // namespace

void DescribePrinterStatus(std::ostream& out, PortContext* port, bool listVariables) {
    LockPort(port);
    // The flag goes when monitoring ends; the model's mask stays with the
    // port until another printer is named.
    const bool known = HasPortFlag(port, PF_MODEL_KNOWN) || port->modelMask.low != 0 ||
                       port->modelMask.high != 0;
    out << "  printer      ";
    const StatusVariable* maker = Value(port, "PrinterManufacturer");
    const StatusVariable* model = Value(port, "PrinterModel");
    out << (maker != nullptr ? Text(maker) + " " : "") << (model != nullptr ? Text(model) : "(no model named)")
        << (known ? ", a known model" : ", no known model") << '\n';
    if (const StatusVariable* status = Value(port, "PrinterStatus")) {
        out << "  status       " << PrinterStatusText(Word(status, 1), Word(status, 2)) << '\n';
    }
    // Levels, trays and faults mean something only for a printer whose
    // status the monitor reads; otherwise they stand at "unknown".
    if (StatusReadable(port)) {
        if (const StatusVariable* toner = Value(port, "TonerRemain")) {
            const auto* levels = static_cast<const uint8_t*>(toner->Value);
            out << "  toner        " << Level(levels[0]) << ", " << Level(levels[1]) << ", " << Level(levels[2])
                << ", " << Level(levels[3]) << '\n';
        }
        if (const StatusVariable* unit = Value(port, "CRURemain")) {
            out << "  drum unit    " << Level(static_cast<const uint8_t*>(unit->Value)[0]) << '\n';
        }
        if (const StatusVariable* supplies = Value(port, "ErrSupplies"); supplies != nullptr && Word(supplies) != 0) {
            out << "  supplies     " << Hex32(Word(supplies)) << " (empty, near empty, low, faults by byte)\n";
        }
        DescribeTrays(out, port);
        if (const StatusVariable* covers = Value(port, "ErrCoverOpen")) {
            out << "  covers       " << (Word(covers) == 0 ? "closed" : "open: " + Hex32(Word(covers))) << '\n';
        }
        if (const StatusVariable* jams = Value(port, "ErrPaperJam")) {
            // All bits set is how an error variable says it doesn't know.
            const uint32_t places = Word(jams);
            out << "  jams         "
                << (places == 0 ? "none" : places == 0xFFFFFFFFu ? "unknown" : "at places " + Hex32(places)) << '\n';
        }
        DescribeOptions(out, port);
        if (const StatusVariable* memory = Value(port, "PrinterMemory")) {
            out << "  memory       " << Word(memory) / 1024 << " MB\n";
        }
    }
    DescribeLanguages(out, port);
    if (!listVariables) {
        UnlockPort(port);
        return;
    }
    out << "  variables\n";
    for (const StatusVariable* row = port->variables; row != nullptr && row->Name != nullptr; ++row) {
        if (row->Value == nullptr) continue;
        const std::size_t length = std::strlen(row->Name);
        out << "    " << row->Name << std::string(length < 20 ? 20 - length : 1, ' ') << Hex(row->Value, VariableSize(row)) << '\n';
    }
    UnlockPort(port);
}

void WritePrinterStatusJson(std::ostream& out, PortContext* port) {
    LockPort(port);
    out << "{\"model_known\": " << (HasPortFlag(port, PF_MODEL_KNOWN) ? "true" : "false")
        << ", \"model_mask\": [" << port->modelMask.low << ", " << port->modelMask.high << "], \"variables\": {";
    const char* separator = "";
    for (const StatusVariable* row = port->variables; row != nullptr && row->Name != nullptr; ++row) {
        if (row->Value == nullptr) continue;
        out << separator << '"' << row->Name << "\": {\"hex\": \"" << Hex(row->Value, VariableSize(row))
            << "\", \"dirty\": " << (row->Dirty != 0 ? 1 : 0) << '}';
        separator = ", ";
    }
    const LmBlock& lm = port->lmBlock;
    out << "}, \"lm\": {\"LM_SysName\": \"" << Hex(lm.LM_SysName, sizeof lm.LM_SysName) << '"'
        << ", \"LM_MemorySizeInKByte\": " << lm.LM_MemorySizeInKByte
        << ", \"LM_MemorySizeInMByte\": " << lm.LM_MemorySizeInMByte << ", \"LM_RamDisk\": " << lm.LM_RamDisk
        << ", \"LM_DuplexModule\": " << lm.LM_DuplexModule << ", \"LM_InputTray\": " << lm.LM_InputTray
        << ", \"LmTrays\": [";
    for (int i = 0; i < 3; ++i) {
        const LmTray& t = lm.LmTrays[i];
        const uint32_t fields[8] = {t.TrayIndex, t.InputType, t.TrayType, t.MediaType, t.MediaSize,
                                    t.MediaDimFeedDirChosen, t.MediaDimXFeedDirChosen, t.MediaDirection};
        out << (i == 0 ? "[" : ", [");
        for (int f = 0; f < 8; ++f) out << (f == 0 ? "" : ", ") << fields[f];
        out << ']';
    }
    out << "]}}\n";
    UnlockPort(port);
}

}  // namespace langmon::tool
