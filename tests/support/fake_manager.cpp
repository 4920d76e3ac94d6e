#include "support/fake_manager.h"

#include "manager/manager_library.h"
#include "platform/library.h"
#include "platform/sync.h"

#include <algorithm>

#include <cstring>

namespace langmon::testing {

namespace {

FakeManager* registered = nullptr;

}  // namespace

uint32_t HandedValue::Word(std::size_t offset) const {
    uint32_t word = 0;
    if (offset + sizeof word <= bytes.size()) std::memcpy(&word, bytes.data() + offset, sizeof word);
    return word;
}

FakeManager::FakeManager() {
    registered = this;
    platform::RegisterLibrary(ManagerLibraryName, &FakeManager::Lookup);
}

FakeManager::~FakeManager() {
    platform::UnregisterLibrary(ManagerLibraryName);
    registered = nullptr;
}

void* FakeManager::Lookup(const char* function) {
    if (registered == nullptr) return nullptr;
    const std::string name = function;
    if (name == "OpenManagerExA") return reinterpret_cast<void*>(&FakeManager::Open);
    if (name == "CloseManager") return reinterpret_cast<void*>(&FakeManager::Close);
    if (name == "GetPrinterStatusA") return reinterpret_cast<void*>(&FakeManager::Get);
    if (name == "UpdatePrinterStatusA") return reinterpret_cast<void*>(&FakeManager::Update);
    std::lock_guard lock(registered->mutex_);
    if (registered->exportsNotifications_ && name == "SetNotificationEventExA") {
        return reinterpret_cast<void*>(&FakeManager::Notify);
    }
    if (registered->exportsNotifications_ && name == "KillNotificationEvent") {
        return reinterpret_cast<void*>(&FakeManager::Unnotify);
    }
    return nullptr;
}

void FakeManager::DontOpen(const std::string& printer, bool dont) {
    std::lock_guard lock(mutex_);
    printers_[printer].opens = !dont;
}

void FakeManager::Refuse(const std::string& printer, bool refuse) {
    std::lock_guard lock(mutex_);
    printers_[printer].refuses = refuse;
}

void FakeManager::ServePorts(const std::string& printer, uint32_t count, const std::string& first,
                             const std::string& second) {
    std::lock_guard lock(mutex_);
    std::vector<uint8_t>& ports = printers_[printer].ports;
    std::fill(ports.begin(), ports.end(), 0);
    std::memcpy(ports.data(), &count, sizeof count);
    std::memcpy(ports.data() + 4, first.data(), std::min<std::size_t>(first.size(), 127));
    std::memcpy(ports.data() + 132, second.data(), std::min<std::size_t>(second.size(), 127));
    Signal(printer, "Port");
}

void FakeManager::PortUnreadable(const std::string& printer) {
    std::lock_guard lock(mutex_);
    printers_[printer].portReadable = false;
}

void FakeManager::Terminate(const std::string& printer, uint32_t word) {
    std::lock_guard lock(mutex_);
    printers_[printer].terminate = word;
    Signal(printer, "TerminateManager");
}

void FakeManager::TerminateUnreadable(const std::string& printer) {
    std::lock_guard lock(mutex_);
    printers_[printer].terminateReadable = false;
}

std::vector<HandedValue> FakeManager::Handed() const {
    std::lock_guard lock(mutex_);
    return handed_;
}

std::vector<HandedValue> FakeManager::HandedTo(const std::string& printer, const std::string& name) const {
    std::vector<HandedValue> values;
    for (const HandedValue& value : Handed()) {
        if (value.printer == printer && (name.empty() || value.name == name)) values.push_back(value);
    }
    return values;
}

std::vector<std::string> FakeManager::NamesHandedTo(const std::string& printer) const {
    std::vector<std::string> names;
    for (const HandedValue& value : HandedTo(printer)) names.push_back(value.name);
    return names;
}

void FakeManager::ForgetHanded() {
    std::lock_guard lock(mutex_);
    handed_.clear();
}

int FakeManager::OpenManagers() const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(handles_.size());
}

int FakeManager::Opens() const {
    std::lock_guard lock(mutex_);
    return opens_;
}

int FakeManager::StaleCalls() const {
    std::lock_guard lock(mutex_);
    return staleCalls_;
}

int32_t FakeManager::Open(const char* printer, const char*, uint32_t, uint32_t* handle) {
    FakeManager& fake = *registered;
    std::lock_guard lock(fake.mutex_);
    if (!fake.printers_[printer].opens) return -1;
    *handle = fake.nextHandle_++;
    fake.handles_[*handle] = printer;
    ++fake.opens_;
    return 0;
}

int32_t FakeManager::Close(uint32_t handle) {
    FakeManager& fake = *registered;
    std::lock_guard lock(fake.mutex_);
    if (fake.handles_.erase(handle) != 0) {
        // A closed handle's notifications end with it.
        std::erase_if(fake.notifications_, [&](const auto& entry) { return entry.second.handle == handle; });
        return 0;
    }
    ++fake.staleCalls_;
    return STATUS_MANAGER_BAD_HANDLE;
}

void FakeManager::ExportNotifications() {
    std::lock_guard lock(mutex_);
    exportsNotifications_ = true;
}

void FakeManager::Rename(const std::string& printer, const std::string& newName) {
    std::lock_guard lock(mutex_);
    printers_[printer].store["PrinterName"] = std::vector<uint8_t>(newName.c_str(), newName.c_str() + newName.size() + 1);
    Signal(printer, "PrinterName");
}

int FakeManager::Watches() const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(notifications_.size());
}

void FakeManager::Signal(const std::string& printer, const std::string& name) {
    for (const auto& [id, watch] : notifications_) {
        auto owner = handles_.find(watch.handle);
        if (owner == handles_.end() || owner->second != printer) continue;
        for (std::size_t i = 0; i < watch.names.size(); ++i) {
            if (watch.names[i] == name) SetEvent(watch.events[i]);
        }
    }
}

int32_t FakeManager::Notify(uint32_t handle, uint32_t count, const char* names, const HANDLE* events,
                            uint32_t* notificationId) {
    FakeManager& fake = *registered;
    std::lock_guard lock(fake.mutex_);
    if (fake.handles_.count(handle) == 0) {
        ++fake.staleCalls_;
        return STATUS_MANAGER_BAD_HANDLE;
    }
    Notification watch{handle, {}, std::vector<HANDLE>(events, events + count)};
    std::string list = names;
    for (std::size_t start = 0; start <= list.size();) {
        const std::size_t end = std::min(list.find(';', start), list.size());
        watch.names.push_back(list.substr(start, end - start));
        start = end + 1;
    }
    if (watch.names.size() != count) return STATUS_MANAGER_BAD_ARGUMENT;
    *notificationId = fake.nextNotification_++;
    fake.notifications_.emplace(*notificationId, std::move(watch));
    return 0;
}

int32_t FakeManager::Unnotify(uint32_t handle, uint32_t notificationId) {
    FakeManager& fake = *registered;
    std::lock_guard lock(fake.mutex_);
    auto found = fake.notifications_.find(notificationId);
    if (found == fake.notifications_.end() || found->second.handle != handle) return STATUS_MANAGER_BAD_ARGUMENT;
    fake.notifications_.erase(found);
    return 0;
}

void FakeManager::ClientWrites(const std::string& printer, const std::string& name, const std::string& bytes) {
    std::lock_guard lock(mutex_);
    printers_[printer].store[name] = std::vector<uint8_t>(bytes.begin(), bytes.end());
}

int32_t FakeManager::Get(uint32_t handle, const char* name, void* buffer, DWORD size, DWORD* needed) {
    FakeManager& fake = *registered;
    std::lock_guard lock(fake.mutex_);
    auto owner = fake.handles_.find(handle);
    if (owner == fake.handles_.end()) {
        ++fake.staleCalls_;
        return STATUS_MANAGER_BAD_HANDLE;
    }
    PrinterSetup& setup = fake.printers_[owner->second];
    std::vector<uint8_t> value;
    const std::string variable = name;
    if (variable == "Port") {
        if (!setup.portReadable) return STATUS_MANAGER_NO_VARIABLE;
        value = setup.ports;
    } else if (variable == "TerminateManager") {
        if (!setup.terminateReadable) return STATUS_MANAGER_NO_VARIABLE;
        value.resize(4);
        std::memcpy(value.data(), &setup.terminate, 4);
    } else if (auto stored = setup.store.find(variable); stored != setup.store.end()) {
        value = stored->second;
    } else if (variable == "PrinterName") {
        // The name the store was opened with, until the printer is renamed.
        value.assign(owner->second.c_str(), owner->second.c_str() + owner->second.size() + 1);
    } else {
        return STATUS_MANAGER_NO_VARIABLE;
    }
    if (needed != nullptr) *needed = static_cast<DWORD>(value.size());
    if (size < value.size()) return STATUS_MANAGER_BUFFER_TOO_SMALL;
    std::memcpy(buffer, value.data(), value.size());
    return 0;
}

int32_t FakeManager::Update(uint32_t handle, const char* name, const void* value, DWORD size) {
    FakeManager& fake = *registered;
    std::unique_lock lock(fake.mutex_);
    auto owner = fake.handles_.find(handle);
    if (owner == fake.handles_.end()) {
        ++fake.staleCalls_;
        return STATUS_MANAGER_BAD_HANDLE;
    }
    PrinterSetup& setup = fake.printers_[owner->second];
    const auto* bytes = static_cast<const uint8_t*>(value);
    fake.handed_.push_back({owner->second, name, std::vector<uint8_t>(bytes, bytes + size), !setup.refuses});
    const HandedValue handed = fake.handed_.back();
    const auto action = fake.whenHanded_;
    const bool refuses = setup.refuses;
    if (!refuses) setup.store[name] = handed.bytes;
    lock.unlock();
    if (action) action(handed);
    return refuses ? -1 : 0;
}

void FakeManager::WhenHanded(std::function<void(const HandedValue&)> action) {
    std::lock_guard lock(mutex_);
    whenHanded_ = std::move(action);
}

}  // namespace langmon::testing
