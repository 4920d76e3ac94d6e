// The emulated printer: it takes the host's bytes, reads the PJL in them,
// prints the pages of each job one after another on the platform clock, and
// reports in PJL and in its device ID the way a printer of the family does.
//
// It has no thread of its own. Every call first brings it up to the current
// tick of the platform clock, so on the virtual clock a 50-page job costs no
// real time: the pages are done once the clock has moved on far enough. Calls
// may come from any thread; one lock keeps the printer whole, and no call
// waits.
//
//     Printer printer;                       // a ready 6200tx
//     printer.Change([](PrinterState& s) { s.openCovers = CoverFront; });
//     printer.Write(header);                 // what a port hands on
//     auto id = printer.DeviceId();          // "...;STS:AAAJ...;"
#pragma once

#include "emulator/page_scanner.h"
#include "emulator/pjl_replies.h"
#include "emulator/pjl_stream.h"
#include "emulator/printer_condition.h"
#include "emulator/printer_state.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace langmon::emulator {

// A job as the printer saw it.
struct JobRecordOfPrinter {
    std::string name;     // NAME of its JOB line; empty for data sent without one
    std::string endName;  // NAME of its EOJ line
    bool framed = false;  // it came between JOB and EOJ
    bool finished = false;
    JobResult result = JobResult::Ok;
    uint32_t pagesPrinted = 0;
    uint32_t colorPages = 0;
    uint32_t bwPages = 0;
    uint64_t dataBytes = 0;  // page-description bytes, PJL not counted
};

// How long the printer's input stays quiet before it takes what came as all
// there is: a printer's I/O time-out, as long as the usual factory setting.
// A monitor that sends a trailer in pieces between its polls, seconds apart,
// relies on it.
constexpr uint32_t InputIdleMs = 15000;

class Printer {
public:
    explicit Printer(PrinterState state = PrinterState::Default());

    Printer(const Printer&) = delete;
    Printer& operator=(const Printer&) = delete;

    // --- What a port passes on.

    // A document begins and ends on the port. The line itself knows no
    // documents, so the printer sees only that its input went quiet: once it
    // has been quiet for InputIdleMs, data sent without a JOB line ends and a
    // command line without its LF is taken as it stands. Bytes that come
    // sooner simply go on.
    void StartDocument();
    void EndDocument();
    // Takes what it can of `bytes`: all of them, or as many as its write
    // fault allows. Nothing when it doesn't answer (power off, silent).
    size_t Write(std::string_view bytes);
    // Gives what it has to send, at most `size` bytes (fewer when its read
    // fault says so). Never waits.
    size_t Read(char* buffer, size_t size);
    // The device ID text, or nothing when the printer doesn't answer.
    std::optional<std::string> DeviceId();

    // --- Changes, for tests and for the user's description of the printer.

    // Changes the state; the printer then reports what the change means (a
    // USTATUS DEVICE when switched on) and stops or resumes printing.
    void Change(const std::function<void(PrinterState&)>& change);
    void PowerOff();  // jobs, unsent replies and USTATUS settings are lost
    void PowerOn();   // warms up for the state's warmUpMs first
    void CancelAtPanel();  // the job being printed, or the oldest one waiting

    // --- Inspection.

    PrinterState State();
    PrinterCondition Condition();
    // Every byte the host wrote, in order, up to the first RecordLimit bytes.
    std::string Received();
    uint64_t ReceivedCount();
    // Every job seen, oldest first; the last ones may still be in progress.
    std::vector<JobRecordOfPrinter> Jobs();
    // Every byte the printer has put on its way back, read or not.
    std::string Sent();
    // Whether all jobs are through: nothing waits to be printed.
    bool Idle();

    static constexpr size_t RecordLimit = 16u << 20;
    // Replies that would make the unread output grow past this are dropped,
    // as a printer's back channel buffer overflows.
    static constexpr size_t OutputLimit = 64u << 10;
    static constexpr size_t JobHistoryLimit = 1000;

private:
    struct Job {
        size_t history = 0;  // index in history_
        bool framed = false;
        bool inputDone = false;
        uint32_t nesting = 0;  // JOB lines inside the job still waiting for their EOJ
        bool cancelledAtPanel = false;
        bool cancelledByHost = false;
        PageScanner scanner;
        std::vector<bool> pages;  // colour flag of each complete page
        uint32_t printed = 0;
        PageFigures figures;                // of the pages printed
        std::array<uint64_t, 4> coverageSum{};  // coverage times pages, for the averages
        char lastDataByte = 0;
    };

    class Reader;  // the PjlStreamSink that acts on what the stream holds
    friend class Reader;

    void AdvanceLocked();
    // The input has been quiet since a document's end for InputIdleMs.
    void EndQuietInputLocked(uint32_t now);
    Activity CurrentActivity() const;
    void ReportIfChanged();
    void Send(std::string response);
    void FinishDoneJobs();
    bool StartPage();
    void FinishPage();
    void StopPageInProgress();
    void NewJob(bool framed, std::string name);
    Job* InputJob();
    void EndInput(Job& job, const std::string* endName);
    void ExecuteCommand(std::string_view line);
    void TakeData(std::string_view data);
    void TakeUel();
    JobRecordOfPrinter& HistoryOf(const Job& job);

    std::mutex mutex_;
    PrinterState state_;
    PjlStream stream_;
    std::deque<Job> jobs_;  // in the printer, oldest first; the last may still receive
    std::deque<JobRecordOfPrinter> history_;
    size_t historyDropped_ = 0;  // records dropped from the front of history_
    PageScanner::Language nextLanguage_ = PageScanner::Language::Unknown;

    uint32_t cursor_ = 0;  // the tick up to which the printer has run
    bool inputEndDue_ = false;  // a document ended and no byte came since
    uint32_t inputEndTick_ = 0;
    bool pageInProgress_ = false;
    uint32_t pageStart_ = 0;
    bool warming_ = false;
    uint32_t warmStart_ = 0;

    bool ustatusDevice_ = false;
    bool ustatusJob_ = false;
    bool ustatusPage_ = false;
    uint32_t reportedCode_ = 0;
    std::array<std::string, 2> reportedPanel_;

    std::string received_;
    uint64_t receivedCount_ = 0;
    std::string unread_;
    std::string sent_;
};

}  // namespace langmon::emulator
