#include "emulate_command.h"

#include "command_words.h"
#include "printer_address.h"
#include "watched_view.h"

#include "emulator/printer_description.h"
#include "emulator/serve_pty.h"
#include "emulator/serve_snmp.h"
#include "emulator/serve_tcp.h"
#include "emulator/serve_usb_device.h"
#include "platform/clock.h"
#include "platform/user_input.h"

#include <cstdio>
#include <fstream>
#include <memory>
#include <ostream>

#include <poll.h>

namespace langmon::tool {

namespace {

// The longest wait between two turns of the loop: the printer prints and
// reports on its own clock, and what it says goes out this soon at latest.
constexpr int TurnMs = 20;

// The description of the emulated printer that `printer` gives.
std::string DescriptionOf(const std::string& printer) {
    PrinterAddress address;
    if (ParsePrinterAddress(printer, &address).empty() && address.kind == AddressKind::Emulator) {
        return address.description;
    }
    return printer;
}

}  // namespace

bool ParseEmulateOptions(const std::vector<std::string>& words, EmulateOptions* options, std::string* error) {
    CommandWords reader(words, error);
    std::string word;
    while (reader.Next(&word)) {
        std::string text;
        if (word == "--printer") {
            if (!reader.Value(&options->printer)) return false;
        } else if (word == "--pty") {
            options->pty = true;
        } else if (word == "--usb-device") {
            if (!reader.Value(&options->usbDevice)) return false;
            if (options->usbDevice.empty()) {
                *error = "--usb-device takes a PATH";
                return false;
            }
        } else if (word == "--listen") {
            if (!reader.Value(&text)) return false;
            if (!emulator::ParseHostPort(text, &options->listenHost, &options->listenPort)) {
                *error = "--listen takes HOST:PORT (e.g. 127.0.0.1:9100, [::1]:0), not " + text;
                return false;
            }
        } else if (word == "--snmp") {
            if (!reader.Value(&text)) return false;
            if (!emulator::ParseHostPort(text, &options->snmpHost, &options->snmpPort)) {
                *error = "--snmp takes HOST:PORT (e.g. 127.0.0.1:161, [::1]:0), not " + text;
                return false;
            }
        } else if (word == "--received") {
            if (!reader.Value(&options->receivedFile)) return false;
            if (options->receivedFile.empty()) {
                *error = "--received takes a FILE";
                return false;
            }
        } else if (word == "--at") {
            if (!reader.Value(&text)) return false;
            TimedChange change;
            if (!ParseTimedChange(text, &change, error)) return false;
            if (change.words.rfind(PrintWord, 0) == 0) {
                *error = "--at " + change.words + ": emulate changes the printer; print from the host's side";
                return false;
            }
            if (std::string problem = CheckPrinterChange(change.words); !problem.empty()) {
                *error = problem;
                return false;
            }
            options->changes.push_back(std::move(change));
        } else {
            *error = "unknown option " + word;
            return false;
        }
    }
    if (reader.Broken()) return false;
    emulator::PrinterState state;
    if (std::string problem = emulator::ApplyPrinterDescription(DescriptionOf(options->printer), state);
        !problem.empty()) {
        *error = "--printer " + options->printer + ": " + problem;
        return false;
    }
    if (!options->snmpHost.empty() && options->listenHost.empty()) {
        *error = "--snmp answers for the network printer: give --listen HOST:PORT too";
        return false;
    }
    if (!options->pty && options->listenHost.empty() && options->usbDevice.empty()) {
        *error = "no way in to the printer: give --pty, --usb-device PATH or --listen HOST:PORT";
        return false;
    }
    SortChanges(options->changes);
    return true;
}

int RunEmulate(const EmulateOptions& options, std::ostream& out, std::ostream& err,
               const std::atomic<bool>& interrupted) {
    emulator::PrinterState state = emulator::PrinterState::Default();
    emulator::ApplyPrinterDescription(DescriptionOf(options.printer), state);
    emulator::Printer printer(state);

    // Each transport is a way in of its own; the loop below serves them all.
    std::vector<std::unique_ptr<emulator::PrinterTransport>> transports;
    if (options.pty) {
        auto line = std::make_unique<emulator::PtyLine>(printer);
        if (!line->Problem().empty()) {
            err << "langmon emulate: " << line->Problem() << '\n';
            return 1;
        }
        transports.push_back(std::move(line));
    }
    if (!options.usbDevice.empty()) {
        auto device = std::make_unique<emulator::UsbDevice>(printer, options.usbDevice);
        if (!device->Problem().empty()) {
            err << "langmon emulate: " << platform::Printable(device->Problem()) << '\n';
            return 1;
        }
        transports.push_back(std::move(device));
    }
    if (!options.listenHost.empty()) {
        auto listener = std::make_unique<emulator::TcpListener>(printer, options.listenHost, options.listenPort);
        if (!listener->Problem().empty()) {
            err << "langmon emulate: " << listener->Problem() << '\n';
            return 1;
        }
        if (!options.snmpHost.empty()) {
            auto agent = std::make_unique<emulator::SnmpAgent>(printer, options.snmpHost, options.snmpPort);
            if (!agent->Problem().empty()) {
                err << "langmon emulate: " << agent->Problem() << '\n';
                return 1;
            }
            listener->SetSnmpPort(agent->Port());
            transports.push_back(std::move(agent));
        }
        transports.push_back(std::move(listener));
    }
    for (const auto& transport : transports) {
        if (const std::string address = transport->Address(); !address.empty()) out << address << '\n';
    }
    out << std::flush;

    const DWORD start = GetTickCount();
    std::size_t next = 0;
    std::vector<pollfd> waits;
    while (!interrupted.load()) {
        waits.clear();
        for (const auto& transport : transports) transport->AddWaits(waits);
        ::poll(waits.data(), waits.size(), TurnMs);
        const DWORD at = TickAge(GetTickCount(), start);
        while (next < options.changes.size() && options.changes[next].atMs <= at) {
            MakePrinterChange(printer, options.changes[next].words);
            out << Seconds(at) << ": the printer: " << platform::Printable(options.changes[next].words) << '\n'
                << std::flush;
            ++next;
        }
        for (const auto& transport : transports) transport->Serve();
    }

    const uint64_t count = printer.ReceivedCount();
    out << "the printer received " << count << (count == 1 ? " byte" : " bytes") << '\n' << std::flush;
    if (!options.receivedFile.empty()) {
        std::ofstream file(options.receivedFile, std::ios::binary | std::ios::trunc);
        const std::string received = printer.Received();
        file.write(received.data(), static_cast<std::streamsize>(received.size()));
        if (!file.flush()) {
            err << "langmon emulate: --received " << platform::Printable(options.receivedFile)
                << ": could not be written\n";
            return 1;
        }
    }
    return 0;
}

}  // namespace langmon::tool
