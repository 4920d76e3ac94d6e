// Writes the seed corpora of the two fuzz targets: what the emulated printer
// says in the states it knows (its replies, its reports of a job, its device
// IDs), and the awkward texts a real printer has been seen to send. The
// seeds are made fresh from the emulator on every run, so they follow it.
//
//   make_seeds PARSER_DIR DEVICE_ID_DIR

#include "fuzz_monitor.h"

#include "emulator/panel_settings.h"
#include "emulator/pjl_replies.h"
#include "emulator/printer_condition.h"
#include "emulator/printer_state.h"
#include "emulator/status_block.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace langmon::emulator;
namespace fs = std::filesystem;

struct Seed {
    std::string name;
    std::string text;
};

// The printer in each of the states a test or a person meets it in.
std::vector<std::pair<std::string, PrinterState>> PrinterStates() {
    std::vector<std::pair<std::string, PrinterState>> states;
    const auto add = [&](std::string name, auto change) {
        PrinterState state = PrinterState::Default();
        change(state);
        states.emplace_back(std::move(name), std::move(state));
    };
    add("ready", [](PrinterState&) {});
    add("cover-open", [](PrinterState& s) { s.openCovers = CoverFront | CoverToner; });
    add("jam", [](PrinterState& s) { s.jamPlaces = 0x41; });
    add("toner-low", [](PrinterState& s) { s.toners[0].level = 8; s.toners[3].level = 1; });
    add("toner-missing", [](PrinterState& s) { s.toners[2].fitted = false; s.unit.fault = true; });
    add("paper-out", [](PrinterState& s) { for (Tray& tray : s.trays) tray.sheets = 0; });
    add("hardware-error", [](PrinterState& s) { s.hardwareError = 41; });
    add("options", [](PrinterState& s) {
        s.duplex = s.option7001 = s.option3001 = s.ramDisk = s.outTray2 = true;
        s.memoryMB = 512;
        s.trays[2].kind = TrayKind::Large;
        s.trays[2].capacity = 2000;
        s.trays[2].sheets = 1500;
    });
    add("6300", [](PrinterState& s) { s.model = Model6300; });
    add("panel-utf8", [](PrinterState& s) {
        s.panelOverride = std::array<std::string, 2>{"Bereit \xc3\xa4\xc3\xb6\xc3\xbc", "\xe2\x82\xac 10 Seiten"};
    });
    return states;
}

std::vector<Seed> ParserTexts() {
    std::vector<Seed> seeds;
    for (const auto& [name, state] : PrinterStates()) {
        const PrinterCondition condition = EvaluateCondition(state, Activity::Idle);
        seeds.push_back({"ustatus-device-" + name, DeviceStatusResponse("USTATUS DEVICE", condition)});
        seeds.push_back({"info-status-" + name, DeviceStatusResponse("INFO STATUS", condition)});
        seeds.push_back({"info-config-" + name, ConfigResponse(state)});
    }
    const PrinterState state = PrinterState::Default();
    seeds.push_back({"info-variables", VariablesResponse(state)});
    seeds.push_back({"info-pagecount", PageCountResponse(state.pageCount)});
    seeds.push_back({"info-servicetag", ServiceTagResponse(state.serviceTag)});
    for (const PanelSetting& setting : PanelSettings()) {
        seeds.push_back({std::string("inquire-") + setting.name, InquireResponse(setting.name, state)});
    }
    seeds.push_back({"inquire-unknown", InquireResponse("NOSUCHSETTING", state)});

    // A job from its start to each of its ends, as one stream.
    PageFigures colour{1, 0, {6, 5, 4, 7}};
    PageFigures black{0, 1, {0, 0, 0, 5}};
    PageFigures whole{2, 1, {4, 3, 3, 6}};
    const std::string job = JobStartReport("MSJOB 7") + PageReport(1) + JobFiguresReport(colour) +
                            PageReport(2) + JobFiguresReport(black) + PageReport(3) + JobFiguresReport(colour);
    seeds.push_back({"job-ok", job + JobEndReport("MSJOB 7", 3, whole, JobResult::Ok)});
    seeds.push_back({"job-panel-cancel", job + JobEndReport("MSJOB 7", 3, whole, JobResult::CancelledAtPanel)});
    seeds.push_back({"job-host-cancel", job + JobEndReport("MSJOB 7", 3, whole, JobResult::CancelledByHost)});
    // Two jobs in the printer at once: the second starts before the first ends.
    seeds.push_back({"job-chain", JobStartReport("MSJOB 1") + PageReport(1) + JobStartReport("MSJOB 2") +
                                      JobEndReport("MSJOB 1", 1, colour, JobResult::Ok) + PageReport(1) +
                                      JobEndReport("MSJOB 2", 1, black, JobResult::Ok)});

    // What printers send that they shouldn't, or not all at once.
    seeds.push_back({"garbage-before", "\x01\x02xyz@PJL USTATUS PAGE\r\n1\r\n\f@PJL USTATUS PAGE\r\n2\r\n\f"});
    seeds.push_back({"crlf-after-formfeed", "@PJL USTATUS PAGE\r\n1\r\n\f\r\n@PJL USTATUS PAGE\r\n2\r\n\f\r\n"});
    seeds.push_back({"cut-off", "@PJL USTATUS JOB\r\nEND\r\nNAME=\"MSJOB 7\"\r\nPAGES=3"});
    seeds.push_back({"unknown-response", "@PJL ECHO hello\r\n\f@PJL USTATUS TIMED\r\nX=1\r\n\f"});
    seeds.push_back({"display-unclosed", "@PJL USTATUS DEVICE\r\nCODE=10001\r\nDISPLAY=\"Ready\r\nONLINE=TRUE\r\n\f"});
    seeds.push_back({"display-private-use", "@PJL INFO STATUS\r\nCODE=40021\r\nDISPLAY=\"\xee\x80\x81 Cover\xee\x80\x82\"\r\nONLINE=FALSE\r\n\f"});
    seeds.push_back({"intray-no-equals", "@PJL INFO CONFIG\r\nIN TRAYS [1 ENUMERATED]\r\n\tINTRAY1 TYPE\r\n\f"});
    seeds.push_back({"outtrays", "@PJL INFO CONFIG\r\nOUT TRAYS [2 ENUMERATED]\r\n\tOUTTRAY1\r\n\tOUTTRAY2\r\n\f"});
    seeds.push_back({"long-identifier", "@PJL USTATUS JOB\r\nSTART\r\nNAME=\"MSJOB 123456789012345678901234567890\"\r\n\f"});
    seeds.push_back({"empty-lines", "\f\f@PJL\r\n\f@PJL USTATUS JOB\r\n\r\n\r\n\f"});
    return seeds;
}

std::vector<Seed> DeviceIds() {
    std::vector<Seed> seeds;
    std::string everyState;
    for (const auto& [name, state] : PrinterStates()) {
        const std::string id = BuildDeviceId(state, EvaluateCondition(state, Activity::Idle));
        seeds.push_back({"device-id-" + name, id});
        seeds.push_back({"device-id-printing-" + name, BuildDeviceId(state, EvaluateCondition(state, Activity::Printing))});
        if (everyState.size() < 3 * 300) everyState += id + '\0';
    }
    // A printer that changes between polls.
    seeds.push_back({"device-id-changes", everyState});
    seeds.push_back({"device-id-foreign", "MFG:Other;CMD:PCL,PJL;MDL:Inkjet 12;CLS:PRINTER;"});
    seeds.push_back({"device-id-no-sts", "MFG:Quor;CMD:PJL,NPDL,NMPS-C;MDL:Laser Printer 6200tx;CLS:PRINTER;"});
    seeds.push_back({"device-id-short-sts", "MFG:Quor;CMD:PJL;MDL:Laser Printer 6200tx;STS:AAAPAQ;"});
    seeds.push_back({"device-id-bad-sts", "MFG:Quor;CMD:PJL;MDL:Laser Printer 6200tx;STS:!!!!PAQAAAAAABAJ/WiNLIzwjLSNkAwADUIKAggAAQQIAAQAAAAAAAAAA;"});
    seeds.push_back({"device-id-long-names", "MANUFACTURER:Quor;COMMAND SET:PJL;MODEL:Laser Printer 6200tx;"});
    return seeds;
}

bool Write(const fs::path& dir, const Seed& seed, const std::string& text) {
    std::ofstream file(dir / seed.name, std::ios::binary);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    return static_cast<bool>(file);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: make_seeds PARSER_DIR DEVICE_ID_DIR\n");
        return 2;
    }
    const fs::path parserDir = argv[1];
    const fs::path deviceIdDir = argv[2];
    fs::create_directories(parserDir);
    fs::create_directories(deviceIdDir);
    int written = 0;
    // Each text in whole blocks and in blocks of 16 and of 3, so the fuzzer
    // starts from cuts inside lines, keywords and CR LF pairs. Not byte by
    // byte: the parser joins what is left of a response with each new block,
    // and single bytes make every input cost the square of its length.
    constexpr uint8_t Selectors[] = {255, 15, 2};
    for (const Seed& seed : ParserTexts()) {
        for (const uint8_t selector : Selectors) {
            Seed cut{seed.name + "." + std::to_string(langmon::fuzz::BlockLengthFor(selector)), ""};
            if (!Write(parserDir, cut, std::string(1, static_cast<char>(selector)) + seed.text)) return 1;
            ++written;
        }
    }
    for (const Seed& seed : DeviceIds()) {
        if (!Write(deviceIdDir, seed, seed.text)) return 1;
        ++written;
    }
    std::printf("%d seeds written\n", written);
    return 0;
}
