// Machine facts: what the monitor learns of the computer, its keyboard, its
// code page, its Windows version and its network redirections, with the
// defaults of a machine that the description says nothing about; and how the
// host compares texts.

#include "platform/machine.h"

#include "platform/registry.h"
#include "platform/text.h"
#include "support/platform_fixture.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <tuple>

namespace langmon {
namespace {

using MachineTest = testing::PlatformTest;

constexpr const char* kOwn = "Software\\langmon";
constexpr DWORD Unset = 0xdeadbeef;

TEST_F(MachineTest, ComputerNameComesFromTheRegistryElseTheHostInTwoCalls) {
    // Without a name in the registry the host's serves, upper-cased and cut.
    char host[256] = {};
    ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
    std::string expected(host, std::min<std::size_t>(std::strlen(host), 15));
    for (char& c : expected) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    char name[32];
    DWORD size = sizeof name;
    ASSERT_TRUE(GetComputerNameA(name, &size));
    EXPECT_EQ(std::string(name), expected);
    EXPECT_EQ(size, expected.size());

    platform::RegistrySetString(HKEY_LOCAL_MACHINE,
                                "System\\CurrentControlSet\\control\\ComputerName\\ComputerName",
                                "ComputerName", "KIOSK7");
    std::strcpy(name, "x");
    size = 6;  // no room for the NUL
    SetLastError(Unset);
    EXPECT_FALSE(GetComputerNameA(name, &size));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_BUFFER_OVERFLOW));
    EXPECT_EQ(size, 7u);
    EXPECT_STREQ(name, "x");
    SetLastError(Unset);
    EXPECT_TRUE(GetComputerNameA(name, &size));
    EXPECT_EQ(GetLastError(), Unset);
    EXPECT_EQ(size, 6u);
    EXPECT_STREQ(name, "KIOSK7");
}

TEST_F(MachineTest, KeyboardVersionAndCodePageHaveDefaultsAndOverrides) {
    EXPECT_EQ(GetKeyboardType(0) + GetKeyboardType(1) + GetKeyboardType(2), 0);
    OSVERSIONINFOA v{};
    v.dwOSVersionInfoSize = sizeof v;
    ASSERT_TRUE(GetVersionExA(&v));
    EXPECT_EQ(std::tie(v.dwMajorVersion, v.dwMinorVersion, v.dwBuildNumber, v.dwPlatformId),
              std::make_tuple(4u, 10u, 0x040A07CEu, VER_PLATFORM_WIN32_WINDOWS));
    EXPECT_STREQ(v.szCSDVersion, "");
    // The lead bytes of Shift-JIS.
    for (int b : {0x41, 0x80, 0xA0, 0xDF, 0xFD, 0xFF}) EXPECT_FALSE(IsDBCSLeadByte(BYTE(b))) << b;
    for (int b : {0x81, 0x9F, 0xE0, 0xFC}) EXPECT_TRUE(IsDBCSLeadByte(BYTE(b))) << b;

    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, kOwn, "KeyboardSubtype", 0x0D01);
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, kOwn, "VersionPlatform", VER_PLATFORM_WIN32_NT);
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, kOwn, "VersionCSD", std::string(200, 'S'));
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, kOwn, "CodePage", 1252);
    EXPECT_EQ(GetKeyboardType(1), 0x0D01);
    ASSERT_TRUE(GetVersionExA(&v));
    EXPECT_EQ(v.dwPlatformId, VER_PLATFORM_WIN32_NT);
    EXPECT_EQ(std::strlen(v.szCSDVersion), 127u);  // cut to the field
    EXPECT_FALSE(IsDBCSLeadByte(0x81));

    v.dwOSVersionInfoSize = 0;
    SetLastError(Unset);
    EXPECT_FALSE(GetVersionExA(&v));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER));
}

TEST_F(MachineTest, NetworkConnectionsAnswerWithResultAndLastError) {
    const char* connections = "Software\\langmon\\Network Connections";
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, connections, "LPT3", "\\\\SERVER\\LASER");
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, connections, "LPT4", ERROR_CONNECTION_UNAVAIL);
    char remote[32] = "before";
    DWORD length = 0;
    // The result is also the last error.
    auto ask = [&](const char* name, DWORD room) {
        length = room;
        SetLastError(Unset);
        const DWORD result = WNetGetConnectionA(name, remote, &length);
        EXPECT_EQ(GetLastError(), result) << name;
        return result;
    };
    EXPECT_EQ(ask("LPT1", sizeof remote), DWORD(ERROR_NOT_CONNECTED));
    EXPECT_EQ(ask("LPT4", sizeof remote), DWORD(ERROR_CONNECTION_UNAVAIL));
    EXPECT_EQ(ask("lpt3", 5), DWORD(ERROR_MORE_DATA));
    EXPECT_EQ(length, 15u);
    EXPECT_STREQ(remote, "before");
    EXPECT_EQ(ask("LPT3", 15), DWORD(ERROR_SUCCESS));
    EXPECT_STREQ(remote, "\\\\SERVER\\LASER");
}

TEST(TextCompare, OrdersByUnsignedBytesAndPutsNullFirst) {
    EXPECT_EQ(lstrcmpA("LPT1", "LPT1"), 0);
    EXPECT_LT(lstrcmpA("LPT1", "LPT2"), 0);
    EXPECT_LT(lstrcmpA("LPT", "LPT1"), 0);
    EXPECT_GT(lstrcmpA("\x83v", "z"), 0);  // a Shift-JIS byte sorts above ASCII
    EXPECT_NE(lstrcmpA("lpt1", "LPT1"), 0);
    EXPECT_EQ(lstrcmpA(nullptr, nullptr), 0);
    EXPECT_LT(lstrcmpA(nullptr, ""), 0);
    EXPECT_GT(lstrcmpA("", nullptr), 0);

    EXPECT_EQ(lstrcmpiA("lpt1", "LPT1"), 0);
    EXPECT_EQ(lstrcmpiA("\x83v", "\x83V"), 0);
    EXPECT_NE(lstrcmpiA("\x83", "\xA3"), 0);  // only ASCII letters fold
    EXPECT_LT(lstrcmpiA(nullptr, "a"), 0);
}

}  // namespace
}  // namespace langmon
