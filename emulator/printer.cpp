#include "emulator/printer.h"

#include "emulator/panel_settings.h"
#include "emulator/pjl_command.h"
#include "emulator/status_block.h"
#include "platform/clock.h"

#include <algorithm>

namespace langmon::emulator {

class Printer::Reader final : public PjlStreamSink {
public:
    explicit Reader(Printer& printer) : printer_(printer) {}
    void OnUel() override { printer_.TakeUel(); }
    void OnCommand(std::string_view command) override { printer_.ExecuteCommand(command); }
    void OnData(std::string_view data) override { printer_.TakeData(data); }

private:
    Printer& printer_;
};

namespace {

// What a stray byte sequence in front of a response looks like with the
// garbage fault on: noise on the line, no form feed, no "@".
constexpr std::string_view Garbage = "\x01\x7f#\r\n";

}  // namespace

// A new printer has just been switched on: it warms up first, if its state
// says it takes time to.
Printer::Printer(PrinterState state) : state_(std::move(state)) {
    cursor_ = GetTickCount();
    warming_ = state_.poweredOn && state_.warmUpMs != 0;
    warmStart_ = cursor_;
    PrinterCondition condition = EvaluateCondition(state_, CurrentActivity());
    reportedCode_ = condition.pjlCode;
    reportedPanel_ = condition.panel;
}

// --- Time.

Activity Printer::CurrentActivity() const {
    if (warming_) return Activity::WarmingUp;
    for (const Job& job : jobs_) {
        if (job.cancelledAtPanel || job.cancelledByHost) return Activity::Cancelling;
    }
    if (pageInProgress_) return Activity::Printing;
    return jobs_.empty() ? Activity::Idle : Activity::Busy;
}

void Printer::AdvanceLocked() {
    uint32_t now = GetTickCount();
    EndQuietInputLocked(now);
    for (;;) {
        if (!state_.poweredOn) break;
        if (warming_) {
            if (now - warmStart_ < state_.warmUpMs) break;
            cursor_ = warmStart_ + state_.warmUpMs;
            warming_ = false;
            ReportIfChanged();
        }
        FinishDoneJobs();
        if (!pageInProgress_ && !StartPage()) break;
        if (now - pageStart_ < state_.pageTimeMs) break;
        cursor_ = pageStart_ + state_.pageTimeMs;
        FinishPage();
    }
    cursor_ = now;
    ReportIfChanged();
}

// The front job's next page goes into the engine, if the engine can take it.
bool Printer::StartPage() {
    if (jobs_.empty() || !EngineCanPrint(state_)) return false;
    Job& job = jobs_.front();
    if (job.cancelledAtPanel || job.cancelledByHost || job.printed >= job.pages.size()) return false;
    pageInProgress_ = true;
    pageStart_ = cursor_;
    ReportIfChanged();
    return true;
}

void Printer::FinishPage() {
    pageInProgress_ = false;
    Job& job = jobs_.front();
    bool color = job.pages[job.printed];
    ++job.printed;
    ++state_.pageCount;
    state_.trays[state_.feedSlot].sheets -= 1;

    PageFigures page;
    if (color) {
        page.colorPages = 1;
        page.coverage = state_.colorCoverage;
    } else {
        page.bwPages = 1;
        page.coverage = {0, 0, 0, state_.monoCoverage};
    }
    job.figures.colorPages += page.colorPages;
    job.figures.bwPages += page.bwPages;
    for (size_t i = 0; i < 4; ++i) job.coverageSum[i] += page.coverage[i];

    JobRecordOfPrinter& record = HistoryOf(job);
    record.pagesPrinted = job.printed;
    record.colorPages = job.figures.colorPages;
    record.bwPages = job.figures.bwPages;

    if (ustatusPage_) Send(PageReport(job.printed));
    if (ustatusJob_ && job.framed) Send(JobFiguresReport(page));
}

// A page the engine can't finish now (a cover opened, a jam, a cancel) is
// given up; it is printed again from the start when the engine can.
void Printer::StopPageInProgress() { pageInProgress_ = false; }

// Jobs at the front that have all their data and nothing left to print end.
void Printer::FinishDoneJobs() {
    while (!jobs_.empty()) {
        Job& job = jobs_.front();
        bool cancelled = job.cancelledAtPanel || job.cancelledByHost;
        if (!job.inputDone || (!cancelled && job.printed < job.pages.size())) return;
        JobRecordOfPrinter& record = HistoryOf(job);
        record.finished = true;
        record.result = job.cancelledByHost     ? JobResult::CancelledByHost
                        : job.cancelledAtPanel ? JobResult::CancelledAtPanel
                                               : JobResult::Ok;
        if (ustatusJob_ && job.framed) {
            PageFigures whole = job.figures;
            // Average coverage: colour toners over the colour pages, black
            // over all pages.
            for (size_t i = 0; i < 3; ++i) {
                whole.coverage[i] = whole.colorPages ? static_cast<uint32_t>(job.coverageSum[i] / whole.colorPages) : 0;
            }
            uint32_t all = whole.colorPages + whole.bwPages;
            whole.coverage[3] = all ? static_cast<uint32_t>(job.coverageSum[3] / all) : 0;
            Send(JobEndReport(record.endName.empty() ? record.name : record.endName, job.printed, whole,
                              record.result));
        }
        jobs_.pop_front();
    }
}

// --- What the printer says.

void Printer::Send(std::string response) {
    if (state_.faults.loseJobReports && response.starts_with("@PJL USTATUS JOB")) return;
    if (state_.faults.garbage) response.insert(0, Garbage);
    if (state_.faults.crlfAfterFormFeed) {
        for (size_t at = response.find('\f'); at != std::string::npos; at = response.find('\f', at + 3)) {
            response.insert(at + 1, "\r\n");
        }
    }
    if (unread_.size() + response.size() > OutputLimit) return;
    unread_ += response;
    if (sent_.size() < RecordLimit) sent_ += response;
}

void Printer::ReportIfChanged() {
    PrinterCondition condition = EvaluateCondition(state_, CurrentActivity());
    if (condition.pjlCode == reportedCode_ && condition.panel == reportedPanel_) return;
    reportedCode_ = condition.pjlCode;
    reportedPanel_ = condition.panel;
    if (ustatusDevice_) Send(DeviceStatusResponse("USTATUS DEVICE", condition));
}

// --- What the printer reads.

Printer::Job* Printer::InputJob() {
    if (jobs_.empty() || jobs_.back().inputDone) return nullptr;
    return &jobs_.back();
}

JobRecordOfPrinter& Printer::HistoryOf(const Job& job) {
    // A job still in the printer is among the last JobHistoryLimit records,
    // unless more jobs than that wait; then the oldest shares the front record.
    size_t index = job.history >= historyDropped_ ? job.history - historyDropped_ : 0;
    return history_[std::min(index, history_.size() - 1)];
}

void Printer::NewJob(bool framed, std::string name) {
    if (history_.size() == JobHistoryLimit) {
        history_.pop_front();
        ++historyDropped_;
    }
    JobRecordOfPrinter record;
    record.name = name;
    record.framed = framed;
    history_.push_back(std::move(record));

    Job job;
    job.history = historyDropped_ + history_.size() - 1;
    job.framed = framed;
    job.scanner = PageScanner(state_.colorRule);
    std::vector<bool> none;
    if (nextLanguage_ != PageScanner::Language::Unknown) job.scanner.SetLanguage(nextLanguage_, none);
    jobs_.push_back(std::move(job));
    if (framed && ustatusJob_) Send(JobStartReport(name));
}

void Printer::EndInput(Job& job, const std::string* endName) {
    job.inputDone = true;
    if (endName) HistoryOf(job).endName = *endName;
    if (!job.cancelledAtPanel && !job.cancelledByHost) job.scanner.Finish(job.pages.size(), job.pages);
    nextLanguage_ = PageScanner::Language::Unknown;
}

void Printer::TakeUel() {
    Job* job = InputJob();
    if (!job) return;
    // A host that gives up on a PostScript job ends the program with a
    // Ctrl-D before its "%%EOF" and closes the job with a UEL.
    if (job->lastDataByte == '\x04' && job->scanner.language() == PageScanner::Language::PostScript &&
        !job->scanner.sawEndOfFile() && !job->cancelledAtPanel) {
        job->cancelledByHost = true;
        if (&jobs_.front() == job) StopPageInProgress();
    }
    // Data sent without a JOB line is a job of its own, which the UEL ends.
    if (!job->framed) EndInput(*job, nullptr);
    nextLanguage_ = PageScanner::Language::Unknown;
}

void Printer::TakeData(std::string_view data) {
    Job* job = InputJob();
    if (!job) {
        NewJob(false, "");
        job = &jobs_.back();
    }
    job->lastDataByte = data.back();
    HistoryOf(*job).dataBytes += data.size();
    if (job->cancelledAtPanel || job->cancelledByHost) return;  // flushed
    job->scanner.Feed(data, job->pages);
}

void Printer::ExecuteCommand(std::string_view line) {
    PjlCommand command = ParsePjlCommand(line);
    auto on = [](const std::string* value) { return value && !EqualsNoCase(*value, "OFF"); };
    if (command.Is("USTATUSOFF")) {
        ustatusDevice_ = ustatusJob_ = ustatusPage_ = false;
    } else if (command.Is("USTATUS")) {
        if (const std::string* v = command.Option("DEVICE")) ustatusDevice_ = on(v);
        if (const std::string* v = command.Option("JOB")) ustatusJob_ = on(v);
        if (const std::string* v = command.Option("PAGE")) ustatusPage_ = on(v);
    } else if (command.Is("INFO", "STATUS")) {
        Send(DeviceStatusResponse("INFO STATUS", EvaluateCondition(state_, CurrentActivity())));
    } else if (command.Is("INFO", "SERVICETAG")) {
        Send(ServiceTagResponse(state_.serviceTag));
    } else if (command.Is("INFO", "CONFIG")) {
        Send(ConfigResponse(state_));
    } else if (command.Is("INFO", "VARIABLES")) {
        Send(VariablesResponse(state_));
    } else if (command.Is("INFO", "PAGECOUNT")) {
        Send(PageCountResponse(state_.pageCount));
    } else if (command.Is("INQUIRE") && command.words.size() > 1) {
        Send(InquireResponse(command.words[1], state_));
    } else if (command.Is("DEFAULT")) {
        for (const auto& [name, value] : command.options) {
            const PanelSetting* setting = FindPanelSetting(name);
            if (setting && SettingAccepts(*setting, value)) state_.settings[name] = value;
        }
    } else if (command.Is("JOB")) {
        // JOB and EOJ nest, as applications frame their own data too: only
        // the outermost pair makes a job.
        Job* open = InputJob();
        if (open && open->framed) {
            ++open->nesting;
        } else {
            if (open) EndInput(*open, nullptr);
            const std::string* name = command.Option("NAME");
            NewJob(true, name ? *name : "");
        }
    } else if (command.Is("EOJ")) {
        Job* open = InputJob();
        if (open && open->framed) {
            if (open->nesting != 0) {
                --open->nesting;
            } else {
                EndInput(*open, command.Option("NAME"));
            }
        }
    } else if (command.Is("ENTER")) {
        const std::string* language = command.Option("LANGUAGE");
        PageScanner::Language chosen = language && EqualsNoCase(*language, "POSTSCRIPT")
                                           ? PageScanner::Language::PostScript
                                           : PageScanner::Language::Other;
        nextLanguage_ = chosen;
        if (Job* open = InputJob()) {
            open->scanner.SetLanguage(chosen, open->pages);
        }
    }
    // Anything else (SET, RDYMSG, COMMENT, ...) changes nothing here.
}

// --- The port's calls.

void Printer::StartDocument() {
    std::lock_guard lock(mutex_);
    AdvanceLocked();
}

void Printer::EndDocument() {
    std::lock_guard lock(mutex_);
    AdvanceLocked();
    inputEndDue_ = true;
    inputEndTick_ = GetTickCount();
}

void Printer::EndQuietInputLocked(uint32_t now) {
    if (!inputEndDue_ || now - inputEndTick_ < InputIdleMs) return;
    inputEndDue_ = false;
    Reader reader(*this);
    stream_.EndOfDocument(reader);
    if (Job* job = InputJob(); job && !job->framed) EndInput(*job, nullptr);
}

size_t Printer::Write(std::string_view bytes) {
    std::lock_guard lock(mutex_);
    AdvanceLocked();
    if (!state_.poweredOn || state_.faults.silent) return 0;
    inputEndDue_ = false;
    if (state_.faults.writeLimit != 0 && bytes.size() > state_.faults.writeLimit) {
        bytes = bytes.substr(0, state_.faults.writeLimit);
    }
    receivedCount_ += bytes.size();
    if (received_.size() < RecordLimit) received_.append(bytes.substr(0, RecordLimit - received_.size()));
    Reader reader(*this);
    stream_.Feed(bytes, reader);
    AdvanceLocked();
    return bytes.size();
}

size_t Printer::Read(char* buffer, size_t size) {
    std::lock_guard lock(mutex_);
    AdvanceLocked();
    if (!state_.poweredOn || state_.faults.silent) return 0;
    size_t n = std::min(size, unread_.size());
    if (state_.faults.readPiece != 0) n = std::min<size_t>(n, state_.faults.readPiece);
    std::copy_n(unread_.data(), n, buffer);
    unread_.erase(0, n);
    return n;
}

std::optional<std::string> Printer::DeviceId() {
    std::lock_guard lock(mutex_);
    AdvanceLocked();
    if (!state_.poweredOn || state_.faults.silent) return std::nullopt;
    return BuildDeviceId(state_, EvaluateCondition(state_, CurrentActivity()));
}

// --- Changes.

void Printer::Change(const std::function<void(PrinterState&)>& change) {
    std::lock_guard lock(mutex_);
    AdvanceLocked();
    change(state_);
    if (state_.feedSlot < 0 || state_.feedSlot >= TraySlots) state_.feedSlot = 0;
    if (pageInProgress_ && !EngineCanPrint(state_)) StopPageInProgress();
    AdvanceLocked();
}

void Printer::PowerOff() {
    std::lock_guard lock(mutex_);
    AdvanceLocked();
    state_.poweredOn = false;
    jobs_.clear();  // their records stay unfinished
    pageInProgress_ = false;
    warming_ = false;
    stream_ = PjlStream{};
    unread_.clear();
    ustatusDevice_ = ustatusJob_ = ustatusPage_ = false;
    nextLanguage_ = PageScanner::Language::Unknown;
}

void Printer::PowerOn() {
    std::lock_guard lock(mutex_);
    AdvanceLocked();
    if (state_.poweredOn) return;
    state_.poweredOn = true;
    warming_ = state_.warmUpMs != 0;
    warmStart_ = cursor_;
    AdvanceLocked();
}

void Printer::CancelAtPanel() {
    std::lock_guard lock(mutex_);
    AdvanceLocked();
    for (Job& job : jobs_) {
        if (job.cancelledAtPanel || job.cancelledByHost) continue;
        job.cancelledAtPanel = true;
        if (&job == &jobs_.front()) StopPageInProgress();
        break;
    }
    AdvanceLocked();
}

// --- Inspection.

PrinterState Printer::State() {
    std::lock_guard lock(mutex_);
    AdvanceLocked();
    return state_;
}

PrinterCondition Printer::Condition() {
    std::lock_guard lock(mutex_);
    AdvanceLocked();
    return EvaluateCondition(state_, CurrentActivity());
}

std::string Printer::Received() {
    std::lock_guard lock(mutex_);
    return received_;
}

uint64_t Printer::ReceivedCount() {
    std::lock_guard lock(mutex_);
    return receivedCount_;
}

std::vector<JobRecordOfPrinter> Printer::Jobs() {
    std::lock_guard lock(mutex_);
    AdvanceLocked();
    return {history_.begin(), history_.end()};
}

std::string Printer::Sent() {
    std::lock_guard lock(mutex_);
    AdvanceLocked();
    return sent_;
}

bool Printer::Idle() {
    std::lock_guard lock(mutex_);
    AdvanceLocked();
    return jobs_.empty();
}

}  // namespace langmon::emulator
