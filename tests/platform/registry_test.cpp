// The registry calls as the monitor makes them: open without creating, the
// two-call size queries, enumeration order, access rights and handle checks.

#include "platform/registry.h"
#include "support/platform_fixture.h"

#include <cstring>
#include <pthread.h>
#include <string>
#include <vector>

namespace langmon {
namespace {

constexpr const char* kQuor = "SOFTWARE\\Quor\\Status Monitor";

// A key with a dword, a text, a default value and three subkeys made in an
// order that is not the alphabet's.
class RegistryTest : public testing::PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        platform::RegistrySetDword(HKEY_LOCAL_MACHINE, kQuor, "CTIFlag", 3);
        platform::RegistrySetString(HKEY_LOCAL_MACHINE, kQuor, "Name", "Quor");
        platform::RegistrySetString(HKEY_LOCAL_MACHINE, kQuor, "", "default");
        for (const char* name : {"LPT2", "COM1", "USB001"}) {
            platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, std::string(kQuor) + "\\" + name);
        }
    }
    static HKEY Open(REGSAM access) {
        HKEY key = nullptr;
        EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kQuor, 0, access, &key), LONG(ERROR_SUCCESS));
        return key;
    }
};

LONG Query(HKEY key, const char* name, void* data, DWORD* size, DWORD* type = nullptr) {
    return RegQueryValueExA(key, name, nullptr, type, static_cast<LPBYTE>(data), size);
}
LONG EnumKey(HKEY key, DWORD index, char* name, DWORD* size) {
    return RegEnumKeyExA(key, index, name, size, nullptr, nullptr, nullptr, nullptr);
}

TEST_F(RegistryTest, OpenFindsKeysWithoutRegardToCaseAndNeverCreates) {
    SetLastError(0xdeadbeef);
    HKEY key = reinterpret_cast<HKEY>(1);
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\Quor\\Nothing", 0, KEY_READ, &key),
              LONG(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(key, nullptr);
    EXPECT_FALSE(platform::RegistryKeyExists(HKEY_LOCAL_MACHINE, "Software\\Quor\\Nothing"));

    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "software\\QUOR\\status monitor", 0, KEY_READ, &key),
              LONG(ERROR_SUCCESS));
    // A null subkey opens the same key again, as a handle of its own.
    HKEY again = nullptr;
    ASSERT_EQ(RegOpenKeyExA(key, nullptr, 0, KEY_READ, &again), LONG(ERROR_SUCCESS));
    EXPECT_NE(again, key);
    DWORD value = 0;
    DWORD size = sizeof value;
    EXPECT_EQ(Query(again, "ctiflag", &value, &size), LONG(ERROR_SUCCESS));
    EXPECT_EQ(value, 3u);
    EXPECT_EQ(RegCloseKey(again) + RegCloseKey(key), LONG(ERROR_SUCCESS));

    // A closed or made-up handle is refused by every call.
    EXPECT_EQ(RegCloseKey(key), LONG(ERROR_INVALID_HANDLE));
    EXPECT_EQ(Query(key, "CTIFlag", nullptr, &size), LONG(ERROR_INVALID_HANDLE));
    EXPECT_EQ(RegOpenKeyExA(key, "", 0, KEY_READ, &again), LONG(ERROR_INVALID_HANDLE));
    // The Reg calls report through their result, never through the last error.
    EXPECT_EQ(GetLastError(), 0xdeadbeefu);
}

TEST_F(RegistryTest, SizeQueriesGiveTheSizeAndLeaveASmallBufferAlone) {
    HKEY key = Open(KEY_READ);
    DWORD type = 0;
    DWORD size = 0;
    EXPECT_EQ(Query(key, "Name", nullptr, &size, &type), LONG(ERROR_SUCCESS));
    EXPECT_EQ(type, REG_SZ);
    EXPECT_EQ(size, 5u);  // with the NUL
    char buffer[8] = "xxxxxxx";
    size = 4;
    EXPECT_EQ(Query(key, "Name", buffer, &size), LONG(ERROR_MORE_DATA));
    EXPECT_EQ(size, 5u);
    EXPECT_STREQ(buffer, "xxxxxxx");
    size = sizeof buffer;
    EXPECT_EQ(Query(key, "Name", buffer, &size), LONG(ERROR_SUCCESS));
    EXPECT_EQ(size, 5u);
    EXPECT_STREQ(buffer, "Quor");
    // A null name is the key's default value.
    size = sizeof buffer;
    EXPECT_EQ(Query(key, nullptr, buffer, &size), LONG(ERROR_SUCCESS));
    EXPECT_STREQ(buffer, "default");
    EXPECT_EQ(Query(key, "Missing", nullptr, &size), LONG(ERROR_FILE_NOT_FOUND));

    // Subkeys come in the order they were made; a name needs room for its NUL
    // ("USB001": 7 bytes) and its length comes back without it.
    size = sizeof buffer;
    EXPECT_EQ(EnumKey(key, 0, buffer, &size), LONG(ERROR_SUCCESS));
    EXPECT_STREQ(buffer, "LPT2");
    EXPECT_EQ(size, 4u);
    size = 6;
    EXPECT_EQ(EnumKey(key, 2, buffer, &size), LONG(ERROR_MORE_DATA));
    EXPECT_STREQ(buffer, "LPT2");
    size = 7;
    EXPECT_EQ(EnumKey(key, 2, buffer, &size), LONG(ERROR_SUCCESS));
    EXPECT_STREQ(buffer, "USB001");
    EXPECT_EQ(EnumKey(key, 3, buffer, &size), LONG(ERROR_NO_MORE_ITEMS));
    RegCloseKey(key);
}

TEST_F(RegistryTest, EachCallNeedsItsRight) {
    HKEY queryOnly = Open(KEY_QUERY_VALUE);
    HKEY setOnly = Open(KEY_SET_VALUE);
    const DWORD interval = 50;
    const auto* bytes = reinterpret_cast<const BYTE*>(&interval);
    char name[32];
    DWORD size = sizeof name;
    EXPECT_EQ(EnumKey(queryOnly, 0, name, &size), LONG(ERROR_ACCESS_DENIED));
    EXPECT_EQ(RegSetValueExA(queryOnly, "CreateThreadInterval", 0, REG_DWORD, bytes, 4),
              LONG(ERROR_ACCESS_DENIED));
    EXPECT_EQ(Query(setOnly, "CTIFlag", nullptr, &size), LONG(ERROR_ACCESS_DENIED));

    EXPECT_EQ(RegSetValueExA(setOnly, "CreateThreadInterval", 0, REG_DWORD, bytes, 4), LONG(ERROR_SUCCESS));
    EXPECT_EQ(platform::RegistryGetDword(HKEY_LOCAL_MACHINE, kQuor, "CreateThreadInterval"), 50u);
    // The predefined roots have every right.
    EXPECT_EQ(RegSetValueExA(HKEY_DYN_DATA, "Root", 0, REG_DWORD, bytes, 4), LONG(ERROR_SUCCESS));
    EXPECT_EQ(platform::RegistryGetDword(HKEY_DYN_DATA, "", "Root"), 50u);
    RegCloseKey(queryOnly);
    RegCloseKey(setOnly);
}

// A key taken out leaves its siblings in their order, each still found by
// its name; a key taken out and made again comes last.
TEST_F(RegistryTest, DeletingAKeyKeepsItsSiblingsInOrderAndFound) {
    const std::string quor = kQuor;
    EXPECT_TRUE(platform::RegistryDeleteKey(HKEY_LOCAL_MACHINE, quor + "\\com1"));
    EXPECT_FALSE(platform::RegistryDeleteKey(HKEY_LOCAL_MACHINE, quor + "\\COM1"));
    EXPECT_EQ(platform::RegistrySubkeys(HKEY_LOCAL_MACHINE, kQuor), (std::vector<std::string>{"LPT2", "USB001"}));
    EXPECT_TRUE(platform::RegistryKeyExists(HKEY_LOCAL_MACHINE, quor + "\\usb001"));
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, quor + "\\Usb001", "PortType", 3);
    platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, quor + "\\COM1");
    EXPECT_EQ(platform::RegistrySubkeys(HKEY_LOCAL_MACHINE, kQuor),
              (std::vector<std::string>{"LPT2", "USB001", "COM1"}));
    EXPECT_EQ(platform::RegistryGetDword(HKEY_LOCAL_MACHINE, quor + "\\USB001", "porttype"), 3u);
}

// `work(argument)` on a thread with a stack of 1 MiB: a chain of keys that
// was freed a stack frame per level would not fit.
void OnSmallStack(void* (*work)(void*), void* argument) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::size_t{1} << 20);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, work, argument), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

// A chain of keys far deeper than a machine file may give is freed without
// a stack frame per level, also when the last handle inside it closes; the
// handle kept its part of the chain until then.
TEST_F(RegistryTest, AKeyChainAHundredThousandDeepIsFreedWithTheHandleInsideItStillGood) {
    std::string path;
    for (int level = 0; level < 100000; ++level) path += "k\\";
    platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, path + "end");
    HKEY middle = nullptr;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.substr(0, path.size() / 2).c_str(), 0, KEY_READ, &middle),
              LONG(ERROR_SUCCESS));
    OnSmallStack([](void*) -> void* { return platform::ClearRegistry(), nullptr; }, nullptr);
    EXPECT_FALSE(platform::RegistryKeyExists(HKEY_LOCAL_MACHINE, "k"));
    char name[8];
    DWORD size = sizeof name;
    EXPECT_EQ(EnumKey(middle, 0, name, &size), LONG(ERROR_SUCCESS));
    EXPECT_STREQ(name, "k");
    LONG closed = -1;
    struct Closing {
        HKEY key;
        LONG* result;
    } closing{middle, &closed};
    OnSmallStack(
        [](void* argument) -> void* {
            auto* c = static_cast<Closing*>(argument);
            *c->result = RegCloseKey(c->key);
            return nullptr;
        },
        &closing);
    EXPECT_EQ(closed, LONG(ERROR_SUCCESS));
}

}  // namespace
}  // namespace langmon
