// The spooler's port list: read from the monitors' Ports keys, packed into the
// caller's buffer the way the spooler packs it, and able to fail on demand.

#include "platform/spooler.h"
#include "platform/spooler_jobs.h"

#include "platform/registry.h"
#include "support/platform_fixture.h"

#include <cstring>
#include <string>
#include <vector>

namespace langmon {
namespace {

constexpr const char* kMonitors = "System\\CurrentControlSet\\control\\Print\\Monitors";
constexpr DWORD Unset = 0xdeadbeef;

class SpoolerTest : public testing::PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        const std::string local = std::string(kMonitors) + "\\Local Port\\Ports\\";
        platform::RegistrySetString(HKEY_LOCAL_MACHINE, local + "LPT1:", "Description", "ECP Printer Port");
        platform::RegistrySetDword(HKEY_LOCAL_MACHINE, local + "COM1:", "PortType", PORT_TYPE_WRITE);
        platform::RegistryCreateKey(HKEY_LOCAL_MACHINE,
                                    std::string(kMonitors) + "\\KV TCP/IP XRU Port\\Ports\\KVPORT_1");
        // A monitor without ports adds nothing.
        platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, std::string(kMonitors) + "\\Quor Language Monitor");
    }
};

TEST_F(SpoolerTest, Level2AsksForTheSizeThenPacksRecordsAndTexts) {
    DWORD needed = 0;
    DWORD count = 99;
    SetLastError(Unset);
    EXPECT_FALSE(EnumPortsA(nullptr, 2, nullptr, 0, &needed, &count));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(count, 0u);
    const std::size_t texts = sizeof "LPT1:" + sizeof "Local Port" + sizeof "ECP Printer Port" +
                              sizeof "COM1:" + sizeof "Local Port" + sizeof "Local Port" +
                              sizeof "KVPORT_1" + 2 * sizeof "KV TCP/IP XRU Port";
    ASSERT_EQ(needed, 3 * sizeof(PORT_INFO_2) + texts);

    // One byte short: refused, and not a byte of the buffer written.
    std::vector<BYTE> buffer(needed, 0xCD);
    EXPECT_FALSE(EnumPortsA(nullptr, 2, buffer.data(), needed - 1, &needed, &count));
    EXPECT_EQ(buffer, std::vector<BYTE>(needed, 0xCD));

    SetLastError(Unset);
    ASSERT_TRUE(EnumPortsA(nullptr, 2, buffer.data(), needed, &needed, &count));
    EXPECT_EQ(GetLastError(), Unset);
    ASSERT_EQ(count, 3u);
    // Every text lies behind the records, inside the caller's buffer; a port
    // without a description has its monitor's name.
    const auto* ports = reinterpret_cast<const PORT_INFO_2*>(buffer.data());
    const char* textsStart = reinterpret_cast<const char*>(buffer.data() + 3 * sizeof(PORT_INFO_2));
    const char* end = reinterpret_cast<const char*>(buffer.data() + needed);
    std::vector<std::string> got;
    for (DWORD i = 0; i < count; ++i) {
        for (const char* text : {ports[i].pPortName, ports[i].pMonitorName, ports[i].pDescription}) {
            EXPECT_TRUE(text >= textsStart && text + std::strlen(text) < end) << text;
            got.push_back(text);
        }
        got.push_back(std::to_string(ports[i].fPortType));
    }
    EXPECT_EQ(got, (std::vector<std::string>{"LPT1:", "Local Port", "ECP Printer Port", "3",
                                             "COM1:", "Local Port", "Local Port", "1", "KVPORT_1",
                                             "KV TCP/IP XRU Port", "KV TCP/IP XRU Port", "3"}));
}

TEST_F(SpoolerTest, Level1GivesNamesOtherLevelsAreRefusedAndNoPortsIsAnEmptySuccess) {
    BYTE buffer[256];
    DWORD needed = 0;
    DWORD count = 0;
    ASSERT_TRUE(EnumPortsA(nullptr, 1, buffer, sizeof buffer, &needed, &count));
    ASSERT_EQ(count, 3u);
    EXPECT_EQ(needed, 3 * sizeof(PORT_INFO_1) + sizeof "LPT1:" + sizeof "COM1:" + sizeof "KVPORT_1");
    EXPECT_STREQ(reinterpret_cast<const PORT_INFO_1*>(buffer)[2].pName, "KVPORT_1");

    EXPECT_FALSE(EnumPortsA(nullptr, 3, buffer, sizeof buffer, &needed, &count));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_LEVEL));

    platform::ClearRegistry();
    needed = count = 5;
    EXPECT_TRUE(EnumPortsA(nullptr, 2, nullptr, 0, &needed, &count));
    EXPECT_EQ(needed + count, 0u);
}

TEST_F(SpoolerTest, InjectedFailuresComeFirstAndAreCounted) {
    constexpr auto kEnumPorts = platform::SpoolerCall::EnumPorts;
    BYTE buffer[512];
    DWORD needed = 0;
    DWORD count = 0;
    auto enumPorts = [&] { return EnumPortsA(nullptr, 2, buffer, sizeof buffer, &needed, &count); };
    platform::FailSpoolerCall(kEnumPorts, 1722, 2);
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(enumPorts());
        EXPECT_EQ(GetLastError(), 1722u);
        EXPECT_EQ(count, 0u);
    }
    EXPECT_TRUE(enumPorts());
    EXPECT_EQ(platform::SpoolerCallCount(kEnumPorts), 3u);

    platform::FailSpoolerCall(kEnumPorts, ERROR_NOT_ENOUGH_MEMORY, -1);
    for (int i = 0; i < 5; ++i) EXPECT_FALSE(enumPorts());
    platform::StopFailingSpoolerCalls();
    EXPECT_EQ(platform::SpoolerCallCount(kEnumPorts), 0u);
    EXPECT_TRUE(enumPorts());
}

}  // namespace
}  // namespace langmon

namespace langmon {
namespace {

// The printers of the machine description and the jobs the host submitted,
// as the monitor asks for them.
class SpoolerJobsTest : public testing::PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, "System\\CurrentControlSet\\control\\Print\\Printers\\Laser");
        platform::SpoolerJob job;
        job.jobId = 4;
        job.userName = "alice";
        job.document = "letter";
        platform::SubmitJob("Laser", job);
        job.jobId = 5;
        job.userName = "bob";
        platform::SubmitJob("laser", job);  // printer names don't care about case
    }
};

TEST_F(SpoolerJobsTest, AJobIsReadInTwoCallsAndItsRecordIsPacked) {
    HANDLE printer = nullptr;
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(OpenPrinterA(const_cast<LPSTR>("Copier"), &printer, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PRINTER_NAME);
    ASSERT_TRUE(OpenPrinterA(const_cast<LPSTR>("LASER"), &printer, nullptr));

    DWORD needed = 0;
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(GetJobA(printer, 5, 1, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    std::vector<BYTE> buffer(needed);
    ASSERT_TRUE(GetJobA(printer, 5, 1, buffer.data(), needed, &needed));
    JOB_INFO_1 info;
    std::memcpy(&info, buffer.data(), sizeof info);
    EXPECT_EQ(info.JobId, 5u);
    EXPECT_STREQ(info.pUserName, "bob");
    EXPECT_STREQ(info.pDocument, "letter");
    // The texts lie in the caller's buffer, behind the record.
    EXPECT_GE(reinterpret_cast<BYTE*>(info.pUserName), buffer.data() + sizeof info);
    EXPECT_LT(reinterpret_cast<BYTE*>(info.pDocument), buffer.data() + needed);

    SetLastError(0xdeadbeef);
    EXPECT_FALSE(GetJobA(printer, 9, 1, buffer.data(), needed, &needed));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_TRUE(ClosePrinter(printer));
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(GetJobA(printer, 5, 1, buffer.data(), needed, &needed));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST_F(SpoolerJobsTest, SetJobStoresTheRecordOrCancelsAndEnumJobsListsTheQueue) {
    HANDLE printer = nullptr;
    ASSERT_TRUE(OpenPrinterA(const_cast<LPSTR>("Laser"), &printer, nullptr));
    JOB_INFO_1 info{};
    info.Status = JOB_STATUS_PRINTING;
    info.PagesPrinted = 3;
    EXPECT_TRUE(SetJobA(printer, 4, 1, reinterpret_cast<LPBYTE>(&info), 0));
    EXPECT_TRUE(SetJobA(printer, 5, 0, nullptr, JOB_CONTROL_CANCEL));

    std::vector<platform::SpoolerJob> queue = platform::QueuedJobs("Laser");
    ASSERT_EQ(queue.size(), 1u);
    EXPECT_EQ(queue[0].status, JOB_STATUS_PRINTING);
    EXPECT_EQ(queue[0].pagesPrinted, 3u);
    EXPECT_EQ(platform::JobCommands(), (std::vector<std::string>{"4:0", "5:3"}));

    DWORD needed = 0, returned = 7;
    EXPECT_FALSE(EnumJobsA(printer, 0, 0xFFFFFFFF, 1, nullptr, 0, &needed, &returned));
    EXPECT_EQ(returned, 0u);
    std::vector<BYTE> buffer(needed);
    ASSERT_TRUE(EnumJobsA(printer, 0, 0xFFFFFFFF, 1, buffer.data(), needed, &needed, &returned));
    ASSERT_EQ(returned, 1u);
    std::memcpy(&info, buffer.data(), sizeof info);
    EXPECT_EQ(info.JobId, 4u);
    EXPECT_STREQ(info.pUserName, "alice");
    EXPECT_TRUE(ClosePrinter(printer));
}

}  // namespace
}  // namespace langmon
