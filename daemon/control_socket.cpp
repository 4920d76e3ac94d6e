#include "control_socket.h"

#include "daemon/status_protocol.h"

#include <systemd/sd-daemon.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace langmon::daemon {

namespace {

constexpr int Backlog = 64;

// Whether the peer on `connection`, whose own group is `gid`, is in the
// group lp, as its process is now: its supplementary groups as the kernel
// tells them (SO_PEERGROUPS), not as the group file lists its user's.
bool InPrinterGroup(int connection, gid_t gid) {
    const group* lp = getgrnam("lp");
    if (lp == nullptr) return false;
    if (gid == lp->gr_gid) return true;
    std::vector<gid_t> groups(64);
    socklen_t length = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
    if (getsockopt(connection, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &length) != 0) {
        if (errno != ERANGE || length > 65536 * sizeof(gid_t)) return false;
        groups.resize(length / sizeof(gid_t));
        if (getsockopt(connection, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &length) != 0) return false;
    }
    groups.resize(length / sizeof(gid_t));
    for (const gid_t member : groups) {
        if (member == lp->gr_gid) return true;
    }
    return false;
}

}  // namespace

int OpenControlSocket(const std::string& path, std::string* problem) {
    // Socket activation: systemd's socket unit made and bound it.
    if (sd_listen_fds(1) == 1) {
        const int handed = SD_LISTEN_FDS_START;
        if (sd_is_socket_unix(handed, SOCK_STREAM, 1, nullptr, 0) > 0) {
            fcntl(handed, F_SETFD, FD_CLOEXEC);
            return handed;
        }
        *problem = "the descriptor systemd handed over is not a listening Unix stream socket";
        return -1;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        *problem = "the socket path \"" + path + "\" is empty or longer than " +
                   std::to_string(sizeof address.sun_path - 1) + " bytes";
        return -1;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (listener < 0) {
        *problem = std::string("no socket: ") + std::strerror(errno);
        return -1;
    }
    // A socket file an earlier run left is replaced; any other file is not.
    struct stat existing {};
    if (lstat(path.c_str(), &existing) == 0 && S_ISSOCK(existing.st_mode)) unlink(path.c_str());
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        chmod(path.c_str(), 0666) != 0 || listen(listener, Backlog) != 0) {
        *problem = path + ": " + std::strerror(errno);
        close(listener);
        return -1;
    }
    return listener;
}

Peer PeerOf(int connection) {
    ucred credentials{};
    socklen_t length = sizeof credentials;
    Peer peer;
    if (getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) return peer;
    peer.pid = credentials.pid;
    peer.uid = credentials.uid;
    peer.gid = credentials.gid;
    peer.mayWrite = credentials.uid == 0 || InPrinterGroup(connection, credentials.gid);
    return peer;
}

}  // namespace langmon::daemon
