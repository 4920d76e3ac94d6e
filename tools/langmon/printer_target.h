// What a command's port leads to, as `--printer` names it by its address (see
// printer_address.h): the emulated printer, a file, a serial, USB or network
// printer; and
// the printer queue of the machine that the port serves.
#pragma once

#include "port_monitors.h"
#include "printer_address.h"
#include "stream_record.h"

#include "emulator/port_monitor.h"
#include "emulator/printer.h"
#include "ports/serial_port_monitor.h"
#include "ports/socket_port_monitor.h"
#include "ports/usb_port_monitor.h"

#include <langmon/monitor.h>

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace langmon::tool {

// The emulated printer of a command prints a page in this many milliseconds
// unless its description says otherwise: quick enough to watch.
inline constexpr uint32_t CommandPageTimeMs = 100;

bool IsEmulator(const std::string& printer);

// Empty when `printer` names something a port can lead to; otherwise what is
// wrong with the option, as a message.
std::string CheckPrinterTarget(const std::string& printer);

// The port the command uses when --port does not name one: `portName` when
// it is not empty, else the default of the kind of printer `printer` is.
std::string ChoosePortName(const std::string& printer, const std::string& portName);

// The port monitor below the language monitor, leading to what `printer`
// names, which CheckPrinterTarget has accepted. The command watches every
// byte the printer takes on its way down, whoever writes it: that is how it
// sees a printer take a job's header while the monitor's WritePort still
// reports nothing taken, and how it tells what the printer received without
// keeping it. One target at a time is watched, as the table it hands the
// monitor carries no data of its own.
class PrinterTarget {
public:
    PrinterTarget(const std::string& printer, const std::string& portName);
    ~PrinterTarget();
    PrinterTarget(const PrinterTarget&) = delete;
    PrinterTarget& operator=(const PrinterTarget&) = delete;

    // The table the language monitor is given as the port monitor below it.
    MONITOR* Lower() { return &lower_; }
    // The emulated printer; null when the port leads to a file.
    emulator::Printer* Emulated() { return printer_; }
    // "the emulated Laser Printer 6200tx", "file:PATH", "the serial
    // printer on /dev/ttyS0 at 9600 baud", "the USB printer on
    // /dev/usb/lp0" or "the network printer at HOST:PORT".
    const std::string& Description() const { return description_; }
    // Why the printer says nothing back, when it cannot: "a file does not
    // answer"; or, for a network printer, why what it says is not shown
    // here; empty for the emulated printer.
    const std::string& Silence() const { return silence_; }

    // Whether the printer answers, so that the command gives it a queue of
    // its model when the machine has none: the emulated, a USB or a network
    // one.
    bool Answers() const {
        return address_.kind == AddressKind::Emulator || address_.kind == AddressKind::Usb ||
               address_.kind == AddressKind::Network;
    }
    // The model as a host that finds the printer reads it: the emulated
    // printer's, or the MDL of a USB or network printer's device ID; empty
    // when the printer does not say.
    std::string ProbeModel();
    // The printer's whole IEEE 1284 device ID as a host that finds it reads
    // it; empty when the printer does not say.
    std::string ProbeDeviceId();
    // The network printer the port leads to; null for any other.
    const ports::NetworkPrinter* Network() const {
        return address_.kind == AddressKind::Network ? &network_ : nullptr;
    }
    // Lists the port of a USB printer as the spooler's USB port monitor
    // would, described as a USB port, so that the monitor takes it for a
    // two-way USB port; a port the machine already lists is left as it
    // is. Done once the monitor has read the machine, which it replaces.
    void DescribePort(const std::string& portName) const;

    // Bytes the printer has taken so far.
    std::uint64_t ReceivedCount() const { return receivedCount_.load(); }
    // Every byte the printer has taken, as its length, head and tail.
    StreamRecord Received() const;

private:
    static BOOL WriteWatched(HANDLE port, LPBYTE data, DWORD size, LPDWORD written);

    PrinterAddress address_;
    std::string portName_;
    PortMonitors monitors_;
    emulator::Printer* printer_ = nullptr;  // the emulated printer, if it is one
    MONITOR below_{};  // the port monitor's own table
    MONITOR lower_{};  // the same, with its WritePort watched
    std::string description_;
    std::string silence_;
    ports::NetworkPrinter network_;
    mutable std::mutex receivedMutex_;
    StreamRecord received_;
    std::atomic<std::uint64_t> receivedCount_{0};
};

// Lists a USB printer's port as the spooler's USB port monitor would,
// described as a USB port, so that the monitor takes it for a two-way USB
// port; a port the machine already lists is left as it is. Done once the
// monitor has read the machine, which it replaces.
void DescribeUsbPort(const std::string& portName);

// A field of a device ID by its short or long key ({"MDL", "MODEL"}), the
// first key that is there; empty without any.
std::string DeviceIdField(const std::string& id, std::initializer_list<std::string_view> keys);
// The model a device ID names (its MDL or MODEL field); empty without one.
std::string DeviceIdModel(const std::string& id);

// The machine's printer queue on the port (whose name may carry the colon of
// "LPT1:" or not); empty when it has none there.
std::string PrinterOnPort(const std::string& portName);

// The language of the jobs a queue's driver makes.
enum class QueueLanguage { Pcl6, PostScript };

// Whether `model` (a device ID's MDL) is one of the family's.
bool FamilyModel(const std::string& model);

// Adds to the machine a printer queue `queueName` on the port, with the
// family's driver of `model` in `language` (the 6200tx's for any other
// model) and its status key, so that the printer has a status client as it
// would on a machine set up for it. Returns the queue's name.
std::string AddStandInQueue(const std::string& portName, const std::string& model,
                            const std::string& queueName = "langmon", QueueLanguage language = QueueLanguage::Pcl6);

// Empty when the monitor would give the printer a status client: the machine
// has a queue of that name, whose driver is of a known model and has a
// status key. Otherwise which of these it lacks.
std::string StatusClientProblem(const std::string& printerName);

// Why a printer's client holds nothing: what the machine says of its queue.
std::string NoClientReason(const std::string& printerName);

}  // namespace langmon::tool
