// The emulated printer's description, as a user writes it: the text of a
// state file (`key = value` lines), then the words after "emulator:" on the
// command line, then a change made to the running printer as `langmon status
// --at` makes one, the three separated by NUL. Whatever loads is then put to
// work: a printer made from it is asked for its device ID and, through a job
// that turns on every report and asks for every reply, for what it says back,
// before and after the change, with the pages printed on the virtual clock.
// A description that names a state file of its own ("state=FILE") is passed
// over: its file is not the fuzzer's to choose.

#include "fuzz_input.h"

#include "emulator/printer.h"
#include "emulator/printer_description.h"
#include "platform/clock.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

using namespace langmon;
using namespace langmon::emulator;

const std::string Uel = "\x1b%-12345X";
// Every report on, every reply asked for, one PostScript page in colour.
const std::string Job =
    Uel +
    "@PJL USTATUS DEVICE=ON\r\n@PJL USTATUS JOB=ON\r\n@PJL USTATUS PAGE=ON\r\n"
    "@PJL INFO STATUS\r\n@PJL INFO CONFIG\r\n@PJL INFO VARIABLES\r\n"
    "@PJL INFO PAGECOUNT\r\n@PJL INFO SERVICETAG\r\n@PJL INQUIRE COPIES\r\n"
    "@PJL INQUIRE PAPERTYPE\r\n@PJL JOB NAME=\"fuzz\"\r\n"
    "@PJL ENTER LANGUAGE=POSTSCRIPT\r\n%!PS-Adobe-3.0\n1 0 0 setrgbcolor showpage\n" +
    Uel + "@PJL EOJ NAME=\"fuzz\"\r\n" + Uel;

bool NamesAStateFile(std::string_view description) {
    while (true) {
        const std::size_t comma = description.find(',');
        std::string_view key = description.substr(0, description.substr(0, comma).find('='));
        while (!key.empty() && (key.front() == ' ' || key.front() == '\t')) key.remove_prefix(1);
        while (!key.empty() && (key.back() == ' ' || key.back() == '\t' || key.back() == '\r'))
            key.remove_suffix(1);
        if (key == "state") return true;
        if (comma == std::string_view::npos) return false;
        description.remove_prefix(comma + 1);
    }
}

[[noreturn]] void Fail(const std::string& what) {
    std::fprintf(stderr, "printer description: %s\n", what.c_str());
    std::abort();
}

// What the printer says: its device ID, when it answers, is fields closed by
// ';', and every reply it sends ends with a form feed.
void Check(Printer& printer) {
    if (const auto id = printer.DeviceId()) {
        if (!id->starts_with("MFG:") || !id->ends_with(";"))
            Fail("a device ID of another form: " + *id);
    }
    char reply[4096];
    std::string sent;
    for (std::size_t got; (got = printer.Read(reply, sizeof reply)) != 0;) sent.append(reply, got);
    if (!sent.empty() && sent.back() != '\f' && !sent.ends_with("\f\r\n"))
        Fail("a reply without its form feed");
}

// Long enough for the printer to warm up, take the job in and print its page.
void LetThePrinterWork(const PrinterState& state) {
    Sleep(InputIdleMs + state.warmUpMs + 2 * state.pageTimeMs + 1000);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool virtualClock = (platform::UseVirtualClock(), true);
    (void)virtualClock;
    fuzz::InputReader input(data, size);
    const std::string_view stateText = input.Text();
    const std::string_view description = input.Text();
    const std::string_view change = input.Rest();
    if (NamesAStateFile(description) || NamesAStateFile(change)) return 0;

    PrinterState state = PrinterState::Default();
    std::string problem = ReadPrinterStateText(stateText, "fuzz.txt", state);
    if (!problem.empty()) {
        if (!problem.starts_with("fuzz.txt:")) Fail("a problem that names no line: " + problem);
        return 0;
    }
    if (!ApplyPrinterDescription(description, state).empty()) return 0;

    Printer printer(state);
    Check(printer);
    printer.StartDocument();
    printer.Write(Job);
    printer.EndDocument();
    LetThePrinterWork(state);
    Check(printer);
    printer.Change([&](PrinterState& now) { ApplyPrinterDescription(change, now); });
    LetThePrinterWork(printer.State());
    Check(printer);
    return 0;
}
