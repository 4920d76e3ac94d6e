#include "client_view.h"

#include "printer_view.h"

#include "platform/clock.h"
#include "platform/spooler_printers.h"
#include "variables/spooler_status.h"
#include "variables/status_variable.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iomanip>
#include <ostream>

namespace langmon::tool {

namespace {

// The longest the spooler's status threads are waited for: their retries
// take 17 seconds when the spooler refuses.
constexpr DWORD SpoolerPatienceMs = 20000;

// Texts live in blocks of their own size; short values are numbers.
bool LooksLikeText(const std::vector<uint8_t>& bytes) {
    if (bytes.size() <= 16) return false;
    std::size_t length = 0;
    while (length < bytes.size() && bytes[length] != 0) {
        if (bytes[length] < 0x20 || bytes[length] > 0x7E) return false;
        ++length;
    }
    return length > 0 && length < bytes.size();
}

uint32_t WordAt(const std::vector<uint8_t>& bytes, std::size_t index) {
    uint32_t word = 0;
    std::memcpy(&word, bytes.data() + 4 * index, sizeof word);
    return word;
}

// A value as a person reads it: a text, up to four words, or its first bytes.
std::string ShowValue(const ClientVariable& variable) {
    const std::vector<uint8_t>& bytes = variable.bytes;
    char piece[16];
    if (LooksLikeText(bytes)) {
        return "\"" + std::string(reinterpret_cast<const char*>(bytes.data())) + "\"";
    }
    std::string text;
    if (bytes.size() % 4 == 0 && bytes.size() <= 16) {
        for (std::size_t i = 0; i < bytes.size() / 4; ++i) {
            std::snprintf(piece, sizeof piece, "%s0x%X", i == 0 ? "" : " ", WordAt(bytes, i));
            text += piece;
        }
    } else {
        for (std::size_t i = 0; i < bytes.size() && i < 16; ++i) {
            std::snprintf(piece, sizeof piece, "%02x", bytes[i]);
            text += piece;
        }
        if (bytes.size() > 16) text += "...";
    }
    if (variable.name == "PrinterStatus" && bytes.size() == 12) {
        text += " (" + PrinterStatusText(WordAt(bytes, 1), WordAt(bytes, 2)) + ")";
    }
    return text;
}

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

std::vector<ClientVariable> ReadClientView(const std::string& printerName, std::string* problem) {
    std::vector<ClientVariable> variables;
    const ClientStore store(printerName, problem);
    for (const StatusVariable* row = StatusVariableTable; row->Name != nullptr; ++row) {
        if (row->Size == 0) continue;
        if (auto bytes = store.Read(row->Name)) variables.push_back({row->Name, std::move(*bytes)});
    }
    return variables;
}

void DescribeClientView(std::ostream& out, const std::vector<ClientVariable>& variables) {
    for (const ClientVariable& variable : variables) {
        out << "  " << std::left << std::setw(20) << variable.name << ShowValue(variable) << '\n';
    }
}

std::string SpoolerStatusNames(uint32_t value) {
    if (value == 0) return "0 (no special state)";
    std::string names;
    for (const SpoolerStatusRow* row = SpoolerStatusMap; row->Name != nullptr; ++row) {
        if ((value & row->Value) != 0) names += (names.empty() ? "" : " | ") + std::string(row->Name);
    }
    return names;
}

void DescribeSpoolerView(std::ostream& out, const std::string& printerName) {
    const DWORD start = GetTickCount();
    while (SpoolerStatusThreadsRunning() != 0 && TickAge(GetTickCount(), start) < SpoolerPatienceMs) {
        Sleep(10);
    }
    const std::vector<DWORD> words = platform::PrinterStatusWords(printerName);
    if (words.empty()) {
        out << "  none: its word stayed 0 (no special state), or the printer was never bound\n";
        return;
    }
    for (DWORD word : words) out << "  " << SpoolerStatusNames(word) << '\n';
}

}  // namespace langmon::tool
