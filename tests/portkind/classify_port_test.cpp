// ClassifyPort: the kind each port gets from its name, the network monitors'
// keys, the spooler's port list, the network layer and the parallel port's
// class driver; and the name tests and comparison the whole system uses.

#include "portkind/port_kind.h"

#include "monitor/monitor_entry.h"
#include "platform/machine_description.h"
#include "platform/registry.h"
#include "support/platform_fixture.h"


namespace langmon {
namespace {

constexpr const char* kMonitors = "System\\CurrentControlSet\\control\\Print\\Monitors";
constexpr const char* kOwnKey = "System\\CurrentControlSet\\control\\Print\\Monitors\\Quor Language Monitor";

class ClassifyPortTest : public testing::PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        savedRoot_ = registryRoot;
        registryRoot = ownKey_;
    }
    void TearDown() override {
        registryRoot = savedRoot_;
        PlatformTest::TearDown();
    }

    static uint32_t KindOf(const char* name) {
        PortContext port{};
        port.portName = const_cast<char*>(name);
        ClassifyPort(&port);
        return port.portKind;
    }
    static void AddPort(const char* monitor, const char* name, const char* description = nullptr) {
        const std::string key = std::string(kMonitors) + "\\" + monitor + "\\Ports\\" + name;
        platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, key);
        if (description) platform::RegistrySetString(HKEY_LOCAL_MACHINE, key, "Description", description);
    }

private:
    char ownKey_[128] = "System\\CurrentControlSet\\control\\Print\\Monitors\\Quor Language Monitor";
    char* savedRoot_ = nullptr;
};

TEST_F(ClassifyPortTest, EachPortGetsItsKindFromItsNameTheRegistryAndTheSpooler) {
    AddPort("MZ TCP/IP XRU Port", "LPT1");
    AddPort("KV TCP/IP XRU Port", "KV_10.0.0.5");
    AddPort("KV TCP/IP XRU Port", "lpt2");
    AddPort("USB Monitor", "USB001", "Virtual printer port for USB");
    AddPort("Other Monitor", "USB002", "Some other USB port");
    AddPort("Local Port", "LPT3", "MZ TCP/IP XRU Port");
    AddPort("Local Port", "LPT4", "KV TCP/IP XRU Port");
    AddPort("Local Port", "LPT5", "ECP Printer Port");
    // What the network layer says of a name: redirected, or an error.
    const char* connections = "Software\\langmon\\Network Connections";
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, connections, "LPT6", "\\\\SERVER\\LASER");
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, connections, "LPT7", ERROR_CONNECTION_UNAVAIL);
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, connections, "LPT8", 1222);  // ERROR_NO_NETWORK
    // The monitor's own key: bit 0 of a port's value turns its bidi off.
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, kOwnKey, "LPT9", 0x3);
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, kOwnKey, "LPT5", 0x2);
    EXPECT_EQ(KindOf("LPT1"), 0x81u);  // a network monitor's port, whatever its name
    EXPECT_EQ(KindOf("KV_10.0.0.5"), 0x81u);  // a network monitor's port
    // The network monitor's key names are compared with their case.
    EXPECT_EQ(KindOf("LPT2"), 0x07u);
    EXPECT_EQ(KindOf("USB001"), 0x07u);  // USB with the USB description
    EXPECT_EQ(KindOf("USB002"), 0x01u);  // USB with another description
    EXPECT_EQ(KindOf("USB003"), 0x07u);  // USB the spooler doesn't list: nothing against it
    EXPECT_EQ(KindOf("COM1"), 0x11u);  // serial
    EXPECT_EQ(KindOf("com2:"), 0x11u);  // serial
    EXPECT_EQ(KindOf("LPT3"), 0x01u);  // a parallel name described as an MZ network port
    EXPECT_EQ(KindOf("LPT4"), 0x01u);  // a parallel name described as a KV network port
    EXPECT_EQ(KindOf("LPT5"), 0x07u);  // an ECP port, its own key's bit 0 clear
    EXPECT_EQ(KindOf("LPT6"), 0x01u);  // redirected by the network layer
    EXPECT_EQ(KindOf("LPT7"), 0x07u);  // a connection unavailable is still local
    EXPECT_EQ(KindOf("LPT8"), 0x01u);  // no network: not known to be local
    EXPECT_EQ(KindOf("FILE:"), 0x07u);  // a name of no known kind that isn't connected
    EXPECT_EQ(KindOf("LPT9"), 0x03u);  // bidi turned off in the monitor's own key
    // Without a key of its own nothing speaks against a port.
    registryRoot = nullptr;
    EXPECT_EQ(KindOf("LPT9"), 0x07u);
}

TEST_F(ClassifyPortTest, ASpoolerThatDoesNotAnswerCostsTwoRetriesAndTheBidi) {
    AddPort("USB Monitor", "USB001", "Virtual printer port for USB");
    // The first size query fails: one retry 300 ms later finds the list.
    platform::FailSpoolerCall(platform::SpoolerCall::EnumPorts, 1722, 1);
    EXPECT_EQ(KindOf("USB001"), 0x07u);
    EXPECT_EQ(Elapsed(), 300u);
    EXPECT_EQ(platform::SpoolerCallCount(platform::SpoolerCall::EnumPorts), 3u);

    // Never answering: both size queries fail, 3072 bytes are tried twice.
    platform::FailSpoolerCall(platform::SpoolerCall::EnumPorts, 1722, -1);
    EXPECT_EQ(KindOf("USB001"), 0x01u);
    EXPECT_EQ(Elapsed(), 900u);
    EXPECT_EQ(platform::SpoolerCallCount(platform::SpoolerCall::EnumPorts), 7u);
    platform::StopFailingSpoolerCalls();

    // No memory for the list.
    platform::FailAllocation(1, false);
    EXPECT_EQ(KindOf("USB001"), 0x01u);
    EXPECT_TRUE(platform::AllocationFailureHit());
}

// A device node of the configuration manager and the device it names.
void AddDevice(const char* node, const char* hardware, const char* cls, const char* portName,
               const char* driver) {
    platform::RegistrySetString(HKEY_DYN_DATA, std::string("Config Manager\\Enum\\") + node, "HardWareKey",
                                hardware);
    const std::string device = std::string("Enum\\") + hardware;
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, device, "Class", cls);
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, device, "PortName", portName);
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, device, "Driver", driver);
}
void SetPortDriver(const char* driver, const char* portDriver) {
    platform::RegistrySetString(HKEY_LOCAL_MACHINE,
                                std::string("System\\CurrentControlSet\\Services\\Class\\") + driver,
                                "PortDriver", portDriver);
}

// Machines of the 0xD00 keyboard class (all three bits) ask the parallel
// port's class driver; only the IEEE 1284 driver of the port's node gives bidi.
TEST_F(ClassifyPortTest, OnAKeyboardClassD00MachineTheClassDriverDecides) {
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, "Software\\langmon", "KeyboardSubtype", 0x0C00);
    EXPECT_FALSE(KeyboardClassD00());
    EXPECT_EQ(KindOf("LPT1"), 0x07u);
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, "Software\\langmon", "KeyboardSubtype", 0x0D01);
    EXPECT_EQ(KindOf("LPT1"), 0x03u);  // no configuration manager list at all

    // Nodes that don't fit are passed over: another class, another port, a
    // device whose class key is missing.
    AddDevice("C29A0000", "Root\\*PNP0303\\0000", "Keyboard", "LPT1", "Keyboard\\0000");
    AddDevice("C29A0010", "BIOS\\*PNP0400\\0D", "Ports", "LPT2", "Ports\\0001");
    AddDevice("C29A0020", "BIOS\\*PNP0400\\0C", "Ports", "LPT1", "Ports\\0009");
    AddDevice("C29A0030", "BIOS\\*PNP0400\\0E", "Ports", "lpt1", "Ports\\0000");
    SetPortDriver("Ports\\0001", "lpt.vxd");
    SetPortDriver("Ports\\0000", "p1284.vxd");
    EXPECT_EQ(KindOf("LPT1"), 0x07u);
    EXPECT_EQ(KindOf("LPT2"), 0x03u);
    EXPECT_EQ(KindOf("LPT3"), 0x03u);  // no node at all

    SetPortDriver("Ports\\0000", "P1284.VXD");  // compared byte for byte
    EXPECT_EQ(KindOf("LPT1"), 0x03u);
}

// The sample machine of examples/ shows one port of each kind.
TEST_F(ClassifyPortTest, TheExampleMachineHasEveryKind) {
    std::string error;
    ASSERT_TRUE(platform::LoadMachineDescriptionFile(LANGMON_EXAMPLES "/machine.reg", &error)) << error;
    EXPECT_EQ(KindOf("LPT1"), 0x07u);  // p1284.vxd on a 0xD00 keyboard machine
    EXPECT_EQ(KindOf("LPT2"), 0x03u);  // bit 0 in the monitor's key
    EXPECT_EQ(KindOf("LPT3"), 0x01u);  // redirected
    EXPECT_EQ(KindOf("LPT4"), 0x03u);  // connection unavailable: local, no class driver node
    EXPECT_EQ(KindOf("COM1"), 0x11u);
    EXPECT_EQ(KindOf("USB001"), 0x07u);
    EXPECT_EQ(KindOf("KVPORT_192.168.1.20"), 0x81u);
}

// The name tests and the name comparison that the whole system uses.
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
