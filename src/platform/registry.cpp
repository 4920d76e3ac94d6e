// The in-memory registry. One tree per root, one mutex for all of it: the
// monitor's threads read it concurrently and the host may refill it at any time.
//
// An HKEY from RegOpenKeyExA is a heap object that shares ownership of its key,
// so a handle still open when the tree is cleared keeps a detached key alive
// instead of pointing at freed memory. Live handles sit in a set, which is how a
// handle is told from garbage without reading through it.
//
// A key's subkeys and values are kept in the order they were made, which is
// the order they enumerate in, and found through a hash of their names folded
// to upper case: a machine that lists thousands of printers under one key is
// loaded and read without a walk of its siblings for each name.

#include "platform/registry.h"

#include "platform/folded_name.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace langmon {

namespace {

using platform::FoldedNameEqual;
using platform::FoldedNameHash;

// Named items in the order they were first named, found by name.
template <typename Item>
class NamedList {
public:
    const std::vector<Item>& InOrder() const { return items_; }

    Item* Find(std::string_view name) {
        const auto found = index_.find(name);
        return found == index_.end() ? nullptr : &items_[found->second];
    }
    // `item`'s name must not be in the list yet.
    Item& Add(Item item) {
        index_.emplace(NameOf(item), items_.size());
        items_.push_back(std::move(item));
        return items_.back();
    }
    bool Erase(std::string_view name) {
        const auto found = index_.find(name);
        if (found == index_.end()) return false;
        const std::size_t at = found->second;
        index_.erase(found);
        items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(at));
        for (auto& [_, position] : index_) {
            if (position > at) --position;
        }
        return true;
    }
    std::vector<Item> TakeAll() {
        index_.clear();
        return std::exchange(items_, {});
    }

private:
    std::vector<Item> items_;
    std::unordered_map<std::string, std::size_t, FoldedNameHash, FoldedNameEqual> index_;
};

struct Value {
    std::string name;
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
};
const std::string& NameOf(const Value& value) { return value.name; }

struct Node {
    Node() = default;
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;
    ~Node();

    std::string name;
    NamedList<std::shared_ptr<Node>> children;
    NamedList<Value> values;
};
const std::string& NameOf(const std::shared_ptr<Node>& node) { return node->name; }

// A chain of keys many thousands deep would unwind one destructor frame per
// level and overflow the stack: the keys below are taken apart here, one at
// a time. A key that an open handle still shares is left to the handle.
Node::~Node() {
    std::vector<std::shared_ptr<Node>> doomed = children.TakeAll();
    while (!doomed.empty()) {
        std::shared_ptr<Node> node = std::move(doomed.back());
        doomed.pop_back();
        if (node.use_count() == 1) {
            for (auto& child : node->children.TakeAll()) doomed.push_back(std::move(child));
        }
    }
}

}  // namespace

struct RegistryKey {
    std::shared_ptr<Node> node;
    REGSAM access = 0;
};

namespace {

struct Registry {
    std::mutex mutex;
    std::shared_ptr<Node> localMachine = std::make_shared<Node>();
    std::shared_ptr<Node> dynData = std::make_shared<Node>();
    std::unordered_set<RegistryKey*> openKeys;
    // Raised by every change, under the mutex; read without it.
    std::atomic<std::uint64_t> generation{1};
    // Every lookup made, for a check that a hot path makes none.
    std::atomic<std::uint64_t> reads{0};
};

Registry& TheRegistry() {
    static auto* registry = new Registry();  // never destroyed, see kernel.h
    return *registry;
}

constexpr REGSAM kAllAccess = 0xFFFFFFFFu;

// What a handle stands for, with the rights it was opened with. The two roots
// are not objects: they have every right. Called with the mutex held.
struct Resolved {
    Node* node = nullptr;
    REGSAM access = 0;
};

Resolved Resolve(Registry& r, HKEY key) {
    if (key == HKEY_LOCAL_MACHINE) return {r.localMachine.get(), kAllAccess};
    if (key == HKEY_DYN_DATA) return {r.dynData.get(), kAllAccess};
    if (r.openKeys.count(key) != 0) return {key->node.get(), key->access};
    return {};
}

std::shared_ptr<Node> FindChild(Node& node, std::string_view name) {
    const auto* child = node.children.Find(name);
    return child ? *child : nullptr;
}

// Calls `step` with each name of a '\'-separated path. Empty names, from a
// leading, trailing or doubled separator, are passed over.
template <typename Step>
bool ForEachPathName(std::string_view path, Step step) {
    while (!path.empty()) {
        const auto cut = path.find('\\');
        const auto name = path.substr(0, cut);
        if (!name.empty() && !step(name)) return false;
        if (cut == std::string_view::npos) break;
        path.remove_prefix(cut + 1);
    }
    return true;
}

// The node at `path` below `from`, shared so that an HKEY may hold it; null
// when a key on the way is missing.
std::shared_ptr<Node> Walk(std::shared_ptr<Node> from, std::string_view path) {
    ForEachPathName(path, [&](std::string_view name) {
        from = FindChild(*from, name);
        return from != nullptr;
    });
    return from;
}

Node* WalkOrMake(Node* from, std::string_view path) {
    ForEachPathName(path, [&](std::string_view name) {
        auto child = FindChild(*from, name);
        if (!child) {
            child = std::make_shared<Node>();
            child->name = std::string(name);
            from->children.Add(child);
        }
        from = child.get();
        return true;
    });
    return from;
}

// A host-side root: a predefined key or an open handle.
std::shared_ptr<Node> HostRoot(Registry& r, HKEY root) {
    if (root == HKEY_LOCAL_MACHINE) return r.localMachine;
    if (root == HKEY_DYN_DATA) return r.dynData;
    if (r.openKeys.count(root) != 0) return root->node;
    return nullptr;
}

void StoreValue(Node& node, std::string_view name, DWORD type, std::span<const BYTE> data) {
    Value* value = node.values.Find(name);
    if (!value) value = &node.values.Add(Value{std::string(name), type, {}});
    value->type = type;
    value->data.assign(data.begin(), data.end());
}

}  // namespace

// ---------------------------------------------------------------------------
// The Win32 calls.

LONG RegOpenKeyExA(HKEY key, LPCSTR subKey, DWORD /*options*/, REGSAM access, HKEY* result) {
    if (!result) return ERROR_INVALID_PARAMETER;
    *result = nullptr;
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    ++r.reads;
    std::shared_ptr<Node> from = HostRoot(r, key);
    if (!from) return ERROR_INVALID_HANDLE;
    // A null or empty subkey opens the key itself once more, as a new handle.
    std::shared_ptr<Node> node = Walk(std::move(from), subKey ? std::string_view(subKey) : "");
    if (!node) return ERROR_FILE_NOT_FOUND;
    auto* opened = new RegistryKey{std::move(node), access};
    r.openKeys.insert(opened);
    *result = opened;
    return ERROR_SUCCESS;
}

LONG RegEnumKeyExA(HKEY key, DWORD index, LPSTR name, LPDWORD nameSize, LPDWORD /*reserved*/,
                   LPSTR className, LPDWORD classSize, void* lastWriteTime) {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    ++r.reads;
    const Resolved at = Resolve(r, key);
    if (!at.node) return ERROR_INVALID_HANDLE;
    if ((at.access & KEY_ENUMERATE_SUB_KEYS) == 0) return ERROR_ACCESS_DENIED;
    if (!name || !nameSize) return ERROR_INVALID_PARAMETER;
    const auto& children = at.node->children.InOrder();
    if (index >= children.size()) return ERROR_NO_MORE_ITEMS;
    const std::string& found = children[index]->name;
    // The name must fit with its NUL; a buffer too small is left as it was.
    if (found.size() + 1 > *nameSize) return ERROR_MORE_DATA;
    std::memcpy(name, found.c_str(), found.size() + 1);
    *nameSize = static_cast<DWORD>(found.size());
    // Keys here have no class and no time of last write.
    if (className && classSize && *classSize > 0) className[0] = '\0';
    if (classSize) *classSize = 0;
    if (lastWriteTime) std::memset(lastWriteTime, 0, 8);
    return ERROR_SUCCESS;
}

LONG RegQueryValueExA(HKEY key, LPCSTR valueName, LPDWORD /*reserved*/, LPDWORD type, LPBYTE data,
                      LPDWORD dataSize) {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    ++r.reads;
    const Resolved at = Resolve(r, key);
    if (!at.node) return ERROR_INVALID_HANDLE;
    if ((at.access & KEY_QUERY_VALUE) == 0) return ERROR_ACCESS_DENIED;
    if (data && !dataSize) return ERROR_INVALID_PARAMETER;
    const Value* value = at.node->values.Find(valueName ? valueName : "");
    if (!value) return ERROR_FILE_NOT_FOUND;
    if (type) *type = value->type;
    if (!dataSize) return ERROR_SUCCESS;
    const auto needed = static_cast<DWORD>(value->data.size());
    if (!data) {
        *dataSize = needed;
        return ERROR_SUCCESS;
    }
    if (*dataSize < needed) {
        *dataSize = needed;
        return ERROR_MORE_DATA;
    }
    if (needed > 0) std::memcpy(data, value->data.data(), needed);
    *dataSize = needed;
    return ERROR_SUCCESS;
}

LONG RegSetValueExA(HKEY key, LPCSTR valueName, DWORD /*reserved*/, DWORD type, const BYTE* data,
                    DWORD dataSize) {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    const Resolved at = Resolve(r, key);
    if (!at.node) return ERROR_INVALID_HANDLE;
    if ((at.access & KEY_SET_VALUE) == 0) return ERROR_ACCESS_DENIED;
    if (!data && dataSize > 0) return ERROR_INVALID_PARAMETER;
    StoreValue(*at.node, valueName ? valueName : "", type,
               data ? std::span<const BYTE>(data, dataSize) : std::span<const BYTE>());
    ++r.generation;
    return ERROR_SUCCESS;
}

LONG RegCloseKey(HKEY key) {
    if (key == HKEY_LOCAL_MACHINE || key == HKEY_DYN_DATA) return ERROR_SUCCESS;
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    if (r.openKeys.erase(key) == 0) return ERROR_INVALID_HANDLE;
    delete key;
    return ERROR_SUCCESS;
}

// ---------------------------------------------------------------------------
// The host's side.

namespace platform {

void ClearRegistry() {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    // New roots rather than emptied ones: keys still open keep what they saw.
    r.localMachine = std::make_shared<Node>();
    r.dynData = std::make_shared<Node>();
    ++r.generation;
}

void RegistryCreateKey(HKEY root, std::string_view path) {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    if (auto from = HostRoot(r, root)) WalkOrMake(from.get(), path);
    ++r.generation;
}

bool RegistryDeleteKey(HKEY root, std::string_view path) {
    const auto cut = path.rfind('\\');
    const std::string_view parentPath = cut == std::string_view::npos ? "" : path.substr(0, cut);
    const std::string_view name = cut == std::string_view::npos ? path : path.substr(cut + 1);
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    auto from = HostRoot(r, root);
    if (!from || name.empty()) return false;
    auto parent = Walk(from, parentPath);
    if (!parent) return false;
    ++r.generation;
    return parent->children.Erase(name);
}

void RegistrySetValue(HKEY root, std::string_view path, std::string_view name, DWORD type,
                      std::span<const BYTE> data) {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    if (auto from = HostRoot(r, root)) StoreValue(*WalkOrMake(from.get(), path), name, type, data);
    ++r.generation;
}

void RegistrySetString(HKEY root, std::string_view path, std::string_view name,
                       std::string_view value) {
    // Stored with its NUL, as RegSetValueExA callers store a REG_SZ.
    std::vector<BYTE> bytes(value.begin(), value.end());
    bytes.push_back(0);
    RegistrySetValue(root, path, name, REG_SZ, bytes);
}

void RegistrySetDword(HKEY root, std::string_view path, std::string_view name, DWORD value) {
    BYTE bytes[4];
    std::memcpy(bytes, &value, sizeof bytes);  // little-endian, as REG_DWORD is
    RegistrySetValue(root, path, name, REG_DWORD, bytes);
}

std::optional<RegistryValue> RegistryGetValue(HKEY root, std::string_view path,
                                              std::string_view name) {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    ++r.reads;
    auto from = HostRoot(r, root);
    if (!from) return std::nullopt;
    auto node = Walk(std::move(from), path);
    if (!node) return std::nullopt;
    const Value* value = node->values.Find(name);
    if (!value) return std::nullopt;
    return RegistryValue{value->type, value->data};
}

std::optional<std::string> RegistryGetString(HKEY root, std::string_view path,
                                             std::string_view name) {
    auto value = RegistryGetValue(root, path, name);
    if (!value || value->type != REG_SZ) return std::nullopt;
    const auto end = std::find(value->data.begin(), value->data.end(), BYTE{0});
    return std::string(value->data.begin(), end);
}

std::optional<DWORD> RegistryGetDword(HKEY root, std::string_view path, std::string_view name) {
    auto value = RegistryGetValue(root, path, name);
    if (!value || value->data.size() != 4) return std::nullopt;
    DWORD word;
    std::memcpy(&word, value->data.data(), 4);
    return word;
}

namespace {
// The names of a key's subkeys or of its values, in order.
template <typename Name>
std::vector<std::string> NamesIn(HKEY root, std::string_view path, Name nameOf) {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    ++r.reads;
    std::vector<std::string> names;
    auto from = HostRoot(r, root);
    if (!from) return names;
    if (auto node = Walk(std::move(from), path)) {
        nameOf(*node, names);
    }
    return names;
}
}  // namespace

std::vector<std::string> RegistrySubkeys(HKEY root, std::string_view path) {
    return NamesIn(root, path, [](const auto& node, std::vector<std::string>& names) {
        for (const auto& child : node.children.InOrder()) names.push_back(child->name);
    });
}

std::vector<std::string> RegistryValueNames(HKEY root, std::string_view path) {
    return NamesIn(root, path, [](const auto& node, std::vector<std::string>& names) {
        for (const auto& value : node.values.InOrder()) names.push_back(value.name);
    });
}

bool RegistryKeyExists(HKEY root, std::string_view path) {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    ++r.reads;
    auto from = HostRoot(r, root);
    return from && Walk(std::move(from), path) != nullptr;
}

std::uint64_t RegistryGeneration() { return TheRegistry().generation.load(); }

std::uint64_t RegistryReadCount() { return TheRegistry().reads.load(); }

std::size_t OpenRegistryKeyCount() {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    return r.openKeys.size();
}

}  // namespace platform
}  // namespace langmon
