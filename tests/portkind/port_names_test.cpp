// The name tests and the name comparison that the whole system uses.

#include "portkind/port_kind.h"

#include "platform/registry.h"
#include "support/platform_fixture.h"

namespace langmon {
namespace {

using PortNamesTest = testing::PlatformTest;

TEST_F(PortNamesTest, ParallelAndSerialNamesNeedADigitFromOneToNine) {
    for (const char* name : {"LPT1", "lpt1", "LPT9", "LPT12", "Lpt1:"}) EXPECT_TRUE(IsParallelName(name)) << name;
    for (const char* name : std::initializer_list<const char*>{"LPT0", "LPT", "LPTX", "LP1", "COM1", "", nullptr}) {
        EXPECT_FALSE(IsParallelName(name)) << (name ? name : "(null)");
    }
    for (const char* name : {"COM1", "com4", "COM1:"}) EXPECT_TRUE(IsSerialName(name)) << name;
    for (const char* name : {"COM0", "COM", "COMX", "LPT1"}) EXPECT_FALSE(IsSerialName(name)) << name;
}

TEST_F(PortNamesTest, UsbNamesCarryANumberFromOneTo128) {
    for (const char* name : {"USB001", "usb128", "USB064x", "USB0001"}) EXPECT_TRUE(IsUsbName(name)) << name;
    // "USB1" is too short; "USB00X" reads as 0.
    for (const char* name : {"USB000", "USB129", "USB1", "USB00X", "USBXYZ", "LPT001"}) {
        EXPECT_FALSE(IsUsbName(name)) << name;
    }
}

TEST_F(PortNamesTest, CompareFoldsLettersButNotBehindALeadByte) {
    EXPECT_EQ(CompareNameNoCase("quor cl6300", "QUOR CL6300", 64), 0);
    EXPECT_EQ(CompareNameNoCase("LPT1:", "lpt1", 4), 0);  // only `count` bytes
    EXPECT_NE(CompareNameNoCase("LPT1:", "lpt1", 5), 0);
    EXPECT_EQ(CompareNameNoCase("LPT1", "LPT2", 1), 0);
    EXPECT_EQ(CompareNameNoCase("ab\0x", "AB\0y", 8), 0);  // stops at the end of the texts
    EXPECT_EQ(CompareNameNoCase("LPT1", "LPT2", 4), -1);
    // The difference is taken as a signed 8-bit number: 'A' - 0xE1 wraps to 0x60.
    EXPECT_EQ(CompareNameNoCase("a", "\xE1", 1), 0x60);
    EXPECT_EQ(CompareNameNoCase("\x01", "\x81", 1), -128);

    // 0x83 is a Shift-JIS lead byte: the byte behind it is half a character,
    // and 'a' there is not 'A'.
    EXPECT_EQ(CompareNameNoCase("\x83" "a", "\x83" "A", 2), 'a' - 'A');
    EXPECT_EQ(CompareNameNoCase("x" "a", "x" "A", 2), 0);
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, "Software\\langmon", "CodePage", 1252);
    EXPECT_EQ(CompareNameNoCase("\x83" "a", "\x83" "A", 2), 0);
}

}  // namespace
}  // namespace langmon
