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


std::string Failure(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

}  // namespace

PtyLine::PtyLine(Printer& printer) : stream_(printer) {
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
    const short events = static_cast<short>((stream_.WantsInput() ? POLLIN : 0) | (stream_.HasOutput() ? POLLOUT : 0));
    if (events != 0) waits.push_back({master_, events, 0});
}

void PtyLine::Serve() {
    if (!problem_.empty()) return;
    const uint32_t now = GetTickCount();
    stream_.TakePending();
    if (stream_.WantsInput()) {
        char buffer[HostChunkBytes];
        const ssize_t n = ::read(master_, buffer, sizeof buffer);
        if (n > 0) stream_.Received({buffer, static_cast<std::size_t>(n)}, now);
    }
    stream_.EndIfQuiet(now);
    const std::string& outgoing = stream_.Outgoing();
    if (!outgoing.empty()) {
        const ssize_t n = ::write(master_, outgoing.data(), outgoing.size());
        if (n > 0) stream_.Sent(static_cast<std::size_t>(n));
    }
}

}  // namespace langmon::emulator
