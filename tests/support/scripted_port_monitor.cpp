#include "support/scripted_port_monitor.h"

#include "platform/clock.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace langmon::testing {

namespace {

// Calls may come from the spooler's thread and the monitor's own threads at
// once; one lock keeps the scripts and the records whole. No call waits
// while holding it.
std::mutex scriptLock;
ScriptedPortMonitor* activeMonitor = nullptr;

std::optional<std::string> TextOrNull(const char* text) {
    if (text == nullptr) {
        return std::nullopt;
    }
    return std::string(text);
}

std::string Quoted(const std::optional<std::string>& text) {
    if (!text) {
        return "null";
    }
    return "\"" + *text + "\"";
}

// Bytes as text, with anything unprintable escaped, for the call log.
std::string Printable(const std::string& bytes) {
    std::string out;
    for (unsigned char c : bytes) {
        if (c >= 0x20 && c < 0x7F && c != '\\') {
            out += static_cast<char>(c);
        } else {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", c);
            out += hex;
        }
    }
    return out;
}

std::string Hex(DWORD value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", value);
    return text;
}

}  // namespace

const char* CallName(CallKind kind) {
    switch (kind) {
    case CallKind::OpenPort: return "OpenPort";
    case CallKind::StartDocPort: return "StartDocPort";
    case CallKind::WritePort: return "WritePort";
    case CallKind::ReadPort: return "ReadPort";
    case CallKind::EndDocPort: return "EndDocPort";
    case CallKind::ClosePort: return "ClosePort";
    case CallKind::GetPrinterDataFromPort: return "GetPrinterDataFromPort";
    case CallKind::SetPortTimeOuts: return "SetPortTimeOuts";
    }
    return "?";
}

std::string PortCall::Describe() const {
    std::string text = "@" + std::to_string(tick) + " " + CallName(kind) + "(" + port;
    switch (kind) {
    case CallKind::StartDocPort:
        text += ", " + Quoted(printerName) + ", job " + std::to_string(jobId) + ", level " +
                std::to_string(level);
        if (hasDocInfo) {
            text += ", {" + Quoted(docName) + ", " + Quoted(outputFile) + ", " +
                    Quoted(datatype) + ", mode " + std::to_string(dwMode) + ", job " +
                    std::to_string(docJobId) + "}";
        } else {
            text += ", no doc info";
        }
        break;
    case CallKind::WritePort:
        text += ", " + std::to_string(bytes.size()) + " bytes \"" + Printable(bytes) +
                "\") took " + std::to_string(count);
        return text + " -> " + std::to_string(result);
    case CallKind::ReadPort:
        text += ", size " + std::to_string(size) + ") gave " + std::to_string(count) + " \"" +
                Printable(bytes) + "\"";
        return text + " -> " + std::to_string(result);
    case CallKind::GetPrinterDataFromPort:
        text += ", " + Hex(controlId) + ", " + Quoted(valueName) + ", in " +
                std::to_string(inSize) + ", out " + std::to_string(outSize) + ") returned " +
                std::to_string(returned);
        return text + " -> " + std::to_string(result);
    case CallKind::SetPortTimeOuts:
        text += ", {" + Hex(timeouts.ReadIntervalTimeout) + ", " +
                Hex(timeouts.ReadTotalTimeoutMultiplier) + ", " +
                std::to_string(timeouts.ReadTotalTimeoutConstant) + ", " +
                std::to_string(timeouts.WriteTotalTimeoutMultiplier) + ", " +
                std::to_string(timeouts.WriteTotalTimeoutConstant) + "}";
        break;
    default:
        break;
    }
    return text + ") -> " + std::to_string(result);
}

// ---- Script -----------------------------------------------------------------

void ScriptedPort::FailOpen(DWORD error) {
    std::lock_guard lock(scriptLock);
    failOpen_ = error != 0;
    openError_ = error;
}

void ScriptedPort::FailStartDoc(DWORD error, bool jobsOnly) {
    std::lock_guard lock(scriptLock);
    failStartDoc_ = error != 0;
    startDocError_ = error;
    startDocJobsOnly_ = jobsOnly;
}

void ScriptedPort::QueueWrite(WriteAnswer answer) {
    std::lock_guard lock(scriptLock);
    writes_.push_back(answer);
}

void ScriptedPort::QueueRead(ReadAnswer answer) {
    std::lock_guard lock(scriptLock);
    reads_.push_back(std::move(answer));
}

void ScriptedPort::SetDeviceId(std::string text) {
    std::lock_guard lock(scriptLock);
    controls_[17] = ControlAnswer{false, 0, text};
    controls_[0x16000C] = ControlAnswer{false, 0, std::move(text)};
}

void ScriptedPort::FailDeviceId(DWORD error) {
    std::lock_guard lock(scriptLock);
    controls_[17] = ControlAnswer{true, error, {}};
    controls_[0x16000C] = ControlAnswer{true, error, {}};
}

void ScriptedPort::SetControlAnswer(DWORD controlId, std::string text) {
    std::lock_guard lock(scriptLock);
    controls_[controlId] = ControlAnswer{false, 0, std::move(text)};
}

void ScriptedPort::SetTimeOutsError(DWORD error) {
    std::lock_guard lock(scriptLock);
    timeOutsError_ = error;
}

// ---- Records ----------------------------------------------------------------

std::vector<PortCall> ScriptedPort::Calls() const {
    std::lock_guard lock(scriptLock);
    return calls_;
}

std::vector<PortCall> ScriptedPort::Calls(CallKind kind) const {
    std::lock_guard lock(scriptLock);
    std::vector<PortCall> out;
    std::copy_if(calls_.begin(), calls_.end(), std::back_inserter(out),
                 [kind](const PortCall& call) { return call.kind == kind; });
    return out;
}

std::vector<CallKind> ScriptedPort::CallKinds() const {
    std::lock_guard lock(scriptLock);
    std::vector<CallKind> out;
    for (const PortCall& call : calls_) {
        out.push_back(call.kind);
    }
    return out;
}

int ScriptedPort::Count(CallKind kind) const {
    std::lock_guard lock(scriptLock);
    return static_cast<int>(std::count_if(calls_.begin(), calls_.end(),
                                          [kind](const PortCall& call) { return call.kind == kind; }));
}

int ScriptedPort::JobDocumentStarts() const {
    int count = 0;
    for (const PortCall& call : Calls(CallKind::StartDocPort)) {
        if (call.jobId != 0) ++count;
    }
    return count;
}

std::string ScriptedPort::Received() const {
    std::lock_guard lock(scriptLock);
    return received_;
}

void ScriptedPort::ForgetCalls() {
    std::lock_guard lock(scriptLock);
    calls_.clear();
    received_.clear();
}

void ScriptedPort::ForgetQueuedWrites() {
    std::lock_guard lock(scriptLock);
    writes_.clear();
}

// ---- The monitor ------------------------------------------------------------

// The C entries of the table. They find their port through the handle, which
// must be one that OpenPort gave out.
struct ScriptedEntries {
    // FALSE with the scripted last error when the script says fail.
    static BOOL Scripted(bool fail, DWORD error) {
        if (fail) {
            ::SetLastError(error);
        }
        return fail ? FALSE : TRUE;
    }

    static ScriptedPort* Find(HANDLE handle) {
        if (activeMonitor == nullptr) {
            return nullptr;
        }
        for (auto& [name, port] : activeMonitor->ports_) {
            if (port.get() == handle) {
                return port.get();
            }
        }
        return nullptr;
    }

    static void Record(ScriptedPort* port, PortCall call) {
        call.port = port->name_;
        activeMonitor->log_.push_back(call.Describe());
        port->calls_.push_back(std::move(call));
    }

    static PortCall NewCall(CallKind kind, DWORD tick) {
        PortCall call;
        call.kind = kind;
        call.tick = tick;
        return call;
    }

    static BOOL BadHandle() {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }

    static BOOL OpenPort(LPSTR pName, PHANDLE pHandle) {
        const DWORD tick = GetTickCount();
        std::lock_guard lock(scriptLock);
        if (activeMonitor == nullptr || pName == nullptr || pHandle == nullptr) {
            ::SetLastError(ERROR_INVALID_PARAMETER);
            return FALSE;
        }
        auto& slot = activeMonitor->ports_[pName];
        if (!slot) {
            slot = std::make_unique<ScriptedPort>(pName);
        }
        ScriptedPort* port = slot.get();
        PortCall call = NewCall(CallKind::OpenPort, tick);
        if (port->failOpen_) {
            ::SetLastError(port->openError_);
            call.result = FALSE;
        } else {
            *pHandle = port;
            call.result = TRUE;
        }
        Record(port, call);
        return call.result;
    }

    static BOOL StartDocPort(HANDLE hPort, LPSTR pPrinterName, DWORD JobId, DWORD Level,
                             LPBYTE pDocInfo) {
        const DWORD tick = GetTickCount();
        std::lock_guard lock(scriptLock);
        ScriptedPort* port = Find(hPort);
        if (port == nullptr) {
            return BadHandle();
        }
        PortCall call = NewCall(CallKind::StartDocPort, tick);
        call.printerName = TextOrNull(pPrinterName);
        call.jobId = JobId;
        call.level = Level;
        if (pDocInfo != nullptr && (Level == 1 || Level == 2)) {
            const auto* doc = reinterpret_cast<const DOC_INFO_1*>(pDocInfo);
            call.hasDocInfo = true;
            call.docName = TextOrNull(doc->pDocName);
            call.outputFile = TextOrNull(doc->pOutputFile);
            call.datatype = TextOrNull(doc->pDatatype);
            if (Level == 2) {
                const auto* doc2 = reinterpret_cast<const DOC_INFO_2*>(pDocInfo);
                call.dwMode = doc2->dwMode;
                call.docJobId = doc2->JobId;
            }
        }
        call.result = Scripted(port->failStartDoc_ && (JobId != 0 || !port->startDocJobsOnly_),
                               port->startDocError_);
        Record(port, call);
        return call.result;
    }

    static BOOL WritePort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten) {
        const DWORD tick = GetTickCount();
        std::lock_guard lock(scriptLock);
        ScriptedPort* port = Find(hPort);
        if (port == nullptr) {
            return BadHandle();
        }
        WriteAnswer answer = WriteAnswer::TakeAll();
        if (!port->writes_.empty()) {
            answer = port->writes_.front();
            port->writes_.pop_front();
        }
        const DWORD taken = std::min(answer.take, cbBuf);
        PortCall call = NewCall(CallKind::WritePort, tick);
        if (pBuffer != nullptr) {
            call.bytes.assign(reinterpret_cast<const char*>(pBuffer), cbBuf);
            port->received_.append(reinterpret_cast<const char*>(pBuffer), taken);
        }
        call.count = taken;
        call.result = answer.result;
        if (pcbWritten != nullptr) {
            *pcbWritten = taken;
        }
        if (answer.error != 0) {
            ::SetLastError(answer.error);
        }
        Record(port, call);
        return call.result;
    }

    static BOOL ReadPort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuffer, LPDWORD pcbRead) {
        const DWORD tick = GetTickCount();
        std::lock_guard lock(scriptLock);
        ScriptedPort* port = Find(hPort);
        if (port == nullptr) {
            return BadHandle();
        }
        PortCall call = NewCall(CallKind::ReadPort, tick);
        call.size = cbBuffer;
        call.result = TRUE;
        if (!port->reads_.empty()) {
            ReadAnswer& next = port->reads_.front();
            if (next.result == FALSE) {
                ::SetLastError(next.error);
                call.result = FALSE;
                port->reads_.pop_front();
            } else {
                const std::size_t n = std::min<std::size_t>(next.data.size(), cbBuffer);
                call.bytes = next.data.substr(0, n);
                if (pBuffer != nullptr) {
                    std::memcpy(pBuffer, next.data.data(), n);
                }
                if (n < next.data.size()) {
                    next.data.erase(0, n);
                } else {
                    port->reads_.pop_front();
                }
            }
        }
        call.count = static_cast<DWORD>(call.bytes.size());
        if (pcbRead != nullptr) {
            *pcbRead = call.count;
        }
        Record(port, call);
        return call.result;
    }

    static BOOL EndDocPort(HANDLE hPort) {
        const DWORD tick = GetTickCount();
        std::lock_guard lock(scriptLock);
        ScriptedPort* port = Find(hPort);
        if (port == nullptr) {
            return BadHandle();
        }
        PortCall call = NewCall(CallKind::EndDocPort, tick);
        call.result = TRUE;
        Record(port, call);
        return call.result;
    }

    static BOOL ClosePort(HANDLE hPort) {
        const DWORD tick = GetTickCount();
        std::lock_guard lock(scriptLock);
        ScriptedPort* port = Find(hPort);
        if (port == nullptr) {
            return BadHandle();
        }
        PortCall call = NewCall(CallKind::ClosePort, tick);
        call.result = TRUE;
        Record(port, call);
        return TRUE;
    }

    static BOOL GetPrinterDataFromPort(HANDLE hPort, DWORD ControlID, LPSTR pValueName,
                                       LPSTR lpInBuffer, DWORD cbInBuffer, LPSTR lpOutBuffer,
                                       DWORD cbOutBuffer, LPDWORD lpcbReturned) {
        (void)lpInBuffer;
        const DWORD tick = GetTickCount();
        std::lock_guard lock(scriptLock);
        ScriptedPort* port = Find(hPort);
        if (port == nullptr) {
            return BadHandle();
        }
        PortCall call = NewCall(CallKind::GetPrinterDataFromPort, tick);
        call.controlId = ControlID;
        call.valueName = TextOrNull(pValueName);
        call.inSize = cbInBuffer;
        call.outSize = cbOutBuffer;
        const auto found = port->controls_.find(ControlID);
        if (found == port->controls_.end() || found->second.fail) {
            ::SetLastError(found == port->controls_.end() ? ERROR_NOT_SUPPORTED
                                                          : found->second.error);
            call.result = FALSE;
        } else {
            const std::string& text = found->second.text;
            const DWORD n = std::min<DWORD>(static_cast<DWORD>(text.size()), cbOutBuffer);
            if (lpOutBuffer != nullptr) {
                std::memcpy(lpOutBuffer, text.data(), n);
            }
            call.returned = n;
            call.result = TRUE;
        }
        if (lpcbReturned != nullptr) {
            *lpcbReturned = call.returned;
        }
        Record(port, call);
        return call.result;
    }

    static BOOL SetPortTimeOuts(HANDLE hPort, LPCOMMTIMEOUTS lpCTO, DWORD reserved) {
        (void)reserved;
        const DWORD tick = GetTickCount();
        std::lock_guard lock(scriptLock);
        ScriptedPort* port = Find(hPort);
        if (port == nullptr) {
            return BadHandle();
        }
        PortCall call = NewCall(CallKind::SetPortTimeOuts, tick);
        if (lpCTO != nullptr) {
            call.timeouts = *lpCTO;
        }
        call.result = TRUE;
        if (port->timeOutsError_ != 0) {
            ::SetLastError(port->timeOutsError_);
        }
        Record(port, call);
        return TRUE;
    }
};

ScriptedPortMonitor::ScriptedPortMonitor() {
    table_.OpenPort = &ScriptedEntries::OpenPort;
    table_.StartDocPort = &ScriptedEntries::StartDocPort;
    table_.WritePort = &ScriptedEntries::WritePort;
    table_.ReadPort = &ScriptedEntries::ReadPort;
    table_.EndDocPort = &ScriptedEntries::EndDocPort;
    table_.ClosePort = &ScriptedEntries::ClosePort;
    table_.GetPrinterDataFromPort = &ScriptedEntries::GetPrinterDataFromPort;
    table_.SetPortTimeOuts = &ScriptedEntries::SetPortTimeOuts;
    std::lock_guard lock(scriptLock);
    if (activeMonitor != nullptr) {
        std::fprintf(stderr, "ScriptedPortMonitor: a second one while one is alive\n");
        std::abort();
    }
    activeMonitor = this;
}

ScriptedPortMonitor::~ScriptedPortMonitor() {
    std::lock_guard lock(scriptLock);
    activeMonitor = nullptr;
}

ScriptedPort& ScriptedPortMonitor::Port(const std::string& name) {
    std::lock_guard lock(scriptLock);
    auto& slot = ports_[name];
    if (!slot) {
        slot = std::make_unique<ScriptedPort>(name);
    }
    return *slot;
}

std::string ScriptedPortMonitor::Log() const {
    std::lock_guard lock(scriptLock);
    std::string text = "calls below the monitor:\n";
    for (const std::string& line : log_) {
        text += "  " + line + "\n";
    }
    return text;
}

}  // namespace langmon::testing
