#include "file_port_monitor.h"

#include <cerrno>
#include <cstdio>
#include <string>

namespace langmon::tool {

namespace {

std::string outputPath;

struct FilePort {
    std::FILE* file = nullptr;
    bool documentOpen = false;
};

BOOL OpenFilePort(LPSTR, PHANDLE handle) {
    std::FILE* file = std::fopen(outputPath.c_str(), "wb");
    if (file == nullptr) {
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
    *written = static_cast<DWORD>(std::fwrite(data, 1, length, port->file));
    return *written == length ? TRUE : FALSE;
}

BOOL ReadFilePort(HANDLE, LPBYTE, DWORD, LPDWORD read) {
    *read = 0;  // a file never answers
    return TRUE;
}

BOOL EndFileDoc(HANDLE handle) {
    auto* port = static_cast<FilePort*>(handle);
    port->documentOpen = false;
    std::fflush(port->file);
    return TRUE;
}

BOOL CloseFilePort(HANDLE handle) {
    auto* port = static_cast<FilePort*>(handle);
    std::fclose(port->file);
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
