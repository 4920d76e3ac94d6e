// The langmon command.

#include "decode_command.h"
#include "interruption.h"
#include "print_command.h"
#include "status_command.h"

#include <iostream>
#include <string>
#include <vector>

namespace {

constexpr const char* Usage =
    "usage: langmon print FILE [--printer PRINTER] [--port NAME] [--printer-name NAME]\n"
    "                          [--document NAME] [--block-size BYTES]\n"
    "  Sends FILE as one job through the language monitor, the way the spooler\n"
    "  does, and reports each call, what the printer received and, for the\n"
    "  emulated printer, what it printed and said back.\n"
    "  PRINTER is emulator (the default: an emulated Laser Printer 6200tx),\n"
    "  emulator:DESCRIPTION (its state and faults, e.g. emulator:jam or\n"
    "  emulator:model=Laser Printer 6300tx,toner.cyan=4,state=FILE; see the\n"
    "  README), or file:PATH (the bytes go to a file).\n"
    "  The machine the monitor sees is described by the file that the\n"
    "  environment variable LANGMON_REGISTRY names (see the README).\n"
    "\n"
    "usage: langmon status [--printer PRINTER] [--port NAME] [--printer-name NAME] [--json]\n"
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
    "usage: langmon decode DEVICE_ID [--json]\n"
    "  Shows what the monitor makes of a printer's IEEE 1284 device ID: the\n"
    "  status variables one poll gives it and the LM_ values. DEVICE_ID is the\n"
    "  text, quoted, or - to read it from standard input, e.g.\n"
    "    langmon decode - < /sys/class/usbmisc/lp0/device/ieee1284_id\n";

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    if (words.empty() || words[0] == "help" || words[0] == "--help" || words[0] == "-h") {
        std::cout << Usage;
        return words.empty() ? 2 : 0;
    }
    if (words[0] == "print") {
        langmon::tool::PrintOptions options;
        std::string error;
        if (!langmon::tool::ParsePrintOptions({words.begin() + 1, words.end()}, &options,
                                              &error)) {
            std::cerr << "langmon print: " << error << '\n' << Usage;
            return 2;
        }
        return langmon::tool::RunPrint(options, std::cout);
    }
    if (words[0] == "status") {
        langmon::tool::StatusOptions options;
        std::string error;
        if (!langmon::tool::ParseStatusOptions({words.begin() + 1, words.end()}, &options, &error)) {
            std::cerr << "langmon status: " << error << '\n' << Usage;
            return 2;
        }
        // Ctrl-C ends a watch the way it should end: polling stopped, the
        // port closed.
        langmon::tool::CatchInterruptions();
        return langmon::tool::RunStatus(options, std::cout, langmon::tool::Interrupted());
    }
    if (words[0] == "decode") {
        langmon::tool::DecodeOptions options;
        std::string error;
        if (!langmon::tool::ParseDecodeOptions({words.begin() + 1, words.end()}, &options, &error)) {
            std::cerr << "langmon decode: " << error << '\n' << Usage;
            return 2;
        }
        return langmon::tool::RunDecode(options, std::cout, std::cerr);
    }
    std::cerr << "langmon: unknown command " << words[0] << '\n' << Usage;
    return 2;
}
