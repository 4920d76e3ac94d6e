// A way in to an emulated printer from outside the process: the printer's
// end of a wire (a pty for a serial line, a TCP listener, an SNMP agent, a
// USB device through FUSE). `langmon emulate` serves one printer through any of
// them in one loop: it waits on every transport's descriptors at once, then
// lets each move what is due. A transport never blocks.
#pragma once

#include <string>
#include <vector>

#include <poll.h>

namespace langmon::emulator {

class PrinterTransport {
public:
    virtual ~PrinterTransport() = default;
    // Where a host reaches the printer, as the address `--printer` takes.
    virtual std::string Address() const = 0;
    // The descriptors to wait on before the next Serve, with their events.
    virtual void AddWaits(std::vector<pollfd>& waits) const = 0;
    // Moves what can move now both ways between the wire and the printer.
    // Called after every wait, whether its descriptors are ready or not, as
    // the printer has things to say on its own clock.
    virtual void Serve() = 0;
};

}  // namespace langmon::emulator
