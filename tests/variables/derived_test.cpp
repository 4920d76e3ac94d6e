// Variables that follow from others: the Err family falling back when the
// printer stops reporting a fault, what an unreadable printer shows, and the
// job variables as the spooler and the client see them.

#include "acquisition/poll.h"
#include "framing/job_record.h"
#include "platform/spooler_jobs.h"
#include "support/job_road_fixture.h"
#include "variables/derived.h"
#include "variables/status_variable.h"

#include <cstring>
#include <vector>

namespace langmon {
namespace {

class DerivedTest : public testing::JobRoadTest {
protected:
    StatusVariable* Row(PortContext* port, const char* name) {
        return GetVariable(name, port->variables, port, 1);
    }
    void SetWords(PortContext* port, const char* name, std::vector<uint32_t> words) {
        StatusVariable* row = Row(port, name);
        ASSERT_NE(row, nullptr);
        std::memcpy(row->Value, words.data(), 4 * words.size());
        row->Dirty = 0;
    }
    uint32_t Word(PortContext* port, const char* name, int index = 0) {
        return static_cast<const uint32_t*>(Row(port, name)->Value)[index];
    }
};

TEST_F(DerivedTest, AnErrorValueStaysWhileTheStatusReportsItsFaultAndFallsBackAfter) {
    PortContext* port = Open("LPT1");
    ASSERT_EQ(PollPrinterStatus(port), 1);
    SetWords(port, "ErrPaperJam", {0x41});
    SetWords(port, "ErrNoPaper2", {0x00090001, 0x00000500});
    SetWords(port, "ErrCoverOpen", {0x7F});
    SetWords(port, "PrinterStatus", {0, 0, 0x10000 | 0x04000000});
    ASSERT_EQ(DeriveErrorVariables(port, 1), 1);
    EXPECT_EQ(Word(port, "ErrPaperJam"), 0x41u) << "the jam is still reported";
    EXPECT_EQ(Word(port, "ErrNoPaper2"), 0x00090001u);

    SetWords(port, "PrinterStatus", {0, 0, 0x1});
    DeriveErrorVariables(port, 1);
    EXPECT_EQ(Word(port, "ErrPaperJam"), 0xFFFFFFFFu);
    EXPECT_EQ(Word(port, "ErrNoPaper2", 0), 0xFFFFFFFFu);
    EXPECT_EQ(Word(port, "ErrNoPaper2", 1), 0xFFFFFFFFu) << "all eight bytes";
    EXPECT_EQ(Row(port, "ErrPaperJam")->Dirty, 1u);
    // The cover's value is the cover word's alone; it is only sent again.
    EXPECT_EQ(Word(port, "ErrCoverOpen"), 0x7Fu);
    EXPECT_EQ(Row(port, "ErrCoverOpen")->Dirty, 1u);

    // Without publication nothing is marked.
    SetWords(port, "ErrBinError", {0});
    DeriveErrorVariables(port, 0);
    EXPECT_EQ(Word(port, "ErrBinError"), 0xFFFFFFFFu);
    EXPECT_EQ(Row(port, "ErrBinError")->Dirty, 0u);
}

TEST_F(DerivedTest, AnUnreadablePrinterShowsUnknownsAndSendsThemEachTime) {
    PortContext* port = Open("LPT1");
    // The second model answers, and still its status isn't read.
    PrinterAnswers(port, "MFG:Quor;MDL:Laser Printer 6300tx;");
    ASSERT_EQ(PollPrinterStatus(port), 1);
    for (int pass = 0; pass < 2; ++pass) {
        for (StatusVariable* row = port->variables; row->Name != nullptr; ++row) row->Dirty = 0;
        DeriveErrorVariables(port, 0);
        DerivePrinterVariables(port, 0);
        for (const char* name : {"ErrCoverOpen", "ErrSupplies", "TonerRemain", "CRURemain", "IconState"}) {
            SCOPED_TRACE(name);
            EXPECT_EQ(Word(port, name), 0xFFFFFFFFu);
            EXPECT_EQ(Row(port, name)->Dirty, 1u);
        }
        const StatusVariable* bins = FindVariable("PrinterBinConfig", port->variables, port);
        ASSERT_NE(bins->Value, nullptr);
        const auto* b = static_cast<const uint8_t*>(bins->Value);
        // Three trays: the multi-purpose tray of no size, two cassettes of A4.
        EXPECT_EQ(b[0], 3);
        EXPECT_EQ(b[4] | b[5] << 8, 2001);
        EXPECT_EQ(b[8] | b[9] << 8, 0xFFFF);
        EXPECT_EQ(b[10], 0xFF);
        EXPECT_EQ(b[16 + 2] | b[16 + 3] << 8, 1);
        EXPECT_EQ(b[28 + 2] | b[28 + 3] << 8, 3);
        EXPECT_EQ(b[28 + 4] | b[28 + 5] << 8, 9);
        EXPECT_EQ(b[28 + 6], 0xF9);
    }
}

TEST_F(DerivedTest, TheJobBitChangesPrinterStatusOnlyWhenItChanges) {
    PortContext* port = Open("LPT1");
    SetWords(port, "PrinterStatus", {0, 0, 0x1});
    SetPrinterJobBit(port, 1);
    EXPECT_EQ(Word(port, "PrinterStatus", 2), 0x9u);
    EXPECT_EQ(Row(port, "PrinterStatus")->Dirty, 1u);
    Row(port, "PrinterStatus")->Dirty = 0;
    SetPrinterJobBit(port, 1);
    EXPECT_EQ(Row(port, "PrinterStatus")->Dirty, 0u) << "nothing changed, nothing to send";
    SetPrinterJobBit(port, 0);
    EXPECT_EQ(Word(port, "PrinterStatus", 2), 0x1u);
}

// The client's copy of JobStatus, as the status manager would hold it.
uint32_t clientJobStatus = 0;
int32_t ReadClientJobStatus(uint32_t, const char* name, void* buffer, DWORD size, DWORD* needed) {
    *needed = 4;
    if (std::strcmp(name, "JobStatus") != 0 || size < 4) return -33;
    std::memcpy(buffer, &clientJobStatus, 4);
    return 0;
}

TEST_F(DerivedTest, JobStatusChangesFromTheClientsCopyAndOnlyWithAClient) {
    PortContext* port = Open("LPT1");
    Row(port, "JobStatus");
    EXPECT_EQ(UpdateJobStatus(port, JobCancelling, 1), 0) << "no client for the job";

    ManagerLink client{};
    client.managerHandle = 5;
    client.GetPrinterStatusA = ReadClientJobStatus;
    port->jobManager = &client;
    clientJobStatus = JobRunning;
    EXPECT_EQ(UpdateJobStatus(port, JobCancelling, 1), 1);
    clientJobStatus = JobRunning | JobCancelling;
    EXPECT_EQ(UpdateJobStatus(port, JobCancelling, 1), 0) << "already so for the client";
    EXPECT_EQ(UpdateJobStatus(port, 0x107, 0), 1);
    EXPECT_EQ(Word(port, "JobStatus"), 0u) << "the row keeps its own value";
    client.managerHandle = 0;
    EXPECT_EQ(UpdateJobStatus(port, 0x107, 0), 0) << "a client that isn't bound";
    port->jobManager = nullptr;
}

TEST_F(DerivedTest, TheSendingJobCarriesTheSpoolersNamesCutToTheirFields) {
    platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, "System\\CurrentControlSet\\control\\Print\\Printers\\Laser");
    platform::SpoolerJob job;
    job.jobId = 12;
    job.document = std::string(300, 'd');
    job.userName = "a user with a name far longer than thirty-one bytes";
    platform::SubmitJob("Laser", job);
    PortContext* port = Open("LPT1");
    GiveClient(port);
    ASSERT_TRUE(Start(port, 12));
    const StatusVariable* row = FindVariable("SendingJobInfo", port->variables, port);
    ASSERT_NE(row->Value, nullptr);
    const auto* info = static_cast<const char*>(row->Value);
    EXPECT_EQ(std::string(info), std::string(255, 'd'));
    EXPECT_EQ(std::string(info + 256), job.userName.substr(0, 31));
    uint32_t jobId = 0;
    std::memcpy(&jobId, info + 288, 4);
    EXPECT_EQ(jobId, 12u);
    EXPECT_EQ(row->Attributes & (VarKeepValue | VarJobClosing), VarKeepValue);
    EXPECT_FALSE(HasPortFlag(port, PF_JOB_DELETED));
    // The spooler now counts the job as printing.
    EXPECT_EQ(platform::QueuedJobs("Laser")[0].status & JOB_STATUS_PRINTING, JOB_STATUS_PRINTING);
    ASSERT_TRUE(EndDocPort(port));
    EXPECT_EQ(std::string(info), "") << "the names go at the job's end";
    EXPECT_EQ(row->Attributes & (VarKeepValue | VarJobClosing), VarJobClosing);

    // A job the spooler doesn't know counts as deleted.
    ASSERT_TRUE(Start(port, 99));
    EXPECT_TRUE(HasPortFlag(port, PF_JOB_DELETED));
    ASSERT_TRUE(EndDocPort(port));
}

TEST_F(DerivedTest, EndingTheTrackingWithoutCancelClosesTheSendingJobAndFreesTheRecords) {
    PortContext* port = Open("LPT1");
    GiveClient(port);
    ASSERT_TRUE(Start(port));
    DWORD written = 0;
    ASSERT_TRUE(Write(port, "%!PS-Adobe-3.0\n" + std::string(100, 'a'), &written));
    ASSERT_TRUE(HasPortFlag(port, PF_HEADER_SENT));
    LockPort(port);
    AddJobRecord(40, port);  // an older job still printing, as far as the list goes
    UnlockPort(port);
    EXPECT_EQ(CancelJobTracking(port, 0), 0);
    EXPECT_EQ(port->jobListHead, nullptr);
    EXPECT_EQ(port->jobListTail, nullptr);
    EXPECT_FALSE(HasPortFlag(port, PF_DISCARD));
    EXPECT_EQ(Word(port, "PrinterQueue"), 0u);

    // Without a SendingJobInfo value the running job's record stays.
    ASSERT_TRUE(EndDocPort(port));
    ASSERT_TRUE(Start(port));
    ASSERT_TRUE(Write(port, "%!PS-Adobe-3.0\n" + std::string(100, 'a'), &written));
    StatusVariable* sending = FindVariable("SendingJobInfo", port->variables, port);
    GlobalFree(sending->Value);
    sending->Value = nullptr;
    LockPort(port);
    JobRecord* running = port->jobListTail;
    UnlockPort(port);
    EXPECT_EQ(CancelJobTracking(port, 0), 0);
    EXPECT_EQ(port->jobListHead, running);
    EXPECT_EQ(port->jobListTail, running);
    ASSERT_TRUE(EndDocPort(port));
}

}  // namespace
}  // namespace langmon
