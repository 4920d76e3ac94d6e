// The port's clients follow the printers the spooler lists on the port, and a
// reset brings the port back to idle without touching what belongs to others.

#include "background/reconcile.h"

#include "acquisition/poll.h"
#include "parser/job_progress.h"
#include "support/client_fixture.h"

namespace langmon {
namespace {

using testing::DescribePrinter;
using testing::Driver6200;
using testing::Driver6300;
using testing::ForgetPrinter;
using Names = std::vector<std::string>;

constexpr const char* OwnMonitor = "Quor Language Monitor";

class ReconcileTest : public testing::ClientTest {
protected:
    void SetUp() override {
        ClientTest::SetUp();
        port = Open("LPT1");
        ASSERT_NE(port, nullptr);
        DescribePrinter(Printer, Driver6200, "LPT1", true, OwnMonitor);
    }
    Names Links() const {
        Names names;
        LockPort(port);
        for (ManagerLink* link = port->managers; link != nullptr; link = link->next) names.push_back(link->printerName);
        UnlockPort(port);
        return names;
    }
    PortContext* port = nullptr;
};

TEST_F(ReconcileTest, PrintersThatComeGetALinkAndThoseThatLeaveOrAreNotListedLoseIt) {
    DescribePrinter("Office", Driver6200, "LPT1");  // the same driver, so the same monitor
    DescribePrinter("Copier", Driver6300, "LPT1", true, "Another Monitor");
    DescribePrinter("Stranger", "Other Vendor Laser", "LPT1", true, OwnMonitor);
    DescribePrinter("Elsewhere", Driver6200, "USB001");
    EXPECT_EQ(ReconcileClients(port), 1);
    EXPECT_EQ(Links(), (Names{"Laser", "Office"}));
    // Again: the links are kept, not made anew.
    EXPECT_EQ(ReconcileClients(port), 1);
    EXPECT_EQ(Links(), (Names{"Laser", "Office"}));
    EXPECT_EQ(manager.Opens(), 2);

    ForgetPrinter("Office");
    DescribePrinter("Late", Driver6200, "LPT1");
    EXPECT_EQ(ReconcileClients(port), 1);
    EXPECT_EQ(Links(), (Names{"Laser", "Late"}));
    EXPECT_EQ(manager.OpenManagers(), 2) << "the leaver's manager is closed";

    // A spooler that can't list its printers lists none.
    platform::FailSpoolerCall(platform::SpoolerCall::EnumPrinters, 1722, 1);
    EXPECT_EQ(ReconcileClients(port), 1);
    EXPECT_EQ(Links(), Names{});
    EXPECT_EQ(manager.OpenManagers(), 0);
    EXPECT_EQ(ReconcileClients(port), 1);
    EXPECT_EQ(Links(), (Names{"Laser", "Late"}));
    ForgetPrinter(Printer);
    ForgetPrinter("Late");
    EXPECT_EQ(ReconcileClients(port), 1);
    EXPECT_EQ(Links(), Names{});
    EXPECT_EQ(ReconcileClients(nullptr), 0);
}

// No job runs, so no status thread shares the port with the test.
TEST_F(ReconcileTest, AResetClearsOnlyTheJobsStateAndFreesAJobBlockSharedWithItsRowOnce) {
    constexpr uint32_t perJob = PF_JOB_ACTIVE | PF_HEADER_SENT | PF_HEADER_DUE | PF_MODEL_KNOWN | PF_JOB_RESET |
                                PF_OFFLINE | PF_JOB_GONE | PF_DISCARD;
    constexpr uint32_t others = PF_DOC_OPEN | PF_CHANNEL_DOC | PF_NO_MANAGER | PF_JOB_DELETED | PF_CLOSING |
                                PF_STATUS_RUN | PF_STATUS_ALIVE;
    ASSERT_EQ(PollPrinterStatus(port), 1);  // the port knows its model, so it has the job row
    auto node = [](void* value, JobInfoNode* next) {
        auto* snapshot = static_cast<StatusVariable*>(GlobalAlloc(GPTR, sizeof(StatusVariable)));
        snapshot->Value = value;
        auto* made = static_cast<JobInfoNode*>(GlobalAlloc(GPTR, sizeof(JobInfoNode)));
        *made = JobInfoNode{snapshot, next};
        return made;
    };
    for (const bool shared : {true, false}) {
        SCOPED_TRACE(shared ? "shared with the row" : "a block of its own");
        StatusVariable* row = RowOf(port, "PrintingJobInfo2");
        LockPort(port);
        GlobalFree(row->Value);
        void* rowValue = row->Value = GlobalAlloc(GPTR, 320);
        AddJobRecord(7, port);
        AddJobRecord(8, port);
        port->jobInfoChain = node(shared ? rowValue : GlobalAlloc(GPTR, 320), node(GlobalAlloc(GPTR, 320), nullptr));
        UnlockPort(port);
        SetPortFlag(port, perJob | others);

        ResetPortState(port);
        EXPECT_EQ(port->flags, others);
        ClearPortFlag(port, others);  // no thread, document or close stands behind them
        EXPECT_EQ(port->jobListHead, nullptr);
        EXPECT_EQ(port->jobListTail, nullptr);
        EXPECT_EQ(port->jobInfoChain, nullptr);
        EXPECT_EQ(row->Value, shared ? nullptr : rowValue);
    }
}

}  // namespace
}  // namespace langmon
