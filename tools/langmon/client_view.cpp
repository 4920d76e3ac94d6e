#include "client_view.h"

#include "status_report.h"

#include "platform/clock.h"
#include "platform/library.h"
#include "platform/spooler_printers.h"
#include "variables/spooler_status.h"
#include "variables/status_variable.h"

#include <langmon/status_manager.h>

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

std::vector<ClientVariable> ReadClientView(const std::string& printerName, std::string* problem) {
    std::vector<ClientVariable> variables;
    HMODULE library = LoadLibraryA("KVTRM.DLL");
    if (library == nullptr) {
        *problem = "the status manager library (libkvtrm.so) was not found";
        return variables;
    }
    auto open = reinterpret_cast<decltype(&::OpenManagerExA)>(GetProcAddress(library, "OpenManagerExA"));
    auto read = reinterpret_cast<decltype(&::GetPrinterStatusA)>(GetProcAddress(library, "GetPrinterStatusA"));
    auto close = reinterpret_cast<decltype(&::CloseManager)>(GetProcAddress(library, "CloseManager"));
    uint32_t handle = 0;
    if (open == nullptr || read == nullptr || close == nullptr ||
        open(printerName.c_str(), STATUS_MANAGER_DEVICE, 1, &handle) != 0) {
        *problem = "the status manager would not open the printer's store";
        FreeLibrary(library);
        return variables;
    }
    for (const StatusVariable* row = StatusVariableTable; row->Name != nullptr; ++row) {
        if (row->Size == 0) continue;
        DWORD needed = 0;
        if (read(handle, row->Name, nullptr, 0, &needed) != STATUS_MANAGER_BUFFER_TOO_SMALL) continue;
        ClientVariable variable{row->Name, std::vector<uint8_t>(needed)};
        if (read(handle, row->Name, variable.bytes.data(), needed, &needed) == 0) {
            variable.bytes.resize(needed);
            variables.push_back(std::move(variable));
        }
    }
    close(handle);
    FreeLibrary(library);
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
