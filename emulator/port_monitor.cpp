#include "emulator/port_monitor.h"

#include "emulator/pjl_command.h"
#include "platform/clock.h"
#include "platform/last_error.h"

#include <atomic>
#include <cstring>

namespace langmon::emulator {

// A language monitor calls a port from the spooler's thread and from its own
// threads at once, so what the calls share is atomic or locked.
struct PortMonitor::Port {
    std::string name;
    Printer* printer = nullptr;
    std::atomic<int> openCount{0};
    // Documents nest: a language monitor opens one around a read even while
    // a job's document is open. The printer sees the outermost one.
    std::atomic<int> documents{0};
    std::mutex timeOutsLock;
    bool haveTimeOuts = false;
    COMMTIMEOUTS timeOuts{};

    // Milliseconds a write of `size` bytes may take, 0 without time-outs.
    DWORD WriteTimeOut(DWORD size) {
        std::lock_guard lock(timeOutsLock);
        return haveTimeOuts ? timeOuts.WriteTotalTimeoutConstant + timeOuts.WriteTotalTimeoutMultiplier * size : 0;
    }
};

namespace {

PortMonitor* active = nullptr;

constexpr DWORD UsbDeviceIdCode = 0x16000C;
constexpr DWORD DeviceIdCode = 17;

BOOL Fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

}  // namespace

// The C entries, friends of PortMonitor so that they reach its ports.
struct PortEntries {
    using Port = PortMonitor::Port;

    static Port* FromHandle(HANDLE handle) { return static_cast<Port*>(handle); }

    static BOOL EnumPorts(char*, DWORD, BYTE*, DWORD, DWORD* needed, DWORD* returned) {
        if (needed) *needed = 0;
        if (returned) *returned = 0;
        return Fail(ERROR_NOT_SUPPORTED);
    }

    static BOOL OpenPort(char* name, HANDLE* handle) {
        if (!name || !handle || !active) return Fail(ERROR_INVALID_PARAMETER);
        std::lock_guard lock(active->mutex_);
        Port* port = active->FindPort(name);
        if (!port) return Fail(ERROR_FILE_NOT_FOUND);
        ++port->openCount;
        *handle = port;
        return TRUE;
    }

    static BOOL StartDocPort(HANDLE handle, char*, DWORD, DWORD, BYTE*) {
        Port* port = FromHandle(handle);
        if (!port) return Fail(ERROR_INVALID_HANDLE);
        if (port->documents.fetch_add(1) == 0) port->printer->StartDocument();
        return TRUE;
    }

    // The checks a write and a read share: a port, a count to set, an open
    // document and a buffer. Null with the last error set when they fail;
    // a call of 0 bytes passes them with nothing to do.
    static Port* ForTransfer(HANDLE handle, BYTE* buffer, DWORD size, DWORD* count, BOOL* result) {
        Port* port = FromHandle(handle);
        *result = FALSE;
        if (!port || !count) return Fail(ERROR_INVALID_PARAMETER), nullptr;
        *count = 0;
        if (port->documents == 0) return Fail(ERROR_INVALID_HANDLE), nullptr;
        if (size == 0) return *result = TRUE, nullptr;
        if (!buffer) return Fail(ERROR_INVALID_PARAMETER), nullptr;
        return port;
    }

    static BOOL WritePort(HANDLE handle, BYTE* buffer, DWORD size, DWORD* written) {
        BOOL result;
        Port* port = ForTransfer(handle, buffer, size, written, &result);
        if (!port) return result;
        size_t taken = port->printer->Write({reinterpret_cast<const char*>(buffer), size});
        *written = static_cast<DWORD>(taken);
        if (taken != 0) return TRUE;
        // Nothing went: the port waits as long as it was told to, then gives up.
        if (DWORD wait = port->WriteTimeOut(size)) Sleep(wait);
        return Fail(ERROR_TIMEOUT);
    }

    static BOOL ReadPort(HANDLE handle, BYTE* buffer, DWORD size, DWORD* read) {
        BOOL result;
        Port* port = ForTransfer(handle, buffer, size, read, &result);
        if (!port) return result;
        *read = static_cast<DWORD>(port->printer->Read(reinterpret_cast<char*>(buffer), size));
        return TRUE;
    }

    static BOOL EndDocPort(HANDLE handle) {
        Port* port = FromHandle(handle);
        if (!port) return Fail(ERROR_INVALID_HANDLE);
        int open = port->documents.load();
        do {
            if (open == 0) return Fail(ERROR_INVALID_HANDLE);
        } while (!port->documents.compare_exchange_weak(open, open - 1));
        if (open == 1) port->printer->EndDocument();
        return TRUE;
    }

    static BOOL ClosePort(HANDLE handle) {
        Port* port = FromHandle(handle);
        if (!port || port->openCount == 0) return Fail(ERROR_INVALID_HANDLE);
        if (port->documents.exchange(0) != 0) port->printer->EndDocument();
        --port->openCount;
        return TRUE;
    }

    static BOOL AddPort(char*, HWND, char*) { return Fail(ERROR_NOT_SUPPORTED); }
    static BOOL ConfigurePort(char*, HWND, char*) { return Fail(ERROR_NOT_SUPPORTED); }
    static BOOL DeletePort(char*, HWND, char*) { return Fail(ERROR_NOT_SUPPORTED); }

    static BOOL GetPrinterDataFromPort(HANDLE handle, DWORD controlId, char*, char*, DWORD, char* out,
                                       DWORD outSize, DWORD* returned) {
        Port* port = FromHandle(handle);
        if (!port) return Fail(ERROR_INVALID_HANDLE);
        if (returned) *returned = 0;
        if (controlId != DeviceIdCode && controlId != UsbDeviceIdCode) return Fail(ERROR_NOT_SUPPORTED);
        std::optional<std::string> id = port->printer->DeviceId();
        if (!id) return Fail(ERROR_TIMEOUT);
        // The text with its NUL; the count leaves the NUL out.
        if (!out || outSize < id->size() + 1) {
            if (returned) *returned = static_cast<DWORD>(id->size() + 1);
            return Fail(ERROR_INSUFFICIENT_BUFFER);
        }
        std::memcpy(out, id->c_str(), id->size() + 1);
        if (returned) *returned = static_cast<DWORD>(id->size());
        return TRUE;
    }

    static BOOL SetPortTimeOuts(HANDLE handle, COMMTIMEOUTS* timeOuts, DWORD) {
        Port* port = FromHandle(handle);
        if (!port || !timeOuts) return Fail(ERROR_INVALID_PARAMETER);
        std::lock_guard lock(port->timeOutsLock);
        port->haveTimeOuts = true;
        port->timeOuts = *timeOuts;
        return TRUE;
    }
};

PortMonitor::PortMonitor() {
    table_.EnumPorts = PortEntries::EnumPorts;
    table_.OpenPort = PortEntries::OpenPort;
    table_.StartDocPort = PortEntries::StartDocPort;
    table_.WritePort = PortEntries::WritePort;
    table_.ReadPort = PortEntries::ReadPort;
    table_.EndDocPort = PortEntries::EndDocPort;
    table_.ClosePort = PortEntries::ClosePort;
    table_.AddPort = PortEntries::AddPort;
    table_.ConfigurePort = PortEntries::ConfigurePort;
    table_.DeletePort = PortEntries::DeletePort;
    table_.GetPrinterDataFromPort = PortEntries::GetPrinterDataFromPort;
    table_.SetPortTimeOuts = PortEntries::SetPortTimeOuts;
    active = this;
}

PortMonitor::~PortMonitor() {
    if (active == this) active = nullptr;
}

void PortMonitor::Attach(const std::string& portName, Printer& printer) {
    std::lock_guard lock(mutex_);
    if (Port* port = FindPort(portName.c_str())) {
        port->printer = &printer;
        return;
    }
    auto port = std::make_unique<Port>();
    port->name = portName;
    port->printer = &printer;
    ports_.push_back(std::move(port));
}

PortMonitor::Port* PortMonitor::FindPort(const char* name) {
    for (auto& port : ports_) {
        if (EqualsNoCase(port->name, name)) return port.get();
    }
    return nullptr;
}

}  // namespace langmon::emulator
