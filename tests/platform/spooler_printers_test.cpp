// The spooler's printers: their settings read from the machine description and
// packed into the caller's buffer, the status words the monitor gives them,
// and the gates that make these calls fail.

#include "platform/spooler_printers.h"
#include "platform/spooler_jobs.h"

#include "platform/machine_description.h"
#include "platform/registry.h"
#include "support/platform_fixture.h"

#include <cstring>
#include <string>
#include <vector>

namespace langmon {
namespace {

constexpr DWORD Unset = 0xdeadbeef;

// Two printers on the machine; the second one's key says nothing but its port.
constexpr const char* kMachine = R"(REGEDIT4

[HKEY_LOCAL_MACHINE\System\CurrentControlSet\control\Print\Printers\Quor CL6300]
"Port"="LPT1:"
"Printer Driver"="Quor Laser Printer 6300tx PCL6"
"Print Processor"="WINPRINT"

[HKEY_LOCAL_MACHINE\System\CurrentControlSet\control\Print\Printers\Draft]
"Port"="USB001"
)";

// What a record's text pointers lead to, "(null)" for none; each must lie in
// the caller's buffer behind the records.
std::string TextIn(const char* text, const std::vector<BYTE>& buffer, std::size_t recordBytes) {
    if (!text) return "(null)";
    const auto* at = reinterpret_cast<const BYTE*>(text);
    EXPECT_GE(at, buffer.data() + recordBytes) << text;
    EXPECT_LE(at + std::strlen(text) + 1, buffer.data() + buffer.size()) << text;
    return text;
}

template <typename Record>
Record RecordAt(const std::vector<BYTE>& buffer, std::size_t index) {
    Record record;
    std::memcpy(&record, buffer.data() + index * sizeof(Record), sizeof record);
    return record;
}

class SpoolerPrintersTest : public testing::PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        std::string error;
        ASSERT_TRUE(platform::LoadMachineDescription(kMachine, "printers.reg", &error)) << error;
        // The name as the caller spells it; the records give the key's own.
        ASSERT_TRUE(OpenPrinterA(const_cast<LPSTR>("quor cl6300"), &laser, nullptr));
    }
    void TearDown() override {
        if (laser) ClosePrinter(laser);
        PlatformTest::TearDown();
    }

    // A whole answer of GetPrinterA, got the way callers get it: size, then data.
    std::vector<BYTE> Get(HANDLE printer, DWORD level) {
        DWORD needed = 0;
        EXPECT_FALSE(GetPrinterA(printer, level, nullptr, 0, &needed));
        std::vector<BYTE> buffer(needed);
        EXPECT_TRUE(GetPrinterA(printer, level, buffer.data(), needed, &needed));
        return buffer;
    }

    BOOL SetStatus(HANDLE printer, DWORD word) {
        return SetPrinterA(printer, 0, reinterpret_cast<LPBYTE>(std::uintptr_t{word}),
                           PRINTER_CONTROL_SET_STATUS);
    }

    HANDLE laser = nullptr;
};

TEST_F(SpoolerPrintersTest, Level2And5CarryTheMachineDescriptionsValues) {
    platform::SpoolerJob job;
    for (DWORD id : {3u, 4u}) {
        job.jobId = id;
        platform::SubmitJob("Quor CL6300", job);
    }

    std::vector<BYTE> buffer = Get(laser, 2);
    auto info = RecordAt<PRINTER_INFO_2>(buffer, 0);
    auto text = [&](const char* t) { return TextIn(t, buffer, sizeof info); };
    EXPECT_EQ(text(info.pPrinterName), "Quor CL6300");
    EXPECT_EQ(text(info.pPortName), "LPT1:");
    EXPECT_EQ(text(info.pDriverName), "Quor Laser Printer 6300tx PCL6");
    EXPECT_EQ(text(info.pPrintProcessor), "WINPRINT");
    EXPECT_EQ(text(info.pDatatype), "RAW");
    for (const char* none : {info.pServerName, info.pShareName, info.pComment, info.pLocation,
                             info.pSepFile, info.pParameters}) {
        EXPECT_EQ(none, nullptr);
    }
    EXPECT_EQ(info.Attributes, PRINTER_ATTRIBUTE_LOCAL);
    EXPECT_EQ(info.Status, 0u);
    EXPECT_EQ(info.cJobs, 2u);

    buffer = Get(laser, 5);
    const auto five = RecordAt<PRINTER_INFO_5>(buffer, 0);
    EXPECT_EQ(TextIn(five.pPrinterName, buffer, sizeof five), "Quor CL6300");
    EXPECT_EQ(TextIn(five.pPortName, buffer, sizeof five), "LPT1:");
    EXPECT_EQ(five.Attributes, PRINTER_ATTRIBUTE_LOCAL);

    // Values the key lacks are absent, not empty: callers test for them.
    HANDLE draft = nullptr;
    ASSERT_TRUE(OpenPrinterA(const_cast<LPSTR>("Draft"), &draft, nullptr));
    buffer = Get(draft, 2);
    info = RecordAt<PRINTER_INFO_2>(buffer, 0);
    EXPECT_EQ(text(info.pPortName), "USB001");
    EXPECT_EQ(info.pDriverName, nullptr);
    EXPECT_EQ(info.pPrintProcessor, nullptr);
    EXPECT_EQ(info.cJobs, 0u);
    EXPECT_TRUE(ClosePrinter(draft));
}

TEST_F(SpoolerPrintersTest, GetPrinterTellsTheSizeAndLeavesASmallBufferAlone) {
    const std::size_t texts2 = sizeof "Quor CL6300" + sizeof "LPT1:" +
                               sizeof "Quor Laser Printer 6300tx PCL6" + sizeof "WINPRINT" + sizeof "RAW";
    const std::size_t texts5 = sizeof "Quor CL6300" + sizeof "LPT1:";
    for (auto [level, size] : {std::pair<DWORD, std::size_t>{2, sizeof(PRINTER_INFO_2) + texts2},
                               {5, sizeof(PRINTER_INFO_5) + texts5}}) {
        SCOPED_TRACE(level);
        DWORD needed = 0;
        SetLastError(Unset);
        EXPECT_FALSE(GetPrinterA(laser, level, nullptr, 0, &needed));
        EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
        ASSERT_EQ(needed, size);

        std::vector<BYTE> buffer(needed, 0xCD);
        needed = 0;
        SetLastError(Unset);
        EXPECT_FALSE(GetPrinterA(laser, level, buffer.data(), static_cast<DWORD>(size - 1), &needed));
        EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
        EXPECT_EQ(needed, size);
        EXPECT_EQ(buffer, std::vector<BYTE>(size, 0xCD));

        SetLastError(Unset);
        EXPECT_TRUE(GetPrinterA(laser, level, buffer.data(), needed, &needed));
        EXPECT_EQ(GetLastError(), Unset);
    }
}

TEST_F(SpoolerPrintersTest, BadHandlesLevelsAndCommandsAreRefused) {
    BYTE buffer[512];
    DWORD needed = 0;
    DWORD returned = 0;
    auto refused = [&](BOOL result, DWORD error) {
        EXPECT_FALSE(result);
        EXPECT_EQ(GetLastError(), error);
        SetLastError(Unset);
    };
    SetLastError(Unset);
    refused(GetPrinterA(nullptr, 2, buffer, sizeof buffer, &needed), ERROR_INVALID_HANDLE);
    refused(SetStatus(nullptr, 8), ERROR_INVALID_HANDLE);
    for (DWORD level : {0u, 1u, 3u}) {
        refused(GetPrinterA(laser, level, buffer, sizeof buffer, &needed), ERROR_INVALID_LEVEL);
        refused(EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, level, buffer, sizeof buffer, &needed, &returned),
                ERROR_INVALID_LEVEL);
    }
    refused(SetPrinterA(laser, 2, buffer, 0), ERROR_NOT_SUPPORTED);
    refused(SetPrinterA(laser, 0, nullptr, 1), ERROR_NOT_SUPPORTED);
    EXPECT_EQ(platform::PrinterStatusWords("Quor CL6300"), std::vector<DWORD>{});

    // A printer taken off the machine while its handle is open.
    platform::ClearRegistry();
    refused(GetPrinterA(laser, 2, buffer, sizeof buffer, &needed), ERROR_PRINTER_DELETED);

    ASSERT_TRUE(ClosePrinter(laser));
    refused(GetPrinterA(laser, 5, buffer, sizeof buffer, &needed), ERROR_INVALID_HANDLE);
    refused(SetStatus(laser, 8), ERROR_INVALID_HANDLE);
    laser = nullptr;
}

TEST_F(SpoolerPrintersTest, EnumPrintersListsEveryPrinterInOrder) {
    DWORD needed = 0;
    DWORD returned = 9;
    SetLastError(Unset);
    EXPECT_FALSE(EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 5, nullptr, 0, &needed, &returned));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(returned, 0u);
    ASSERT_EQ(needed, 2 * sizeof(PRINTER_INFO_5) + sizeof "Quor CL6300" + sizeof "LPT1:" + sizeof "Draft" +
                          sizeof "USB001");

    std::vector<BYTE> buffer(needed, 0xCD);
    EXPECT_FALSE(EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 5, buffer.data(), needed - 1, &needed, &returned));
    EXPECT_EQ(buffer, std::vector<BYTE>(needed, 0xCD));

    SetLastError(Unset);
    ASSERT_TRUE(EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 5, buffer.data(), needed, &needed, &returned));
    EXPECT_EQ(GetLastError(), Unset);
    ASSERT_EQ(returned, 2u);
    std::vector<std::string> got;
    for (DWORD i = 0; i < returned; ++i) {
        const auto info = RecordAt<PRINTER_INFO_5>(buffer, i);
        got.push_back(TextIn(info.pPrinterName, buffer, 2 * sizeof info));
        got.push_back(TextIn(info.pPortName, buffer, 2 * sizeof info));
    }
    EXPECT_EQ(got, (std::vector<std::string>{"Quor CL6300", "LPT1:", "Draft", "USB001"}));

    // Level 2 gives what GetPrinterA gives, record by record.
    ASSERT_TRUE(SetStatus(laser, 0x80));
    EXPECT_FALSE(EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, nullptr, 0, &needed, &returned));
    buffer.assign(needed, 0);
    ASSERT_TRUE(EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, buffer.data(), needed, &needed, &returned));
    ASSERT_EQ(returned, 2u);
    const auto first = RecordAt<PRINTER_INFO_2>(buffer, 0);
    const auto second = RecordAt<PRINTER_INFO_2>(buffer, 1);
    EXPECT_EQ(TextIn(first.pDriverName, buffer, 2 * sizeof first), "Quor Laser Printer 6300tx PCL6");
    EXPECT_EQ(first.Status, 0x80u);
    EXPECT_EQ(TextIn(second.pPrinterName, buffer, 2 * sizeof second), "Draft");
    EXPECT_EQ(second.pPrintProcessor, nullptr);
    EXPECT_EQ(second.Status, 0u);

    // A machine without printers: an empty success.
    platform::ClearRegistry();
    needed = returned = 9;
    EXPECT_TRUE(EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, nullptr, 0, &needed, &returned));
    EXPECT_EQ(needed + returned, 0u);
}

TEST_F(SpoolerPrintersTest, StatusWordsAreRecordedInOrderAndTheLastIsTheStatus) {
    HANDLE draft = nullptr;
    ASSERT_TRUE(OpenPrinterA(const_cast<LPSTR>("DRAFT"), &draft, nullptr));
    SetLastError(Unset);
    EXPECT_TRUE(SetStatus(laser, 0x2));
    EXPECT_TRUE(SetStatus(draft, 0x400));
    EXPECT_TRUE(SetStatus(laser, 0x80000000u));  // every bit of the word travels
    EXPECT_TRUE(SetStatus(laser, 0));
    EXPECT_TRUE(SetStatus(laser, 0x10));
    EXPECT_EQ(GetLastError(), Unset);

    EXPECT_EQ(platform::PrinterStatusWords("QUOR CL6300"), (std::vector<DWORD>{0x2, 0x80000000u, 0, 0x10}));
    EXPECT_EQ(platform::PrinterStatusWords("draft"), std::vector<DWORD>{0x400});
    EXPECT_EQ(RecordAt<PRINTER_INFO_2>(Get(laser, 2), 0).Status, 0x10u);
    EXPECT_EQ(RecordAt<PRINTER_INFO_2>(Get(draft, 2), 0).Status, 0x400u);

    platform::ForgetPrinterStatusWords();
    EXPECT_EQ(platform::PrinterStatusWords("Draft"), std::vector<DWORD>{});
    EXPECT_EQ(RecordAt<PRINTER_INFO_2>(Get(draft, 2), 0).Status, 0u);
    EXPECT_TRUE(ClosePrinter(draft));
}

TEST_F(SpoolerPrintersTest, RefusedCallsComeFirstAndRecordNothing) {
    constexpr auto kSetPrinter = platform::SpoolerCall::SetPrinter;
    platform::FailSpoolerCall(kSetPrinter, ERROR_NOT_ENOUGH_MEMORY, 5);
    for (DWORD word = 1; word <= 5; ++word) {
        SetLastError(Unset);
        EXPECT_FALSE(SetStatus(laser, word));
        EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
    }
    EXPECT_TRUE(SetStatus(laser, 6));
    EXPECT_EQ(platform::PrinterStatusWords("Quor CL6300"), std::vector<DWORD>{6});
    EXPECT_EQ(platform::SpoolerCallCount(kSetPrinter), 6u);

    // The reading calls have their own gates, asked before the buffer is looked at.
    BYTE buffer[512];
    DWORD needed = 7;
    DWORD returned = 7;
    platform::FailSpoolerCall(platform::SpoolerCall::GetPrinter, 1722, 1);
    platform::FailSpoolerCall(platform::SpoolerCall::EnumPrinters, 1722, 1);
    EXPECT_FALSE(GetPrinterA(laser, 2, buffer, sizeof buffer, &needed));
    EXPECT_EQ(GetLastError(), 1722u);
    EXPECT_FALSE(EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, buffer, sizeof buffer, &needed, &returned));
    EXPECT_EQ(GetLastError(), 1722u);
    EXPECT_EQ(needed + returned, 0u);
    EXPECT_TRUE(GetPrinterA(laser, 2, buffer, sizeof buffer, &needed));
    EXPECT_TRUE(EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, buffer, sizeof buffer, &needed, &returned));
    EXPECT_EQ(returned, 2u);
}

}  // namespace
}  // namespace langmon
