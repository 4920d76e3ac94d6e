// The status manager library as the monitor and its clients meet it: loaded by
// "KVTRM.DLL", its functions looked up by name, the host's events signalled
// through the host's own SetEvent.

#include "platform/library.h"
#include "support/platform_fixture.h"

#include <langmon/status_manager.h>

#include <array>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace langmon {
namespace {

using testing::PlatformTest;
using Bytes = std::vector<uint8_t>;

#define MANAGER_CALLS(X)                                                                              \
    X(OpenManagerExA) X(CloseManager) X(GetPrinterStatusA) X(UpdatePrinterStatusA)                    \
    X(SetNotificationEventExA) X(SetNotificationEventA) X(KillNotificationEvent)                      \
    X(SetNotificationCallbackExA) X(KillNotificationCallback) X(SetReqPrinterStatusEventA)            \
    X(ResSetPrinterStatus) X(LangmonAttachHost)

// The library's functions, as GetProcAddress gives them to the monitor.
struct ManagerCalls {
#define DECLARE_CALL(fn) decltype(&::fn) fn;
    MANAGER_CALLS(DECLARE_CALL)
#undef DECLARE_CALL
};

class StatusManagerTest : public PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        library_ = LoadLibraryA("KVTRM.DLL");
        ASSERT_NE(library_, nullptr) << "libkvtrm.so not found; LANGMON_LIBRARY_PATH names its directory";
#define FIND_CALL(fn)                                                           \
    sm.fn = reinterpret_cast<decltype(&::fn)>(GetProcAddress(library_, #fn)); \
    ASSERT_NE(sm.fn, nullptr) << #fn;
        MANAGER_CALLS(FIND_CALL)
#undef FIND_CALL
    }
    void TearDown() override {
        for (HANDLE event : events_) CloseHandle(event);
        if (library_) FreeLibrary(library_);
        EXPECT_EQ(platform::LoadedLibraryUses(), 0u);
        PlatformTest::TearDown();
    }

    // A handle on a store of this test's own, so that no two tests share one.
    uint32_t Open(const std::string& suffix = "") {
        uint32_t handle = 0;
        EXPECT_EQ(sm.OpenManagerExA(PrinterName(suffix).c_str(), STATUS_MANAGER_DEVICE, 0, &handle), 0);
        EXPECT_NE(handle, 0u);
        return handle;
    }
    static std::string PrinterName(const std::string& suffix) {
        return std::string("Quor ") + ::testing::UnitTest::GetInstance()->current_test_info()->name() + suffix;
    }
    Bytes Read(uint32_t handle, const char* name) {
        Bytes value(70000);
        DWORD needed = 0;
        EXPECT_EQ(sm.GetPrinterStatusA(handle, name, value.data(), 70000, &needed), STATUS_MANAGER_OK) << name;
        value.resize(needed);
        return value;
    }
    int32_t Write(uint32_t handle, const char* name, const Bytes& value) {
        return sm.UpdatePrinterStatusA(handle, name, value.data(), static_cast<DWORD>(value.size()));
    }
    HANDLE NewEvent() { return events_.emplace_back(CreateEventA(nullptr, FALSE, FALSE, nullptr)); }
    static bool Signalled(HANDLE event) { return WaitForSingleObject(event, 0) == WAIT_OBJECT_0; }

    ManagerCalls sm{};
    HMODULE library_ = nullptr;
    std::vector<HANDLE> events_;
};

// A new store holds Port, PrinterName and TerminateManager.
TEST_F(StatusManagerTest, ANewStoreHoldsItsThreeValuesAndOthersRoundTripWithinTheirBounds) {
    const uint32_t handle = Open();
    EXPECT_EQ(Read(handle, "Port"), Bytes(260, 0));  // no port count, two empty names
    Bytes printerName(260, 0);
    const std::string name = PrinterName("");
    std::copy(name.begin(), name.end(), printerName.begin());
    EXPECT_EQ(Read(handle, "PrinterName"), printerName);
    EXPECT_EQ(Read(handle, "TerminateManager"), Bytes(4, 0));
    for (const Bytes& value : {Bytes{'A', 0, 0xFF}, Bytes{}, Bytes(64 * 1024, 0x5A)}) {
        EXPECT_EQ(Write(handle, "Status", value), STATUS_MANAGER_OK);
        EXPECT_EQ(Read(handle, "Status"), value);
    }
    EXPECT_EQ(Write(handle, "Status", Bytes(64 * 1024 + 1, 1)), STATUS_MANAGER_BAD_ARGUMENT);
    EXPECT_EQ(sm.UpdatePrinterStatusA(handle, "Status", nullptr, 1), STATUS_MANAGER_BAD_ARGUMENT);
    EXPECT_EQ(sm.UpdatePrinterStatusA(handle, "", "x", 1), STATUS_MANAGER_BAD_ARGUMENT);
    EXPECT_EQ(sm.UpdatePrinterStatusA(handle, std::string(256, 'n').c_str(), "x", 1), STATUS_MANAGER_BAD_ARGUMENT);
    EXPECT_EQ(Read(handle, "Status"), Bytes(64 * 1024, 0x5A)) << "refused updates change nothing";

    // A buffer too small is left as it was and told the size.
    ASSERT_EQ(Write(handle, "Toner", Bytes{1, 2, 3}), STATUS_MANAGER_OK);
    std::array<uint8_t, 3> buffer{0xAA, 0xAA, 0xAA};
    DWORD needed = 0;
    EXPECT_EQ(sm.GetPrinterStatusA(handle, "Toner", buffer.data(), 2, &needed), STATUS_MANAGER_BUFFER_TOO_SMALL);
    EXPECT_EQ(needed, 3u);
    EXPECT_EQ(buffer, (std::array<uint8_t, 3>{0xAA, 0xAA, 0xAA}));
    needed = 0;
    EXPECT_EQ(sm.GetPrinterStatusA(handle, "Toner", nullptr, 0, &needed), STATUS_MANAGER_BUFFER_TOO_SMALL);
    EXPECT_EQ(needed, 3u);
    EXPECT_EQ(sm.GetPrinterStatusA(handle, "Toner", buffer.data(), needed, nullptr), STATUS_MANAGER_OK);
    EXPECT_EQ(buffer, (std::array<uint8_t, 3>{1, 2, 3}));
    EXPECT_EQ(sm.CloseManager(handle), STATUS_MANAGER_OK);
}

TEST_F(StatusManagerTest, BadHandlesNamesAndArguments) {
    uint32_t handle = 0;
    const std::string tooLong(260, 'P');
    for (const char* name : {static_cast<const char*>(nullptr), "", tooLong.c_str()}) {
        EXPECT_EQ(sm.OpenManagerExA(name, nullptr, 0, &handle), STATUS_MANAGER_BAD_ARGUMENT);
    }
    EXPECT_EQ(sm.OpenManagerExA("P", nullptr, 0, nullptr), STATUS_MANAGER_BAD_ARGUMENT);
    // Any device name and mode open the printer's store.
    ASSERT_EQ(sm.OpenManagerExA(PrinterName("").c_str(), "anything", 7, &handle), STATUS_MANAGER_OK);
    const uint32_t other = Open();
    EXPECT_NE(other, handle);
    DWORD needed = 0;
    EXPECT_EQ(sm.GetPrinterStatusA(handle, "NoSuchVariable", nullptr, 0, &needed), STATUS_MANAGER_NO_VARIABLE);
    EXPECT_EQ(sm.CloseManager(handle), STATUS_MANAGER_OK);
    for (uint32_t bad : {handle, 0u}) {
        EXPECT_EQ(sm.GetPrinterStatusA(bad, "Port", nullptr, 0, &needed), STATUS_MANAGER_BAD_HANDLE);
        EXPECT_EQ(Write(bad, "Port", Bytes{1}), STATUS_MANAGER_BAD_HANDLE);
        EXPECT_EQ(sm.CloseManager(bad), STATUS_MANAGER_BAD_HANDLE);
    }
    EXPECT_EQ(sm.SetReqPrinterStatusEventA(other, NewEvent()), STATUS_MANAGER_NOT_SUPPORTED);
    EXPECT_EQ(sm.ResSetPrinterStatus(other, "Port", "x", 1), STATUS_MANAGER_NOT_SUPPORTED);
    EXPECT_EQ(sm.CloseManager(other), STATUS_MANAGER_OK);
}

TEST_F(StatusManagerTest, HandlesOnOnePrinterShareItsStore) {
    const uint32_t first = Open(" q");
    const uint32_t second = Open(" q");
    const uint32_t otherCase = Open(" Q");
    EXPECT_EQ(Write(first, "IconState", Bytes{7}), STATUS_MANAGER_OK);
    EXPECT_EQ(Read(second, "IconState"), Bytes{7});
    DWORD needed = 0;
    EXPECT_EQ(sm.GetPrinterStatusA(otherCase, "IconState", nullptr, 0, &needed), STATUS_MANAGER_NO_VARIABLE);
    for (uint32_t handle : {first, second, otherCase}) EXPECT_EQ(sm.CloseManager(handle), STATUS_MANAGER_OK);
    const uint32_t again = Open(" q");
    EXPECT_EQ(Read(again, "IconState"), Bytes{7}) << "the store outlives its handles";
    EXPECT_EQ(sm.CloseManager(again), STATUS_MANAGER_OK);
}

TEST_F(StatusManagerTest, EventIsSignalledOnlyWhenItsValueChanges) {
    const uint32_t monitor = Open();
    const uint32_t client = Open();
    HANDLE event = NewEvent();
    uint32_t id = 0;
    ASSERT_EQ(sm.SetNotificationEventA(client, "PrinterStatus", event, &id), STATUS_MANAGER_OK);
    EXPECT_NE(id, 0u);
    EXPECT_EQ(Write(monitor, "PrinterStatus", Bytes{1, 2}), STATUS_MANAGER_OK);
    EXPECT_TRUE(Signalled(event)) << "a new variable is a change";
    EXPECT_EQ(Write(monitor, "PrinterStatus", Bytes{1, 2}), STATUS_MANAGER_OK);
    EXPECT_FALSE(Signalled(event)) << "the same bytes again";
    EXPECT_EQ(Write(monitor, "PrinterStatus", Bytes{1}), STATUS_MANAGER_OK);
    EXPECT_TRUE(Signalled(event)) << "a shorter value";
    EXPECT_EQ(Write(monitor, "IconState", Bytes{1}), STATUS_MANAGER_OK);
    EXPECT_FALSE(Signalled(event)) << "another variable";

    // Without the host's SetEvent (none, or a host too old to hand it over)
    // the watch stays but cannot signal.
    LANGMON_HOST_CALLS older{sizeof(uint32_t), &SetEvent};
    for (const LANGMON_HOST_CALLS* host : {static_cast<LANGMON_HOST_CALLS*>(nullptr), &older}) {
        sm.LangmonAttachHost(host);
        EXPECT_EQ(Write(monitor, "PrinterStatus", Bytes{host ? uint8_t(3) : uint8_t(2)}), STATUS_MANAGER_OK);
        EXPECT_FALSE(Signalled(event));
    }
    LANGMON_HOST_CALLS current{sizeof current, &SetEvent};
    sm.LangmonAttachHost(&current);
    EXPECT_EQ(Write(monitor, "PrinterStatus", Bytes{4}), STATUS_MANAGER_OK);
    EXPECT_TRUE(Signalled(event));

    EXPECT_EQ(sm.KillNotificationCallback(client, id), STATUS_MANAGER_BAD_ARGUMENT) << "not a callback watch";
    EXPECT_EQ(sm.KillNotificationEvent(monitor, id), STATUS_MANAGER_BAD_ARGUMENT) << "not the monitor's watch";
    EXPECT_EQ(sm.KillNotificationEvent(client, id), STATUS_MANAGER_OK);
    EXPECT_EQ(sm.KillNotificationEvent(client, id), STATUS_MANAGER_BAD_ARGUMENT);
    EXPECT_EQ(Write(monitor, "PrinterStatus", Bytes{9}), STATUS_MANAGER_OK);
    EXPECT_FALSE(Signalled(event));
    EXPECT_EQ(sm.CloseManager(client), STATUS_MANAGER_OK);
    EXPECT_EQ(sm.CloseManager(monitor), STATUS_MANAGER_OK);
}

TEST_F(StatusManagerTest, WatchOfSeveralVariablesPairsEventsWithNamesUntilClosed) {
    const uint32_t monitor = Open();
    const uint32_t client = Open();
    const HANDLE events[3] = {NewEvent(), NewEvent(), NewEvent()};
    const HANDLE withNull[3] = {events[0], nullptr, events[2]};
    uint32_t id = 0;
    for (const char* names : {"A;B", "A;B;C;D", "A;;C", "A;B;", ""}) {
        EXPECT_EQ(sm.SetNotificationEventExA(client, 3, names, events, &id), STATUS_MANAGER_BAD_ARGUMENT) << names;
    }
    EXPECT_EQ(sm.SetNotificationEventExA(client, 0, "", events, &id), STATUS_MANAGER_BAD_ARGUMENT);
    EXPECT_EQ(sm.SetNotificationEventExA(client, 3, "A;B;C", withNull, &id), STATUS_MANAGER_BAD_ARGUMENT);
    EXPECT_EQ(sm.SetNotificationEventExA(client + 100, 3, "A;B;C", events, &id), STATUS_MANAGER_BAD_HANDLE);
    ASSERT_EQ(sm.SetNotificationEventExA(client, 3, "A;B;C", events, &id), STATUS_MANAGER_OK);

    EXPECT_EQ(Write(monitor, "B", Bytes{1}), STATUS_MANAGER_OK);
    EXPECT_FALSE(Signalled(events[0]));
    EXPECT_TRUE(Signalled(events[1]));
    EXPECT_FALSE(Signalled(events[2]));
    EXPECT_EQ(sm.CloseManager(client), STATUS_MANAGER_OK);
    EXPECT_EQ(Write(monitor, "B", Bytes{2}), STATUS_MANAGER_OK);
    EXPECT_FALSE(Signalled(events[1])) << "closing the handle ends its watches";
    EXPECT_EQ(sm.CloseManager(monitor), STATUS_MANAGER_OK);
}

struct CallbackLog {
    const ManagerCalls* sm;
    std::vector<std::string> names{};  // one per call
    uint32_t handle = 0;
    Bytes valueSeen{0, 0};
    uint32_t killId = 0;  // a watch the callback ends from inside
};

// The library's lock is not held here: reading and ending watches work.
void LogChange(uint32_t handle, const char* name, void* context) {
    auto* log = static_cast<CallbackLog*>(context);
    log->names.emplace_back(name);
    log->handle = handle;
    log->sm->GetPrinterStatusA(handle, name, log->valueSeen.data(), 2, nullptr);
    if (log->killId != 0) log->sm->KillNotificationCallback(handle, log->killId);
}

TEST_F(StatusManagerTest, CallbacksHearChangesAndMayCallBackIn) {
    const uint32_t monitor = Open();
    const uint32_t client = Open();
    CallbackLog log{&sm};
    uint32_t id = 0;
    EXPECT_EQ(sm.SetNotificationCallbackExA(client, 2, "A;B", nullptr, &log, &id), STATUS_MANAGER_BAD_ARGUMENT);
    ASSERT_EQ(sm.SetNotificationCallbackExA(client, 2, "A;B", LogChange, &log, &id), STATUS_MANAGER_OK);
    EXPECT_EQ(sm.KillNotificationEvent(client, id), STATUS_MANAGER_BAD_ARGUMENT) << "not an event watch";

    EXPECT_EQ(Write(monitor, "B", Bytes{5, 6}), STATUS_MANAGER_OK);
    EXPECT_EQ(Write(monitor, "B", Bytes{5, 6}), STATUS_MANAGER_OK);
    EXPECT_EQ(Write(monitor, "C", Bytes{1}), STATUS_MANAGER_OK);
    EXPECT_EQ(log.names, std::vector<std::string>{"B"});
    EXPECT_EQ(log.handle, client) << "the handle the watch was made through";
    EXPECT_EQ(log.valueSeen, (Bytes{5, 6}));

    log.killId = id;
    EXPECT_EQ(Write(monitor, "A", Bytes{1}), STATUS_MANAGER_OK);
    EXPECT_EQ(Write(monitor, "A", Bytes{2}), STATUS_MANAGER_OK);
    EXPECT_EQ(log.names, (std::vector<std::string>{"B", "A"})) << "the callback ended its own watch";
    EXPECT_EQ(sm.KillNotificationCallback(client, id), STATUS_MANAGER_BAD_ARGUMENT);
    EXPECT_EQ(sm.CloseManager(client), STATUS_MANAGER_OK);
    EXPECT_EQ(sm.CloseManager(monitor), STATUS_MANAGER_OK);
}

std::atomic<int> changesHeard{0};
void CountChange(uint32_t, const char*, void*) { ++changesHeard; }

TEST_F(StatusManagerTest, ThreadsWritingAtOnceLoseNoChange) {
    const uint32_t client = Open();
    uint32_t id = 0;
    ASSERT_EQ(sm.SetNotificationCallbackExA(client, 4, "T0;T1;T2;T3", CountChange, nullptr, &id), 0);
    changesHeard = 0;
    constexpr int kWrites = 500;
    std::vector<std::thread> writers;
    for (int t = 0; t < 4; ++t) {
        writers.emplace_back([&, t] {
            const uint32_t handle = Open();
            const std::string name = "T" + std::to_string(t);
            for (int i = 1; i <= kWrites; ++i) sm.UpdatePrinterStatusA(handle, name.c_str(), &i, sizeof i);
            sm.CloseManager(handle);
        });
    }
    for (std::thread& writer : writers) writer.join();
    EXPECT_EQ(changesHeard.load(), 4 * kWrites);
    EXPECT_EQ(sm.CloseManager(client), STATUS_MANAGER_OK);
}

}  // namespace
}  // namespace langmon
