// What the fuzz targets that drive the monitor stand on: the language
// monitor, initialised once on the virtual clock so that a wait the monitor
// makes (a job's end, a closing port, a printer's answer) costs nothing, and
// a way to open a fresh port, over a port monitor that answers a given
// device ID or over any port monitor's table. Each input gets a port of its
// own, and the threads the monitor started for it end with it, so that an
// input found to crash replays the same way alone.
#pragma once

#include <langmon/monitor.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace langmon {
struct PortContext;
}

namespace langmon::fuzz {

// How the parser and job targets cut their input into blocks: the first byte
// chooses the block length, the rest is what is cut. 255 means the reader's
// whole block of 1024 bytes; any other value v, v + 1 bytes, so that every
// split position is reachable with small inputs.
constexpr std::size_t ReaderBlockBytes = 1024;
constexpr std::size_t BlockLengthFor(uint8_t selector) {
    return selector == 255 ? ReaderBlockBytes : std::size_t{selector} + 1;
}

// The device ID target polls once per answer; answers are separated by NUL,
// which no device ID holds, and at most this many are polled.
constexpr std::size_t MostAnswers = 4;

// The spooler's printer queue every port is opened for.
inline constexpr const char* PrinterName = "Fuzz Printer";

// The monitor's entry table, initialised on first use.
const MONITOR& LanguageMonitor();

// The device ID of a ready Laser Printer 6200tx, as the emulator makes it.
std::string ReadyPrinterId();

// The machine's printer queue PrinterName stands on `portName` with the
// driver of a known model and its status key, so that a job on the port
// gets a client and the client is bound to a store of the status manager
// library. The library is the one linked into the target (see
// linked_status_manager.h).
void GivePrinterAClient(const char* portName);

// The spooler's side of a job on an open port: StartDocPort for PrinterName
// with a document of its own; FALSE, with the last error, as the monitor
// refused it.
BOOL StartJob(HANDLE port, DWORD jobId);
// Hands `bytes` to WritePort in blocks of at most `block` bytes, each passed
// again from where the port stopped taking, until all is taken, a call fails
// or the port took nothing a hundred times running, as a spooler gives up.
// Returns how many bytes were taken; `failed` says whether a call failed.
std::size_t SendBlocks(HANDLE port, std::string_view bytes, std::size_t block, bool* failed);

// A port opened through the monitor for PrinterName; closed by the
// destructor, which then lets the monitor's threads of the port end.
class FuzzPort {
public:
    // Over a port monitor whose printer answers `deviceId` when asked for its
    // device ID, takes every byte written (see Received) and sends nothing back.
    FuzzPort(const char* portName, std::string_view deviceId);
    // Over the port monitor `lower`, which must outlive the port.
    FuzzPort(const char* portName, const MONITOR& lower);
    ~FuzzPort();
    FuzzPort(const FuzzPort&) = delete;
    FuzzPort& operator=(const FuzzPort&) = delete;

    HANDLE Handle() const { return handle_; }
    PortContext* Context() const { return context_; }
    // The printer's next answer to a device ID request (first constructor).
    void Answer(std::string_view deviceId);
    // Every byte written to the printer, in order (first constructor).
    std::string Received() const;

private:
    void Open(const char* portName);

    MONITOR lower_{};
    HANDLE handle_ = nullptr;
    PortContext* context_ = nullptr;
};

}  // namespace langmon::fuzz
