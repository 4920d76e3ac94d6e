// The spooler's printers: their settings read from the machine description and
// packed into the caller's buffer, the status words the monitor gives them,
// and the gates that make these calls fail.

#include "platform/spooler_printers.h"
#include "platform/spooler_jobs.h"

#include "platform/machine_description.h"
#include "platform/registry.h"
#include "support/platform_fixture.h"

#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace langmon {
namespace {

constexpr DWORD Unset = 0xdeadbeef;
using Strings = std::vector<std::string>;
using Words = std::vector<DWORD>;
using Call = std::function<BOOL(LPBYTE, DWORD, LPDWORD)>;

// Two printers on the machine; the second one's key says nothing but its port.
constexpr const char* kMachine = R"(REGEDIT4

[HKEY_LOCAL_MACHINE\System\CurrentControlSet\control\Print\Printers\Quor CL6300]
"Port"="LPT1:"
"Printer Driver"="Quor Laser Printer 6300tx PCL6"
"Print Processor"="WINPRINT"

[HKEY_LOCAL_MACHINE\System\CurrentControlSet\control\Print\Printers\Draft]
"Port"="USB001"
)";

template <typename Record>
Record RecordAt(const std::vector<BYTE>& buffer, std::size_t index) {
    Record record;
    std::memcpy(&record, buffer.data() + index * sizeof(Record), sizeof record);
    return record;
}

// What text pointers lead to, "-" for none; each must lie behind the records.
Strings Texts(const std::vector<BYTE>& buffer, std::size_t recordBytes, std::initializer_list<const char*> texts) {
    Strings out;
    for (const char* text : texts) {
        const auto* at = reinterpret_cast<const BYTE*>(text);
        const bool inside = !text || (at >= buffer.data() + recordBytes && at + std::strlen(text) < buffer.data() + buffer.size());
        EXPECT_TRUE(inside) << text;
        out.emplace_back(text ? text : "-");
    }
    return out;
}

// An answer got the way callers get it: size, then data.
std::vector<BYTE> Answer(const Call& call) {
    DWORD needed = 0;
    EXPECT_FALSE(call(nullptr, 0, &needed));
    std::vector<BYTE> buffer(needed);
    EXPECT_TRUE(call(buffer.data(), needed, &needed));
    return buffer;
}
Call Get(HANDLE printer, DWORD level) {
    return [=](LPBYTE b, DWORD s, LPDWORD n) { return GetPrinterA(printer, level, b, s, n); };
}
Call Driver(HANDLE printer, DWORD level = 3) {
    // The environment asked for is not looked at.
    return [=](LPBYTE b, DWORD s, LPDWORD n) { return GetPrinterDriverA(printer, const_cast<LPSTR>("Windows NT x86"), level, b, s, n); };
}
Call Enum(DWORD level, DWORD* returned) {
    return [=](LPBYTE b, DWORD s, LPDWORD n) { return EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, level, b, s, n, returned); };
}
BOOL SetStatus(HANDLE printer, DWORD word) {
    return SetPrinterA(printer, 0, reinterpret_cast<LPBYTE>(std::uintptr_t{word}), PRINTER_CONTROL_SET_STATUS);
}

class SpoolerPrintersTest : public testing::PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        std::string error;
        ASSERT_TRUE(platform::LoadMachineDescription(kMachine, "printers.reg", &error)) << error;
        // Names as the caller spells them; the records give the keys' own.
        ASSERT_TRUE(OpenPrinterA(const_cast<LPSTR>("quor cl6300"), &laser, nullptr));
        ASSERT_TRUE(OpenPrinterA(const_cast<LPSTR>("DRAFT"), &draft, nullptr));
    }
    void TearDown() override {
        for (HANDLE printer : {laser, draft}) if (printer) ClosePrinter(printer);
        PlatformTest::TearDown();
    }
    HANDLE laser = nullptr;
    HANDLE draft = nullptr;
    DWORD returned = 9;
};

TEST_F(SpoolerPrintersTest, RecordsCarryTheMachineDescriptionAndTheLastStatusWord) {
    platform::SpoolerJob job;
    for (job.jobId = 3; job.jobId <= 4; ++job.jobId) platform::SubmitJob("Quor CL6300", job);
    std::vector<BYTE> buffer = Answer(Get(laser, 2));
    auto info = RecordAt<PRINTER_INFO_2>(buffer, 0);
    EXPECT_EQ(Texts(buffer, sizeof info, {info.pPrinterName, info.pPortName, info.pDriverName, info.pPrintProcessor,
                                          info.pDatatype, info.pServerName, info.pShareName, info.pComment,
                                          info.pLocation, info.pSepFile, info.pParameters}),
              (Strings{"Quor CL6300", "LPT1:", "Quor Laser Printer 6300tx PCL6", "WINPRINT", "RAW", "-", "-", "-", "-", "-", "-"}));
    EXPECT_EQ((Words{info.Attributes, info.Status, info.cJobs}), (Words{PRINTER_ATTRIBUTE_LOCAL, 0, 2}));

    // Each printer's words in order, every bit of each; the last is its Status.
    SetLastError(Unset);
    for (DWORD word : {0x2u, 0x80000000u, 0u, 0x10u}) EXPECT_TRUE(SetStatus(laser, word));
    EXPECT_TRUE(SetStatus(draft, 0x400));
    EXPECT_EQ(GetLastError(), Unset);
    EXPECT_EQ(platform::PrinterStatusWords("QUOR CL6300"), (Words{0x2, 0x80000000u, 0, 0x10}));
    EXPECT_EQ(platform::PrinterStatusWords("draft"), Words{0x400});

    // Enumeration gives every printer in the machine's order; values a key
    // lacks are absent, not empty: callers test for them.
    buffer = Answer(Enum(2, &returned));
    ASSERT_EQ(returned, 2u);
    const auto first = RecordAt<PRINTER_INFO_2>(buffer, 0), second = RecordAt<PRINTER_INFO_2>(buffer, 1);
    EXPECT_EQ(Texts(buffer, 2 * sizeof info, {first.pDriverName, second.pPrinterName, second.pPortName,
                                              second.pDriverName, second.pPrintProcessor}),
              (Strings{"Quor Laser Printer 6300tx PCL6", "Draft", "USB001", "-", "-"}));
    EXPECT_EQ((Words{first.Status, first.cJobs, second.Status, second.cJobs}), (Words{0x10, 2, 0x400, 0}));
    buffer = Answer(Enum(5, &returned));
    ASSERT_EQ(returned, 2u);
    const auto five = RecordAt<PRINTER_INFO_5>(buffer, 0), five2 = RecordAt<PRINTER_INFO_5>(buffer, 1);
    EXPECT_EQ(Texts(buffer, 2 * sizeof five, {five.pPrinterName, five.pPortName, five2.pPrinterName, five2.pPortName}),
              (Strings{"Quor CL6300", "LPT1:", "Draft", "USB001"}));
    EXPECT_EQ(five2.Attributes, PRINTER_ATTRIBUTE_LOCAL);

    platform::ForgetPrinterStatusWords();
    EXPECT_EQ(platform::PrinterStatusWords("Draft"), Words{});
    EXPECT_EQ(RecordAt<PRINTER_INFO_2>(Answer(Get(draft, 2)), 0).Status, 0u);

    // A machine without printers: an empty success.
    platform::ClearRegistry();
    DWORD needed = 9;
    EXPECT_TRUE(EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, nullptr, 0, &needed, &returned));
    EXPECT_EQ(needed + returned, 0u);
}

TEST_F(SpoolerPrintersTest, TheSizeIsToldAndASmallBufferLeftAlone) {
    constexpr std::size_t kTexts5 = sizeof "Quor CL6300" + sizeof "LPT1:";
    constexpr std::size_t kTexts2 = kTexts5 + sizeof "Quor Laser Printer 6300tx PCL6" + sizeof "WINPRINT" + sizeof "RAW";
    const struct {
        Call call;
        std::size_t size;
        DWORD returnedThen;  // what a refused call leaves in `returned`
    } rows[] = {{Get(laser, 2), sizeof(PRINTER_INFO_2) + kTexts2, 9},
                {Get(laser, 5), sizeof(PRINTER_INFO_5) + kTexts5, 9},
                {Enum(5, &returned), 2 * sizeof(PRINTER_INFO_5) + kTexts5 + sizeof "Draft" + sizeof "USB001", 0},
                {Driver(laser), sizeof(DRIVER_INFO_3) + sizeof "Quor Laser Printer 6300tx PCL6" + sizeof "Windows 4.0", 9}};
    for (const auto& [call, size, returnedThen] : rows) {
        SCOPED_TRACE(size);
        for (DWORD offered : {0ul, size - 1, size}) {
            std::vector<BYTE> buffer(size, 0xCD);
            DWORD needed = 0;
            returned = 9;
            SetLastError(Unset);
            EXPECT_EQ(call(offered ? buffer.data() : nullptr, offered, &needed), offered == size);
            EXPECT_EQ(GetLastError(), offered == size ? Unset : ERROR_INSUFFICIENT_BUFFER);
            if (offered == size) continue;
            EXPECT_EQ(needed, size);
            EXPECT_EQ(returned, returnedThen);
            EXPECT_EQ(buffer, std::vector<BYTE>(size, 0xCD));
        }
    }
}

TEST_F(SpoolerPrintersTest, ADriverAnswersFromItsKeyOrWithItsNameAlone) {
    // Every text the driver's key can give, in the record's order.
    auto texts = [](const std::vector<BYTE>& buffer) {
        const auto info = RecordAt<DRIVER_INFO_3>(buffer, 0);
        return Texts(buffer, sizeof info, {info.pName, info.pEnvironment, info.pMonitorName, info.pDriverPath,
                                           info.pDataFile, info.pConfigFile, info.pHelpFile, info.pDefaultDataType});
    };
    // Installed without a key of its own.
    EXPECT_EQ(texts(Answer(Driver(laser))),
              (Strings{"Quor Laser Printer 6300tx PCL6", "Windows 4.0", "-", "-", "-", "-", "-", "-"}));
    const std::string key = "System\\CurrentControlSet\\control\\Print\\Environments\\Windows 4.0\\Drivers\\"
                            "Quor Laser Printer 6300tx PCL6";
    const std::pair<const char*, const char*> values[] = {{"Monitor", "Quor Language Monitor"}, {"Driver", "QPCL6.DRV"},
        {"Data File", "QPCL6.GPD"}, {"Configuration File", "QUI.DLL"}, {"Help File", "QUI.HLP"}, {"Datatype", "RAW"}};
    for (const auto& [name, value] : values) platform::RegistrySetString(HKEY_LOCAL_MACHINE, key, name, value);
    EXPECT_EQ(texts(Answer(Driver(laser))), (Strings{"Quor Laser Printer 6300tx PCL6", "Windows 4.0", "Quor Language Monitor",
                                                     "QPCL6.DRV", "QPCL6.GPD", "QUI.DLL", "QUI.HLP", "RAW"}));
}

TEST_F(SpoolerPrintersTest, GatesBadHandlesLevelsAndCommandsRefuse) {
    BYTE buffer[512];
    DWORD needed = 7;
    auto refused = [&](BOOL result, DWORD error) {
        EXPECT_FALSE(result);
        EXPECT_EQ(GetLastError(), error);
        SetLastError(Unset);
    };
    // Gates come first, before the buffer is looked at, and record nothing.
    platform::FailSpoolerCall(platform::SpoolerCall::SetPrinter, ERROR_NOT_ENOUGH_MEMORY, 2);
    platform::FailSpoolerCall(platform::SpoolerCall::GetPrinter, 1722, 1);
    platform::FailSpoolerCall(platform::SpoolerCall::EnumPrinters, 1722, 1);
    for (DWORD word : {1u, 2u}) refused(SetStatus(laser, word), ERROR_NOT_ENOUGH_MEMORY);
    refused(GetPrinterA(laser, 2, buffer, sizeof buffer, &needed), 1722);
    EXPECT_EQ(needed, 0u);
    needed = returned = 7;
    refused(Enum(2, &returned)(buffer, sizeof buffer, &needed), 1722);
    EXPECT_EQ(needed + returned, 0u);
    EXPECT_TRUE(SetStatus(laser, 3));
    EXPECT_EQ(platform::PrinterStatusWords("Quor CL6300"), Words{3});
    EXPECT_EQ(platform::SpoolerCallCount(platform::SpoolerCall::SetPrinter), 3u);

    SetLastError(Unset);
    refused(GetPrinterA(nullptr, 2, buffer, sizeof buffer, &needed), ERROR_INVALID_HANDLE);
    refused(SetStatus(nullptr, 8), ERROR_INVALID_HANDLE);
    for (DWORD level : {0u, 1u, 3u}) {
        refused(GetPrinterA(laser, level, buffer, sizeof buffer, &needed), ERROR_INVALID_LEVEL);
        refused(Enum(level, &returned)(buffer, sizeof buffer, &needed), ERROR_INVALID_LEVEL);
        refused(Driver(laser, level + 1)(buffer, sizeof buffer, &needed), ERROR_INVALID_LEVEL);
    }
    refused(Driver(draft)(buffer, sizeof buffer, &needed), ERROR_UNKNOWN_PRINTER_DRIVER);  // it names none
    refused(SetPrinterA(laser, 2, buffer, 0), ERROR_NOT_SUPPORTED);
    refused(SetPrinterA(laser, 0, nullptr, 1), ERROR_NOT_SUPPORTED);
    EXPECT_EQ(platform::PrinterStatusWords("Quor CL6300"), Words{3});

    // Printers come and go under open handles, so that the others stand
    // elsewhere in the spooler's list: each handle still answers for its own.
    platform::RemovePrinterQueue("Quor CL6300");
    platform::AddPrinterQueue("Quor CL6300", "Quor Laser Printer 6300tx PCL6", "LPT1:", false);
    platform::AddPrinterQueue("A First", "Quor Laser Printer 6300tx PCL6", "LPT2:", false);
    for (const auto& [handle, name] : {std::pair{draft, "Draft"}, std::pair{laser, "Quor CL6300"}}) {
        ASSERT_TRUE(GetPrinterA(handle, 5, buffer, sizeof buffer, &needed));
        PRINTER_INFO_5 info;
        std::memcpy(&info, buffer, sizeof info);
        EXPECT_STREQ(info.pPrinterName, name);
    }

    // A printer taken off the machine while its handle is open, then closed.
    platform::ClearRegistry();
    refused(GetPrinterA(laser, 2, buffer, sizeof buffer, &needed), ERROR_PRINTER_DELETED);
    ASSERT_TRUE(ClosePrinter(laser));
    refused(GetPrinterA(laser, 5, buffer, sizeof buffer, &needed), ERROR_INVALID_HANDLE);
    refused(SetStatus(laser, 8), ERROR_INVALID_HANDLE);
    laser = nullptr;
}

}  // namespace
}  // namespace langmon
