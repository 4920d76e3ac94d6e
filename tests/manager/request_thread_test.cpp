// The request thread of a bound printer, as the manager, the printer's
// watcher and the port see it: renames followed, port changes and terminate
// requests that take the link down, the deletion event of the printer's
// current name, and a port that closes while the thread waits.

#include "manager/request_thread.h"

#include "manager/manager_link.h"
#include "monitor/device_requests.h"
#include "platform/sync.h"
#include "support/client_fixture.h"

namespace langmon {
namespace {

class RequestThreadTest : public testing::ClientTest {
protected:
    void SetUp() override {
        ClientTest::SetUp();
        manager.ExportNotifications();
        testing::DescribePrinter(Printer, testing::Driver6200, "LPT1");
        port = Open("LPT1");
        ASSERT_NE(port, nullptr);
        ASSERT_NE(CreateManagerLink(Printer, port), nullptr);
        ASSERT_TRUE(Until([&] { return manager.Watches() == 1; })) << "the thread never watched its manager";
    }

    // Lets virtual time run, a millisecond at a time, until `done` holds; at
    // most a second of it.
    template <typename Done>
    static bool Until(Done done) {
        for (int i = 0; i < 1000 && !done(); ++i) Sleep(1);
        return done();
    }

    // What the printer's watcher does when the spooler deletes `name`.
    static bool SignalDeletion(const std::string& name) {
        HANDLE event = OpenEventA(0, FALSE, ("KVWAT:DEL_PRN:" + name).c_str());
        if (event == nullptr) return false;
        SetEvent(event);
        CloseHandle(event);
        return true;
    }

    bool Linked(const char* name) { return FindLink(name, port) != nullptr; }

    PortContext* port = nullptr;
};

TEST_F(RequestThreadTest, ARenamedPrinterKeepsItsLinkAndOnlyItsNewNameDeletesIt) {
    manager.Rename(Printer, "Laser Color");
    ASSERT_TRUE(Until([&] { return Linked("Laser Color"); }));
    EXPECT_FALSE(Linked(Printer));
    EXPECT_EQ(manager.Watches(), 1) << "the link is still watched";

    // The old name's event is gone with the old name.
    EXPECT_FALSE(SignalDeletion(Printer));
    Sleep(100);
    EXPECT_TRUE(Linked("Laser Color"));

    ASSERT_TRUE(SignalDeletion("Laser Color"));
    EXPECT_TRUE(Until([&] { return port->managers == nullptr; }));
    EXPECT_EQ(manager.Watches(), 0);
    EXPECT_EQ(manager.OpenManagers(), 0) << "the manager is closed with the link";
}

TEST_F(RequestThreadTest, TheSamePortAloneChangesNothingAnotherPortEndsTheLink) {
    manager.ServePorts(Printer, 1, "LPT1:");
    Sleep(100);
    EXPECT_TRUE(Linked(Printer));
    EXPECT_EQ(manager.Watches(), 1);

    manager.ServePorts(Printer, 2, "LPT1:", "USB001");
    EXPECT_TRUE(Until([&] { return !Linked(Printer); })) << "a second port ends the link";
    EXPECT_EQ(manager.OpenManagers(), 0);
    EXPECT_FALSE(HasPortFlag(port, PF_NO_MANAGER));
}

TEST_F(RequestThreadTest, TerminateManagerEndsTheLinkAndBlocksNewOnesUntilAClientAsks) {
    manager.Terminate(Printer, 1);
    ASSERT_TRUE(Until([&] { return !Linked(Printer); }));
    EXPECT_TRUE(HasPortFlag(port, PF_NO_MANAGER));
    EXPECT_EQ(manager.Watches(), 0);

    manager.Terminate(Printer, 0);
    EXPECT_EQ(CreateManagerLink(Printer, port), nullptr) << "the port leaves the manager alone";

    // A client's request ends the refusal.
    DWORD status = 0, returned = 0;
    char name[] = "LM_ServiceTagStatus";
    ASSERT_TRUE(GetPrinterDataFromPort(port, 0, name, nullptr, 0, reinterpret_cast<LPSTR>(&status), 4, &returned));
    EXPECT_FALSE(HasPortFlag(port, PF_NO_MANAGER));
    EXPECT_NE(CreateManagerLink(Printer, port), nullptr);
    EXPECT_TRUE(Until([&] { return manager.Watches() == 1; }));
}

TEST_F(RequestThreadTest, AManagerThatCannotBeReadLeavesTheLinkBoundWithoutAWatch) {
    manager.PortUnreadable(Printer);
    manager.ServePorts(Printer, 1, "USB001");
    ASSERT_TRUE(Until([&] { return manager.Watches() == 0; }));
    EXPECT_TRUE(Linked(Printer)) << "the link stays, bound";
    EXPECT_EQ(manager.OpenManagers(), 1);
}

TEST_F(RequestThreadTest, APortThatClosesWhileTheThreadWaitsEndsItAndTheLinkGoesWithThePort) {
    ASSERT_TRUE(Close(port));
    EXPECT_EQ(manager.Watches(), 0);
    EXPECT_EQ(manager.OpenManagers(), 0);
    EXPECT_EQ(manager.StaleCalls(), 0) << "nothing called the manager with a closed handle";
}

}  // namespace
}  // namespace langmon
