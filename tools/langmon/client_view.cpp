#include "client_view.h"

#include "platform/clock.h"
#include "platform/spooler_printers.h"
#include "variables/spooler_status.h"
#include "variables/status_variable.h"

#include <algorithm>
#include <ostream>

namespace langmon::tool {

namespace {

// The longest the spooler's status threads are waited for: their retries
// take 17 seconds when the spooler refuses.
constexpr DWORD SpoolerPatienceMs = 20000;

}  // namespace

ClientStore::ClientStore(const std::string& printerName, std::string* problem) {
    library_ = LoadLibraryA("KVTRM.DLL");
    if (library_ == nullptr) {
        *problem = "the status manager library " + platform::DescribeMissingLibrary("KVTRM.DLL");
        return;
    }
    auto open = reinterpret_cast<decltype(&::OpenManagerExA)>(GetProcAddress(library_, "OpenManagerExA"));
    read_ = reinterpret_cast<decltype(&::GetPrinterStatusA)>(GetProcAddress(library_, "GetPrinterStatusA"));
    write_ = reinterpret_cast<decltype(&::UpdatePrinterStatusA)>(GetProcAddress(library_, "UpdatePrinterStatusA"));
    close_ = reinterpret_cast<decltype(&::CloseManager)>(GetProcAddress(library_, "CloseManager"));
    uint32_t handle = 0;
    if (open == nullptr || read_ == nullptr || write_ == nullptr || close_ == nullptr ||
        open(printerName.c_str(), STATUS_MANAGER_DEVICE, 1, &handle) != 0) {
        *problem = "the status manager would not open the printer's store";
        return;
    }
    handle_ = handle;
}

ClientStore::~ClientStore() {
    if (handle_ != 0) close_(handle_);
    if (library_ != nullptr) FreeLibrary(library_);
}

std::optional<std::vector<uint8_t>> ClientStore::Read(const char* name) const {
    if (handle_ == 0) return std::nullopt;
    DWORD needed = 0;
    if (read_(handle_, name, nullptr, 0, &needed) != STATUS_MANAGER_BUFFER_TOO_SMALL) return std::nullopt;
    std::vector<uint8_t> bytes(needed);
    if (read_(handle_, name, bytes.data(), needed, &needed) != 0) return std::nullopt;
    bytes.resize(needed);
    return bytes;
}

bool ClientStore::Write(const char* name, const void* bytes, DWORD size) {
    return handle_ != 0 && write_(handle_, name, bytes, size) == 0;
}

bool ClientStore::Watch(const std::string& names, StatusManagerCallback callback, void* context) {
    if (handle_ == 0 || names.empty()) return false;
    auto watch = reinterpret_cast<decltype(&::SetNotificationCallbackExA)>(
        GetProcAddress(library_, "SetNotificationCallbackExA"));
    const auto count = static_cast<uint32_t>(1 + std::count(names.begin(), names.end(), ';'));
    uint32_t id = 0;
    return watch != nullptr && watch(handle_, count, names.c_str(), callback, context, &id) == 0;
}

std::vector<VariableValue> ClientStore::ReadAll() const {
    std::vector<VariableValue> values;
    for (const StatusVariable* row = StatusVariableTable; row->Name != nullptr; ++row) {
        if (row->Size == 0) continue;
        if (auto bytes = Read(row->Name)) values.push_back({row->Name, std::move(*bytes)});
    }
    return values;
}

std::vector<ClientVariable> ReadClientView(const std::string& printerName, std::string* problem) {
    return ClientStore(printerName, problem).ReadAll();
}

std::string SpoolerStatusNames(uint32_t value) {
    if (value == 0) return "0 (no special state)";
    std::string names;
    for (const SpoolerStatusRow* row = SpoolerStatusMap; row->Name != nullptr; ++row) {
        if ((value & row->Value) != 0) names += (names.empty() ? "" : " | ") + std::string(row->Name);
    }
    return names;
}

std::vector<DWORD> SpoolerStatusWords(const std::string& printerName) {
    const DWORD start = GetTickCount();
    while (SpoolerStatusThreadsRunning() != 0 && TickAge(GetTickCount(), start) < SpoolerPatienceMs) {
        Sleep(10);
    }
    return platform::PrinterStatusWords(printerName);
}

void DescribeSpoolerView(std::ostream& out, const std::string& printerName) {
    const std::vector<DWORD> words = SpoolerStatusWords(printerName);
    if (words.empty()) {
        out << "  none: its word stayed 0 (no special state), or the printer was never bound\n";
        return;
    }
    for (DWORD word : words) out << "  " << SpoolerStatusNames(word) << '\n';
}

}  // namespace langmon::tool
