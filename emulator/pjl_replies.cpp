#include "emulator/pjl_replies.h"

#include "emulator/panel_settings.h"

namespace langmon::emulator {
namespace {

constexpr std::string_view End = "\r\n";
constexpr char FormFeed = '\f';

std::string Line(std::string_view text) { return std::string(text) + std::string(End); }

std::string Number(uint64_t value) { return std::to_string(value); }

bool IsContinuationByte(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// Options of a response figures block, in the order the host reads them:
// COLORPAGE and COVERAGE ahead of BWPAGE, which closes the block.
std::string FiguresLines(const PageFigures& figures) {
    static constexpr const char* Colors[] = {"C", "M", "Y", "K"};
    std::string text = Line("COLORPAGE=" + Number(figures.colorPages));
    for (size_t i = 0; i < 4; ++i) {
        text += Line(std::string("COVERAGE ") + Colors[i] + "=" + Number(figures.coverage[i]));
    }
    return text + Line("BWPAGE=" + Number(figures.bwPages));
}

}  // namespace

size_t Utf8Length(std::string_view text) {
    size_t count = 0;
    for (char c : text) count += IsContinuationByte(c) ? 0 : 1;
    return count;
}

std::string_view Utf8Prefix(std::string_view text, size_t characters) {
    size_t count = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (!IsContinuationByte(text[i]) && count++ == characters) return text.substr(0, i);
    }
    return text;
}

std::string DeviceStatusResponse(std::string_view head, const PrinterCondition& condition) {
    std::string first(Utf8Prefix(condition.panel[0], 16));
    first.append(16 - Utf8Length(first), ' ');
    std::string display = first + std::string(Utf8Prefix(condition.panel[1], 16));
    for (char& c : display) {
        if (c == '"') c = '\'';  // the quotes delimit the value
    }
    return Line("@PJL " + std::string(head)) + Line("CODE=" + Number(condition.pjlCode)) +
           Line("DISPLAY=\"" + display + "\"") + Line(condition.online ? "ONLINE=TRUE" : "ONLINE=FALSE") +
           FormFeed;
}

std::string PageCountResponse(uint32_t pageCount) {
    return Line("@PJL INFO PAGECOUNT") + Line("PAGECOUNT=" + Number(pageCount)) + FormFeed;
}

std::string ServiceTagResponse(std::string_view serviceTag) {
    return Line("@PJL INFO SERVICETAG") + Line(serviceTag) + FormFeed;
}

std::string ConfigResponse(const PrinterState& state) {
    std::string text = Line("@PJL INFO CONFIG");
    int cassettes = 0;
    for (int slot = 1; slot < TraySlots; ++slot) cassettes += state.trays[slot].kind != TrayKind::None;
    text += Line("IN TRAYS [" + Number(cassettes) + " ENUMERATED]");
    for (int slot = 1; slot < TraySlots; ++slot) {
        if (state.trays[slot].kind != TrayKind::None) text += Line("\tINTRAY" + Number(slot));
    }
    for (int slot = 1; slot < TraySlots; ++slot) {
        TrayKind kind = state.trays[slot].kind;
        if (kind == TrayKind::None) continue;
        text += Line("INTRAY" + Number(slot) + "TYPE=" + (kind == TrayKind::Large ? "LARGE" : "NORMAL"));
    }
    if (state.duplex) text += Line("DUPLEX");
    text += Line(std::string("OUT TRAYS [") + (state.outTray2 ? "2" : "1") + " ENUMERATED]");
    text += Line("\tOUTTRAY1");
    if (state.outTray2) text += Line("\tOUTTRAY2");
    text += Line("PAPER SIZES [4 ENUMERATED]") + Line("\tA4") + Line("\tA3") + Line("\tLETTER") +
            Line("\tLEGAL");
    text += Line("LANGUAGES [2 ENUMERATED]") + Line("\tNPDL") + Line("\tNMPS-C");
    text += Line("USTATUS [3 ENUMERATED]") + Line("\tDEVICE") + Line("\tJOB") + Line("\tPAGE");
    text += Line("MEMORY=" + Number(uint64_t{state.memoryMB} * 1024 * 1024));
    return text + FormFeed;
}

std::string VariablesResponse(const PrinterState& state) {
    std::string text = Line("@PJL INFO VARIABLES");
    for (const PanelSetting& setting : PanelSettings()) {
        auto value = state.settings.find(setting.name);
        text += Line(std::string(setting.name) + "=" +
                     (value != state.settings.end() ? value->second : setting.defaultValue) + " [" +
                     Number(setting.choices.size()) + (setting.range ? " RANGE]" : " ENUMERATED]"));
        for (const char* choice : setting.choices) text += Line(std::string("\t") + choice);
    }
    return text + FormFeed;
}

std::string InquireResponse(std::string_view name, const PrinterState& state) {
    auto value = state.settings.find(std::string(name));
    return Line("@PJL INQUIRE " + std::string(name)) +
           Line(value != state.settings.end() ? value->second : "?") + FormFeed;
}

std::string JobStartReport(std::string_view name) {
    return Line("@PJL USTATUS JOB") + Line("START") + Line("NAME=\"" + std::string(name) + "\"") +
           FormFeed;
}

std::string JobFiguresReport(const PageFigures& figures) {
    return Line("@PJL USTATUS JOB") + FiguresLines(figures) + FormFeed;
}

std::string JobEndReport(std::string_view name, uint32_t pages, const PageFigures& figures,
                         JobResult result) {
    std::string text = Line("@PJL USTATUS JOB") + Line("END") + Line("NAME=\"" + std::string(name) + "\"") +
                       Line("PAGES=" + Number(pages)) + FiguresLines(figures);
    switch (result) {
        case JobResult::Ok: text += Line("RESULT=OK"); break;
        case JobResult::CancelledAtPanel: text += Line("CANCELED") + Line("RESULT=CANCELED"); break;
        // The printer's own spelling; hosts match it byte for byte.
        case JobResult::CancelledByHost: text += Line("RESULT=HOST_CALCELED"); break;
    }
    return text + FormFeed;
}

std::string PageReport(uint32_t pagesOfJob) {
    return Line("@PJL USTATUS PAGE") + Line(Number(pagesOfJob)) + FormFeed;
}

}  // namespace langmon::emulator
