// Writes the seed corpora of the fuzz targets, one folder each under the
// folder given: what the emulated printer says in the states it knows (its
// replies, its reports of a job, its device IDs), the awkward texts a real
// printer has been seen to send, machine and printer descriptions (the
// sample ones among them), and the calls of status applications, clients of
// the status manager and jobs that a target makes from its input. The seeds
// are made fresh on every run, so they follow the emulator and the samples.
//
//   make_seeds SEEDS_DIR EXAMPLES_DIR

#include "fuzz_monitor.h"

#include "emulator/panel_settings.h"
#include "emulator/pjl_replies.h"
#include "emulator/printer_condition.h"
#include "emulator/printer_state.h"
#include "emulator/status_block.h"

#include "daemon/status_protocol.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
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


const std::string Uel = "\x1b%-12345X";

std::string ReadText(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// The sample machine cut at its comment rules, a section a seed, and small
// machines that use each form of the format.
std::vector<Seed> MachineTexts(const std::string& sample) {
    std::vector<Seed> seeds;
    std::istringstream lines(sample);
    std::string line;
    std::string section;
    int sections = 0;
    const auto flush = [&] {
        if (section.find('[') != std::string::npos) {
            seeds.push_back({"sample-" + std::to_string(++sections) + ".reg", "REGEDIT4\r\n" + section});
        }
        section.clear();
    };
    while (std::getline(lines, line)) {
        if (line.starts_with("; ----")) flush();
        if (line != "REGEDIT4") section += line + "\n";
    }
    flush();
    seeds.push_back({"forms.reg",
                     "\xEF\xBB\xBFREGEDIT4\r\n\r\n; every form of value\r\n"
                     "[HKEY_LOCAL_MACHINE\\Software\\langmon]\r\n"
                     "\"VersionCSD\"=\"a \\\"quoted\\\" \\\\ text\"\r\n"
                     "@=\"default\"\r\n"
                     "\"KeyboardType\" = dword:1f\r\n"
                     "\"Bytes\"=hex:01,02,ff\r\n"
                     "\"Multi\"=hex(7):41,00,42,00,\\\r\n  00,00\r\n"
                     "\"Empty\"=hex:\r\n"
                     "[HKEY_DYN_DATA\\Config Manager\\Enum\\C29A1F50]\r\n"
                     "\"HardWareKey\"=\"BIOS\\\\*PNP0400\\\\0D\"\r\n"});
    seeds.push_back({"shift-jis.reg",
                     "REGEDIT4\n[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\control\\Print\\Monitors\\"
                     "Local Port\\Ports\\LPT1]\n"
                     "\"Description\"=\"ECP \x83\x76\x83\x8A\x83\x93\x83\x5E \x83\x7C\x81\x5B\x83\x67\"\n"});
    seeds.push_back({"same-names.reg",
                     "REGEDIT4\n[HKEY_LOCAL_MACHINE\\A\\b]\n\"x\"=\"1\"\n[HKEY_LOCAL_MACHINE\\a\\B\\c]\n\"X\"=dword:2\n"
                     "[HKEY_LOCAL_MACHINE]\n\"\"=hex(0):\n"});
    seeds.push_back({"refused.reg", "REGEDIT4\n[-HKEY_LOCAL_MACHINE\\A]\n\"x\"=-\n"});
    return seeds;
}

// Printer descriptions: a state file's text, the words after "emulator:" and
// a change, separated by NUL.
std::vector<Seed> PrinterDescriptions(const std::string& sample) {
    const auto seed = [](std::string name, std::string state, std::string words, std::string change) {
        return Seed{std::move(name), state + '\0' + words + '\0' + change};
    };
    std::vector<Seed> seeds;
    seeds.push_back(seed("sample", sample, "", "cover-open"));
    seeds.push_back(seed("sample-and-words", sample, "jam,toner.cyan=4,tray.mp.sheets=0", "jam=none,covers=none"));
    const char* words[] = {"silent", "one-byte", "small-reads", "garbage", "crlf-after-form-feed", "cover-open", "jam",
                           "paper-out", "toner-low", "toner-empty", "out-of-memory", "operator-attention",
                           "hardware-failure", "warming-up", "power-off", "foreign"};
    for (const char* word : words) seeds.push_back(seed(std::string("word-") + word, "", word, "power=on"));
    seeds.push_back(seed("every-key",
                         "model = Laser Printer 6300tx\nmanufacturer = Quor\ncommands = PJL,NPDL\n"
                         "toner.magenta = unknown\ntoner.yellow.fitted = no\ntoner.black.fault = yes\n"
                         "unit = 2\nunit.fault = no\nwaste = near-empty\nperiodic-change = yes\n"
                         "tray.1.kind = universal\ntray.1.capacity = 500\ntray.1.sheets = 40\ntray.1.size = 31\n"
                         "tray.2.kind = large\ntray.2.type = envelope\nfeed = 2\ncovers = front, toner, cassette\n"
                         "jam = 0,5,7,20\noptions = duplex,ramdisk,outtray2,option7001,option3001\nmemory = 8160\n"
                         "hardware-error = 0x0001002A\noperator-attention = no\nout-of-memory = no\npower = on\n"
                         "panel = Ready|Cyan low\nservice-tag = 3MW8QZ1\npage-count = 4294967295\n"
                         "page-time = 0\nwarm-up-time = 500\ncolor = mono\ncoverage = 100 0 0 100\n"
                         "mono-coverage = 100\nsetting.COPIES = 999\nsetting.PAPERTYPE = SHEAVY\nsilent = no\n"
                         "write-limit = 7\nread-piece = 3\ngarbage = yes\ncrlf-after-form-feed = yes\n",
                         "", "tray.2.sheets=0,feed=2"));
    seeds.push_back(seed("bad-line", "toner.cyan = 200\n", "", ""));
    return seeds;
}

// Requests of a status application: a byte for the printer and the port,
// then records of an operation, its flags and a text (see printer_data_fuzz).
std::vector<Seed> PrinterDataRequests() {
    const auto request = [](uint8_t operation, uint8_t flags, const std::string& text) {
        return std::string{static_cast<char>(operation), static_cast<char>(flags)} + text + '\0';
    };
    constexpr uint8_t Size4 = 4, Size2 = 2, Size0 = 0, Size32 = 11, Size1024 = 14;
    const std::string refresh = request(7, 0, "PrinterDisplay;ServiceTag;TonerRemain;OppPaperType") +
                                request(0, Size4, std::string("Refresh:") + langmon::fuzz::PrinterName);
    const std::string job = "%!PS-Adobe-3.0\n0 setgray showpage\n%%EOF\n";
    const std::vector<std::pair<std::string, std::string>> records = {
        {"four-byte", request(0, Size4, "IsWakeup") + request(0, Size4, "Wake Up") + request(0, Size2, "Wake Up") +
                          request(0, Size4, "Stop Polling") + request(0, Size4, "Suspend")},
        {"wake-suspend",
         request(0, Size4, "Wake Up") + request(0, Size4, "Suspend") + request(0, Size4, "Stop Polling")},
        {"lm-values", request(0, Size0, "LM_SysName") + request(0, Size32, "LM_SysName") +
                          request(0, Size4, "LM_MemorySizeInMByte") + request(0, Size1024, "LM_InputTray") +
                          request(0, Size4, "LM_InputTray_2_MediaSize") + request(0, Size4, "LM_InputTray9")},
        {"service-tag", request(0, Size32, "LM_ServiceTag") + request(0, Size4, "LM_ServiceTagStatus") +
                            request(0, 8, "LM_ServiceTagX")},
        {"refresh", refresh},
        {"job", request(7, 1, job) + request(0, Size4, "Refresh:Fuzz Printer") + request(4, Size4, "") +
                    request(0, Size32, "LM_ServiceTag") + request(7, 1, "")},
        {"control", request(5, Size1024, "") + request(6, 0, "") + request(6, 0x16, "")},
    };
    std::vector<Seed> seeds;
    for (const uint8_t setting : {0x00, 0x08, 0x02, 0x03}) {
        for (const auto& [name, text] : records) {
            seeds.push_back({name + "-" + std::to_string(setting), std::string(1, static_cast<char>(setting)) + text});
        }
    }
    return seeds;
}

// Calls of a status manager's client (see status_manager_fuzz).
std::vector<Seed> ManagerCalls() {
    const auto call = [](uint8_t operation, uint8_t flags, const std::string& text) {
        return std::string{static_cast<char>(operation), static_cast<char>(flags)} + text + '\0';
    };
    const std::string open = call(0, 0, "Quor CL6200") + call(0, 1, "Quor CL6200");
    return {
        {"write-read", open + call(3, 0, "RefreshStatus=PrinterDisplay;ServiceTag") +
                           call(2, 1 | (10 << 3), "RefreshStatus") + call(2, 1 | (2 << 3), "PrinterName") +
                           call(2, 0, "Port")},
        {"events", open + call(4, 0, "RefreshStatus;PrinterStatus") + call(3, 1, "RefreshStatus=x") +
                       call(3, 1, "PrinterStatus=y") + call(5, 0, "") + call(3, 1, "RefreshStatus=z") + call(1, 0, "")},
        {"callbacks", open + call(6, 0, "TonerRemain") + call(3, 1, "TonerRemain=1") + call(7, 1, "") + call(7, 0, "")},
        {"sizes", open + call(3, 1 << 3, "Big") + call(3, 2 << 3, "TooBig") + call(3, 3 << 3, "None") +
                      call(3, 4 << 3, "Wrong") + call(2, 0x80, "None")},
        {"wrong", call(1, 4, "") + call(2, 4, "Port") + call(0, 0x80, "x") + call(0, 0, "") + call(4, 0x40, "a;b")},
    };
}

// Jobs: the block selector, the port, then the job's bytes (see job_start_fuzz).
std::vector<Seed> Jobs() {
    const std::string postScript = "%!PS-Adobe-3.0\n%%Pages: 1\n0 setgray (page) show showpage\n%%EOF\n";
    const std::vector<std::pair<std::string, std::string>> starts = {
        {"postscript", postScript},
        {"pjl-job", Uel + "@PJL JOB NAME=\"own\"\r\n@PJL ENTER LANGUAGE=POSTSCRIPT\r\n" + postScript + Uel +
                        "@PJL EOJ NAME=\"own\"\r\n" + Uel},
        {"pjl-enter-first", Uel + "@PJL ENTER LANGUAGE=POSTSCRIPT\r\n@PJL JOB\r\n" + postScript},
        {"uel-short", Uel + "@PJL JOB\n"},
        {"text", "A letter.\r\nIn plain text, on two lines.\f"},
        {"empty", ""},
    };
    std::vector<Seed> seeds;
    for (const auto& [name, job] : starts) {
        for (const uint8_t port : {0, 1, 2}) {
            for (const uint8_t selector : {255, 15, 18}) {
                seeds.push_back({name + "-" + std::to_string(port) + "-" + std::to_string(selector),
                                 std::string{static_cast<char>(selector), static_cast<char>(port)} + job});
            }
        }
    }
    return seeds;
}

// Conversations on the control socket (see protocol_fuzz): a byte for the
// size of the pieces the stream arrives in, then the frames, each side's in
// one stream, and the streams a broken or hostile peer sends.
std::vector<Seed> ProtocolStreams() {
    namespace protocol = langmon::protocol;
    const std::vector<protocol::Request> requests = {
        protocol::HelloRequest{1, protocol::Version, "status application"},
        protocol::PrintersRequest{2},
        protocol::StatusRequest{3, "Quor CL6200"},
        protocol::OpenRequest{4, "Quor CL6200"},
        protocol::GetRequest{5, 1, "PrinterStatus"},
        protocol::SetRequest{6, 1, "RefreshStatus", {'P', 'r', 'i', 'n', 't', 'e', 'r', 'D', 'i', 's', 'p', 'l', 'a', 'y'}},
        protocol::WatchRequest{7, 1, {"PrinterStatus", "PrinterDisplay", "TonerRemain"}},
        protocol::UnwatchRequest{8, 1, 1},
        protocol::CloseRequest{9, 1},
    };
    const std::vector<protocol::DaemonMessage> replies = {
        protocol::HelloReply{1, protocol::Version, "langmond 0.1", 2},
        protocol::PrintersReply{2, {{"Quor CL6200", "langmon://127.0.0.1:9100", "IP_127.0.0.1", "ready", "Ready"}}, 40},
        protocol::StatusReply{3, nlohmann::json::parse(R"({"state":"jam","toner":{"black":40,"cyan":5},"jams":[0,5]})")},
        protocol::OpenedReply{4, 1},
        protocol::ValueReply{5, {0x00, 0x10, 0x00, 0x01}},
        protocol::OkReply{6},
        protocol::WatchingReply{7, 1},
        protocol::ChangedEvent{1, 1, "PrinterStatus"},
        protocol::ErrorReply{8, protocol::ErrorCode::BadHandle, "no watch 1 on handle 1"},
        protocol::ErrorReply{std::nullopt, protocol::ErrorCode::TooBig, "a frame is at most 65536 bytes"},
    };
    std::string client, daemon;
    for (const protocol::Request& request : requests) client += protocol::EncodeFrame(protocol::ToJson(request));
    for (const protocol::DaemonMessage& reply : replies) daemon += protocol::EncodeFrame(protocol::ToJson(reply));
    const auto frame = [](const std::string& body) {
        const auto n = static_cast<uint32_t>(body.size());
        return std::string{static_cast<char>(n >> 24), static_cast<char>(n >> 16 & 0xFF),
                           static_cast<char>(n >> 8 & 0xFF), static_cast<char>(n & 0xFF)} + body;
    };
    const std::vector<std::pair<std::string, std::string>> streams = {
        {"client", client},
        {"daemon", daemon},
        {"not-json", frame(R"({"type":"hello","id":1,)")},
        {"not-object", frame(R"(["hello",1])")},
        {"zero-length", std::string(4, '\0') + client},
        {"too-big", std::string("\0\x01\0\x01", 4) + std::string(64, '{')},
        {"deep", frame(R"({"type":"status","id":3,"printer":)" + std::string(40, '[') + std::string(40, ']') + "}")},
    };
    std::vector<Seed> seeds;
    for (const auto& [name, stream] : streams) {
        for (const uint8_t piece : {0, 1, 7}) {
            seeds.push_back({name + "-" + std::to_string(piece), std::string(1, static_cast<char>(piece)) + stream});
        }
    }
    return seeds;
}

bool Write(const fs::path& dir, const Seed& seed) {
    std::ofstream file(dir / seed.name, std::ios::binary);
    file.write(seed.text.data(), static_cast<std::streamsize>(seed.text.size()));
    return static_cast<bool>(file);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: make_seeds SEEDS_DIR EXAMPLES_DIR\n");
        return 2;
    }
    const fs::path seeds = argv[1];
    const fs::path examples = argv[2];
    int written = 0;
    const auto writeAll = [&](const char* target, const std::vector<Seed>& all) {
        fs::create_directories(seeds / target);
        for (const Seed& seed : all) {
            if (!Write(seeds / target, seed)) return false;
            ++written;
        }
        return true;
    };
    // Each text in whole blocks and in blocks of 16 and of 3, so the fuzzer
    // starts from cuts inside lines, keywords and CR LF pairs. Not byte by
    // byte: the parser joins what is left of a response with each new block,
    // and single bytes make every input cost the square of its length.
    constexpr uint8_t Selectors[] = {255, 15, 2};
    std::vector<Seed> cuts;
    for (const Seed& seed : ParserTexts()) {
        for (const uint8_t selector : Selectors) {
            cuts.push_back({seed.name + "." + std::to_string(langmon::fuzz::BlockLengthFor(selector)),
                            std::string(1, static_cast<char>(selector)) + seed.text});
        }
    }
    const std::string machine = ReadText(examples / "machine.reg");
    const std::string printer = ReadText(examples / "printer.txt");
    if (machine.empty() || printer.empty()) {
        std::fprintf(stderr, "make_seeds: %s has no machine.reg or printer.txt\n", argv[2]);
        return 1;
    }
    if (!writeAll("response_parser", cuts) || !writeAll("device_id", DeviceIds()) ||
        !writeAll("machine_file", MachineTexts(machine)) ||
        !writeAll("printer_description", PrinterDescriptions(printer)) ||
        !writeAll("printer_data", PrinterDataRequests()) || !writeAll("status_manager", ManagerCalls()) ||
        !writeAll("job_start", Jobs()) || !writeAll("protocol", ProtocolStreams())) {
        return 1;
    }
    std::printf("%d seeds written\n", written);
    return 0;
}
