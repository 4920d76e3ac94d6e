// The network printer of the data-path benchmark: `langmon emulate
// --listen 127.0.0.1:0 --snmp 127.0.0.1:0` in a process of its own, as a
// printer on the network is, so that its work takes none of the sender's
// thread. Both the plain loop and the monitor's job go to it, each in a
// connection of its own, and each job ends once the printer has taken all
// of it: the emulator serves one connection at a time, so an answer to a
// PJL request in the next connection means the one before was read to its
// end. Bytes still in the kernel's buffers would otherwise count for one
// job and be paid for by the next.
#pragma once

#include <cstdint>
#include <string>

#include <sys/types.h>

namespace langmon::bench {

class EmulatedNetworkPrinter {
public:
    EmulatedNetworkPrinter() = default;
    ~EmulatedNetworkPrinter();
    EmulatedNetworkPrinter(const EmulatedNetworkPrinter&) = delete;
    EmulatedNetworkPrinter& operator=(const EmulatedNetworkPrinter&) = delete;

    // Runs `command` emulate; false, with why in Problem(), when it does not
    // tell where it listens within a few seconds.
    bool Start(const std::string& command);
    const std::string& Problem() const { return problem_; }
    uint16_t TcpPort() const { return tcpPort_; }
    uint16_t SnmpPort() const { return snmpPort_; }

    // A blocking connection to the raw port; -1 when it can't be made.
    int Connect() const;
    // Waits until the printer has read every connection before this call
    // to its end; false when it did not answer within a few seconds.
    bool AwaitAllTaken() const;

private:
    pid_t pid_ = -1;
    int output_ = -1;
    uint16_t tcpPort_ = 0;
    uint16_t snmpPort_ = 0;
    std::string problem_;
};

}  // namespace langmon::bench
