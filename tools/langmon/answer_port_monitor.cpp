#include "answer_port_monitor.h"

#include <algorithm>
#include <cstring>

namespace langmon::tool {

namespace {

// The control codes under which a port monitor gives the device ID: the
// plain one, and the one a USB port monitor knows it by.
constexpr DWORD DeviceIdControlId = 17;
constexpr DWORD UsbDeviceIdControlId = 0x16000C;

std::string answerText;
int answerPort;

BOOL OpenAnswerPort(LPSTR, PHANDLE handle) {
    *handle = &answerPort;
    return TRUE;
}
BOOL StartAnswerDoc(HANDLE, LPSTR, DWORD, DWORD, LPBYTE) { return TRUE; }
BOOL WriteAnswerPort(HANDLE, LPBYTE, DWORD length, LPDWORD written) {
    *written = length;
    return TRUE;
}
BOOL ReadAnswerPort(HANDLE, LPBYTE, DWORD, LPDWORD read) {
    *read = 0;
    return TRUE;
}
BOOL EndAnswerDoc(HANDLE) { return TRUE; }
BOOL CloseAnswerPort(HANDLE) { return TRUE; }
BOOL AnswerDeviceId(HANDLE, DWORD controlId, LPSTR, LPSTR, DWORD, LPSTR out, DWORD outSize,
                    LPDWORD returned) {
    if (controlId != DeviceIdControlId && controlId != UsbDeviceIdControlId) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const DWORD length = static_cast<DWORD>(std::min<std::size_t>(answerText.size(), outSize));
    std::memcpy(out, answerText.data(), length);
    *returned = length;
    return TRUE;
}
BOOL SetAnswerPortTimeOuts(HANDLE, LPCOMMTIMEOUTS, DWORD) { return TRUE; }

}  // namespace

MONITOR AnswerPortMonitor(const std::string& deviceId) {
    answerText = deviceId;
    MONITOR table{};
    table.OpenPort = OpenAnswerPort;
    table.StartDocPort = StartAnswerDoc;
    table.WritePort = WriteAnswerPort;
    table.ReadPort = ReadAnswerPort;
    table.EndDocPort = EndAnswerDoc;
    table.ClosePort = CloseAnswerPort;
    table.GetPrinterDataFromPort = AnswerDeviceId;
    table.SetPortTimeOuts = SetAnswerPortTimeOuts;
    return table;
}

}  // namespace langmon::tool
