// The status manager library as its clients call it, and a client is anybody:
// printer names, variable names, values and their sizes, buffer sizes, name
// lists with their counts, event arrays, handles and watch numbers as a
// client passes them, right or wrong. The library starts empty for each input.
//
// What a client must be able to rely on is checked against a model of the
// stores that the target keeps: a variable reads back as it was last
// written, through any handle on the same printer; a buffer too small is
// left untouched and told the size it needs; and a change signals the event
// of every watch on the variable that is still alive.
//
// The input is records of an operation byte, a flags byte and a text up to a
// NUL. Flags bits 0-1 choose one of four handle slots, bit 2 a handle the
// library never gave instead; the rest depends on the operation (see below).
// Answer buffers are exactly as large as the size passed, and event arrays as
// long as the count, so that a read or write past either shows.

#include "fuzz_input.h"
#include "linked_status_manager.h"

#include "platform/clock.h"
#include "platform/sync.h"

#include <langmon/status_manager.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace langmon;
using Bytes = std::vector<uint8_t>;

constexpr int MostCalls = 32;
constexpr DWORD LargestValue = 64 * 1024;
constexpr std::size_t NameField = 260;
constexpr DWORD Sizes[] = {0, 1, 2, 3, 4, 7, 8, 16, 259, 260, 261, 1024};

[[noreturn]] void Fail(const std::string& what) {
    std::fprintf(stderr, "status manager: %s\n", what.c_str());
    std::abort();
}

// The events a client hands over: a few of the host's own, and a handle
// that is none.
std::array<HANDLE, 4>& Events() {
    static std::array<HANDLE, 4> events = [] {
        std::array<HANDLE, 4> made{};
        for (HANDLE& event : made) event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
        return made;
    }();
    return events;
}
const HANDLE NoEvent = reinterpret_cast<HANDLE>(std::uintptr_t{0x5EED});

struct ModelWatch {
    uint32_t handle;
    std::string printer;
    std::vector<std::string> names;
    std::vector<HANDLE> events;  // empty for a callback
};

// What the library should hold, as far as this client's calls tell.
class Model {
public:
    void Opened(uint32_t handle, const std::string& printer) {
        if (stores_.count(printer) == 0) {
            Bytes name(NameField);
            std::copy(printer.begin(), printer.end(), name.begin());
            stores_[printer] = {
                {"Port", Bytes(NameField)}, {"PrinterName", name}, {"TerminateManager", Bytes(4)}};
        }
        handles_[handle] = printer;
    }
    void Closed(uint32_t handle) {
        handles_.erase(handle);
        std::erase_if(watches_, [&](const auto& watch) { return watch.second.handle == handle; });
    }
    const std::string* PrinterOf(uint32_t handle) const {
        const auto found = handles_.find(handle);
        return found == handles_.end() ? nullptr : &found->second;
    }
    const Bytes* Value(const std::string& printer, const std::string& name) const {
        const auto& store = stores_.at(printer);
        const auto found = store.find(name);
        return found == store.end() ? nullptr : &found->second;
    }
    // Stores the value; true when it changed.
    bool Written(const std::string& printer, const std::string& name, const Bytes& value) {
        auto& store = stores_[printer];
        const auto found = store.find(name);
        if (found != store.end() && found->second == value) return false;
        store[name] = value;
        return true;
    }
    void Watched(uint32_t id, ModelWatch watch) { watches_[id] = std::move(watch); }
    void Killed(uint32_t id) { watches_.erase(id); }
    const std::map<uint32_t, ModelWatch>& Watches() const { return watches_; }
    // A number the library never gave for a handle or a watch.
    static uint32_t Unknown(uint8_t flags) { return 0xF0000000u + flags; }

private:
    std::map<std::string, std::map<std::string, Bytes>> stores_;
    std::map<uint32_t, std::string> handles_;
    std::map<uint32_t, ModelWatch> watches_;
};

std::vector<std::string> Split(std::string_view text) {
    std::vector<std::string> names;
    while (true) {
        const std::size_t cut = text.find(';');
        names.emplace_back(text.substr(0, cut));
        if (cut == std::string_view::npos) return names;
        text.remove_prefix(cut + 1);
    }
}

class Client {
public:
    void Call(uint8_t operation, uint8_t flags, std::string_view text);

private:
    uint32_t& Slot(uint8_t flags) { return slots_[flags & 3]; }
    uint32_t Handle(uint8_t flags) {
        return (flags & 4) != 0 ? Model::Unknown(flags) : Slot(flags);
    }

    void Open(uint8_t flags, std::string_view name);
    void Close(uint8_t flags);
    void Read(uint8_t flags, std::string_view name);
    void Write(uint8_t flags, std::string_view text);
    void Watch(uint8_t flags, std::string_view names, bool callback);
    void Kill(uint8_t flags, bool callback);

    // A callback may read what changed: the library has let its lock go.
    static void Called(uint32_t handle, const char* name, void*) {
        DWORD needed = 0;
        GetPrinterStatusA(handle, name, nullptr, 0, &needed);
    }

    Model model_;
    std::array<uint32_t, 4> slots_{};
    std::vector<uint32_t> watchIds_;
};

void Client::Open(uint8_t flags, std::string_view name) {
    const std::string printer(name);
    uint32_t handle = 0;
    const int32_t result = OpenManagerExA(printer.c_str(), STATUS_MANAGER_DEVICE, flags,
                                          (flags & 0x80) ? nullptr : &handle);
    if (result != STATUS_MANAGER_OK) return;
    if (handle == 0 || model_.PrinterOf(handle) != nullptr)
        Fail("a handle of 0 or one that is in use");
    model_.Opened(handle, printer);
    Slot(flags) = handle;
}

void Client::Close(uint8_t flags) {
    const uint32_t handle = Handle(flags);
    const bool known = model_.PrinterOf(handle) != nullptr;
    if ((CloseManager(handle) == STATUS_MANAGER_OK) != known)
        Fail("CloseManager of a handle that is " + std::string(known ? "open" : "not open"));
    model_.Closed(handle);
}

void Client::Read(uint8_t flags, std::string_view name) {
    const uint32_t handle = Handle(flags);
    const DWORD size = Sizes[(flags >> 3) % std::size(Sizes)];
    auto buffer = std::make_unique<uint8_t[]>(size);
    std::fill_n(buffer.get(), size, 0xA5);
    DWORD needed = 0xDEADBEEF;
    const std::string variable(name);
    const bool noBuffer = (flags & 0x80) != 0;
    const int32_t result = GetPrinterStatusA(
        handle, variable.c_str(), noBuffer ? nullptr : buffer.get(), noBuffer ? 0 : size, &needed);
    const std::string* printer = model_.PrinterOf(handle);
    const Bytes* value = printer != nullptr ? model_.Value(*printer, variable) : nullptr;
    if (value == nullptr) {
        if (result == STATUS_MANAGER_OK) Fail("a variable read that was never there: " + variable);
        return;
    }
    const DWORD room = noBuffer ? 0 : size;
    if (needed != value->size()) Fail("the size told is not the value's: " + variable);
    if (room < value->size()) {
        if (result != STATUS_MANAGER_BUFFER_TOO_SMALL)
            Fail("a buffer too small is not refused: " + variable);
        if (std::any_of(buffer.get(), buffer.get() + size, [](uint8_t b) { return b != 0xA5; })) {
            Fail("a buffer too small was written: " + variable);
        }
        return;
    }
    if (result != STATUS_MANAGER_OK || !std::equal(value->begin(), value->end(), buffer.get())) {
        Fail("a variable reads back otherwise than it was written: " + variable);
    }
}

void Client::Write(uint8_t flags, std::string_view text) {
    const uint32_t handle = Handle(flags);
    // The value: the text, as long as the text or the longest a value may
    // be or a byte longer; or none with a size of 0 or 1.
    const std::size_t cut = text.find('=');
    const std::string variable(text.substr(0, cut));
    const std::string_view bytes =
        cut == std::string_view::npos ? std::string_view() : text.substr(cut + 1);
    Bytes value(bytes.begin(), bytes.end());
    const uint8_t form = (flags >> 3) & 7;
    if (form == 1 || form == 2) value.resize(form == 1 ? LargestValue : LargestValue + 1, 'v');
    const bool none = form == 3 || form == 4;
    const DWORD size = none ? form - 3 : static_cast<DWORD>(value.size());
    for (HANDLE event : Events()) ResetEvent(event);
    const int32_t result =
        UpdatePrinterStatusA(handle, variable.c_str(), none ? nullptr : value.data(), size);
    const std::string* printer = model_.PrinterOf(handle);
    const bool good = printer != nullptr && !variable.empty() && variable.size() <= 255 &&
                      size <= LargestValue && !(none && size > 0);
    if (!good) {
        if (result == STATUS_MANAGER_OK)
            Fail("a write that should be refused was taken: " + variable);
        return;
    }
    // A store that is full refuses a new variable; nothing else.
    if (result != STATUS_MANAGER_OK) {
        if (result != STATUS_MANAGER_NO_MEMORY || model_.Value(*printer, variable) != nullptr) {
            Fail("a good write was refused with " + std::to_string(result) + ": " + variable);
        }
        return;
    }
    if (none) value.clear();
    if (!model_.Written(*printer, variable, value)) return;
    for (const auto& [id, watch] : model_.Watches()) {
        if (watch.printer != *printer || watch.events.empty()) continue;
        for (std::size_t i = 0; i < watch.names.size(); ++i) {
            if (watch.names[i] != variable || watch.events[i] == NoEvent) continue;
            if (WaitForSingleObject(watch.events[i], 0) != WAIT_OBJECT_0) {
                Fail("a change did not signal the event of watch " + std::to_string(id) + ": " +
                     variable);
            }
            // Auto-reset: another watch with the same event saw it too.
            SetEvent(watch.events[i]);
        }
    }
}

void Client::Watch(uint8_t flags, std::string_view names, bool callback) {
    const uint32_t handle = Handle(flags);
    // The count the client says, and as many events: the host's, in turn,
    // one of them perhaps none at all or a handle that is no event.
    const uint32_t count =
        (flags >> 3) & 7 ? (flags >> 3) & 7 : static_cast<uint32_t>(Split(names).size());
    std::vector<HANDLE> events(count);
    for (uint32_t i = 0; i < count; ++i) events[i] = Events()[i % Events().size()];
    if ((flags & 0x40) != 0 && count > 0)
        events[count - 1] = (flags & 0x80) != 0 ? nullptr : NoEvent;
    auto array = std::make_unique<HANDLE[]>(count);
    std::copy(events.begin(), events.end(), array.get());
    const std::string list(names);
    uint32_t id = 0;
    const int32_t result =
        callback ? SetNotificationCallbackExA(handle, count, list.c_str(), Called, this, &id)
                 : SetNotificationEventExA(handle, count, list.c_str(), array.get(), &id);
    if (result != STATUS_MANAGER_OK) return;
    const std::string* printer = model_.PrinterOf(handle);
    if (printer == nullptr) Fail("a watch through a handle that is not open");
    watchIds_.push_back(id);
    model_.Watched(id, {handle, *printer, Split(list), callback ? std::vector<HANDLE>() : events});
}

void Client::Kill(uint8_t flags, bool callback) {
    const uint32_t handle = Handle(flags);
    const uint32_t id = watchIds_.empty() || (flags & 0x80) != 0
                            ? Model::Unknown(flags)
                            : watchIds_[(flags >> 3) % watchIds_.size()];
    const int32_t result =
        callback ? KillNotificationCallback(handle, id) : KillNotificationEvent(handle, id);
    const auto watch = model_.Watches().find(id);
    const bool alive = watch != model_.Watches().end() && watch->second.handle == handle &&
                       watch->second.events.empty() == callback;
    if ((result == STATUS_MANAGER_OK) != alive)
        Fail("a watch ended that was " + std::string(alive ? "" : "not ") + "alive");
    if (alive) model_.Killed(id);
}

void Client::Call(uint8_t operation, uint8_t flags, std::string_view text) {
    switch (operation % 8) {
        case 0:
            return Open(flags, text);
        case 1:
            return Close(flags);
        case 2:
            return Read(flags, text);
        case 3:
            return Write(flags, text);
        case 4:
            return Watch(flags, text, false);
        case 5:
            return Kill(flags, false);
        case 6:
            return Watch(flags, text, true);
        default:
            return Kill(flags, true);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool linked = (platform::UseVirtualClock(), fuzz::LinkStatusManager(), true);
    (void)linked;
    fuzz::InputReader input(data, size);
    {
        Client client;
        for (int call = 0; call < MostCalls && !input.AtEnd(); ++call) {
            const uint8_t operation = input.Byte();
            const uint8_t flags = input.Byte();
            client.Call(operation, flags, input.Text());
        }
    }
    fuzz::EmptyStatusManager();
    return 0;
}
