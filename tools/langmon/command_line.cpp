#include "command_line.h"

#include "command_help.h"
#include "decode_command.h"
#include "emulate_command.h"
#include "interruption.h"
#include "print_command.h"
#include "printers_command.h"
#include "status_command.h"

#include "platform/machine_description.h"
#include "platform/user_input.h"

#include <iostream>
#include <ostream>
#include <unistd.h>

namespace langmon::tool {

namespace {

#ifndef LANGMON_VERSION
#error "the build gives LANGMON_VERSION, the project's version"
#endif

constexpr const char* Commands[] = {"print", "status", "decode", "emulate", "printers", "help", "version"};

bool IsCommand(const std::string& word) {
    for (const char* command : Commands) {
        if (word == command) return true;
    }
    return false;
}

bool AsksForHelp(const std::string& word) { return word == "--help" || word == "-h"; }

// A refused description leaves the monitor an empty machine, where the
// command would find none of the described printers: it does not run. What
// is wrong, with the file's line, is on standard error already, from the load.
bool MachineDescribed(const std::string& command, std::ostream& err) {
    platform::LoadMachineFromEnvironmentOnce();
    if (platform::MachineDescriptionProblem().empty()) return true;
    err << "langmon " << command << ": not run: the machine description that LANGMON_REGISTRY names is refused\n";
    return false;
}

// A wrong command line: one line, what is wrong and where the help is. The
// usage in full would push what is wrong off the screen.
int Refuse(const std::string& command, const std::string& error, std::ostream& err) {
    const std::string who = command.empty() ? "langmon" : "langmon " + command;
    err << who << ": " << platform::Printable(error) << "; see '" << who << " --help'\n";
    return 2;
}

// `langmon help [COMMAND]`, `langmon --help` and `langmon COMMAND --help`.
int Help(const std::string& command, std::ostream& out, std::ostream& err) {
    const std::string help = CommandHelp(command);
    if (help.empty()) return Refuse("help", "no command " + command + " (print, status, decode, emulate, printers)", err);
    out << help;
    return 0;
}

}  // namespace

int RunCommandLine(const std::vector<std::string>& words, std::ostream& out, std::ostream& err,
                   const std::atomic<bool>& interrupted) {
    if (words.empty()) {
        err << ShortUsage;
        return 2;
    }
    if (AsksForHelp(words[0])) return Help("", out, err);
    // --version is the version command as Linux tools spell it.
    const std::string command = words[0] == "--version" ? "version" : words[0];
    const std::vector<std::string> rest(words.begin() + 1, words.end());
    if (!IsCommand(command)) {
        return Refuse("", (command[0] == '-' ? "unknown option " : "unknown command ") + command, err);
    }
    // `langmon COMMAND --help` wherever the --help stands: the other words
    // may be what the user was getting wrong.
    for (const std::string& word : rest) {
        if (AsksForHelp(word)) return Help(command, out, err);
    }
    if (command == "help") {
        if (rest.size() > 1) return Refuse(command, "one command at a time", err);
        return Help(rest.empty() ? "" : rest[0], out, err);
    }
    if (command == "version") {
        if (!rest.empty()) return Refuse(command, "unexpected " + rest[0], err);
        out << "langmon " << LANGMON_VERSION << '\n';
        return 0;
    }
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
    if (command == "printers") {
        PrintersOptions options;
        if (!ParsePrintersOptions(rest, &options, &error)) return Refuse(command, error, err);
        return RunPrinters(options, out, err);
    }
    if (command == "emulate") {
        EmulateOptions options;
        if (!ParseEmulateOptions(rest, &options, &error)) return Refuse(command, error, err);
        return RunEmulate(options, out, err, interrupted);
    }
    DecodeOptions options;
    if (!ParseDecodeOptions(rest, &options, &error)) return Refuse(command, error, err);
    if (!MachineDescribed(command, err)) return 2;
    return RunDecode(options, out, err);
}

}  // namespace langmon::tool
