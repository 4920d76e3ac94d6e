// A status manager library inside the test, found by the monitor under its
// library name: it records every value each client is handed, and opens,
// refuses or answers the binding's reads as the test tells it.
#pragma once

#include <langmon/status_manager.h>

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace langmon::testing {

struct HandedValue {
    std::string printer;  // whose manager was handed the value
    std::string name;
    std::vector<uint8_t> bytes;
    bool accepted;

    uint32_t Word(std::size_t offset) const;
};

class FakeManager {
public:
    // Registers the library for the test's life; one at a time.
    FakeManager();
    ~FakeManager();
    FakeManager(const FakeManager&) = delete;
    FakeManager& operator=(const FakeManager&) = delete;

    // What the manager does; change it at any time.
    void DontOpen(const std::string& printer, bool dont = true);  // OpenManagerExA fails for it
    void Refuse(const std::string& printer, bool refuse = true);  // UpdatePrinterStatusA fails
    // "Port": a count and up to two names; unreadable when `readable` is false.
    void ServePorts(const std::string& printer, uint32_t count, const std::string& first,
                    const std::string& second = "");
    void PortUnreadable(const std::string& printer);
    // "TerminateManager": its word, or a read that fails.
    void Terminate(const std::string& printer, uint32_t word);
    void TerminateUnreadable(const std::string& printer);
    // The library exports SetNotificationEventExA and KillNotificationEvent
    // from now on, so each bound link's request thread watches its manager.
    // ServePorts, Terminate and Rename then signal the watching events.
    void ExportNotifications();
    // The manager's "PrinterName" of the store opened as `printer`.
    void Rename(const std::string& printer, const std::string& newName);
    int Watches() const;  // notifications standing now
    // A value a client wrote into the printer's store, such as "RefreshStatus".
    void ClientWrites(const std::string& printer, const std::string& name, const std::string& bytes);

    // Called with each value as it is handed over, on the thread that hands
    // it, outside the manager's lock: the test acts at that very moment.
    void WhenHanded(std::function<void(const HandedValue&)> action);

    // What happened.
    std::vector<HandedValue> Handed() const;
    // The values handed to one printer's manager, in order; with a name, only
    // those of that variable.
    std::vector<HandedValue> HandedTo(const std::string& printer, const std::string& name = "") const;
    // The names handed to one printer's manager, in order.
    std::vector<std::string> NamesHandedTo(const std::string& printer) const;
    void ForgetHanded();
    int OpenManagers() const;  // handles open now
    int Opens() const;         // OpenManagerExA calls that gave a handle
    int StaleCalls() const;    // calls with a handle that was not open

    // The library's functions, dispatched to the one registered fake.
    static int32_t Open(const char* printer, const char* device, uint32_t mode, uint32_t* handle);
    static int32_t Close(uint32_t handle);
    static int32_t Get(uint32_t handle, const char* name, void* buffer, DWORD size, DWORD* needed);
    static int32_t Update(uint32_t handle, const char* name, const void* value, DWORD size);
    static int32_t Notify(uint32_t handle, uint32_t count, const char* names, const HANDLE* events,
                          uint32_t* notificationId);
    static int32_t Unnotify(uint32_t handle, uint32_t notificationId);

private:
    static void* Lookup(const char* function);
    // Signals every event that watches `name` in a store opened as `printer`.
    // Called with mutex_ held.
    void Signal(const std::string& printer, const std::string& name);

    struct Notification {
        uint32_t handle;
        std::vector<std::string> names;
        std::vector<HANDLE> events;
    };

    struct PrinterSetup {
        bool opens = true;
        bool refuses = false;
        bool portReadable = true;
        bool terminateReadable = true;
        uint32_t terminate = 0;
        std::vector<uint8_t> ports = std::vector<uint8_t>(260, 0);
        std::map<std::string, std::vector<uint8_t>> store;  // what was handed, last value
    };

    mutable std::mutex mutex_;
    std::map<std::string, PrinterSetup> printers_;
    std::map<uint32_t, std::string> handles_;
    uint32_t nextHandle_ = 0x100;
    int opens_ = 0;
    int staleCalls_ = 0;
    bool exportsNotifications_ = false;
    std::map<uint32_t, Notification> notifications_;
    uint32_t nextNotification_ = 1;
    std::vector<HandedValue> handed_;
    std::function<void(const HandedValue&)> whenHanded_;
};

}  // namespace langmon::testing
