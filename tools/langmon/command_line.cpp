#include "command_line.h"

#include "decode_command.h"
#include "interruption.h"
#include "print_command.h"
#include "status_command.h"

#include "platform/machine_description.h"
#include "platform/user_input.h"

#include <iostream>
#include <ostream>
#include <unistd.h>

namespace langmon::tool {

namespace {

constexpr const char* Usage =
    "usage: langmon print FILE [--printer PRINTER] [--port NAME] [--printer-name NAME]\n"
    "                          [--document NAME] [--block-size BYTES] [--json] [--variables]\n"
    "  Sends FILE as one job through the language monitor, the way the spooler\n"
    "  does, and reports each call, what the printer received and, for the\n"
    "  emulated printer, what it printed and said back.\n"
    "  PRINTER is emulator (the default: an emulated Laser Printer 6200tx),\n"
    "  emulator:DESCRIPTION (its state and faults, e.g. emulator:jam or\n"
    "  emulator:model=Laser Printer 6300tx,toner.cyan=4,state=FILE; see the\n"
    "  README), or file:PATH (the bytes go to a file).\n"
    "  --json writes one JSON document at the end in place of the report, and\n"
    "  --variables adds every variable a status client holds, in hex; the same\n"
    "  two options go with status and decode (docs/json.md describes the JSON).\n"
    "  The machine the monitor sees is described by the file that the\n"
    "  environment variable LANGMON_REGISTRY names (see the README).\n"
    "\n"
    "usage: langmon status [--printer PRINTER] [--port NAME] [--printer-name NAME] [--json] [--variables]\n"
    "                      [--watch [--for SECONDS] [--at SECONDS:CHANGE]...]\n"
    "  Shows the printer on the port as a status application sees it: bound\n"
    "  to its store in the status manager library, it asks the monitor for\n"
    "  fresh values. PRINTER, the port and the name are as for print; without\n"
    "  a printer of the machine on the port, the command adds a queue for the\n"
    "  emulated printer's model. --watch shows each change until interrupted\n"
    "  (Ctrl-C) or for SECONDS; --at changes the emulated printer at a moment\n"
    "  (e.g. --at 5:cover-open --at 9:covers=none) or sends a job\n"
    "  (--at 12:print=FILE).\n"
    "\n"
    "usage: langmon decode DEVICE_ID [--json] [--variables]\n"
    "  Shows what the monitor makes of a printer's IEEE 1284 device ID: the\n"
    "  status variables one poll gives it and the LM_ values. DEVICE_ID is the\n"
    "  text, quoted, or - to read it from standard input, e.g.\n"
    "    langmon decode - < /sys/class/usbmisc/lp0/device/ieee1284_id\n";

// A refused description leaves the monitor an empty machine, where the
// command would find none of the described printers: it does not run. What
// is wrong, with the file's line, is on standard error already, from the load.
bool MachineDescribed(const std::string& command, std::ostream& err) {
    platform::LoadMachineFromEnvironmentOnce();
    if (platform::MachineDescriptionProblem().empty()) return true;
    err << "langmon " << command << ": not run: the machine description that LANGMON_REGISTRY names is refused\n";
    return false;
}

// A wrong command line: what is wrong, then how the command is used.
int Refuse(const std::string& command, const std::string& error, std::ostream& err) {
    err << "langmon " << command << ": " << platform::Printable(error) << '\n' << Usage;
    return 2;
}

}  // namespace

int RunCommandLine(const std::vector<std::string>& words, std::ostream& out, std::ostream& err,
                   const std::atomic<bool>& interrupted) {
    if (words.empty() || words[0] == "help" || words[0] == "--help" || words[0] == "-h") {
        (words.empty() ? err : out) << Usage;
        return words.empty() ? 2 : 0;
    }
    const std::string& command = words[0];
    const std::vector<std::string> rest(words.begin() + 1, words.end());
    std::string error;
    if (command == "print") {
        PrintOptions options;
        if (!ParsePrintOptions(rest, &options, &error)) return Refuse(command, error, err);
        // Only the process's own output may be a terminal, and only the
        // process can leave a port behind at once.
        if (&out == &std::cout) {
            options.terminal = ::isatty(STDOUT_FILENO) != 0;
            options.leaveStoppedPort = LeaveAtOnce;
        }
        if (!MachineDescribed(command, err)) return 2;
        return RunPrint(options, out, err, interrupted);
    }
    if (command == "status") {
        StatusOptions options;
        if (!ParseStatusOptions(rest, &options, &error)) return Refuse(command, error, err);
        if (!MachineDescribed(command, err)) return 2;
        return RunStatus(options, out, err, interrupted);
    }
    if (command == "decode") {
        DecodeOptions options;
        if (!ParseDecodeOptions(rest, &options, &error)) return Refuse(command, error, err);
        if (!MachineDescribed(command, err)) return 2;
        return RunDecode(options, out, err);
    }
    err << "langmon: unknown command " << platform::Printable(command) << '\n' << Usage;
    return 2;
}

}  // namespace langmon::tool
