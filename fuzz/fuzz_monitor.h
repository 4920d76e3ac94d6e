// What both fuzz targets stand on: the language monitor, initialised once on
// the virtual clock so that a wait the monitor makes (a job's end, a closing
// port) costs nothing, and a way to open a fresh port over a port monitor
// that answers a given device ID. Each input gets a port of its own, so that
// an input found to crash replays the same way alone.
#pragma once

#include <langmon/monitor.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace langmon {
struct PortContext;
}

namespace langmon::fuzz {

// How the parser target cuts its input into the reader's blocks: the first
// byte chooses the block length, the rest is what the printer sent. 255
// means the reader's whole block of 1024 bytes; any other value v, v + 1
// bytes, so that every split position is reachable with small inputs.
constexpr std::size_t ReaderBlockBytes = 1024;
constexpr std::size_t BlockLengthFor(uint8_t selector) {
    return selector == 255 ? ReaderBlockBytes : std::size_t{selector} + 1;
}

// The device ID target polls once per answer; answers are separated by NUL,
// which no device ID holds, and at most this many are polled.
constexpr std::size_t MostAnswers = 4;

// The monitor's entry table, initialised on first use.
const MONITOR& LanguageMonitor();

// A port opened through the monitor over a port monitor whose printer
// answers `deviceId` when asked for its device ID and sends nothing back.
// Closed by the destructor.
class FuzzPort {
public:
    FuzzPort(const char* portName, std::string_view deviceId);
    ~FuzzPort();
    FuzzPort(const FuzzPort&) = delete;
    FuzzPort& operator=(const FuzzPort&) = delete;

    PortContext* Context() const { return context_; }
    // The printer's next answer to a device ID request.
    void Answer(std::string_view deviceId);

private:
    MONITOR lower_{};
    HANDLE handle_ = nullptr;
    PortContext* context_ = nullptr;
};

}  // namespace langmon::fuzz
