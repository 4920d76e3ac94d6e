// What every port monitor below the language monitor does alike: a failed
// call sets the thread's last error, a wait is a poll(2) bounded by the time
// a call has left, and a port is found by its name without the colon and
// without regard to case, as the spooler names it.
#pragma once

#include "platform/last_error.h"

#include <langmon/monitor.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

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

// The time-outs SetPortTimeOuts gave a port, shared by every open of it.
class PortTimeOuts {
public:
    void Set(const COMMTIMEOUTS& timeOuts) {
        std::lock_guard hold(lock_);
        have_ = true;
        value_ = timeOuts;
    }
    // The time-outs, and in `have` whether any were set.
    COMMTIMEOUTS Get(bool* have) {
        std::lock_guard hold(lock_);
        *have = have_;
        return value_;
    }
    // The milliseconds a write of `size` bytes may take; 0 without
    // time-outs, where a write waits for nothing: no thread is held for a
    // time no one chose.
    uint64_t WriteLimitMs(DWORD size) {
        bool have = false;
        const COMMTIMEOUTS timeOuts = Get(&have);
        return have ? timeOuts.WriteTotalTimeoutConstant + uint64_t{timeOuts.WriteTotalTimeoutMultiplier} * size : 0;
    }

private:
    std::mutex lock_;
    bool have_ = false;
    COMMTIMEOUTS value_{};
};

inline constexpr DWORD NoWait = 0xFFFFFFFFu;  // MAXDWORD, as COMMTIMEOUTS spells "no wait"

// How long a read of `size` bytes may wait, as a serial port reads the
// time-outs: with ReadIntervalTimeout MAXDWORD and no totals it returns at
// once with what is there; with MAXDWORD for the interval and the
// multiplier it ends with the first bytes; otherwise it waits up to the
// total for its buffer to fill, and ends early once the line has been quiet
// for ReadIntervalTimeout after a byte. Before SetPortTimeOuts a read
// returns at once: nothing blocks a thread for a time no one chose.
struct ReadPlan {
    std::optional<Clock::time_point> deadline;  // none: no total limit
    DWORD interval = 0;                          // 0: no quiet interval
    bool firstBytesEnd = false;

    ReadPlan(PortTimeOuts& timeOuts, DWORD size) {
        bool have = false;
        const COMMTIMEOUTS t = timeOuts.Get(&have);
        const bool atOnce =
            !have || (t.ReadIntervalTimeout == NoWait && t.ReadTotalTimeoutMultiplier == 0 && t.ReadTotalTimeoutConstant == 0);
        firstBytesEnd = have && t.ReadIntervalTimeout == NoWait && t.ReadTotalTimeoutMultiplier == NoWait;
        if (atOnce) {
            deadline = Clock::now();
        } else {
            const uint64_t multiplier = firstBytesEnd ? 0 : t.ReadTotalTimeoutMultiplier;
            const uint64_t total = t.ReadTotalTimeoutConstant + multiplier * size;
            if (total != 0) deadline = Clock::now() + std::chrono::milliseconds(total);
        }
        interval = !atOnce && !firstBytesEnd && t.ReadIntervalTimeout != NoWait ? t.ReadIntervalTimeout : 0;
    }
    // The milliseconds to wait for more once `done` bytes came: 0 when the
    // read is over, -1 without a limit.
    int WaitMs(DWORD done) const {
        const int left = MsLeft(deadline);
        if (done == 0 || interval == 0) return left;
        return left < 0 ? static_cast<int>(interval) : std::min<int>(left, static_cast<int>(interval));
    }
    // Whether a wait that saw nothing (`ready` 0) after `done` bytes ends the
    // read: the line was quiet for the interval.
    bool QuietEnds(int ready, DWORD done) const { return ready == 0 && done != 0 && interval != 0; }
};

// Hands the device ID `id` over as GetPrinterDataFromPort does: the text
// with its NUL in `out`, the count without the NUL; a buffer too small for
// both is left alone, and told the size it needs.
inline BOOL HandOverDeviceId(const std::string& id, char* out, DWORD outSize, DWORD* returned) {
    if (!out || outSize < id.size() + 1) {
        if (returned) *returned = static_cast<DWORD>(id.size() + 1);
        return Fail(ERROR_INSUFFICIENT_BUFFER);
    }
    std::copy(id.c_str(), id.c_str() + id.size() + 1, out);
    if (returned) *returned = static_cast<DWORD>(id.size());
    return TRUE;
}

// Ends one of an open port's documents; false when none is open.
inline bool EndOneDocument(std::atomic<int>& documents) {
    int open = documents.load();
    do {
        if (open == 0) return false;
    } while (!documents.compare_exchange_weak(open, open - 1));
    return true;
}

// The checks a write and a read share, for an open port that counts its
// documents: null with the last error set when they fail, and with TRUE in
// `result` for a call of 0 bytes, which has nothing to do.
template <typename Open>
Open* CheckTransfer(Open* open, const BYTE* buffer, DWORD size, DWORD* count, BOOL* result) {
    *result = FALSE;
    if (!open || !count) return Fail(ERROR_INVALID_PARAMETER), nullptr;
    *count = 0;
    if (open->documents == 0) return Fail(ERROR_INVALID_HANDLE), nullptr;
    if (size == 0) return *result = TRUE, nullptr;
    if (!buffer) return Fail(ERROR_INVALID_PARAMETER), nullptr;
    return open;
}

// A port monitor's table, from the struct whose static members are its
// entries.
template <typename Entries>
MONITOR EntryTable() {
    MONITOR table{};
    table.EnumPorts = Entries::EnumPorts;
    table.OpenPort = Entries::OpenPort;
    table.StartDocPort = Entries::StartDocPort;
    table.WritePort = Entries::WritePort;
    table.ReadPort = Entries::ReadPort;
    table.EndDocPort = Entries::EndDocPort;
    table.ClosePort = Entries::ClosePort;
    table.AddPort = Entries::AddPort;
    table.ConfigurePort = Entries::ConfigurePort;
    table.DeletePort = Entries::DeletePort;
    table.GetPrinterDataFromPort = Entries::GetPrinterDataFromPort;
    table.SetPortTimeOuts = Entries::SetPortTimeOuts;
    return table;
}

// The port of `ports` that `name` names, or null.
template <typename Port>
Port* FindNamedPort(const std::vector<std::unique_ptr<Port>>& ports, const char* name) {
    const std::string bare = BarePortName(name);
    for (const auto& port : ports) {
        if (SamePortName(port->name, bare)) return port.get();
    }
    return nullptr;
}

// The port of `ports` that `name` names, made if there is none.
template <typename Port>
Port& NamedPort(std::vector<std::unique_ptr<Port>>& ports, const std::string& name) {
    if (Port* port = FindNamedPort(ports, name.c_str())) return *port;
    ports.push_back(std::make_unique<Port>());
    ports.back()->name = BarePortName(name.c_str());
    return *ports.back();
}

}  // namespace langmon::ports
