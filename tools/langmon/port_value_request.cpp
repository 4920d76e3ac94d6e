#include "port_value_request.h"

namespace langmon::tool {

int32_t AskPortValue(const MONITOR& monitor, HANDLE port, const std::string& name, int32_t fallback) {
    // The monitor's entries take writable texts, as the spooler's do.
    std::string text = name;
    int32_t answer = fallback;
    DWORD returned = 0;
    if (!monitor.GetPrinterDataFromPort(port, 0, text.data(), nullptr, 0, reinterpret_cast<LPSTR>(&answer),
                                        sizeof answer, &returned)) {
        return fallback;
    }
    return answer;
}

}  // namespace langmon::tool
