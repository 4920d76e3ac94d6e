// The registry calls as the monitor makes them: open without creating, the
// two-call size queries, enumeration order, access rights and handle checks.

#include "platform/registry.h"
#include "support/platform_fixture.h"

#include <cstring>

namespace langmon {
namespace {

using RegistryTest = testing::PlatformTest;

constexpr const char* kQuor = "SOFTWARE\\Quor\\Status Monitor";

TEST_F(RegistryTest, OpenFindsKeysWithoutRegardToCaseAndNeverCreates) {
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, kQuor, "CTIFlag", 3);
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
    EXPECT_EQ(RegQueryValueExA(again, "ctiflag", nullptr, nullptr, reinterpret_cast<LPBYTE>(&value), &size),
              LONG(ERROR_SUCCESS));
    EXPECT_EQ(value, 3u);
    EXPECT_EQ(RegCloseKey(again), LONG(ERROR_SUCCESS));
    EXPECT_EQ(RegCloseKey(key), LONG(ERROR_SUCCESS));

    // A closed or made-up handle is refused by every call.
    EXPECT_EQ(RegCloseKey(key), LONG(ERROR_INVALID_HANDLE));
    EXPECT_EQ(RegQueryValueExA(key, "CTIFlag", nullptr, nullptr, nullptr, &size), LONG(ERROR_INVALID_HANDLE));
    EXPECT_EQ(RegOpenKeyExA(key, "", 0, KEY_READ, &again), LONG(ERROR_INVALID_HANDLE));
    // The Reg calls report through their result, never through the last error.
    EXPECT_EQ(GetLastError(), 0xdeadbeefu);
}

TEST_F(RegistryTest, QueryValueAsksForTheSizeThenReads) {
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, kQuor, "Name", "Quor");
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, kQuor, "", "default");
    HKEY key;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kQuor, 0, KEY_READ, &key), LONG(ERROR_SUCCESS));

    DWORD type = 0;
    DWORD size = 0;
    EXPECT_EQ(RegQueryValueExA(key, "Name", nullptr, &type, nullptr, &size), LONG(ERROR_SUCCESS));
    EXPECT_EQ(type, REG_SZ);
    EXPECT_EQ(size, 5u);  // with the NUL

    char buffer[8];
    std::memset(buffer, 'x', sizeof buffer);
    size = 4;
    EXPECT_EQ(RegQueryValueExA(key, "Name", nullptr, nullptr, reinterpret_cast<LPBYTE>(buffer), &size),
              LONG(ERROR_MORE_DATA));
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(std::string(buffer, sizeof buffer), "xxxxxxxx");  // untouched

    size = sizeof buffer;
    EXPECT_EQ(RegQueryValueExA(key, "Name", nullptr, nullptr, reinterpret_cast<LPBYTE>(buffer), &size),
              LONG(ERROR_SUCCESS));
    EXPECT_EQ(size, 5u);
    EXPECT_STREQ(buffer, "Quor");

    // A null or empty name is the key's default value.
    size = sizeof buffer;
    EXPECT_EQ(RegQueryValueExA(key, nullptr, nullptr, nullptr, reinterpret_cast<LPBYTE>(buffer), &size),
              LONG(ERROR_SUCCESS));
    EXPECT_STREQ(buffer, "default");
    EXPECT_EQ(RegQueryValueExA(key, "Missing", nullptr, nullptr, nullptr, &size), LONG(ERROR_FILE_NOT_FOUND));
    RegCloseKey(key);
}

TEST_F(RegistryTest, EnumKeysGivesCreationOrderAndNameLengths) {
    const char* ports = "System\\CurrentControlSet\\control\\Print\\Monitors\\Local Port\\Ports";
    for (const char* name : {"LPT2", "COM1", "USB001"}) {
        platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, std::string(ports) + "\\" + name);
    }
    HKEY key;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, ports, 0, KEY_READ, &key), LONG(ERROR_SUCCESS));

    char name[16];
    DWORD size = sizeof name;
    ASSERT_EQ(RegEnumKeyExA(key, 0, name, &size, nullptr, nullptr, nullptr, nullptr), LONG(ERROR_SUCCESS));
    EXPECT_STREQ(name, "LPT2");
    EXPECT_EQ(size, 4u);  // without the NUL
    size = sizeof name;
    ASSERT_EQ(RegEnumKeyExA(key, 1, name, &size, nullptr, nullptr, nullptr, nullptr), LONG(ERROR_SUCCESS));
    EXPECT_STREQ(name, "COM1");

    // "USB001" needs 7 bytes with its NUL; 6 is too few and the buffer stays.
    std::strcpy(name, "before");
    size = 6;
    EXPECT_EQ(RegEnumKeyExA(key, 2, name, &size, nullptr, nullptr, nullptr, nullptr), LONG(ERROR_MORE_DATA));
    EXPECT_STREQ(name, "before");
    size = 7;
    EXPECT_EQ(RegEnumKeyExA(key, 2, name, &size, nullptr, nullptr, nullptr, nullptr), LONG(ERROR_SUCCESS));
    EXPECT_STREQ(name, "USB001");

    size = sizeof name;
    EXPECT_EQ(RegEnumKeyExA(key, 3, name, &size, nullptr, nullptr, nullptr, nullptr), LONG(ERROR_NO_MORE_ITEMS));
    RegCloseKey(key);
}

TEST_F(RegistryTest, EachCallNeedsItsRight) {
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, kQuor + std::string("\\Printers"), "MyPortMode", 1);
    HKEY queryOnly;
    HKEY setOnly;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kQuor, 0, KEY_QUERY_VALUE, &queryOnly), LONG(ERROR_SUCCESS));
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kQuor, 0, KEY_SET_VALUE, &setOnly), LONG(ERROR_SUCCESS));

    const DWORD interval = 50;
    const auto* bytes = reinterpret_cast<const BYTE*>(&interval);
    char name[32];
    DWORD size = sizeof name;
    EXPECT_EQ(RegEnumKeyExA(queryOnly, 0, name, &size, nullptr, nullptr, nullptr, nullptr),
              LONG(ERROR_ACCESS_DENIED));
    EXPECT_EQ(RegSetValueExA(queryOnly, "CreateThreadInterval", 0, REG_DWORD, bytes, 4),
              LONG(ERROR_ACCESS_DENIED));
    EXPECT_EQ(RegQueryValueExA(setOnly, "CreateThreadInterval", nullptr, nullptr, nullptr, &size),
              LONG(ERROR_ACCESS_DENIED));

    EXPECT_EQ(RegSetValueExA(setOnly, "CreateThreadInterval", 0, REG_DWORD, bytes, 4), LONG(ERROR_SUCCESS));
    EXPECT_EQ(platform::RegistryGetDword(HKEY_LOCAL_MACHINE, kQuor, "CreateThreadInterval"), 50u);
    // The predefined roots have every right.
    EXPECT_EQ(RegSetValueExA(HKEY_DYN_DATA, "Root", 0, REG_DWORD, bytes, 4), LONG(ERROR_SUCCESS));
    EXPECT_EQ(platform::RegistryGetDword(HKEY_DYN_DATA, "", "Root"), 50u);
    RegCloseKey(queryOnly);
    RegCloseKey(setOnly);
}

}  // namespace
}  // namespace langmon
