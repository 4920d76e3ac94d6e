// The printer as its status clients and the spooler see it: the variables a
// client reads from the status manager library, and the status words the
// spooler was given, by their PRINTER_STATUS names.
#pragma once

#include "variables_view.h"

#include "platform/library.h"
#include "platform/sync.h"

#include <langmon/status_manager.h>

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace langmon::tool {

// A printer's store, opened the way any client opens it: the status manager
// library loaded by its name, the store by the printer's name.
class ClientStore {
public:
    // Closed, with the reason in `problem`, when the library or the store
    // can't be had.
    ClientStore(const std::string& printerName, std::string* problem);
    ~ClientStore();
    ClientStore(const ClientStore&) = delete;
    ClientStore& operator=(const ClientStore&) = delete;

    bool IsOpen() const { return handle_ != 0; }
    // A variable's value, its size asked for first; none without a value.
    std::optional<std::vector<uint8_t>> Read(const char* name) const;
    // Every variable the store holds, in the table's order.
    std::vector<VariableValue> ReadAll() const;
    // Stores a value, as a client stores the names of "RefreshStatus".
    bool Write(const char* name, const void* bytes, DWORD size);
    // Calls `callback` with `context` on the thread that changed one of the
    // variables, `names` separated by ';', for as long as the store is open.
    // False if it can't.
    bool Watch(const std::string& names, StatusManagerCallback callback, void* context);

private:
    HMODULE library_ = nullptr;
    uint32_t handle_ = 0;
    decltype(&::GetPrinterStatusA) read_ = nullptr;
    decltype(&::UpdatePrinterStatusA) write_ = nullptr;
    decltype(&::CloseManager) close_ = nullptr;
};

// An event that a store's Watch signals, on the thread that made the
// change. It must outlive the store that tells it.
struct ChangeSignal {
    HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    ChangeSignal() = default;
    ChangeSignal(const ChangeSignal&) = delete;
    ChangeSignal& operator=(const ChangeSignal&) = delete;
    ~ChangeSignal() {
        if (event != nullptr) CloseHandle(event);
    }
    static void Changed(uint32_t, const char*, void* context) { SetEvent(static_cast<ChangeSignal*>(context)->event); }
};

using ClientVariable = VariableValue;

// Every status variable the printer's store holds, read the way any client
// reads it: the library loaded by its name, the store opened by the printer's
// name, each value asked for its size first. Empty, with the reason in
// `problem`, when the library or the store can't be had.
std::vector<ClientVariable> ReadClientView(const std::string& printerName, std::string* problem);

// "PRINTER_STATUS_PAPER_JAM | PRINTER_STATUS_DOOR_OPEN", or "0 (no special
// state)".
std::string SpoolerStatusNames(uint32_t value);
// Waits until every status word the monitor means to give the spooler has
// been given, a while at most, and returns them in order.
std::vector<DWORD> SpoolerStatusWords(const std::string& printerName);
// The same, listed by their names.
void DescribeSpoolerView(std::ostream& out, const std::string& printerName);

}  // namespace langmon::tool
