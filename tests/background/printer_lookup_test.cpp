// Which printer queues the port's status thread serves: the port's own
// printer first, then the queues on the same port that use its language
// monitor, as the spooler lists them.

#include "background/printer_lookup.h"

#include "platform/registry.h"
#include "support/job_road_fixture.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace langmon {
namespace {

using testing::DescribePrinter;
using testing::Driver6200;
using testing::Driver6300;
using Names = std::vector<std::string>;
using Result = std::pair<int, Names>;  // what ListPrintersOnPort returned, the names listed

constexpr const char* OwnMonitor = "Quor Language Monitor";

class PrinterLookupTest : public testing::JobRoadTest {
protected:
    void SetUp() override {
        JobRoadTest::SetUp();
        port = Open("LPT1");
        ASSERT_NE(port, nullptr);
    }
    Result Listed() {
        PrinterList* list = nullptr;
        const int result = ListPrintersOnPort(port, &list);
        Names names;
        for (const PrinterList* node = list; node != nullptr; node = node->next) names.emplace_back(node->printerInfo->pPrinterName);
        FreePrinterList(list);
        return {result, names};
    }
    PortContext* port = nullptr;
};

TEST_F(PrinterLookupTest, TheOwnPrinterComesFirstThenQueuesOfItsMonitorOnExactlyThisPort) {
    DescribePrinter("Draft", Driver6300, "LPT1", false, OwnMonitor);
    DescribePrinter("Copier", "Quor Copier 900", "LPT1", false, "Another Monitor");
    DescribePrinter("Lower", Driver6300, "lpt1");
    DescribePrinter("Colon", Driver6300, "LPT1:");
    DescribePrinter(Printer, Driver6200, "LPT1", false, OwnMonitor);
    DescribePrinter("Office", Driver6200, "LPT1");  // the same driver, so the same monitor
    EXPECT_EQ(Listed(), (Result{1, {"Laser", "Draft", "Office"}}));

    // Moved to another port, or without a print processor, the own printer
    // is not listed; its monitor still decides for the others.
    DescribePrinter(Printer, Driver6200, "USB001");
    EXPECT_EQ(Listed(), (Result{1, {"Draft", "Office"}}));
    testing::ForgetPrinter(Printer);
    const std::string key = std::string("System\\CurrentControlSet\\control\\Print\\Printers\\") + Printer;
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, key, "Port", "LPT1");
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, key, "Printer Driver", Driver6200);
    EXPECT_EQ(Listed(), (Result{1, {"Draft", "Office"}}));
}

TEST_F(PrinterLookupTest, WithoutTheOwnPrintersMonitorTheDefaultOneDecides) {
    EXPECT_EQ(Listed(), (Result{1, {}}));
    DescribePrinter("Draft", Driver6300, "LPT1", false, OwnMonitor);
    DescribePrinter("Plain", "Quor Printer 6200tx PCL", "LPT1", false, DefaultReferenceMonitor);
    DescribePrinter(Printer, Driver6200, "LPT1", false, OwnMonitor);
    EXPECT_EQ(Listed(), (Result{1, {"Laser", "Draft"}}));

    // The spooler can't say which driver the own printer has.
    platform::FailSpoolerCall(platform::SpoolerCall::GetPrinterDriver, 1722, 1);
    EXPECT_EQ(Listed(), (Result{1, {"Plain"}}));
    // Its driver names no monitor: it stands first all the same.
    DescribePrinter(Printer, "Bare Driver", "LPT1");
    EXPECT_EQ(Listed(), (Result{1, {"Laser", "Plain"}}));
    // The spooler doesn't know the printer.
    testing::ForgetPrinter(Printer);
    EXPECT_EQ(Listed(), (Result{1, {"Plain"}}));

    // Nor can it list its printers: a failure, and a list the caller left
    // set is emptied, not followed.
    PrinterList stale{};
    PrinterList* list = &stale;
    platform::FailSpoolerCall(platform::SpoolerCall::EnumPrinters, 1722, 1);
    EXPECT_EQ(ListPrintersOnPort(port, &list), 0);
    EXPECT_EQ(list, nullptr);
}

// A host of a thousand printers asks the spooler about each on every
// reconcile of every port: once the machine is read, the spooler answers from
// what it read, and a printer added since is in the next listing.
TEST_F(PrinterLookupTest, AListingReadsTheMachineOnceAndAgainOnlyAfterItChanged) {
    DescribePrinter(Printer, Driver6200, "LPT1", false, OwnMonitor);
    for (int i = 2; i <= 1000; ++i) {
        DescribePrinter("Printer " + std::to_string(i), Driver6200, "LPT" + std::to_string(i), false, OwnMonitor);
    }
    EXPECT_EQ(Listed(), (Result{1, {"Laser"}}));
    const std::uint64_t reads = platform::RegistryReadCount();
    EXPECT_EQ(Listed(), (Result{1, {"Laser"}}));
    EXPECT_EQ(platform::RegistryReadCount(), reads) << "the second listing read the registry";

    DescribePrinter("Office", Driver6200, "LPT1");
    EXPECT_EQ(Listed(), (Result{1, {"Laser", "Office"}}));
}

TEST_F(PrinterLookupTest, EveryAllocationFailureLeavesAnInOrderSubsetAndNoBlock) {
    // The own printer uses the default monitor, so losing its driver record
    // to a failed allocation doesn't change who else qualifies.
    DescribePrinter("Draft", Driver6300, "LPT1", false, DefaultReferenceMonitor);
    DescribePrinter("Copier", "Quor Copier 900", "LPT1", false, "Another Monitor");
    DescribePrinter(Printer, Driver6200, "LPT1", false, DefaultReferenceMonitor);
    DescribePrinter("Office", Driver6200, "LPT1");
    const Names all{"Laser", "Draft", "Office"};
    const std::size_t blocks = platform::LiveBlockCount();
    for (const bool andAllAfter : {false, true}) {
        for (std::size_t nth = 1;; ++nth) {
            SCOPED_TRACE(::testing::Message() << "allocation " << nth << (andAllAfter ? "+" : ""));
            platform::FailAllocation(nth, andAllAfter);
            const auto [result, names] = Listed();
            const bool hit = platform::AllocationFailureHit();
            platform::StopFailingAllocations();
            EXPECT_EQ(platform::LiveBlockCount(), blocks);
            EXPECT_TRUE(result == 1 || names.empty()) << "a failure lists nothing";
            // A printer may be left out; none is added or moved.
            Names kept;
            std::ranges::copy_if(all, std::back_inserter(kept), [&](const std::string& n) { return std::ranges::count(names, n) == 1; });
            EXPECT_EQ(names, kept);
            if (!hit) {
                EXPECT_EQ((Result{result, names}), (Result{1, all}));
                break;
            }
        }
    }
}

}  // namespace
}  // namespace langmon
