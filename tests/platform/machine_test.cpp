// Machine facts: what the monitor learns of the computer, its keyboard, its
// code page, its Windows version and its network redirections, with the
// defaults of a machine that the description says nothing about.

#include "platform/machine.h"

#include "platform/registry.h"
#include "support/platform_fixture.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace langmon {
namespace {

using MachineTest = testing::PlatformTest;

constexpr const char* kOwn = "Software\\langmon";
constexpr const char* kConnections = "Software\\langmon\\Network Connections";

TEST_F(MachineTest, ComputerNameComesFromTheRegistryInTwoCalls) {
    platform::RegistrySetString(HKEY_LOCAL_MACHINE,
                                "System\\CurrentControlSet\\control\\ComputerName\\ComputerName",
                                "ComputerName", "KIOSK7");
    char name[16];
    std::memset(name, 'x', sizeof name);
    DWORD size = 6;  // no room for the NUL
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(GetComputerNameA(name, &size));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_BUFFER_OVERFLOW));
    EXPECT_EQ(size, 7u);
    EXPECT_EQ(name[0], 'x');

    SetLastError(0xdeadbeef);
    EXPECT_TRUE(GetComputerNameA(name, &size));
    EXPECT_EQ(GetLastError(), 0xdeadbeefu);
    EXPECT_EQ(size, 6u);
    EXPECT_STREQ(name, "KIOSK7");
}

TEST_F(MachineTest, WithoutARegistryNameTheHostNameServesUpperCasedAndCut) {
    char host[256] = {};
    ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
    std::string expected(host, std::min<std::size_t>(std::strlen(host), 15));
    for (char& c : expected) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));

    char name[32];
    DWORD size = sizeof name;
    ASSERT_TRUE(GetComputerNameA(name, &size));
    EXPECT_EQ(std::string(name), expected);
    EXPECT_EQ(size, expected.size());
}

TEST_F(MachineTest, KeyboardAndVersionHaveDefaultsAndOverrides) {
    EXPECT_EQ(GetKeyboardType(0), 0);
    EXPECT_EQ(GetKeyboardType(1), 0);
    EXPECT_EQ(GetKeyboardType(2), 0);
    OSVERSIONINFOA version{};
    version.dwOSVersionInfoSize = sizeof version;
    ASSERT_TRUE(GetVersionExA(&version));
    EXPECT_EQ(version.dwMajorVersion, 4u);
    EXPECT_EQ(version.dwMinorVersion, 10u);
    EXPECT_EQ(version.dwBuildNumber, 0x040A07CEu);
    EXPECT_EQ(version.dwPlatformId, VER_PLATFORM_WIN32_WINDOWS);
    EXPECT_STREQ(version.szCSDVersion, "");

    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, kOwn, "KeyboardSubtype", 0x0D01);
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, kOwn, "VersionPlatform", VER_PLATFORM_WIN32_NT);
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, kOwn, "VersionCSD", std::string(200, 'S'));
    EXPECT_EQ(GetKeyboardType(1), 0x0D01);
    ASSERT_TRUE(GetVersionExA(&version));
    EXPECT_EQ(version.dwPlatformId, VER_PLATFORM_WIN32_NT);
    EXPECT_EQ(std::strlen(version.szCSDVersion), 127u);  // cut to the field

    version.dwOSVersionInfoSize = 0;
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(GetVersionExA(&version));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER));
}

TEST_F(MachineTest, LeadBytesAreThoseOfShiftJisUnlessAnotherCodePageIsSet) {
    for (int b : {0x41, 0x80, 0xA0, 0xDF, 0xFD, 0xFF}) EXPECT_FALSE(IsDBCSLeadByte(BYTE(b))) << b;
    for (int b : {0x81, 0x9F, 0xE0, 0xFC}) EXPECT_TRUE(IsDBCSLeadByte(BYTE(b))) << b;
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, kOwn, "CodePage", 1252);
    EXPECT_FALSE(IsDBCSLeadByte(0x81));
}

TEST_F(MachineTest, NetworkConnectionsAnswerWithResultAndLastError) {
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, kConnections, "LPT3", "\\\\SERVER\\LASER");
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, kConnections, "LPT4", ERROR_CONNECTION_UNAVAIL);
    char remote[32];
    DWORD length = sizeof remote;

    SetLastError(0xdeadbeef);
    EXPECT_EQ(WNetGetConnectionA("LPT1", remote, &length), DWORD(ERROR_NOT_CONNECTED));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_NOT_CONNECTED));

    SetLastError(0xdeadbeef);
    EXPECT_EQ(WNetGetConnectionA("LPT4", remote, &length), DWORD(ERROR_CONNECTION_UNAVAIL));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_CONNECTION_UNAVAIL));

    std::strcpy(remote, "before");
    length = 5;
    SetLastError(0xdeadbeef);
    EXPECT_EQ(WNetGetConnectionA("lpt3", remote, &length), DWORD(ERROR_MORE_DATA));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_MORE_DATA));
    EXPECT_EQ(length, 15u);
    EXPECT_STREQ(remote, "before");

    SetLastError(0xdeadbeef);
    EXPECT_EQ(WNetGetConnectionA("LPT3", remote, &length), DWORD(ERROR_SUCCESS));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_SUCCESS));
    EXPECT_STREQ(remote, "\\\\SERVER\\LASER");
}

}  // namespace
}  // namespace langmon
