#include "command_help.h"

namespace langmon::tool {

namespace {

// --printer and its descriptions, the same for print and status.
constexpr const char* PrinterOptions =
    "  --printer PRINTER     where the port leads:\n"
    "                          emulator              an emulated Laser Printer\n"
    "                                                6200tx, ready (the default)\n"
    "                          emulator:DESCRIPTION  the emulated printer in the\n"
    "                                                state DESCRIPTION gives\n"
    "                          file:PATH             a file that takes the bytes\n"
    "                                                and never answers\n"
    "                          langmon:/dev/TTY[?baud=N]  a serial printer on a\n"
    "                                                tty (default 9600 baud), on\n"
    "                                                port COM1:\n"
    "                          langmon:/emulator[?DESCRIPTION]  as emulator:\n"
    "                          langmon://HOST[:PORT][?snmp=PORT][&community=NAME]\n"
    "                                                a network printer: the job by\n"
    "                                                raw TCP (port 9100), its\n"
    "                                                device ID by SNMP (161, public)\n"
    "                          langmon:/dev/usb/lpN  a USB printer (any path\n"
    "                                                whose file is lpN), on\n"
    "                                                port USB001\n"
    "                        (see docs/addresses.md)\n"
    "  --port NAME           the port (default LPT1:, COM1: for a serial\n"
    "                        printer, USB001 for a USB one); its name gives its\n"
    "                        kind:\n"
    "                        LPTn and other local names are two-way, COMn serial,\n"
    "                        USB001 to USB128 two-way if the machine describes\n"
    "                        them as USB ports\n"
    "  --printer-name NAME   the spooler's printer queue; by default the machine's\n"
    "                        queue on the port, or else \"langmon\", a queue of\n"
    "                        the command's own for the emulated, a USB or a\n"
    "                        network printer, of the model its device ID names\n";

constexpr const char* DescriptionHelp =
    "DESCRIPTION is a comma-separated list of KEY=VALUE settings and fault words;\n"
    "later ones win. A list value (covers, jam, options, commands) goes on over\n"
    "the commas up to the next setting or fault word:\n"
    "  model=Laser Printer 6300tx   toner.cyan=4   tray.1.sheets=0   memory=256\n"
    "  covers=front,top   jam=3   options=duplex,ramdisk   power=off\n"
    "  state=FILE         a file of KEY = VALUE lines, read in its place\n"
    "Fault words: cover-open, jam, paper-out, toner-low, toner-empty, silent,\n"
    "one-byte, small-reads, garbage, crlf-after-form-feed, out-of-memory,\n"
    "operator-attention, hardware-failure, warming-up, power-off, foreign.\n"
    "docs/printer-description.md lists every key.\n";

constexpr const char* MachineHelp =
    "The machine the monitor sees (its printers, drivers and ports) is described\n"
    "by the file that the environment variable LANGMON_REGISTRY names; without\n"
    "it the machine has no printers.\n";

constexpr const char* PrintHelp =
    "usage: langmon print FILE [OPTION]...\n"
    "\n"
    "Sends FILE as one job through the language monitor, the way the spooler\n"
    "does (OpenPortEx, StartDocPort, WritePort block by block, EndDocPort,\n"
    "ClosePort), and reports, in the order it happened, each call, what was\n"
    "sent, what the printer said, what its status client saw and what the\n"
    "spooler was told. Without a queue of the machine on the port, the\n"
    "emulated printer gets one of its own, \"langmon\". A printer that stops\n"
    "with the job (a jam, an open cover, no paper, no answer) has it given up\n"
    "after 10 s. FILE is read as it is sent: a pipe or a device will do.\n"
    "A printer that langmond serves (--printer NAME, its name there, or its\n"
    "address) gets the job through the daemon, which holds its port.\n"
    "\n"
    "Options:\n";

constexpr const char* PrintOptions =
    "  --document NAME       the job's document name (default: FILE)\n"
    "  --block-size BYTES    bytes a WritePort call is given, 1 to 16777216\n"
    "                        (default 4096)\n"
    "  --variables           also every variable the client holds, in hex, and\n"
    "                        the device ID as the monitor's last poll read it\n"
    "  --json                one JSON document at the end in place of the\n"
    "                        report (see docs/json.md)\n"
    "  -h, --help            show this help\n"
    "An option's value may also follow an '=': --port=COM1.\n"
    "\n";

constexpr const char* PrintEnd =
    "\n"
    "Exit status: 0 the job went through; 1 FILE could not be read, a call\n"
    "failed or the printer took nothing for 60 seconds; 2 a wrong command line\n"
    "or a refused printer or machine description; 3 the printer stopped with\n"
    "the job (a jam, an open cover, no paper, no answer) for 10 seconds; 130\n"
    "(SIGINT) or 143 (SIGTERM) interrupted: the job is ended where it is.\n"
    "\n"
    "Examples:\n"
    "  LANGMON_REGISTRY=machine.reg langmon print brochure.ps\n"
    "  langmon print letter.txt --printer emulator:covers=front,top,toner.cyan=4\n";

constexpr const char* StatusHelp =
    "usage: langmon status [OPTION]...\n"
    "       langmon status NAME [--socket PATH] [--json] [--variables] [--watch]\n"
    "\n"
    "Shows the printer on the port as a status application sees it: bound to\n"
    "the printer's store in the status manager library, it asks the monitor\n"
    "for fresh values and shows state, panel, toner, trays, covers, jams,\n"
    "options, memory and the job in progress. Without a queue of the machine on\n"
    "the port, the command adds one of its own, \"langmon\", while it runs.\n"
    "\n"
    "With NAME, shows the printer of that name that langmond serves, the same\n"
    "way, from the store the daemon keeps fresh: the command runs no monitor\n"
    "and opens no port of its own.\n"
    "\n"
    "Options:\n";

constexpr const char* StatusOptions =
    "  --json                the view as one JSON object on one line; with\n"
    "                        --watch, one more object a change\n"
    "  --variables           also every variable the client holds, in hex\n"
    "  --watch               keep the monitor polling and show each change as\n"
    "                        it comes, until Ctrl-C\n"
    "  --for SECONDS         with --watch: stop after SECONDS (at most 86400)\n"
    "  --socket PATH         with NAME: the daemon's control socket (default:\n"
    "                        LANGMON_SOCKET, or /run/langmon/langmond.sock)\n"
    "  --at SECONDS:CHANGE   with --watch, as often as needed: at SECONDS into\n"
    "                        the watch, change the emulated printer (CHANGE as\n"
    "                        in a DESCRIPTION, or power-off, power-on) or send a\n"
    "                        job through the port (print=FILE)\n"
    "  -h, --help            show this help\n"
    "An option's value may also follow an '=': --for=30.\n"
    "\n";

constexpr const char* StatusEnd =
    "\n"
    "Exit status: 0 the printer was shown (a watch ended by --for or Ctrl-C\n"
    "included); 1 the port could not be opened or the printer has no status\n"
    "client (no queue of that name, or a driver that is not a known model with\n"
    "a status key), or, with NAME, no daemon answers, it serves no such\n"
    "printer or it went away; 2 a wrong command line or a refused printer or\n"
    "machine description; 130 (SIGINT) or 143 (SIGTERM) interrupted again\n"
    "while the port waited for the printer to end a job.\n"
    "\n"
    "Examples:\n"
    "  LANGMON_REGISTRY=machine.reg langmon status --json\n"
    "  langmon status --watch --for 20 --at 2:covers=front,top --at 9:covers=none\n"
    "  langmon status office --watch\n";

constexpr const char* DecodeHelp =
    "usage: langmon decode DEVICE_ID [--json] [--variables]\n"
    "\n"
    "Shows what the monitor makes of a printer's IEEE 1284 device ID: the\n"
    "printer as one poll shows it (model, status, levels, trays, covers, jams,\n"
    "options). DEVICE_ID is the text, quoted, or - to read it from standard\n"
    "input.\n"
    "\n"
    "Options:\n"
    "  --json       one JSON object (see docs/json.md)\n"
    "  --variables  also every status variable with a value, in hex\n"
    "  -h, --help   show this help\n"
    "\n"
    "Exit status: 0 the text was read; 1 its STS field does not decode, or the\n"
    "machine description makes LPT1: a port that is never polled; 2 a text\n"
    "that is no device ID the monitor reads (empty, over 2047 bytes, holding a\n"
    "NUL or 258 blanks in a row, or not ending in ';'), a wrong command line or\n"
    "a refused machine description.\n"
    "\n"
    "Examples:\n"
    "  langmon decode - < /sys/class/usbmisc/lp0/device/ieee1284_id\n"
    "  langmon decode 'MFG:Quor;CMD:PJL,NPDL;MDL:Laser Printer 6200tx;CLS:PRINTER;'\n";

constexpr const char* EmulateHelp =
    "usage: langmon emulate (--pty | --usb-device PATH |\n"
    "                        --listen HOST:PORT [--snmp HOST:PORT]) [OPTION]...\n"
    "\n"
    "Serves one emulated printer to other processes, on the real clock, until\n"
    "SIGINT or SIGTERM. It first prints, one a line, the address each way in\n"
    "is reached at, as --printer takes it; then each change it makes; and at\n"
    "the end how many bytes the printer received.\n"
    "\n"
    "Options:\n"
    "  --pty                 a pseudo-terminal whose tty is the printer's serial\n"
    "                        line: its address is langmon:/dev/pts/N\n"
    "  --usb-device PATH     a USB printer class device served through FUSE:\n"
    "                        the folder PATH (made if missing) is mounted and\n"
    "                        holds the device file lp0, which behaves as\n"
    "                        /dev/usb/lp0 does; its address is langmon:PATH/lp0\n"
    "  --listen HOST:PORT    the printer's raw TCP port (AppSocket), one\n"
    "                        connection at a time: job data in, PJL replies\n"
    "                        out; its address is langmon://HOST:PORT. Port 0:\n"
    "                        the system picks one, and the address tells it\n"
    "  --snmp HOST:PORT      with --listen: an SNMP agent answering the device ID\n"
    "                        and sysDescr as the printer stands at each request\n"
    "                        (community public); the address gains ?snmp=PORT\n"
    "  --printer DESCRIPTION the printer: emulator:DESCRIPTION,\n"
    "                        langmon:/emulator?DESCRIPTION or the DESCRIPTION\n"
    "                        alone (default: a ready Laser Printer 6200tx)\n"
    "  --at SECONDS:CHANGE   as often as needed: at SECONDS into the run, change\n"
    "                        the printer (CHANGE as in a DESCRIPTION, or\n"
    "                        power-off, power-on)\n"
    "  --received FILE       at the end, write every byte the printer received\n"
    "                        (up to 16 MiB) to FILE\n"
    "  -h, --help            show this help\n"
    "\n";

constexpr const char* EmulateEnd =
    "\n"
    "Exit status: 0 served until SIGINT or SIGTERM; 1 no pseudo-terminal could\n"
    "be opened, the USB device could not be mounted, a port could not be\n"
    "listened on, or FILE could not be written;\n"
    "2 a wrong command line or a refused description.\n"
    "\n"
    "Examples:\n"
    "  langmon emulate --pty --at 5:jam --at 15:jam=none\n"
    "  langmon print letter.txt --printer langmon:/dev/pts/7   (from another shell)\n"
    "  langmon emulate --usb-device /tmp/printer\n"
    "  langmon print letter.txt --printer langmon:/tmp/printer/lp0\n"
    "  langmon emulate --listen 127.0.0.1:9100 --snmp 127.0.0.1:1161\n"
    "  langmon status --printer 'langmon://127.0.0.1:9100?snmp=1161'\n";

constexpr const char* PrintersHelp =
    "usage: langmon printers [--socket PATH] [--json | --prometheus]\n"
    "\n"
    "Lists the printers langmond serves, each with its port, its state in one\n"
    "line and its address, as the daemon reads them now.\n"
    "\n"
    "Options:\n"
    "  --socket PATH         the daemon's control socket (default: LANGMON_SOCKET,\n"
    "                        or /run/langmon/langmond.sock)\n"
    "  --json                one JSON document (docs/json.md)\n"
    "  --prometheus          every printer's state, condition, supplies, covers,\n"
    "                        jams and pages in Prometheus's text format\n"
    "  -h, --help            show this help\n"
    "\n"
    "Exit status: 0 listed; 1 no daemon answers; 2 a wrong command line.\n"
    "\n"
    "Examples:\n"
    "  langmon printers\n"
    "  langmon printers --json\n"
    "  langmon printers --prometheus > /var/lib/prometheus/node-exporter/langmon.prom\n";

constexpr const char* HelpHelp =
    "usage: langmon help [COMMAND]\n"
    "\n"
    "Shows what langmon's commands are, or COMMAND's options (print, status,\n"
    "decode, emulate, printers), as --help does.\n"
    "\n"
    "Examples:\n"
    "  langmon help\n"
    "  langmon help status\n";

constexpr const char* VersionHelp =
    "usage: langmon version\n"
    "       langmon --version\n"
    "\n"
    "Shows langmon's version, as \"langmon VERSION\".\n";

constexpr const char* GeneralHelp =
    "usage: langmon COMMAND [ARGUMENT]... [OPTION]...\n"
    "\n"
    "Runs the printer language monitor the way the print spooler does, against\n"
    "an emulated printer or a file, and shows what it does and sees.\n"
    "\n"
    "Commands:\n"
    "  print FILE         send FILE as one job through the monitor; report each\n"
    "                     call and what the printer received, printed and said\n"
    "  status [NAME]      show the printer as a status application sees it, or\n"
    "                     langmond's printer NAME; --watch follows each change\n"
    "  decode DEVICE_ID   show what the monitor makes of a printer's IEEE 1284\n"
    "                     device ID\n"
    "  emulate --pty      serve an emulated printer to other processes, on a\n"
    "                     pseudo-terminal's serial line, as a USB device with\n"
    "                     --usb-device, or on TCP and SNMP with --listen and\n"
    "                     --snmp\n"
    "  printers           list the printers langmond serves, with their state\n"
    "  help [COMMAND]     show this help, or a command's\n"
    "  version            show langmon's version\n"
    "\n"
    "Options:\n"
    "  -h, --help         show this help\n"
    "  --version          show langmon's version\n"
    "\n"
    "'langmon COMMAND --help' shows a command's options and examples.\n"
    "\n";

constexpr const char* GeneralEnd =
    "\n"
    "Exit status: 0 success; 1 the command failed (each command's help says\n"
    "when); 2 a wrong command line or a refused printer or machine description;\n"
    "3 the printer stopped with the job (print); 130 or 143 a job or a wait cut\n"
    "short by SIGINT or SIGTERM (a watch that Ctrl-C ends exits 0).\n";

}  // namespace

const char* const ShortUsage =
    "usage: langmon print FILE [OPTION]...\n"
    "       langmon status [NAME] [OPTION]...\n"
    "       langmon decode DEVICE_ID [--json] [--variables]\n"
    "       langmon emulate (--pty | --usb-device PATH | --listen HOST:PORT) [OPTION]...\n"
    "       langmon help [COMMAND]\n"
    "       langmon --version\n"
    "Run 'langmon --help' for what each does.\n";

std::string CommandHelp(const std::string& command) {
    if (command.empty()) return std::string(GeneralHelp) + MachineHelp + GeneralEnd;
    if (command == "print") {
        return std::string(PrintHelp) + PrinterOptions + PrintOptions + DescriptionHelp + '\n' + MachineHelp + PrintEnd;
    }
    if (command == "status") {
        return std::string(StatusHelp) + PrinterOptions + StatusOptions + DescriptionHelp + '\n' + MachineHelp +
               StatusEnd;
    }
    if (command == "decode") return DecodeHelp;
    if (command == "emulate") return std::string(EmulateHelp) + DescriptionHelp + EmulateEnd;
    if (command == "printers") return PrintersHelp;
    if (command == "help") return HelpHelp;
    if (command == "version") return VersionHelp;
    return "";
}

}  // namespace langmon::tool
