// Links come and go on one thread while publication walks them on another:
// every walk sees whole links, and every value goes to a client that exists.
// Run under the thread sanitizer, this is where a missing guard shows.

#include "acquisition/poll.h"
#include "manager/manager_link.h"
#include "platform/thread.h"
#include "support/client_fixture.h"
#include "variables/publication.h"

namespace langmon {
namespace {

using testing::DescribePrinter;
using testing::Driver6200;

constexpr int Rounds = 200;

class LinkConcurrencyTest : public testing::ClientTest {
protected:
    struct Shared {
        LinkConcurrencyTest* test;
        PortContext* port;
    };

    static DWORD Publisher(LPVOID argument) {
        auto* shared = static_cast<Shared*>(argument);
        for (uint32_t round = 0; round < Rounds; ++round) {
            LockPort(shared->port);
            SetPrinterStatus(shared->port, 0, 0, round);
            UnlockPort(shared->port);
            PublishVariables(shared->port);
        }
        return 0;
    }

    static DWORD Binder(LPVOID argument) {
        auto* shared = static_cast<Shared*>(argument);
        for (int round = 0; round < Rounds; ++round) {
            ManagerLink* first = CreateManagerLink("First", shared->port);
            ManagerLink* second = CreateManagerLink("Second", shared->port);
            BindPendingClients(shared->port);
            if (first != nullptr) RemoveLink(first, shared->port);
            if (second != nullptr) RemoveLink(second, shared->port);
        }
        return 0;
    }
};

TEST_F(LinkConcurrencyTest, PublicationAndBindingOnTwoThreadsMeetOnlyWholeLinks) {
    DescribePrinter("First", Driver6200, "LPT1");
    DescribePrinter("Second", Driver6200, "LPT1");
    // One that binds only on a later pass, so binding changes the list too.
    DescribePrinter("Steady", Driver6200, "LPT1");
    manager.DontOpen("Steady");
    PortContext* port = Open("LPT1");
    ASSERT_NE(port, nullptr);
    ASSERT_EQ(PollPrinterStatus(port), 1);  // the 6200 on the port fits every driver here
    ASSERT_NE(CreateManagerLink("Steady", port), nullptr);
    manager.DontOpen("Steady", false);

    Shared shared{this, port};
    HANDLE threads[2] = {CreateThread(nullptr, 0, Publisher, &shared, 0, nullptr),
                         CreateThread(nullptr, 0, Binder, &shared, 0, nullptr)};
    ASSERT_NE(threads[0], nullptr);
    ASSERT_NE(threads[1], nullptr);
    for (HANDLE thread : threads) {
        EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
        CloseHandle(thread);
    }

    // The steady client saw the last status, and no call reached a manager
    // after its link had closed it.
    const auto steady = manager.HandedTo("Steady", "PrinterStatus");
    ASSERT_FALSE(steady.empty());
    EXPECT_EQ(steady.back().Word(8), static_cast<uint32_t>(Rounds - 1));
    EXPECT_EQ(manager.StaleCalls(), 0);
    EXPECT_EQ(manager.OpenManagers(), 1);
}

}  // namespace
}  // namespace langmon
