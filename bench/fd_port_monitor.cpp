#include "fd_port_monitor.h"

#include "sink_port_monitor.h"

#include <unistd.h>

#include <cerrno>

namespace langmon::bench {

namespace {

int targetFd = -1;
std::vector<DWORD>* writeLog = nullptr;

BOOL WriteToFd(HANDLE, LPBYTE data, DWORD length, LPDWORD written) {
    ssize_t taken;
    do {
        taken = ::write(targetFd, data, length);
    } while (taken < 0 && errno == EINTR);
    if (taken < 0) {
        *written = 0;
        SetLastError(ERROR_DEVICE_NOT_CONNECTED);
        return FALSE;
    }
    *written = static_cast<DWORD>(taken);
    if (writeLog != nullptr && writeLog->size() < writeLog->capacity()) {
        writeLog->push_back(*written);
    }
    return TRUE;
}

}  // namespace

MONITOR FdPortTable(int fd, std::vector<DWORD>* writes) {
    targetFd = fd;
    writeLog = writes;
    // The device ID and everything else as the sink answers them: a ready,
    // known model, so that the job gets its header and trailer.
    MONITOR table = SinkTable();
    table.WritePort = WriteToFd;
    return table;
}

}  // namespace langmon::bench
