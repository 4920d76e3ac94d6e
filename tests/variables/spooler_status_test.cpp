// The status word the spooler shows for a printer: what each PrinterStatus
// becomes, the toner and model rules on top of the map, one word per change,
// the shared mutex that makes a second teller give up, and the retry plan of
// the thread that hands the word over, which may outlive the printer's link.

#include "variables/spooler_status.h"
#include "acquisition/poll.h"
#include "manager/manager_link.h"
#include "platform/memory.h"
#include "platform/spooler_jobs.h"
#include "platform/spooler_printers.h"
#include "platform/thread.h"
#include "support/client_fixture.h"

namespace langmon {
namespace {

using testing::Driver6200;
using testing::Driver6300;
using testing::DescribePrinter;

class SpoolerStatusTest : public testing::ClientTest {
protected:
    void SetUp() override {
        ClientTest::SetUp();
        port = Open("LPT1");
        ASSERT_NE(port, nullptr);
        ASSERT_EQ(PollPrinterStatus(port), 1);  // a ready 6200tx: its model is the port's
    }
    ManagerLink* Bind(const char* printer, const char* driver) {
        DescribePrinter(printer, driver, "LPT1");
        ManagerLink* link = CreateManagerLink(printer, port);
        EXPECT_NE(link, nullptr) << printer;
        return link;
    }
    int Notify(uint32_t word0, uint32_t word1, uint32_t word2) {
        SetPrinterStatus(port, word0, word1, word2);
        return NotifySpoolerStatus(port);
    }
    void SetSupplies(uint32_t word) { SetVariable(RowOf(port, "ErrSupplies"), &word); }
    // The word the spooler shows for the printer now; 0 before any.
    DWORD Shows(const char* printer) {
        const std::vector<DWORD> words = SpoolerSaw(printer);
        return words.empty() ? 0 : words.back();
    }
    void SleepUntil(DWORD tick) { Sleep(tick - GetTickCount()); }

    PortContext* port = nullptr;
};

// The map written out again by hand, grouped by value, so that a slip in the
// monitor's own table shows.
struct MapRow {
    uint32_t value;
    uint32_t masks[3];
};
constexpr MapRow ExpectedMap[] = {
    {0x8, {0, 0, 0x10000}},
    {0x10, {0, 0, 0x40800000}},
    {0x40, {0, 0x8, 0x4040000}},
    {0x200, {0, 0, 0x18000200}},
    {0x400, {0, 0, 0x8}},
    {0x800, {0, 0, 0x1000000}},
    {0x1000, {0, 0x200, 0}},
    {0x8000, {0, 0, 0x20}},
    {0x10000, {0, 0x8000, 0x10}},
    {0x20000, {0, 0, 0x20002}},
    {0x100000, {0x38, 0xC1004194, 0x87800}},
    {0x200000, {0, 0, 0x700000}},
    {0x400000, {0, 0, 0x8000}},
};

TEST_F(SpoolerStatusTest, EveryBitOfEveryWordGivesTheValueOfItsRows) {
    Bind("Same", Driver6200);
    SetSupplies(0x10000);  // so that StatusWord2 == 2 is toner low, as its row says
    std::size_t changes = 0;
    uint32_t shown = 0;
    for (int word = 0; word < 3; ++word) {
        for (int bit = 0; bit < 32; ++bit) {
            uint32_t words[3] = {0, 0, 0};
            words[word] = 1u << bit;
            uint32_t expected = 0;
            for (const MapRow& row : ExpectedMap) {
                if ((row.masks[word] & words[word]) != 0) expected |= row.value;
            }
            EXPECT_EQ(Notify(words[0], words[1], words[2]), 1);
            EXPECT_EQ(Shows("Same"), expected)
                << "StatusWord" << word << " bit 0x" << std::hex << words[word];
            if (expected != shown) ++changes;
            shown = expected;
        }
    }
    EXPECT_EQ(SpoolerSaw("Same").size(), changes) << "one word per change, none for a repeat";

    // Several states at once: the OR of their values.
    EXPECT_EQ(Notify(0x8, 0x8, 0x10008), 1);
    EXPECT_EQ(Shows("Same"), 0x100000u | 0x40 | 0x8 | 0x400);
    // Bits that no row names: the spooler sees a printer in no particular state.
    EXPECT_EQ(Notify(0, 0, 0x1 | 0x4 | 0x40 | 0x100), 1);
    EXPECT_EQ(Shows("Same"), 0u);
}

TEST_F(SpoolerStatusTest, TonerLowNeedsALowSupplyAndAnotherModelIsNotAvailable) {
    ManagerLink* same = Bind("Same", Driver6200);
    ManagerLink* other = Bind("Other", Driver6300);
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(SpoolerSaw("Same"), std::vector<DWORD>{})
        << "a ready printer: 0, as the spooler has it";
    EXPECT_EQ(SpoolerSaw("Other"), std::vector<DWORD>{0x1000})
        << "binding told it its model is missing";

    struct Case {
        uint32_t supplies, word1, word2;
        DWORD same, other;  // what the 6200 and the 6300 printer are shown
    };
    const Case cases[] = {
        {0x10000, 0, 2, 0x20000, 0x1000},
        {0x80000, 0x400, 2, 0x20000, 0x20000},   // a StatusWord1 bit of 0xF00 lifts the model rule
        {0x8000, 0x400, 2, 0x100000, 0x100000},  // supply bits either side of 0xF0000
        {0x100000, 0x400, 2, 0x100000, 0x100000},
        {0, 0x400, 0x20002, 0x20000, 0x20000},  // not exactly 2: toner low as it stands
        {0, 0x800, 0x200, 0x200, 0x200},
        {0, 0, 0x8, 0x400, 0x1000},
        {0, 0x200, 0, 0x1000, 0x1000},
        {0, 0, 0x10, 0x10000, 0x1000},
    };
    for (const Case& c : cases) {
        SetSupplies(c.supplies);
        EXPECT_EQ(Notify(0, c.word1, c.word2), 1);
        EXPECT_EQ(Shows("Same"), c.same)
            << std::hex << c.supplies << " " << c.word1 << " " << c.word2;
        EXPECT_EQ(Shows("Other"), c.other)
            << std::hex << c.supplies << " " << c.word1 << " " << c.word2;
    }

    // The empty status of a printer no longer watched: 0, with no model rule.
    LockPort(port);
    EXPECT_EQ(NotifyLinkStatus(port, other, nullptr), 1);
    UnlockPort(port);
    EXPECT_EQ(Shows("Other"), 0u);
    EXPECT_EQ(other->spoolerStatus, 0u);
    EXPECT_EQ(same->spoolerStatus, 0x10000u);
}

// Another teller holds the shared mutex until it is told to let go.
struct MutexHolder {
    HANDLE holding;
    HANDLE letGo;
};

DWORD HoldOpenPrinterMutex(LPVOID argument) {
    auto* holder = static_cast<MutexHolder*>(argument);
    HANDLE mutex = CreateMutexA(nullptr, FALSE, "TAKRINP:OpenPrinterMutex");
    WaitForSingleObject(mutex, INFINITE);
    SetEvent(holder->holding);
    WaitForSingleObject(holder->letGo, INFINITE);
    ReleaseMutex(mutex);
    CloseHandle(mutex);
    return 0;
}

TEST_F(SpoolerStatusTest, ASecondTellerGivesUpAndTheNextNotificationGetsThrough) {
    ManagerLink* link = Bind("Same", Driver6200);
    MutexHolder holder{CreateEventA(nullptr, TRUE, FALSE, nullptr),
                       CreateEventA(nullptr, TRUE, FALSE, nullptr)};
    HANDLE thread = CreateThread(nullptr, 0, HoldOpenPrinterMutex, &holder, 0, nullptr);
    ASSERT_NE(thread, nullptr);
    ASSERT_EQ(WaitForSingleObject(holder.holding, INFINITE), WAIT_OBJECT_0);

    const DWORD start = GetTickCount();
    EXPECT_EQ(Notify(0, 0, 0x8), 0);
    EXPECT_LT(GetTickCount() - start, 1000u) << "the notifier must not wait for the mutex";
    EXPECT_EQ(link->spoolerStatus, 0u);
    Sleep(SpoolerStatusRetryMs * 4 + SpoolerStatusLastTryMs + 1000);  // any thread would be done
    EXPECT_EQ(platform::SpoolerCallCount(platform::SpoolerCall::SetPrinter), 0u);

    SetEvent(holder.letGo);
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(Notify(0, 0, 0x8), 1);
    EXPECT_EQ(SpoolerSaw("Same"), std::vector<DWORD>{0x400});
    EXPECT_EQ(link->spoolerStatus, 0x400u);
    // Without a PrinterStatus value there is nothing to tell.
    StatusVariable* row = RowOf(port, "PrinterStatus");
    GlobalFree(row->Value);
    row->Value = nullptr;
    EXPECT_EQ(NotifySpoolerStatus(port), 0);
    EXPECT_EQ(SpoolerSaw("Same"), std::vector<DWORD>{0x400});
    CloseHandle(thread);
    CloseHandle(holder.holding);
    CloseHandle(holder.letGo);
}

// The retrying thread keeps the printer's handle: the link may go meanwhile.
TEST_F(SpoolerStatusTest, ASpoolerThatRefusesFiveTimesGetsTheSixthAttemptSeventeenSecondsOn) {
    ManagerLink* link = Bind("Same", Driver6200);
    platform::FailSpoolerCall(platform::SpoolerCall::SetPrinter, ERROR_TIMEOUT, 5);
    EXPECT_EQ(Notify(0, 0, 0x8), 1);
    const DWORD start = GetTickCount();
    auto calls = [] { return platform::SpoolerCallCount(platform::SpoolerCall::SetPrinter); };

    SleepUntil(start + 1990);
    EXPECT_EQ(calls(), 4u) << "four attempts 500 ms apart";
    SleepUntil(start + 2010);
    EXPECT_EQ(calls(), 5u);
    SleepUntil(start + 5000);  // inside the long pause
    EXPECT_EQ(platform::PrinterStatusWords("Same"), std::vector<DWORD>{});
    EXPECT_EQ(RemoveLink(link, port), 1);
    EXPECT_EQ(platform::OpenPrinterHandleCount(), 1u) << "held by the retrying thread";
    // The link's going empties the status at once; the older word arrives
    // after the long pause through the handle that outlived the link.
    SleepUntil(start + 16990);
    EXPECT_EQ(platform::PrinterStatusWords("Same"), std::vector<DWORD>{0});
    SleepUntil(start + 17010);
    EXPECT_EQ(platform::PrinterStatusWords("Same"), (std::vector<DWORD>{0, 0x400}));
    EXPECT_EQ(SpoolerSaw("Same"), (std::vector<DWORD>{0, 0x400})) << "and nothing after";
    EXPECT_EQ(platform::OpenPrinterHandleCount(), 0u) << "the last user closed it";
}

}  // namespace
}  // namespace langmon
