// Variables that follow from others: the Err family falling back when the
// printer stops reporting a fault, what an unreadable printer shows, and the
// job variables as the spooler and the client see them.

#include "acquisition/poll.h"
#include "framing/job_record.h"
#include "platform/spooler_jobs.h"
#include "support/client_fixture.h"
#include "variables/derived.h"
#include "variables/status_variable.h"

#include <cstring>
#include <vector>

namespace langmon {
namespace {

class DerivedTest : public testing::ClientTest {
protected:
    // A port whose printer, "Laser", a 6200 read once, has a client: what
    // the variables say shows in what the client is handed from now on.
    PortContext* OpenWithClient() {
        testing::DescribePrinter(Printer, testing::Driver6200, "LPT1");
        PortContext* port = Open("LPT1");
        EXPECT_NE(CreateManagerLink(Printer, port), nullptr);
        EXPECT_EQ(PollPrinterStatus(port), 1);
        manager.ForgetHanded();
        return port;
    }
    // The words of the last value of `name` the client was handed.
    uint32_t Handed(const char* name, int index = 0) {
        const auto values = manager.HandedTo(Printer, name);
        return values.empty() ? 0xBADu : values.back().Word(4 * index);
    }
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
    PortContext* port = OpenWithClient();
    SetWords(port, "ErrPaperJam", {0x41});
    SetWords(port, "ErrNoPaper2", {0x00090001, 0x00000500});
    SetWords(port, "ErrCoverOpen", {0x7F});
    SetWords(port, "PrinterStatus", {0, 0, 0x10000 | 0x04000000});
    ASSERT_EQ(DeriveErrorVariables(port, 1), 1);
    EXPECT_EQ(Word(port, "ErrPaperJam"), 0x41u) << "the jam is still reported";
    EXPECT_EQ(Word(port, "ErrNoPaper2"), 0x00090001u);
    EXPECT_TRUE(manager.HandedTo(Printer, "ErrPaperJam").empty()) << "nothing changed";

    SetWords(port, "PrinterStatus", {0, 0, 0x1});
    DeriveErrorVariables(port, 1);
    EXPECT_EQ(Handed("ErrPaperJam"), 0xFFFFFFFFu);
    EXPECT_EQ(Handed("ErrNoPaper2", 0), 0xFFFFFFFFu);
    EXPECT_EQ(Handed("ErrNoPaper2", 1), 0xFFFFFFFFu) << "all eight bytes";
    // The cover's value is the cover word's alone; it is only sent again.
    EXPECT_EQ(Handed("ErrCoverOpen"), 0x7Fu);

    // Without publication nothing is marked, and nothing goes out.
    SetWords(port, "ErrBinError", {0});
    DeriveErrorVariables(port, 0);
    EXPECT_EQ(Word(port, "ErrBinError"), 0xFFFFFFFFu);
    EXPECT_EQ(Row(port, "ErrBinError")->Dirty, 0u);
    EXPECT_TRUE(manager.HandedTo(Printer, "ErrBinError").empty());
}

TEST_F(DerivedTest, AnUnreadablePrinterShowsUnknownsAndSendsThemEachTime) {
    PortContext* port = OpenWithClient();
    // The second model answers, and still its status isn't read.
    PrinterAnswers(port, "MFG:Quor;MDL:Laser Printer 6300tx;");
    ASSERT_EQ(PollPrinterStatus(port), 1);
    for (std::size_t pass = 1; pass <= 2; ++pass) {
        manager.ForgetHanded();
        DeriveErrorVariables(port, 1);
        DerivePrinterVariables(port, 1);
        for (const char* name : {"ErrCoverOpen", "ErrSupplies", "TonerRemain", "CRURemain", "IconState"}) {
            SCOPED_TRACE(name);
            EXPECT_FALSE(manager.HandedTo(Printer, name).empty()) << "pass " << pass;
            EXPECT_EQ(Handed(name), 0xFFFFFFFFu);
        }
        // The trays are another model's business than this client's: the
        // port keeps them.
        EXPECT_TRUE(manager.HandedTo(Printer, "PrinterBinConfig").empty());
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

TEST_F(DerivedTest, TheSendingJobCarriesTheSpoolersNamesCutToTheirFields) {
    platform::SpoolerJob job;
    job.jobId = 12;
    job.document = std::string(300, 'd');
    job.userName = "a user with a name far longer than thirty-one bytes";
    platform::SubmitJob(Printer, job);
    PortContext* port = OpenWithClient();
    ASSERT_TRUE(Start(port, 12));
    auto sent = manager.HandedTo(Printer, "SendingJobInfo");
    ASSERT_EQ(sent.size(), 1u);
    const auto* info = reinterpret_cast<const char*>(sent[0].bytes.data());
    EXPECT_EQ(std::string(info), std::string(255, 'd'));
    EXPECT_EQ(std::string(info + 256), job.userName.substr(0, 31));
    EXPECT_EQ(sent[0].Word(288), 12u);
    EXPECT_FALSE(HasPortFlag(port, PF_JOB_DELETED));
    // The spooler now counts the job as printing.
    EXPECT_EQ(platform::QueuedJobs(Printer)[0].status & JOB_STATUS_PRINTING, JOB_STATUS_PRINTING);
    ASSERT_TRUE(EndDocPort(port));
    // The job's end: its names gone, and JobId 0 to say that it is over.
    sent = manager.HandedTo(Printer, "SendingJobInfo");
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(sent[1].bytes.data())), "");
    EXPECT_EQ(sent[1].Word(288), 0u);
    EXPECT_EQ(FindVariable("SendingJobInfo", port->variables, port)->Value, nullptr)
        << "a closed record is not kept";

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
