// What the printer makes of the host's PJL, and what it says back, checked
// against the way the host frames its jobs and reads the replies.

#include "emulator_test_support.h"

#include <algorithm>

namespace langmon::emulator::emutest {
namespace {

class PjlTest : public VirtualClockTest {
protected:
    // The responses of the printer, each checked for the host's layout.
    static std::vector<std::string> Said(Printer& printer, bool withDevice = true) {
        std::vector<std::string> out;
        for (std::string& response : Responses(printer.Sent())) {
            EXPECT_EQ(LayoutProblem(response), "") << response;
            if (withDevice || !response.starts_with("@PJL USTATUS DEVICE")) out.push_back(std::move(response));
        }
        return out;
    }
    static bool HasLine(std::string_view response, std::string_view line) {
        const std::vector<std::string> lines = Lines(response);
        return std::ranges::find(lines, line) != lines.end();
    }
};

// `eof`: the trailer that ends a PostScript program first; a program it cuts
// short is reported aborted by the host, and not as cancelled.
TEST_F(PjlTest, EveryKindOfDataEndsItsJobAndCountsItsPages) {
    struct Case {
        const char* data;
        uint32_t pages;
        uint32_t colorPages;
        ColorRule rule = ColorRule::Auto;
        bool eof = false, aborted = false;
    };
    const Case cases[] = {
        {"one\ftwo\f", 2, 0},        // a form feed right before the EOJ
        {"one\ftwo", 2, 0},          // text behind the last form feed
        {"one\ftwo\f \r\n", 2, 0},   // blanks behind it are no page
        {"\f\f\f", 3, 0},            // each form feed
        {"just text", 1, 0},
        {"%!PS-Adobe-3.0\nshowpage\nshowpage\n%%EOF\n", 2, 0},
        {"%!PS-Adobe-3.0\n%%EOF", 1, 0},  // no page: at least one
        {"%!PS-Adobe-3.0\n1 0 0 setrgbcolor\nshowpage\nshowpage\n%%EOF\n", 2, 1},
        {"@PJL ENTER LANGUAGE=POSTSCRIPT\r\n0 0 0 1 setcmykcolor showpage\n", 1, 1},
        {"one\ftwo\f", 2, 2, ColorRule::Color},
        {"%!PS-Adobe-3.0\n1 0 0 setrgbcolor showpage\n", 1, 0, ColorRule::Mono},
        {"%!PS-Adobe-3.0\n(one) show showpage\n%%EOF\n", 1, 0, ColorRule::Auto, true},
        {"%!PS-Adobe-3.0\n(one) show showpage\n(two) show", 0, 0, ColorRule::Auto, true, true},
        // Ghostscript's way: showpage and colour named in the prolog's
        // procedures, the pages marked, each calling a procedure. The
        // emulator reads words, it does not run them: a colour set only
        // through a procedure is not seen.
        {"%!PS-Adobe-3.0\n%%BeginProlog\n/p{showpage}def /c{1 0 0 setrgbcolor}def\n%%EndProlog\n"
         "%%Page: 1 1\nc p\n%%Page: 2 2\n1 0 0 setrgbcolor p\n%%Trailer\n%%EOF\n",
         2, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(std::string(c.data)));
        PrinterState state = PrinterState::Default();
        state.colorRule = c.rule;
        Printer printer(state);
        printer.Write(JobHeader(IdA) + c.data + JobTrailer(IdB, c.eof));
        Sleep(std::max(c.pages, 1u) * state.pageTimeMs);
        const std::vector<JobRecordOfPrinter> jobs = printer.Jobs();
        ASSERT_EQ(jobs.size(), 1u);
        EXPECT_EQ(jobs[0].endName, IdB);
        EXPECT_TRUE(jobs[0].finished);
        EXPECT_EQ(jobs[0].pagesPrinted, c.pages);
        EXPECT_EQ(jobs[0].colorPages, c.colorPages);
        const std::string end = Said(printer, false).back();
        ASSERT_TRUE(end.starts_with("@PJL USTATUS JOB\r\nEND\r\n")) << printer.Sent();
        EXPECT_EQ(HasLine(end, "RESULT=HOST_CALCELED"), c.aborted) << end;
        EXPECT_FALSE(HasLine(end, "CANCELED")) << end;
    }
}

// A back channel that drops the job reports: the job prints and the page
// counts still come; the host hears of neither its start nor its end.
TEST_F(PjlTest, LostJobReportsLeaveThePageReportsAlone) {
    PrinterState state = PrinterState::Default();
    state.faults.loseJobReports = true;
    Printer printer(state);
    printer.Write(JobHeader(IdA) + "one\ftwo\f" + JobTrailer(IdA));
    Sleep(2 * state.pageTimeMs);
    ASSERT_EQ(printer.Jobs().size(), 1u);
    EXPECT_TRUE(printer.Jobs()[0].finished);
    std::vector<std::string> reports = Said(printer, false);
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_TRUE(reports[0].starts_with("@PJL INFO STATUS\r\n"));
    EXPECT_EQ(reports[2], "@PJL USTATUS PAGE\r\n2\r\n\f");
}

TEST_F(PjlTest, RepliesToInfoAndInquire) {
    PrinterState state = PrinterState::Default();
    state.serviceTag = "3MW8QZ1";
    state.pageCount = 4711;
    state.trays[2] = Tray{TrayKind::Large, false, 1000, 2000, 2, 1};
    state.duplex = true;
    state.outTray2 = true;
    state.panelOverride = {"Pr\xC3\xAAt", "Bac 1 vide"};
    Printer printer(state);
    printer.Write(Uel +
                  "@PJL INFO STATUS\r\n"
                  "@PJL DEFAULT PAPERTYPE3=RECYCLE\r\n"
                  "@PJL INFO PAGECOUNT\r\n"
                  "@PJL INFO SERVICETAG\r\n"
                  "@PJL INFO CONFIG\r\n"
                  "@PJL INFO VARIABLES\r\n"
                  "@PJL INQUIRE PAPERTYPE3\r\n");
    std::vector<std::string> said = Said(printer);
    ASSERT_EQ(said.size(), 6u);
    // The display holds two panel lines of sixteen characters, not bytes.
    const std::string status = said[0];
    EXPECT_EQ(Lines(status)[0], "@PJL INFO STATUS");
    EXPECT_TRUE(HasLine(status, "DISPLAY=\"Pr\xC3\xAAt            Bac 1 vide\"")) << status;
    EXPECT_TRUE(HasLine(status, "ONLINE=TRUE")) << status;
    said.erase(said.begin());

    EXPECT_EQ(said[0], "@PJL INFO PAGECOUNT\r\nPAGECOUNT=4711\r\n\f");
    EXPECT_EQ(Lines(said[1])[0], "@PJL INFO SERVICETAG");
    EXPECT_EQ(Lines(said[1])[1].substr(0, 7), "3MW8QZ1");

    const std::string& config = said[2];
    EXPECT_EQ(Lines(config)[0], "@PJL INFO CONFIG");
    EXPECT_TRUE(HasLine(config, "INTRAY1TYPE=NORMAL")) << config;
    EXPECT_TRUE(HasLine(config, "INTRAY2TYPE=LARGE")) << config;
    EXPECT_TRUE(HasLine(config, "DUPLEX")) << config;
    EXPECT_NE(Entry(config, "OUT TRAYS").find("OUTTRAY2"), std::string::npos) << config;

    const std::string& variables = said[3];
    EXPECT_EQ(Lines(variables)[0], "@PJL INFO VARIABLES");
    EXPECT_EQ(Entry(variables, "COPIES="), "COPIES=1 [2 RANGE]\r\n\t1\r\n\t999\r\n");
    EXPECT_TRUE(Entry(variables, "PAPERTYPE3=").starts_with("PAPERTYPE3=RECYCLE [")) << variables;
    EXPECT_NE(Entry(variables, "OUTBIN=").find("\r\n\tOUTTRAY2\r\n"), std::string::npos) << variables;

    // The value stands on the line after the name.
    EXPECT_EQ(said[4], "@PJL INQUIRE PAPERTYPE3\r\nRECYCLE\r\n\f");

    // Without the options the config names neither; longer panel lines are cut.
    PrinterState plainState = PrinterState::Default();
    plainState.panelOverride = {"ABCDEFGHIJKLMNOPQR", "0123456789abcdefXY"};
    Printer plain(plainState);
    plain.Write(Uel + "@PJL INFO CONFIG\r\n@PJL INFO STATUS\r\n");
    const std::vector<std::string> plainSaid = Said(plain);
    ASSERT_EQ(plainSaid.size(), 2u);
    EXPECT_FALSE(HasLine(plainSaid[0], "DUPLEX")) << plainSaid[0];
    EXPECT_EQ(Entry(plainSaid[0], "OUT TRAYS"), "OUT TRAYS [1 ENUMERATED]\r\n\tOUTTRAY1\r\n");
    EXPECT_TRUE(HasLine(plainSaid[1], "DISPLAY=\"ABCDEFGHIJKLMNOP0123456789abcdef\"")) << plainSaid[1];
}

}  // namespace
}  // namespace langmon::emulator::emutest
