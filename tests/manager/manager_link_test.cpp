// Binding printers to the status manager: which printers get a link, which
// links get a manager, what a new client is given, and that a link taken down
// leaves nothing behind that points at it.

#include "acquisition/poll.h"
#include "manager/manager_link.h"
#include "manager/status_driver.h"
#include "platform/library.h"
#include "platform/spooler_jobs.h"
#include "platform/spooler_printers.h"
#include "support/client_fixture.h"

#include <set>

namespace langmon {
namespace {

using testing::Driver6200;
using testing::Driver6300;
using testing::DescribePrinter;

class BindingTest : public testing::ClientTest {
protected:
    void SetUp() override {
        ClientTest::SetUp();
        port = Open("LPT1");
        ASSERT_NE(port, nullptr);
    }
    // Names of the port's links, in list order.
    std::vector<std::string> Links() const {
        std::vector<std::string> names;
        LockPort(port);
        for (ManagerLink* link = port->managers; link != nullptr; link = link->next) {
            names.push_back(link->printerName);
        }
        UnlockPort(port);
        return names;
    }
    PortContext* port = nullptr;
};

TEST_F(BindingTest, APrinterOfAKnownDriverWithAStatusKeyIsBoundAndGivenWhatItMissed) {
    DescribePrinter("Office", Driver6300, "LPT1");
    ASSERT_EQ(PollPrinterStatus(port), 1);  // a 6200tx answers

    ManagerLink* link = CreateManagerLink("Office", port);
    ASSERT_NE(link, nullptr);
    EXPECT_EQ(Links(), std::vector<std::string>{"Office"});
    EXPECT_NE(link->managerHandle, 0u);
    EXPECT_EQ(link->modelMask.high, ModelMask6300.high);
    EXPECT_NE(link->spoolerHandle, nullptr);
    EXPECT_NE(link->stopEvent, nullptr);
    EXPECT_EQ(manager.OpenManagers(), 1);
    // The poll's values reached the client at once; a 6300 driver with a
    // 6200 on the port is told only that the printer isn't its model.
    const auto status = manager.HandedTo("Office", "PrinterStatus");
    ASSERT_EQ(status.size(), 1u);
    EXPECT_EQ(status[0].bytes, (std::vector<uint8_t>{0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(manager.HandedTo("Office", "TonerRemain").size(), 1u);
    EXPECT_TRUE(manager.HandedTo("Office", "PrinterBinConfig").empty()) << "another model's trays";
    // The spooler is told the same: not available.
    EXPECT_EQ(SpoolerSaw("Office"), std::vector<DWORD>{0x1000});
}

TEST_F(BindingTest, WhoGetsALinkAndWhoGetsAManager) {
    DescribePrinter("Stranger", "Other Vendor Laser", "LPT1");
    DescribePrinter("Plain", Driver6200, "LPT1", false);
    DescribePrinter("Short", "Quor Printer 6300tx PS", "LPT1", false);
    // A status key named without the vendor's prefix serves the driver too.
    platform::RegistryCreateKey(HKEY_LOCAL_MACHINE,
                                "Software\\Quor\\Status Monitor\\Printers\\Printer 6300tx PS\\Status Variables");

    EXPECT_EQ(CreateManagerLink("Stranger", port), nullptr) << "a driver outside the model table";
    EXPECT_EQ(CreateManagerLink("Nobody", port), nullptr) << "a printer the spooler doesn't know";

    ManagerLink* plain = CreateManagerLink("Plain", port);
    ASSERT_NE(plain, nullptr) << "a known driver without a status key still gets its link";
    EXPECT_EQ(plain->managerHandle, 0u);
    EXPECT_EQ(plain->library, nullptr);
    EXPECT_NE(plain->spoolerHandle, nullptr) << "the job check needs the printer's handle";

    ManagerLink* prefixed = CreateManagerLink("Short", port);
    ASSERT_NE(prefixed, nullptr);
    EXPECT_NE(prefixed->managerHandle, 0u);
    EXPECT_EQ(Links(), (std::vector<std::string>{"Plain", "Short"}));
    EXPECT_EQ(DriverHasStatusKey("Plain"), 0);
    EXPECT_EQ(DriverHasStatusKey("Short"), 1);
}

TEST_F(BindingTest, TheManagerMustServeThisPortAlone) {
    struct Case {
        const char* printer;
        uint32_t count;
        const char* first;
        const char* second;
        bool bound;
    };
    const Case cases[] = {
        {"NoPortYet", 0, "LPT9", "", true},          // a count of 0 is not looked behind
        {"ThisPort", 1, "lpt1", "", true},           // case does not matter
        {"LongerName", 1, "LPT1:", "", true},        // only the port name's length is compared
        {"OtherPort", 1, "LPT2", "", false},
        {"TwoPorts", 2, "LPT1", "USB001", false},
    };
    for (const Case& c : cases) {
        DescribePrinter(c.printer, Driver6200, "LPT1");
        manager.ServePorts(c.printer, c.count, c.first, c.second);
        ManagerLink* link = CreateManagerLink(c.printer, port);
        EXPECT_EQ(link != nullptr, c.bound) << c.printer;
    }
    EXPECT_EQ(Links(), (std::vector<std::string>{"NoPortYet", "ThisPort", "LongerName"}));
    EXPECT_EQ(manager.OpenManagers(), 3) << "a refused manager is closed again";
    EXPECT_EQ(platform::LoadedLibraryUses(), 3u);
}

TEST_F(BindingTest, AManagerThatAsksToBeLeftAloneStopsAllBindingUntilAJobStarts) {
    DescribePrinter("Unreadable", Driver6200, "LPT1");
    DescribePrinter("Good", Driver6200, "LPT1");
    // A word that can't be read keeps its preset, which counts as set.
    manager.TerminateUnreadable("Unreadable");
    EXPECT_EQ(CreateManagerLink("Unreadable", port), nullptr);
    EXPECT_TRUE(HasPortFlag(port, PF_NO_MANAGER));
    EXPECT_EQ(CreateManagerLink("Good", port), nullptr) << "no link on this port until the flag goes";
    EXPECT_EQ(manager.OpenManagers(), 0);
    EXPECT_EQ(platform::LoadedLibraryUses(), 0u);

    // A job's start clears the flag and binds its printer.
    ASSERT_TRUE(StartDocPort(port, const_cast<LPSTR>("Good"), 5, 1, reinterpret_cast<LPBYTE>(&doc1)));
    EXPECT_FALSE(HasPortFlag(port, PF_NO_MANAGER));
    ASSERT_NE(port->jobManager, nullptr);
    EXPECT_EQ(Links(), std::vector<std::string>{"Good"});
    EXPECT_NE(port->jobManager->managerHandle, 0u);
    EXPECT_TRUE(EndDocPort(port));

    manager.Terminate("Later", 1);
    DescribePrinter("Later", Driver6200, "LPT1");
    EXPECT_EQ(CreateManagerLink("Later", port), nullptr);
    EXPECT_TRUE(HasPortFlag(port, PF_NO_MANAGER));
}

TEST_F(BindingTest, AnUnboundLinkIsBoundOnALaterPassOrRemovedWhenItsManagerRefusesThePort) {
    DescribePrinter("Late", Driver6200, "LPT1");
    DescribePrinter("Wrong", Driver6200, "LPT1");
    manager.DontOpen("Late");
    manager.DontOpen("Wrong");
    ManagerLink* late = CreateManagerLink("Late", port);
    ManagerLink* wrong = CreateManagerLink("Wrong", port);
    ASSERT_NE(late, nullptr);
    ASSERT_NE(wrong, nullptr);
    EXPECT_EQ(late->managerHandle, 0u);
    ASSERT_EQ(PollPrinterStatus(port), 1);

    EXPECT_EQ(BindPendingClients(port), 1);
    EXPECT_EQ(late->managerHandle, 0u) << "tried again, and still not open";
    EXPECT_EQ(Links().size(), 2u);

    manager.DontOpen("Late", false);
    manager.DontOpen("Wrong", false);
    manager.ServePorts("Wrong", 1, "USB001");
    EXPECT_EQ(BindPendingClients(port), 1);
    EXPECT_NE(late->managerHandle, 0u);
    EXPECT_EQ(Links(), std::vector<std::string>{"Late"}) << "a manager of another port loses its link";
    EXPECT_EQ(manager.HandedTo("Late", "PrinterStatus").size(), 1u) << "a new client is given what it missed";
    EXPECT_EQ(manager.OpenManagers(), 1);
}

TEST_F(BindingTest, ARemovedLinkLeavesNothingThatPointsAtIt) {
    DescribePrinter("Laser", Driver6200, "LPT1");
    ASSERT_TRUE(Start(port, 21));
    // The job's status thread settles into its wait between passes: no
    // reconciling of the port's clients meets the removal.
    Sleep(1);
    ManagerLink* link = port->jobManager;
    ASSERT_NE(link, nullptr);
    ASSERT_NE(port->jobListHead, nullptr);
    EXPECT_EQ(port->jobListHead->Link, link);

    ManagerLink stranger{};
    EXPECT_EQ(RemoveLink(&stranger, port), 0) << "a link of no list";
    EXPECT_EQ(RemoveLink(link, port), 1);
    EXPECT_EQ(port->managers, nullptr);
    EXPECT_EQ(port->jobManager, nullptr);
    EXPECT_EQ(port->jobListHead->Link, nullptr);
    EXPECT_EQ(RemoveLink(link, port), 0) << "once out, always out";
    EXPECT_EQ(manager.OpenManagers(), 0);
    EXPECT_EQ(platform::LoadedLibraryUses(), 0u);
    // Gone from the machine too, or the status thread's next look at the
    // port would bind it again.
    testing::ForgetPrinter("Laser");
    EXPECT_TRUE(EndDocPort(port));
    SettleThreads();
    EXPECT_EQ(platform::OpenPrinterHandleCount(), 0u);
}

// A job whose printer has no link yet makes one at its start. Whatever
// allocation fails there, the printer's handle is opened as the link's own:
// shared with the threads that tell the spooler its status, so that a bound
// client's printer is told to the spooler, and closed when the link goes.
TEST_F(BindingTest, EveryAllocationFailureOfAJobsStartLeavesThePrinterHandleSharedAndClosedWithTheLink) {
    for (std::size_t nth = 0;; ++nth) {
        SCOPED_TRACE("allocation " + std::to_string(nth));
        DescribePrinter(Printer, Driver6200, "LPT1");
        platform::ForgetPrinterStatusWords();
        if (nth != 0) platform::FailAllocation(nth, false);
        const BOOL started = Start(port);
        const bool hit = platform::AllocationFailureHit();
        platform::StopFailingAllocations();
        EXPECT_TRUE(started);
        const bool bound = manager.OpenManagers() == 1;
        EXPECT_TRUE(EndDocPort(port));

        // The next job, with memory to spare: the spooler hears the printer
        // is printing.
        ASSERT_TRUE(Start(port, 13));
        Sleep(100);
        const std::vector<DWORD> told = platform::PrinterStatusWords(Printer);
        if (bound) {
            ASSERT_FALSE(told.empty());
            EXPECT_NE(told.back() & 0x400, 0u);  // PRINTER_STATUS_PRINTING
        }
        EXPECT_TRUE(EndDocPort(port));

        TakeClientAway(port);
        EXPECT_EQ(platform::OpenPrinterHandleCount(), 0u);
        if (nth != 0 && !hit) break;
    }
}

}  // namespace
}  // namespace langmon
