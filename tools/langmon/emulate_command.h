// `langmon emulate`: one emulated printer served to other processes on the
// real clock until SIGINT or SIGTERM, through the transports asked for. It
// prints, one a line, the address each transport is reached at, as
// `--printer` takes it; then what it changes, and at the end what the
// printer received.
#pragma once

#include "timed_change.h"

#include <atomic>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace langmon::tool {

struct EmulateOptions {
    // The emulated printer: an emulator address ("emulator:jam",
    // "langmon:/emulator?jam") or the words of its description ("jam").
    std::string printer = "emulator";
    bool pty = false;
    // The USB printer: a FUSE mount at this directory holding the device
    // file "lp0", when not empty.
    std::string usbDevice;
    // The network printer: raw TCP on listenHost:listenPort (port 0: the
    // system chooses) when listenHost is not empty.
    std::string listenHost;
    uint16_t listenPort = 0;
    // Its SNMP agent on snmpHost:snmpPort, when snmpHost is not empty; it
    // is told in the network printer's address, so it goes with --listen.
    std::string snmpHost;
    uint16_t snmpPort = 0;
    std::vector<TimedChange> changes;  // in the order of their moments
    // Where every byte the printer received is written when it stops; none
    // when empty.
    std::string receivedFile;
};

bool ParseEmulateOptions(const std::vector<std::string>& words, EmulateOptions* options, std::string* error);

// Serves until `interrupted` is set. Returns 0 then, or 1 when no transport
// could be opened or the received bytes could not be written.
int RunEmulate(const EmulateOptions& options, std::ostream& out, std::ostream& err,
               const std::atomic<bool>& interrupted);

}  // namespace langmon::tool
