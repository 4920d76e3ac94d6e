// Publication as the clients see it: who is handed each changed value and in
// which order, what a new client is given, when a row is done or held for a
// later pass, and how a job's last records reach its client.

#include "variables/publication.h"
#include "acquisition/poll.h"
#include "framing/job_record.h"
#include "manager/manager_link.h"
#include "parser/job_progress.h"
#include "support/client_fixture.h"
#include "variables/derived.h"
#include "variables/status_variable.h"

#include <array>
#include <cstring>

namespace langmon {
namespace {

using testing::Driver6200;
using testing::Driver6300;
using testing::DescribePrinter;
using Bytes = std::vector<uint8_t>;
using Names = std::vector<std::string>;
using Seen = std::vector<std::pair<std::string, Bytes>>;  // client and bytes

constexpr uint32_t JobInfoBytes = 320;

Bytes Words(std::initializer_list<uint32_t> words) {
    Bytes bytes(4 * words.size());
    std::memcpy(bytes.data(), std::data(words), bytes.size());
    return bytes;
}

// A PrintingJobInfo2 record as a client receives it: JobId, Pages, ColorPages,
// BwPages and the four coverages are the last eight words; the rest stays 0.
Bytes JobInfo(std::array<uint32_t, 8> figures) {
    Bytes bytes(JobInfoBytes, 0);
    std::memcpy(bytes.data() + JobIdOffset, figures.data(), sizeof figures);
    return bytes;
}

// The hand-overs of job records with the moment of each, so the spacing of a
// finished job's records shows on the virtual clock.
std::vector<DWORD> jobInfoTicks;
UpdatePrinterStatusFn realUpdate = nullptr;

int32_t TimedUpdate(uint32_t handle, const char* name, const void* value, DWORD size) {
    if (std::strcmp(name, "PrintingJobInfo2") == 0) jobInfoTicks.push_back(GetTickCount());
    return realUpdate(handle, name, value, size);
}

class PublicationTest : public testing::ClientTest {
protected:
    void SetUp() override {
        ClientTest::SetUp();
        jobInfoTicks.clear();
        port = Open("LPT1");
        ASSERT_NE(port, nullptr);
        ASSERT_EQ(PollPrinterStatus(port), 1);  // a 6200tx answers: the port has its mask
    }

    ManagerLink* Client(const char* name, const char* driver = Driver6200) {
        DescribePrinter(name, driver, "LPT1");
        ManagerLink* link = CreateManagerLink(name, port);
        EXPECT_NE(link, nullptr) << name;
        return link;
    }
    static void Timed(ManagerLink* link) {
        realUpdate = link->UpdatePrinterStatusA;
        link->UpdatePrinterStatusA = &TimedUpdate;
    }

    void Store(const char* name, std::initializer_list<uint32_t> words) {
        StatusVariable* row = RowOf(port, name);
        ASSERT_NE(row, nullptr);
        LockPort(port);
        SetVariable(row, std::data(words));
        row->Dirty = 1;
        UnlockPort(port);
    }

    // A job of `link`'s printer at the end of the list, as a job's start
    // records it.
    JobRecord* AddJob(uint32_t jobId, ManagerLink* link) {
        LockPort(port);
        ManagerLink* running = port->jobManager;
        port->jobManager = link;
        AddJobRecord(jobId, port);
        port->jobManager = running;
        JobRecord* job = port->jobListTail;
        UnlockPort(port);
        return job;
    }
    std::vector<uint32_t> JobIds() const {
        std::vector<uint32_t> ids;
        for (const JobRecord* job = port->jobListHead; job != nullptr; job = job->Next)
            ids.push_back(job->JobId);
        return ids;
    }

    static void* JobValue(uint32_t jobId, uint32_t pages) {
        auto* value = static_cast<uint8_t*>(GlobalAlloc(GPTR, JobInfoBytes));
        std::memcpy(value + JobIdOffset, &jobId, 4);
        std::memcpy(value + PagesOffset, &pages, 4);
        return value;
    }
    // PrintingJobInfo2 as the printer's job report leaves it; the row's old
    // value is its own.
    void ReportJob(uint32_t jobId, uint32_t pages, uint32_t attributes) {
        StatusVariable* row = RowOf(port, "PrintingJobInfo2");
        LockPort(port);
        GlobalFree(row->Value);
        row->Value = JobValue(jobId, pages);
        row->Attributes = attributes;
        row->Dirty = 1;
        UnlockPort(port);
    }
    // A job the printer has started, at the end of the chain, with a copy of
    // its own.
    void ChainJob(uint32_t jobId, uint32_t attributes) {
        auto* snapshot = static_cast<StatusVariable*>(GlobalAlloc(GPTR, sizeof(StatusVariable)));
        snapshot->Value = JobValue(jobId, 0);
        snapshot->Attributes = attributes;
        auto* node = static_cast<JobInfoNode*>(GlobalAlloc(GPTR, sizeof(JobInfoNode)));
        node->Snapshot = snapshot;
        JobInfoNode** end = &port->jobInfoChain;
        while (*end != nullptr) end = &(*end)->Next;
        *end = node;
    }
    // The figures of the job being reported; the per-page ones are left set,
    // as a report leaves them.
    void PageStatistics(uint32_t colour, uint32_t bw, std::array<uint32_t, 4> sums) {
        port->colorPageTotal = colour;
        port->bwPageTotal = bw;
        port->yellowCoverageSum = sums[0];
        port->magentaCoverageSum = sums[1];
        port->cyanCoverageSum = sums[2];
        port->blackCoverageSum = sums[3];
        port->yellowCoverage = port->magentaCoverage = port->cyanCoverage = port->blackCoverage = 9;
        port->lastColorPages = port->skipPageReport = 1;
    }
    bool PageStatisticsClear() const {
        return (port->colorPageTotal | port->bwPageTotal | port->yellowCoverageSum |
                port->magentaCoverageSum | port->cyanCoverageSum | port->blackCoverageSum |
                port->yellowCoverage | port->magentaCoverage | port->cyanCoverage |
                port->blackCoverage | port->lastColorPages | port->skipPageReport) == 0;
    }
    // Who was handed job records, and what, in the order of the hand-overs.
    Seen JobInfoHanded() const {
        Seen seen;
        for (const auto& value : manager.Handed()) {
            if (value.name == "PrintingJobInfo2") seen.emplace_back(value.printer, value.bytes);
        }
        return seen;
    }

    PortContext* port = nullptr;
};

TEST_F(PublicationTest, EachTypeReachesItsReceiversInTableOrder) {
    // Nobody to receive them: a status value is done and kept for the first
    // client, IconState is dropped, the job client's value waits for one.
    Store("TonerRemain", {40});
    Store("IconState", {2});
    Store("JobStatus", {1});
    EXPECT_EQ(PublishVariables(port), 2);
    EXPECT_EQ(RowOf(port, "TonerRemain")->Dirty, 0u);
    EXPECT_EQ(RowOf(port, "IconState")->Value, nullptr);
    EXPECT_EQ(RowOf(port, "JobStatus")->Dirty, 1u);

    ManagerLink* laser = Client("Laser");
    EXPECT_EQ(manager.HandedTo("Laser", "TonerRemain")[0].bytes, Words({40}));
    Client("Office", Driver6300);
    port->jobManager = laser;
    manager.ForgetHanded();
    // Stored out of table order: the clients see table order.
    Store("IconState", {3});
    Store("PageCount", {1234});
    Store("TonerRemain", {41});
    SetPrinterStatus(port, 0x11, 0, 0x22);
    EXPECT_EQ(PublishVariables(port), 5);
    EXPECT_EQ(manager.NamesHandedTo("Laser"),
              (Names{"TonerRemain", "PrinterStatus", "JobStatus", "PageCount", "IconState"}));
    EXPECT_EQ(manager.NamesHandedTo("Office"), (Names{"TonerRemain", "PrinterStatus", "IconState"}))
        << "no job of its own, and not its model's counter";
    EXPECT_EQ(manager.HandedTo("Laser", "PrinterStatus")[0].bytes, Words({0x11, 0, 0x22}));
    EXPECT_EQ(manager.HandedTo("Office", "PrinterStatus")[0].bytes, Words({0, 0x200, 0}));
    EXPECT_EQ(manager.HandedTo("Office", "IconState")[0].bytes, Words({3}));
    EXPECT_EQ(RowOf(port, "JobStatus")->Dirty, 0u);
    EXPECT_EQ(RowOf(port, "IconState")->Value, nullptr);

    // A state of the five shared bits goes to every client on publication;
    // a replay knows only four of them.
    SetPrinterStatus(port, 0x11, 0x1000, 0x22);
    manager.ForgetHanded();
    PublishVariables(port);
    EXPECT_EQ(manager.HandedTo("Office", "PrinterStatus")[0].bytes, Words({0x11, 0x1000, 0x22}));
    ManagerLink* late = Client("Late", Driver6300);
    EXPECT_EQ(manager.HandedTo("Late", "PrinterStatus")[0].bytes, Words({0, 0x200, 0}));
    SetPrinterStatus(port, 0x11, 0x0800, 0x22);
    manager.ForgetHanded();
    ReplayVariables(port, late);
    EXPECT_EQ(manager.HandedTo("Late", "PrinterStatus")[0].bytes, Words({0x11, 0x0800, 0x22}));
}

TEST_F(PublicationTest, ANewClientIsGivenWhatItMissedOfItsModelAndNoJobsOfOthers) {
    Store("TonerRemain", {17});  // changed and not yet published
    for (const char* name : {"PageCount", "JobStatus", "PrinterQueue"}) Store(name, {1});
    StatusVariable* spooled = RowOf(port, "SpooledFileInfo");
    spooled->Value = GlobalAlloc(GPTR, VariableSize(spooled));
    // Even asked to, the job rows and the queue are never replayed.
    for (const char* name : {"SendingJobInfo", "PrintingJobInfo2"}) {
        StatusVariable* row = RowOf(port, name);
        row->Value = JobValue(12, 0);
        row->Attributes = VarReplayToNewClient | VarKeepValue;
    }
    RowOf(port, "PrinterQueue")->Attributes |= VarReplayToNewClient;
    StatusVariable* toner = RowOf(port, "TonerRemain");
    void* tonerValue = toner->Value;

    Client("Laser");
    Client("Office", Driver6300);
    const struct {
        const char* name;
        std::size_t laser, office;  // hand-overs to each
    } expected[] = {{"TonerRemain", 1, 1},      {"PrinterStatus", 1, 1},   {"JobStatus", 1, 1},
                    {"PageCount", 1, 0},        {"SpooledFileInfo", 0, 0}, {"SendingJobInfo", 0, 0},
                    {"PrintingJobInfo2", 0, 0}, {"PrinterQueue", 0, 0}};
    for (const auto& e : expected) {
        EXPECT_EQ(manager.HandedTo("Laser", e.name).size(), e.laser) << e.name;
        EXPECT_EQ(manager.HandedTo("Office", e.name).size(), e.office) << e.name;
    }
    EXPECT_EQ(manager.HandedTo("Laser", "TonerRemain")[0].bytes, Words({17}));
    // A replay is no publication.
    EXPECT_EQ(toner->Dirty, 1u);
    EXPECT_EQ(toner->Value, tonerValue);
}

TEST_F(PublicationTest, AClientWithoutManagerHoldsUpThoseBehindItAndARefusalHoldsTheRow) {
    manager.DontOpen("Second");
    Client("First");
    ManagerLink* second = Client("Second");
    Client("Third");
    ASSERT_EQ(second->managerHandle, 0u);
    manager.ForgetHanded();

    Store("TonerRemain", {55});
    StatusVariable* toner = RowOf(port, "TonerRemain");
    PublishVariables(port);
    PublishVariables(port);
    EXPECT_EQ(manager.HandedTo("First", "TonerRemain").size(), 2u) << "again on every pass";
    EXPECT_TRUE(manager.HandedTo("Third", "TonerRemain").empty());
    EXPECT_EQ(toner->Dirty, 1u);

    manager.DontOpen("Second", false);
    EXPECT_EQ(BindPendingClients(port), 1);
    ASSERT_NE(second->managerHandle, 0u);
    EXPECT_EQ(manager.HandedTo("Second", "TonerRemain").size(), 1u) << "the replay of the binding";
    manager.ForgetHanded();
    PublishVariables(port);
    for (const char* client : {"First", "Second", "Third"}) {
        EXPECT_EQ(manager.HandedTo(client, "TonerRemain").size(), 1u) << client;
    }
    EXPECT_EQ(toner->Dirty, 0u);

    // One refusal: the walk goes on, and the row is tried again, all of it.
    manager.Refuse("Second");
    manager.ForgetHanded();
    Store("TonerRemain", {56});
    PublishVariables(port);
    ASSERT_EQ(manager.HandedTo("Third", "TonerRemain").size(), 1u);
    EXPECT_FALSE(manager.HandedTo("Second", "TonerRemain")[0].accepted);
    EXPECT_EQ(toner->Dirty, 1u);
    manager.Refuse("Second", false);
    PublishVariables(port);
    EXPECT_EQ(manager.HandedTo("Third", "TonerRemain").size(), 2u);
    EXPECT_EQ(toner->Dirty, 0u);

    // A changed row without a value is passed over and kept changed.
    StatusVariable* ext = RowOf(port, "PrinterExtConfig");
    GlobalFree(ext->Value);
    ext->Value = nullptr;
    ext->Dirty = 1;
    manager.ForgetHanded();
    PublishVariables(port);
    EXPECT_TRUE(manager.HandedTo("First", "PrinterExtConfig").empty());
    EXPECT_EQ(ext->Dirty, 1u);
}

TEST_F(PublicationTest, TheQueueGoesOnceToEachClientWithAJobAndWaitsForAJobWithoutOne) {
    ManagerLink* laser = Client("Laser");
    ManagerLink* office = Client("Office");
    Client("Idle");
    AddJob(1, laser);
    AddJob(2, laser);
    AddJob(3, office);
    manager.ForgetHanded();
    StatusVariable* queue = RowOf(port, "PrinterQueue");

    Store("PrinterQueue", {0});
    PublishVariables(port);
    EXPECT_EQ(manager.HandedTo("Laser", "PrinterQueue").size(), 1u) << "two jobs, one hand-over";
    EXPECT_EQ(manager.HandedTo("Office", "PrinterQueue").size(), 1u);
    EXPECT_TRUE(manager.HandedTo("Idle", "PrinterQueue").empty());
    EXPECT_EQ(queue->Dirty, 0u);
    EXPECT_EQ(queue->Value, nullptr);

    AddJob(4, nullptr);  // its client has gone
    Store("PrinterQueue", {0});
    PublishVariables(port);
    PublishVariables(port);
    EXPECT_EQ(manager.HandedTo("Laser", "PrinterQueue").size(), 3u) << "once on each pass";
    EXPECT_EQ(manager.HandedTo("Office", "PrinterQueue").size(), 3u);
    EXPECT_EQ(queue->Dirty, 1u);
    EXPECT_NE(queue->Value, nullptr);
}

// A finished job gives its figures, then the empty record, and goes; the next
// job of the chain moves up and is shown as a fresh job.
TEST_F(PublicationTest, AFinishedJobGivesItsFiguresAndTheNextOfTheChainMovesUp) {
    ManagerLink* laser = Client("Laser");
    Timed(laser);
    SetPrinterStatus(port, 0, 0, JobOnPortBit);
    ReportJob(7, 1, VarJobOpen | VarJobClosing);
    ChainJob(7, VarKeepValue | VarJobOpen);
    ChainJob(8, VarKeepValue | VarJobOpen);
    PageStatistics(1, 1, {40, 40, 40, 60});
    PublishVariables(port);
    manager.ForgetHanded();
    // No record of the job yet: the value waits for it.
    PublishVariables(port);
    EXPECT_TRUE(JobInfoHanded().empty());
    EXPECT_EQ(RowOf(port, "PrintingJobInfo2")->Dirty, 1u);

    AddJob(7, laser);
    AddJob(8, laser);
    PublishVariables(port);
    EXPECT_EQ(JobInfoHanded(), (Seen{{"Laser", JobInfo({7, 2, 1, 1, 40, 40, 40, 30})},
                                     {"Laser", JobInfo({0, 0, 1, 1, 40, 40, 40, 30})},
                                     {"Laser", JobInfo({8})}}));
    ASSERT_EQ(jobInfoTicks.size(), 3u);
    EXPECT_EQ(jobInfoTicks[1] - jobInfoTicks[0], JobEndSpacingMs);
    EXPECT_EQ(jobInfoTicks[2] - jobInfoTicks[1], JobEndSpacingMs);
    EXPECT_TRUE(PageStatisticsClear());
    EXPECT_EQ(JobIds(), std::vector<uint32_t>{8});
    StatusVariable* row = RowOf(port, "PrintingJobInfo2");
    ASSERT_NE(port->jobInfoChain, nullptr);
    EXPECT_EQ(port->jobInfoChain->Next, nullptr);
    EXPECT_EQ(row->Value, port->jobInfoChain->Snapshot->Value)
        << "row and node share the job's block";
    EXPECT_EQ(row->Attributes, VarKeepValue | VarJobOpen);
    EXPECT_EQ(row->Dirty, 0u);

    // The job that moved up ends in its turn; the shared block is freed once.
    row->Attributes = VarJobOpen | VarJobClosing;
    row->Dirty = 1;
    // Black pages only: no colour coverage, whatever the colour sums hold.
    PageStatistics(0, 2, {50, 60, 70, 50});
    manager.ForgetHanded();
    PublishVariables(port);
    EXPECT_EQ(JobInfoHanded(), (Seen{{"Laser", JobInfo({8, 2, 0, 2, 0, 0, 0, 25})},
                                     {"Laser", JobInfo({0, 0, 0, 2, 0, 0, 0, 25})}}));
    EXPECT_TRUE(JobIds().empty());
    EXPECT_EQ(port->jobInfoChain, nullptr);
    EXPECT_EQ(row->Value, nullptr);
    EXPECT_EQ(row->Dirty, 0u);
    EXPECT_EQ(row->Attributes, 0u);
    // The port's last job is gone: the printer shows no job any more.
    const auto status = manager.HandedTo("Laser", "PrinterStatus");
    ASSERT_EQ(status.size(), 1u);
    EXPECT_EQ(status[0].Word(8) & JobOnPortBit, 0u);
}

TEST_F(PublicationTest, JobsThePrinterPassedOverEndTowardsTheirClientsFirst) {
    ManagerLink* laser = Client("Laser");
    ManagerLink* office = Client("Office");
    AddJob(5, laser)->Reported = 1;
    AddJob(6, laser);
    AddJob(7, office);
    // The printer starts job 7: 5 was shown started, 6 never was.
    ReportJob(7, 0, VarKeepValue | VarJobOpen);
    PageStatistics(1, 1, {1, 2, 3, 4});
    manager.ForgetHanded();
    PublishVariables(port);
    const Bytes blank = JobInfo({});
    EXPECT_EQ(JobInfoHanded(), (Seen{{"Laser", blank},         // 5: only its end
                                     {"Laser", JobInfo({6})},  // 6: start and end
                                     {"Laser", blank},
                                     {"Office", JobInfo({7})}}));
    EXPECT_EQ(JobIds(), std::vector<uint32_t>{7});
    EXPECT_EQ(port->jobListHead->Reported, 1u);
    EXPECT_TRUE(PageStatisticsClear()) << "a job that has only just started";
    StatusVariable* row = RowOf(port, "PrintingJobInfo2");
    EXPECT_EQ(row->Dirty, 0u);
    EXPECT_NE(row->Value, nullptr);

    // The printer reports the end of a job whose start it never reported:
    // the jobs ahead end, and the job's own client hears of it before its
    // figures. A client that refuses a passed-over job's start is spared
    // its end.
    LockPort(port);
    DropOldestJobRecord(port);
    UnlockPort(port);
    AddJob(9, laser);
    AddJob(11, laser);
    AddJob(10, office);
    ReportJob(10, 1, VarJobOpen | VarJobClosing);
    PageStatistics(0, 4, {0, 0, 0, 80});
    manager.Refuse("Laser");
    manager.ForgetHanded();
    PublishVariables(port);
    EXPECT_EQ(JobInfoHanded(), (Seen{{"Laser", blank},          // 9: its end alone
                                     {"Laser", JobInfo({11})},  // refused
                                     {"Office", JobInfo({10})},
                                     {"Office", JobInfo({10, 4, 0, 4, 0, 0, 0, 20})},
                                     {"Office", JobInfo({0, 0, 0, 4, 0, 0, 0, 20})}}));
    EXPECT_TRUE(JobIds().empty());
    EXPECT_EQ(row->Value, nullptr);
}

}  // namespace
}  // namespace langmon
