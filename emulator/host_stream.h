// The bytes between a host and the emulated printer on a line that knows no
// documents (a serial line, a raw TCP connection): what the host sent that
// the printer has not yet taken, what the printer said that has not yet gone
// out, and the document the printer sees begin with the first byte and end
// once the line has been quiet for LineQuietMs. Each transport reads and
// writes its own descriptor; this is what they do alike between.
#pragma once

#include "emulator/printer.h"

#include "platform/clock.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace langmon::emulator {

inline constexpr uint32_t LineQuietMs = 1000;
// The most a transport reads or hands the printer's replies over at a time.
inline constexpr std::size_t HostChunkBytes = 4096;

class HostStream {
public:
    explicit HostStream(Printer& printer) : printer_(printer) {}

    // Whether the line may be read: not while the printer holds bytes back,
    // so that the host's writes wait, as a busy printer makes them.
    bool WantsInput() const { return fromHost_.empty(); }
    bool HasOutput() const { return !toHost_.empty(); }

    // Hands the printer what it would not take before.
    void TakePending() {
        if (!fromHost_.empty()) fromHost_.erase(0, printer_.Write(fromHost_));
    }
    // Once the printer has taken all, ends the document if the line has
    // been quiet long enough.
    void EndIfQuiet(uint32_t now) {
        if (inDocument_ && fromHost_.empty() && TickAge(now, lastByteTick_) >= LineQuietMs) {
            printer_.EndDocument();
            inDocument_ = false;
        }
    }
    // Bytes the host sent: the printer takes what it can now.
    void Received(std::string_view bytes, uint32_t now) {
        if (!inDocument_) printer_.StartDocument();
        inDocument_ = true;
        lastByteTick_ = now;
        fromHost_.assign(bytes.substr(printer_.Write(bytes)));
    }
    // What is to go out to the host, the printer asked anew once all before
    // went; `Sent` takes off what did.
    const std::string& Outgoing() {
        if (toHost_.empty()) {
            char buffer[HostChunkBytes];
            toHost_.assign(buffer, printer_.Read(buffer, sizeof buffer));
        }
        return toHost_;
    }
    void Sent(std::size_t bytes) { toHost_.erase(0, bytes); }
    // The host is gone: the document ends, and what the printer said to it
    // is lost.
    void HungUp() {
        toHost_.clear();
        if (inDocument_) printer_.EndDocument();
        inDocument_ = false;
    }

private:
    Printer& printer_;
    std::string fromHost_;  // bytes read that the printer has not yet taken
    std::string toHost_;    // bytes of the printer not yet on the line
    bool inDocument_ = false;
    uint32_t lastByteTick_ = 0;
};

}  // namespace langmon::emulator
