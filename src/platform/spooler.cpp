// The print spooler, modelled on the registry where the spooler keeps its
// state: ports under each monitor's "Ports" key, printers under "Printers".
// Answers are packed like the spooler packs them, the fixed records at the start
// of the caller's buffer and the texts they point at behind them, so that code
// which walks the records or frees the one buffer meets what it would meet on
// Windows.

#include "platform/spooler.h"

#include "platform/packed_answer.h"
#include "platform/registry.h"

#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

namespace langmon {

namespace {

using platform::AnswerPacked;
using platform::PackedWriter;

constexpr const char* kMonitorsKey = "System\\CurrentControlSet\\control\\Print\\Monitors";

// ---------------------------------------------------------------------------
// Fault injection: each call asks its gate first.

struct Gate {
    DWORD error = 0;
    int remaining = 0;  // < 0: until told to stop
};

// One gate per SpoolerCall: keep this on the last one as calls are added.
constexpr std::size_t kCallCount = static_cast<std::size_t>(platform::SpoolerCall::SetPrinter) + 1;

struct Gates {
    std::mutex mutex;
    std::array<Gate, kCallCount> gates;
    // Calls made, counted without the mutex, and whether any gate fails
    // calls: a host's hundreds of status threads pass here on every spooler
    // call, and no gate is armed outside the tests.
    std::array<std::atomic<std::size_t>, kCallCount> calls{};
    std::atomic<bool> armed{false};
};

Gates& TheGates() {
    static auto* gates = new Gates();  // never destroyed, see kernel.h
    return *gates;
}

// ---------------------------------------------------------------------------
// Ports.

struct Port {
    std::string name;
    std::string monitor;
    std::string description;
    DWORD type;
};

// Every subkey P of "<monitor>\Ports" of every monitor is a port P.
std::vector<Port> ListPorts() {
    std::vector<Port> ports;
    for (const std::string& monitor : platform::RegistrySubkeys(HKEY_LOCAL_MACHINE, kMonitorsKey)) {
        const std::string portsKey = std::string(kMonitorsKey) + "\\" + monitor + "\\Ports";
        for (const std::string& name : platform::RegistrySubkeys(HKEY_LOCAL_MACHINE, portsKey)) {
            const std::string portKey = portsKey + "\\" + name;
            Port port{name, monitor, monitor, PORT_TYPE_WRITE | PORT_TYPE_READ};
            // Ports of monitors that don't describe them get the monitor's name,
            // which is what the network monitors show.
            if (auto text = platform::RegistryGetString(HKEY_LOCAL_MACHINE, portKey, "Description")) {
                port.description = *text;
            }
            if (auto type = platform::RegistryGetDword(HKEY_LOCAL_MACHINE, portKey, "PortType")) {
                port.type = *type;
            }
            ports.push_back(std::move(port));
        }
    }
    return ports;
}

}  // namespace

// The server name is not looked at: there is one machine, this one.
BOOL EnumPortsA(LPSTR /*serverName*/, DWORD level, LPBYTE ports, DWORD bufferSize, LPDWORD needed,
                LPDWORD returned) {
    DWORD error;
    if (platform::SpoolerCallFails(platform::SpoolerCall::EnumPorts, &error)) {
        if (needed) *needed = 0;
        if (returned) *returned = 0;
        SetLastError(error);
        return FALSE;
    }
    if (!needed || !returned) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (level != 1 && level != 2) {
        SetLastError(ERROR_INVALID_LEVEL);
        return FALSE;
    }
    const std::vector<Port> list = ListPorts();

    if (level == 1) {
        std::size_t size = list.size() * sizeof(PORT_INFO_1);
        for (const Port& port : list) size += port.name.size() + 1;
        return AnswerPacked(ports, bufferSize, size, list.size(), needed, returned, [&] {
            PackedWriter out(ports, list.size() * sizeof(PORT_INFO_1));
            for (std::size_t i = 0; i < list.size(); ++i) {
                PORT_INFO_1 info{};
                info.pName = out.PutText(list[i].name);
                out.PutRecord(i, info);
            }
        });
    }

    std::size_t size = list.size() * sizeof(PORT_INFO_2);
    for (const Port& port : list) {
        size += port.name.size() + 1 + port.monitor.size() + 1 + port.description.size() + 1;
    }
    return AnswerPacked(ports, bufferSize, size, list.size(), needed, returned, [&] {
        PackedWriter out(ports, list.size() * sizeof(PORT_INFO_2));
        for (std::size_t i = 0; i < list.size(); ++i) {
            PORT_INFO_2 info{};
            info.pPortName = out.PutText(list[i].name);
            info.pMonitorName = out.PutText(list[i].monitor);
            info.pDescription = out.PutText(list[i].description);
            info.fPortType = list[i].type;
            info.Reserved = 0;
            out.PutRecord(i, info);
        }
    });
}

namespace platform {

void FailSpoolerCall(SpoolerCall call, DWORD error, int times) {
    Gates& g = TheGates();
    std::lock_guard lock(g.mutex);
    Gate& gate = g.gates[static_cast<std::size_t>(call)];
    gate.error = error;
    gate.remaining = times;
    g.armed = true;
}

void StopFailingSpoolerCalls() {
    Gates& g = TheGates();
    std::lock_guard lock(g.mutex);
    for (Gate& gate : g.gates) gate = Gate{};
    for (auto& calls : g.calls) calls = 0;
    g.armed = false;
}

bool SpoolerCallFails(SpoolerCall call, DWORD* error) {
    Gates& g = TheGates();
    g.calls[static_cast<std::size_t>(call)].fetch_add(1, std::memory_order_relaxed);
    if (!g.armed.load(std::memory_order_acquire)) return false;
    std::lock_guard lock(g.mutex);
    Gate& gate = g.gates[static_cast<std::size_t>(call)];
    if (gate.remaining == 0) return false;
    if (gate.remaining > 0) --gate.remaining;
    *error = gate.error;
    return true;
}

std::size_t SpoolerCallCount(SpoolerCall call) {
    return TheGates().calls[static_cast<std::size_t>(call)].load();
}

}  // namespace platform
}  // namespace langmon
