// What every port monitor below the language monitor does alike: a failed
// call sets the thread's last error, a wait is a poll(2) bounded by the time
// a call has left, and a port is found by its name without the colon and
// without regard to case, as the spooler names it.
#pragma once

#include "platform/last_error.h"

#include <langmon/monitor.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>

namespace langmon::ports {

inline BOOL Fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

using Clock = std::chrono::steady_clock;

// Milliseconds left until `deadline`, for poll(2): -1 without one.
inline int MsLeft(const std::optional<Clock::time_point>& deadline) {
    if (!deadline) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()).count();
    return left <= 0 ? 0 : static_cast<int>(std::min<long long>(left, 1 << 30));
}

// "COM1:" and "COM1" are one port.
inline std::string BarePortName(const char* name) {
    std::string bare(name);
    if (!bare.empty() && bare.back() == ':') bare.pop_back();
    return bare;
}

inline bool SamePortName(const std::string& a, const std::string& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
        return lower(x) == lower(y);
    });
}

}  // namespace langmon::ports
