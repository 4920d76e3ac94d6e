#include "manager_table.h"

#include "host_link.h"
#include "remote_handles.h"
#include "watch.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>

namespace langmon::status_manager {

namespace {

// One change on its way to the watches that want it, between the moment the
// lock is let go and the last event or callback. Ending a watch waits for the
// deliveries that carry it, except one on the ending thread itself: a callback
// may end its own watch.
struct Delivery {
    struct Item {
        std::shared_ptr<Watch> watch;
        HANDLE event;  // null: call the watch's callback
    };
    std::thread::id thread;
    std::vector<Item> items;
};

struct Table {
    std::mutex mutex;
    std::condition_variable deliveryEnded;
    std::map<std::string, std::unique_ptr<VariableStore>, std::less<>> stores;
    std::unordered_map<uint32_t, VariableStore*> handles;
    std::vector<std::shared_ptr<Watch>> watches;
    std::vector<const Delivery*> deliveries;
    uint32_t lastHandle = 0;
    uint32_t lastWatchId = 0;
};

Table& TheTable() {
    static Table table;
    return table;
}

// The next number after `last`, from 1 to `highest`, that `taken` says is
// free. Numbers are handed out in turn, so a number comes back only after
// all the others.
template <typename Taken>
uint32_t NextFree(uint32_t& last, Taken taken, uint32_t highest = UINT32_MAX) {
    do {
        last = last >= highest ? 1 : last + 1;
    } while (taken(last));
    return last;
}

std::shared_ptr<Watch>* FindWatch(Table& t, uint32_t id) {
    for (auto& watch : t.watches) {
        if (watch->id == id) return &watch;
    }
    return nullptr;
}

// Waits, with the lock held by `lock`, until no other thread delivers to any of
// `ended`.
void WaitForDeliveries(Table& t, std::unique_lock<std::mutex>& lock, const std::vector<std::shared_ptr<Watch>>& ended) {
    const auto me = std::this_thread::get_id();
    t.deliveryEnded.wait(lock, [&] {
        return std::none_of(t.deliveries.begin(), t.deliveries.end(), [&](const Delivery* d) {
            return d->thread != me && std::any_of(d->items.begin(), d->items.end(), [&](const Delivery::Item& item) {
                       return std::find(ended.begin(), ended.end(), item.watch) != ended.end();
                   });
        });
    });
}

void Deliver(Table& t, Delivery& delivery, const std::string& name) {
    const SetEventFn setEvent = HostSetEvent();
    for (const Delivery::Item& item : delivery.items) {
        if (!item.watch->alive.load()) continue;
        if (item.event == nullptr) {
            item.watch->callback(item.watch->managerHandle, name.c_str(), item.watch->context);
        } else if (setEvent != nullptr) {
            setEvent(item.event);
        }
    }
    std::lock_guard lock(t.mutex);
    std::erase(t.deliveries, &delivery);
    t.deliveryEnded.notify_all();
}

}  // namespace

bool HasStore(std::string_view printerName) {
    Table& t = TheTable();
    std::lock_guard lock(t.mutex);
    const auto found = t.stores.find(printerName);
    if (found == t.stores.end()) return false;
    const VariableStore* store = found->second.get();
    return store->Written() ||
           std::any_of(t.handles.begin(), t.handles.end(), [&](const auto& handle) { return handle.second == store; });
}

int32_t OpenStore(std::string_view printerName, uint32_t* managerHandle) {
    Table& t = TheTable();
    std::lock_guard lock(t.mutex);
    auto found = t.stores.find(printerName);
    if (found == t.stores.end()) {
        if (t.stores.size() >= kMaxStores) return STATUS_MANAGER_NO_MEMORY;
        found = t.stores.emplace(std::string(printerName), std::make_unique<VariableStore>(printerName)).first;
    }
    const uint32_t handle =
        NextFree(t.lastHandle, [&](uint32_t h) { return t.handles.contains(h); }, kFirstRemoteHandle - 1);
    t.handles.emplace(handle, found->second.get());
    *managerHandle = handle;
    return STATUS_MANAGER_OK;
}

int32_t CloseStoreHandle(uint32_t managerHandle) {
    Table& t = TheTable();
    std::unique_lock lock(t.mutex);
    if (t.handles.erase(managerHandle) == 0) return STATUS_MANAGER_BAD_HANDLE;
    std::vector<std::shared_ptr<Watch>> ended;
    std::erase_if(t.watches, [&](const std::shared_ptr<Watch>& watch) {
        if (watch->managerHandle != managerHandle) return false;
        watch->alive = false;
        ended.push_back(watch);
        return true;
    });
    WaitForDeliveries(t, lock, ended);
    return STATUS_MANAGER_OK;
}

int32_t ReadVariable(uint32_t managerHandle, std::string_view name, void* buffer, DWORD size, DWORD* needed) {
    Table& t = TheTable();
    std::lock_guard lock(t.mutex);
    const auto handle = t.handles.find(managerHandle);
    if (handle == t.handles.end()) return STATUS_MANAGER_BAD_HANDLE;
    const Value* value = handle->second->Find(name);
    if (value == nullptr) return STATUS_MANAGER_NO_VARIABLE;
    const auto valueSize = static_cast<DWORD>(value->size());
    if (needed != nullptr) *needed = valueSize;
    if (size < valueSize) return STATUS_MANAGER_BUFFER_TOO_SMALL;
    if (valueSize > 0) std::memcpy(buffer, value->data(), valueSize);
    return STATUS_MANAGER_OK;
}

int32_t WriteVariable(uint32_t managerHandle, std::string_view name, std::span<const std::byte> value) {
    Table& t = TheTable();
    Delivery delivery;
    {
        std::lock_guard lock(t.mutex);
        const auto handle = t.handles.find(managerHandle);
        if (handle == t.handles.end()) return STATUS_MANAGER_BAD_HANDLE;
        VariableStore* store = handle->second;
        switch (store->Set(name, value)) {
        case VariableStore::SetResult::Full: return STATUS_MANAGER_NO_MEMORY;
        case VariableStore::SetResult::Unchanged: return STATUS_MANAGER_OK;
        case VariableStore::SetResult::Changed: break;
        }
        for (const auto& watch : t.watches) {
            if (watch->store != store) continue;
            for (std::size_t i = 0; i < watch->names.size(); ++i) {
                if (watch->names[i] != name) continue;
                if (watch->IsCallback()) {
                    // One call per change, however often the watch names the variable.
                    delivery.items.push_back({watch, nullptr});
                    break;
                }
                delivery.items.push_back({watch, watch->events[i]});
            }
        }
        if (delivery.items.empty()) return STATUS_MANAGER_OK;
        delivery.thread = std::this_thread::get_id();
        t.deliveries.push_back(&delivery);
    }
    Deliver(t, delivery, std::string(name));
    return STATUS_MANAGER_OK;
}

int32_t AddWatch(uint32_t managerHandle, std::vector<std::string> names, std::vector<HANDLE> events,
                 StatusManagerCallback callback, void* context, uint32_t* notificationId) {
    Table& t = TheTable();
    std::lock_guard lock(t.mutex);
    const auto handle = t.handles.find(managerHandle);
    if (handle == t.handles.end()) return STATUS_MANAGER_BAD_HANDLE;
    auto watch = std::make_shared<Watch>();
    watch->id = NextFree(t.lastWatchId, [&](uint32_t id) { return FindWatch(t, id) != nullptr; });
    watch->managerHandle = managerHandle;
    watch->store = handle->second;
    watch->names = std::move(names);
    watch->events = std::move(events);
    watch->callback = callback;
    watch->context = context;
    t.watches.push_back(watch);
    *notificationId = watch->id;
    return STATUS_MANAGER_OK;
}

int32_t EndWatch(uint32_t managerHandle, uint32_t notificationId, bool callback) {
    Table& t = TheTable();
    std::unique_lock lock(t.mutex);
    if (!t.handles.contains(managerHandle)) return STATUS_MANAGER_BAD_HANDLE;
    std::shared_ptr<Watch>* found = FindWatch(t, notificationId);
    if (found == nullptr || (*found)->managerHandle != managerHandle || (*found)->IsCallback() != callback) {
        return STATUS_MANAGER_BAD_ARGUMENT;
    }
    std::vector<std::shared_ptr<Watch>> ended{*found};
    ended.front()->alive = false;
    std::erase(t.watches, ended.front());
    WaitForDeliveries(t, lock, ended);
    return STATUS_MANAGER_OK;
}

void ForgetEverything() {
    Table& t = TheTable();
    std::lock_guard lock(t.mutex);
    for (const auto& watch : t.watches) watch->alive = false;
    t.watches.clear();
    t.handles.clear();
    t.stores.clear();
    t.lastHandle = 0;
    t.lastWatchId = 0;
}

}  // namespace langmon::status_manager
