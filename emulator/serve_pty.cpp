#include "emulator/serve_pty.h"

#include "platform/clock.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace langmon::emulator {

namespace {

constexpr std::size_t ChunkBytes = 4096;

std::string Failure(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

}  // namespace

PtyLine::PtyLine(Printer& printer) : printer_(printer) {
    master_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master_ < 0) {
        problem_ = Failure("no pseudo-terminal");
        return;
    }
    const char* name = ::ptsname(master_);
    if (::grantpt(master_) != 0 || ::unlockpt(master_) != 0 || name == nullptr) {
        problem_ = Failure("the pseudo-terminal could not be unlocked");
        return;
    }
    slavePath_ = name;
    slave_ = ::open(slavePath_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings{};
    if (slave_ < 0 || ::tcgetattr(slave_, &settings) != 0) {
        problem_ = Failure("the pseudo-terminal's line could not be set up");
        return;
    }
    // Raw before any host opens it: a printer's line changes no byte.
    ::cfmakeraw(&settings);
    if (::tcsetattr(slave_, TCSANOW, &settings) != 0) {
        problem_ = Failure("the pseudo-terminal's line could not be made raw");
        return;
    }
    ::fcntl(master_, F_SETFL, ::fcntl(master_, F_GETFL) | O_NONBLOCK);
}

PtyLine::~PtyLine() {
    if (slave_ >= 0) ::close(slave_);
    if (master_ >= 0) ::close(master_);
}

void PtyLine::AddWaits(std::vector<pollfd>& waits) const {
    if (!problem_.empty()) return;
    // While the printer holds bytes back, the line is not read: the pty's
    // buffer fills and the host's writes wait, as on a real serial line.
    const short events = static_cast<short>((fromHost_.empty() ? POLLIN : 0) | (toHost_.empty() ? 0 : POLLOUT));
    if (events != 0) waits.push_back({master_, events, 0});
}

void PtyLine::Serve() {
    if (!problem_.empty()) return;
    const uint32_t now = GetTickCount();
    if (!fromHost_.empty()) fromHost_.erase(0, printer_.Write(fromHost_));
    if (fromHost_.empty()) {
        char buffer[ChunkBytes];
        const ssize_t n = ::read(master_, buffer, sizeof buffer);
        if (n > 0) {
            if (!inDocument_) printer_.StartDocument();
            inDocument_ = true;
            lastByteTick_ = now;
            const std::string_view bytes(buffer, static_cast<std::size_t>(n));
            fromHost_.assign(bytes.substr(printer_.Write(bytes)));
        }
    }
    if (inDocument_ && fromHost_.empty() && TickAge(now, lastByteTick_) >= LineQuietMs) {
        printer_.EndDocument();
        inDocument_ = false;
    }
    if (toHost_.empty()) {
        char buffer[ChunkBytes];
        toHost_.assign(buffer, printer_.Read(buffer, sizeof buffer));
    }
    if (!toHost_.empty()) {
        const ssize_t n = ::write(master_, toHost_.data(), toHost_.size());
        if (n > 0) toHost_.erase(0, static_cast<std::size_t>(n));
    }
}

}  // namespace langmon::emulator
