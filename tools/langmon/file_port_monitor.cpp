#include "file_port_monitor.h"

#include <cerrno>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace langmon::tool {

namespace {

std::string outputPath;

constexpr DWORD ErrorWriteFault = 29;
constexpr DWORD ErrorDiskFull = 112;

struct FilePort {
    int file = -1;
    bool documentOpen = false;
};

BOOL OpenFilePort(LPSTR, PHANDLE handle) {
    const int file = ::open(outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0) {
        SetLastError(errno == EACCES ? ERROR_ACCESS_DENIED : ERROR_FILE_NOT_FOUND);
        return FALSE;
    }
    *handle = new FilePort{file, false};
    return TRUE;
}

BOOL StartFileDoc(HANDLE handle, LPSTR, DWORD, DWORD, LPBYTE) {
    static_cast<FilePort*>(handle)->documentOpen = true;
    return TRUE;
}

BOOL WriteFilePort(HANDLE handle, LPBYTE data, DWORD length, LPDWORD written) {
    auto* port = static_cast<FilePort*>(handle);
    *written = 0;
    if (!port->documentOpen) {
        // Like a real port monitor: no document, no line to the printer.
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    // Written through at once, not buffered: a full disk or a broken device
    // is the job's failure, told by the call that met it.
    while (*written < length) {
        const ssize_t done = ::write(port->file, data + *written, length - *written);
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) {
            SetLastError(done < 0 && errno == ENOSPC ? ErrorDiskFull : ErrorWriteFault);
            return FALSE;
        }
        *written += static_cast<DWORD>(done);
    }
    return TRUE;
}

BOOL ReadFilePort(HANDLE, LPBYTE, DWORD, LPDWORD read) {
    *read = 0;  // a file never answers
    return TRUE;
}

BOOL EndFileDoc(HANDLE handle) {
    auto* port = static_cast<FilePort*>(handle);
    port->documentOpen = false;
    return TRUE;
}

BOOL CloseFilePort(HANDLE handle) {
    auto* port = static_cast<FilePort*>(handle);
    ::close(port->file);
    delete port;
    return TRUE;
}

BOOL AskFilePort(HANDLE, DWORD, LPSTR, LPSTR, DWORD, LPSTR, DWORD, LPDWORD returned) {
    if (returned != nullptr) {
        *returned = 0;
    }
    SetLastError(ERROR_NOT_SUPPORTED);
    return FALSE;
}

BOOL SetFilePortTimeOuts(HANDLE, LPCOMMTIMEOUTS, DWORD) { return TRUE; }

}  // namespace

MONITOR FilePortMonitor(const std::string& path) {
    outputPath = path;
    MONITOR table{};
    table.OpenPort = OpenFilePort;
    table.StartDocPort = StartFileDoc;
    table.WritePort = WriteFilePort;
    table.ReadPort = ReadFilePort;
    table.EndDocPort = EndFileDoc;
    table.ClosePort = CloseFilePort;
    table.GetPrinterDataFromPort = AskFilePort;
    table.SetPortTimeOuts = SetFilePortTimeOuts;
    return table;
}

}  // namespace langmon::tool
