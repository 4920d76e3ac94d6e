#include "sink_port_monitor.h"

#include "platform/last_error.h"

#include <cstring>

namespace langmon::bench {

const char SinkDeviceId[] =
    "MFG:Quor;CMD:PJL,NPDL,NMPS-C;MDL:Laser Printer 6200tx;CLS:PRINTER;DES:Quor Laser Printer 6200tx;"
    "STS:AAAPAQAAAAAABAJ/WiNLIzwjLSNkAwADUIKAggAAQQIAAQAAAAAAAAAA;";
const char SinkStsField[] = "AAAPAQAAAAAABAJ/WiNLIzwjLSNkAwADUIKAggAAQQIAAQAAAAAAAAAA;";

namespace {

// The control codes under which a port monitor gives the device ID: the
// plain one, and the one a USB port monitor knows it by.
constexpr DWORD DeviceIdControlId = 17;
constexpr DWORD UsbDeviceIdControlId = 0x16000C;

int sinkPort;

BOOL SinkOpenPort(LPSTR, PHANDLE handle) {
    *handle = &sinkPort;
    return TRUE;
}
BOOL SinkStartDocPort(HANDLE, LPSTR, DWORD, DWORD, LPBYTE) { return TRUE; }
BOOL SinkWritePort(HANDLE, LPBYTE, DWORD length, LPDWORD written) {
    *written = length;
    return TRUE;
}
BOOL SinkReadPort(HANDLE, LPBYTE, DWORD, LPDWORD read) {
    *read = 0;
    return TRUE;
}
BOOL SinkEndDocPort(HANDLE) { return TRUE; }
BOOL SinkClosePort(HANDLE) { return TRUE; }
BOOL SinkGetPrinterDataFromPort(HANDLE, DWORD controlId, LPSTR, LPSTR, DWORD, LPSTR out, DWORD outSize,
                                LPDWORD returned) {
    if (controlId != DeviceIdControlId && controlId != UsbDeviceIdControlId) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    constexpr DWORD length = sizeof SinkDeviceId - 1;
    if (out == nullptr || outSize < length) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(out, SinkDeviceId, length);
    *returned = length;
    return TRUE;
}
BOOL SinkSetPortTimeOuts(HANDLE, LPCOMMTIMEOUTS, DWORD) { return TRUE; }

}  // namespace

MONITOR SinkTable() {
    MONITOR table{};
    table.OpenPort = SinkOpenPort;
    table.StartDocPort = SinkStartDocPort;
    table.WritePort = SinkWritePort;
    table.ReadPort = SinkReadPort;
    table.EndDocPort = SinkEndDocPort;
    table.ClosePort = SinkClosePort;
    table.GetPrinterDataFromPort = SinkGetPrinterDataFromPort;
    table.SetPortTimeOuts = SinkSetPortTimeOuts;
    return table;
}

}  // namespace langmon::bench
