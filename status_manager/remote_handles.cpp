#include "remote_handles.h"

#include "manager_table.h"

#include "daemon/status_protocol.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_map>

namespace langmon::status_manager {

namespace {

// Set to "local", the process keeps every store to itself and asks no
// daemon: langmond sets it for itself, and so does a command that runs a
// monitor of its own.
bool KeptLocal() {
    const char* mode = std::getenv(protocol::StatusManagerModeVariable);
    return mode != nullptr && std::strcmp(mode, protocol::StatusManagerLocal) == 0;
}

struct RemoteTable {
    std::mutex mutex;
    std::unordered_map<uint32_t, std::shared_ptr<RemoteConnection>> handles;
    uint32_t last = kFirstRemoteHandle - 1;

    // At unload, no reader thread is left running the library's code.
    ~RemoteTable() {
        for (auto& [handle, connection] : handles) connection->Close();
    }
};

RemoteTable& TheRemoteTable() {
    static RemoteTable table;
    return table;
}

}  // namespace

StorePlace ChooseStore(std::string_view printerName, std::shared_ptr<RemoteConnection>* made, int32_t* result) {
    if (KeptLocal() || HasStore(printerName)) return StorePlace::Here;
    switch (RemoteConnection::Open(protocol::SocketPath(), printerName, made, result)) {
        case RemoteConnection::Opened::Yes:
        case RemoteConnection::Opened::Refused: return StorePlace::Daemon;
        case RemoteConnection::Opened::NotHeld:
        case RemoteConnection::Opened::NoDaemon: break;
    }
    return StorePlace::Here;
}

int32_t AddRemoteHandle(std::shared_ptr<RemoteConnection> connection, uint32_t* managerHandle) {
    RemoteTable& t = TheRemoteTable();
    std::lock_guard lock(t.mutex);
    do {
        t.last = t.last == UINT32_MAX ? kFirstRemoteHandle : t.last + 1;
    } while (t.handles.contains(t.last));
    connection->SetClientHandle(t.last);
    t.handles.emplace(t.last, std::move(connection));
    *managerHandle = t.last;
    return STATUS_MANAGER_OK;
}

std::shared_ptr<RemoteConnection> FindRemoteHandle(uint32_t managerHandle) {
    RemoteTable& t = TheRemoteTable();
    std::lock_guard lock(t.mutex);
    const auto found = t.handles.find(managerHandle);
    return found == t.handles.end() ? nullptr : found->second;
}

int32_t CloseRemoteHandle(uint32_t managerHandle) {
    std::shared_ptr<RemoteConnection> connection;
    {
        RemoteTable& t = TheRemoteTable();
        std::lock_guard lock(t.mutex);
        const auto found = t.handles.find(managerHandle);
        if (found == t.handles.end()) return STATUS_MANAGER_BAD_HANDLE;
        connection = std::move(found->second);
        t.handles.erase(found);
    }
    connection->Close();
    return STATUS_MANAGER_OK;
}

}  // namespace langmon::status_manager
