// The daemon's control socket: a Unix stream socket at a path, made by the
// daemon or handed over by systemd (socket activation), and who is at the
// other end of each connection. Any local user may read status; only root
// and members of the group lp may change a printer's variables, ask for a
// refresh or send jobs, as the kernel tells the peer's credentials.
#pragma once

#include <string>
#include <sys/types.h>

namespace langmon::daemon {

// The socket the daemon listens on: systemd's, when it started the daemon
// for its socket unit; otherwise one made at `path` (a socket file left by
// an earlier run is replaced), mode 0666. -1, with the reason, when neither.
// It also keeps the status manager library of this process from asking any
// daemon (LANGMON_STATUS_MANAGER=local): this process is the daemon.
int OpenControlSocket(const std::string& path, std::string* problem);

struct Peer {
    pid_t pid = 0;
    uid_t uid = 0;
    gid_t gid = 0;
    bool mayWrite = false;  // root, or a member of the group lp
};

// The credentials of the process at the other end of `connection`; a peer
// whose credentials can't be read may do nothing but read.
Peer PeerOf(int connection);

}  // namespace langmon::daemon
