// ClassifyPort: the kind each port gets from its name, the network monitors'
// keys, the spooler's port list, the network layer and the parallel port's
// class driver.

#include "portkind/port_kind.h"

#include "monitor/monitor_entry.h"
#include "platform/machine_description.h"
#include "platform/registry.h"
#include "support/platform_fixture.h"

#include <filesystem>

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
    static void Redirect(const char* name, const char* remote) {
        platform::RegistrySetString(HKEY_LOCAL_MACHINE, "Software\\langmon\\Network Connections", name, remote);
    }
    static void NetworkFails(const char* name, DWORD error) {
        platform::RegistrySetDword(HKEY_LOCAL_MACHINE, "Software\\langmon\\Network Connections", name, error);
    }

private:
    char ownKey_[128] = "System\\CurrentControlSet\\control\\Print\\Monitors\\Quor Language Monitor";
    char* savedRoot_ = nullptr;
};

TEST_F(ClassifyPortTest, PortsOfTheNetworkMonitorsAreNetworkWhateverTheirName) {
    AddPort("MZ TCP/IP XRU Port", "LPT1");
    AddPort("KV TCP/IP XRU Port", "KV_10.0.0.5");
    AddPort("KV TCP/IP XRU Port", "lpt2");
    EXPECT_EQ(KindOf("LPT1"), 0x81u);
    EXPECT_EQ(KindOf("KV_10.0.0.5"), 0x81u);
    // The monitor's key names are compared with their case.
    EXPECT_EQ(KindOf("LPT2"), 0x07u);
}

TEST_F(ClassifyPortTest, UsbPortsAreBidiOnlyWithTheUsbDescription) {
    AddPort("USB Monitor", "USB001", "Virtual printer port for USB");
    AddPort("Other Monitor", "USB002", "Some other USB port");
    EXPECT_EQ(KindOf("USB001"), 0x07u);
    EXPECT_EQ(KindOf("USB002"), 0x01u);
    EXPECT_EQ(KindOf("USB003"), 0x07u);  // not listed: nothing against it
    EXPECT_EQ(platform::SpoolerCallCount(platform::SpoolerCall::EnumPorts), 6u);
}

TEST_F(ClassifyPortTest, SerialPortsAreMonitoredWithoutBidi) {
    EXPECT_EQ(KindOf("COM1"), 0x11u);
    EXPECT_EQ(KindOf("com2:"), 0x11u);
}

TEST_F(ClassifyPortTest, AParallelNameDescribedAsANetworkPortIsLeftAlone) {
    AddPort("Local Port", "LPT1", "MZ TCP/IP XRU Port");
    AddPort("Local Port", "LPT2", "KV TCP/IP XRU Port");
    AddPort("Local Port", "LPT3", "ECP Printer Port");
    EXPECT_EQ(KindOf("LPT1"), 0x01u);
    EXPECT_EQ(KindOf("LPT2"), 0x01u);
    EXPECT_EQ(KindOf("LPT3"), 0x07u);
}

TEST_F(ClassifyPortTest, TheNetworkLayerDecidesWhetherANameIsLocal) {
    Redirect("LPT3", "\\\\SERVER\\LASER");
    NetworkFails("LPT4", ERROR_CONNECTION_UNAVAIL);
    NetworkFails("LPT5", 1222);  // ERROR_NO_NETWORK
    EXPECT_EQ(KindOf("LPT3"), 0x01u);
    EXPECT_EQ(KindOf("LPT4"), 0x07u);
    EXPECT_EQ(KindOf("LPT5"), 0x01u);
    // A name of no known kind that isn't connected counts as local.
    EXPECT_EQ(KindOf("FILE:"), 0x07u);
}

TEST_F(ClassifyPortTest, TheMonitorsOwnKeyCanTurnBidiOffForOnePort) {
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, kOwnKey, "LPT2", 0x3);
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, kOwnKey, "LPT1", 0x2);
    EXPECT_EQ(KindOf("LPT2"), 0x03u);
    EXPECT_EQ(KindOf("LPT1"), 0x07u);
    EXPECT_EQ(KindOf("LPT3"), 0x07u);
    // Without a key of its own nothing speaks against a port.
    registryRoot = nullptr;
    EXPECT_EQ(KindOf("LPT2"), 0x07u);
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

// Machines of the 0xD00 keyboard class ask the parallel port's class driver.
class ClassDriverTest : public ClassifyPortTest {
protected:
    void SetUp() override {
        ClassifyPortTest::SetUp();
        platform::RegistrySetDword(HKEY_LOCAL_MACHINE, "Software\\langmon", "KeyboardSubtype", 0x0D01);
    }
    // A device node of the configuration manager and the device it names.
    static void AddDevice(const char* node, const char* hardware, const char* cls, const char* portName,
                          const char* driver) {
        platform::RegistrySetString(HKEY_DYN_DATA, std::string("Config Manager\\Enum\\") + node, "HardWareKey",
                                    hardware);
        const std::string device = std::string("Enum\\") + hardware;
        platform::RegistrySetString(HKEY_LOCAL_MACHINE, device, "Class", cls);
        platform::RegistrySetString(HKEY_LOCAL_MACHINE, device, "PortName", portName);
        platform::RegistrySetString(HKEY_LOCAL_MACHINE, device, "Driver", driver);
    }
    static void SetPortDriver(const char* driver, const char* portDriver) {
        platform::RegistrySetString(HKEY_LOCAL_MACHINE,
                                    std::string("System\\CurrentControlSet\\Services\\Class\\") + driver,
                                    "PortDriver", portDriver);
    }
};

TEST_F(ClassDriverTest, OnlyTheIeee1284DriverOfThePortsNodeGivesBidi) {
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

TEST_F(ClassDriverTest, WithoutTheConfigurationManagersListNoPortIsBidi) {
    EXPECT_EQ(KindOf("LPT1"), 0x03u);
    // The class needs all three bits of 0xD00.
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, "Software\\langmon", "KeyboardSubtype", 0x0C00);
    EXPECT_FALSE(KeyboardClassD00());
    EXPECT_EQ(KindOf("LPT1"), 0x07u);
}

// The sample machine of examples/ shows one port of each kind.
TEST_F(ClassifyPortTest, TheExampleMachineHasEveryKind) {
    const auto example = std::filesystem::path(__FILE__).parent_path() / "../../examples/machine.reg";
    std::string error;
    ASSERT_TRUE(platform::LoadMachineDescriptionFile(example.lexically_normal().string(), &error)) << error;
    EXPECT_EQ(KindOf("LPT1"), 0x07u);  // p1284.vxd on a 0xD00 keyboard machine
    EXPECT_EQ(KindOf("LPT2"), 0x03u);  // bit 0 in the monitor's key
    EXPECT_EQ(KindOf("LPT3"), 0x01u);  // redirected
    EXPECT_EQ(KindOf("LPT4"), 0x03u);  // connection unavailable: local, no class driver node
    EXPECT_EQ(KindOf("COM1"), 0x11u);
    EXPECT_EQ(KindOf("USB001"), 0x07u);
    EXPECT_EQ(KindOf("KVPORT_192.168.1.20"), 0x81u);
}

}  // namespace
}  // namespace langmon
