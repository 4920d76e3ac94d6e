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

TEST_F(PjlTest, FramedJobArrivesInPiecesOfAnySize) {
    const std::string header = JobHeader(IdA);
    const std::string trailer = JobTrailer(IdB);
    ASSERT_EQ(header.size(), 136u);
    ASSERT_EQ(trailer.size(), 51u);
    ASSERT_EQ(JobTrailer(IdB, true).size(), 61u);
    const std::string job = header + "Page one\r\n\fPage two\r\n\fPage three\r\n" + trailer;

    std::vector<std::string> wholeReports;
    for (size_t piece : {job.size(), size_t{1}, size_t{2}, size_t{5}, size_t{9}, size_t{64}}) {
        SCOPED_TRACE(testing::Message() << "pieces of " << piece);
        Printer printer;
        for (size_t at = 0; at < job.size(); at += piece) {
            ASSERT_EQ(printer.Write(std::string_view(job).substr(at, piece)), std::min(piece, job.size() - at));
        }
        Sleep(9000);
        EXPECT_EQ(printer.Received(), job);
        const std::vector<JobRecordOfPrinter> jobs = printer.Jobs();
        ASSERT_EQ(jobs.size(), 1u);
        EXPECT_EQ(jobs[0].name, IdA);
        EXPECT_EQ(jobs[0].endName, IdB);
        EXPECT_TRUE(jobs[0].finished);
        EXPECT_EQ(jobs[0].pagesPrinted, 3u);

        // Apart from device reports, which follow the engine: the status,
        // the start, three pages with their figures, the end.
        const std::vector<std::string> reports = Said(printer, false);
        ASSERT_EQ(reports.size(), 9u);
        EXPECT_TRUE(reports[0].starts_with("@PJL INFO STATUS\r\n"));
        EXPECT_EQ(reports[1], "@PJL USTATUS JOB\r\nSTART\r\nNAME=\"" + std::string(IdA) + "\"\r\n\f");
        for (uint32_t page = 1; page <= 3; ++page) {
            EXPECT_EQ(reports[2 * page], "@PJL USTATUS PAGE\r\n" + std::to_string(page) + "\r\n\f");
            EXPECT_TRUE(HasLine(reports[2 * page + 1], "BWPAGE=1")) << reports[2 * page + 1];
        }
        EXPECT_TRUE(reports[8].starts_with("@PJL USTATUS JOB\r\nEND\r\nNAME=\"" + std::string(IdB) + "\"\r\n"));
        EXPECT_FALSE(HasLine(reports[8], "CANCELED"));
        if (wholeReports.empty()) wholeReports = reports;
        EXPECT_EQ(reports, wholeReports);
    }
}

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

TEST_F(PjlTest, FiguresAddUpTheWayTheHostSumsThem) {
    PrinterState state = PrinterState::Default();
    state.colorCoverage = {10, 20, 30, 40};
    state.monoCoverage = 8;
    Printer printer(state);
    printer.Write(JobHeader(IdA) +
                  "%!PS-Adobe-3.0\n1 0 0 setrgbcolor (red) show showpage\n0 setgray (black) show showpage\n"
                  "%%EOF\n" +
                  JobTrailer(IdA));
    Sleep(2 * state.pageTimeMs);

    // The host adds up the figure reports; an END's own figures it passes over.
    uint32_t colorPages = 0, bwPages = 0;
    std::array<uint32_t, 4> sums{};
    const std::vector<std::string> reports = Said(printer, false);
    for (const std::string& report : reports) {
        if (!report.starts_with("@PJL USTATUS JOB") || HasLine(report, "END")) continue;
        uint32_t color = 0;
        std::array<uint32_t, 4> coverage{};
        for (const std::string& line : Lines(report)) {
            if (line.starts_with("COLORPAGE=")) color = std::stoul(line.substr(10));
            if (line.starts_with("COVERAGE ")) coverage.at(std::string_view("CMYK").find(line[9])) = std::stoul(line.substr(11));
            if (line.starts_with("BWPAGE=")) {
                const uint32_t bw = std::stoul(line.substr(7));
                colorPages += color;
                bwPages += bw;
                for (size_t i = 0; i < 3; ++i) sums[i] += coverage[i] * color;
                sums[3] += coverage[3] * (color + bw);
            }
        }
    }
    EXPECT_EQ(colorPages, 1u);
    EXPECT_EQ(bwPages, 1u);
    EXPECT_EQ(sums, (std::array<uint32_t, 4>{10, 20, 30, 48}));

    const std::string& end = reports.back();
    ASSERT_TRUE(end.starts_with("@PJL USTATUS JOB\r\nEND\r\n")) << end;
    EXPECT_NE(end.find("COLORPAGE=1\r\n"          // one colour page
                       "COVERAGE C=10\r\n"        // over the colour pages
                       "COVERAGE M=20\r\n"
                       "COVERAGE Y=30\r\n"
                       "COVERAGE K=24\r\n"        // over all pages: (40 + 8) / 2
                       "BWPAGE=1\r\n"),           // last, closing the figures
              std::string::npos)
        << end;
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
