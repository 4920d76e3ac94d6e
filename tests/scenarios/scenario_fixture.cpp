#include "scenarios/scenario_fixture.h"

#include "monitor/port_mode.h"
#include "platform/clock.h"
#include "platform/registry.h"
#include "platform/thread.h"
#include "portkind/port_kind.h"

#include <algorithm>
#include <cstdio>

namespace langmon::scenario {

namespace {

// The MONITOR table holds plain function pointers: the recorders find their
// test and the emulator's own entries here.
ScenarioTest* current = nullptr;
MONITOR emulatorTable{};

constexpr const char* UsbPortKey = "System\\CurrentControlSet\\control\\Print\\Monitors\\USB Monitor\\Ports\\";

// A few bytes either side of `at`, marked, with what doesn't print in hex.
std::string Around(const std::string& text, std::size_t at) {
    std::string shown;
    for (std::size_t i = at > 12 ? at - 12 : 0; i < std::min(text.size(), at + 12); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        char hex[8];
        std::snprintf(hex, sizeof hex, "\\x%02X", c);
        shown += (i == at ? "[" : "") + (c >= 0x20 && c < 0x7F ? std::string(1, char(c)) : hex) +
                 (i == at ? "]" : "");
    }
    return shown;
}

std::size_t FirstDifference(const std::string& a, std::size_t from, const std::string& b) {
    std::size_t i = 0;
    while (from + i < a.size() && i < b.size() && a[from + i] == b[i]) ++i;
    return i;
}

}  // namespace

std::string PostScriptJob(int pages, std::size_t size) {
    std::string job = "%!PS-Adobe-3.0\n";
    int line = 0;
    for (int page = 1; page <= pages; ++page) {
        while (job.size() < size * page / pages) {
            job += "% line " + std::to_string(++line) + " on page " + std::to_string(page) + "\n";
        }
        job += "0 0 moveto showpage\n";
    }
    return job + "%%EOF\n";
}

::testing::AssertionResult FramedJob(const std::string& got, const std::string& identifier,
                                     const std::string& job, const std::string& trailer) {
    const std::string jobLine = "@PJL JOB NAME=\"" + identifier + "\"\r\n";
    const std::size_t at = got.find(job);
    if (at == std::string::npos) {
        // Where the job's bytes go wrong, counting from the header's end.
        const std::size_t line = identifier.empty() ? std::string::npos : got.find(jobLine);
        const std::size_t start = line == std::string::npos ? 0 : line + jobLine.size();
        const std::size_t i = FirstDifference(got, start, job);
        return ::testing::AssertionFailure() << "the job's byte " << i << " of " << job.size()
                                             << " differs: " << Around(got, start + i);
    }
    const std::string before = got.substr(0, at);
    const std::string after = got.substr(at + job.size());
    if (identifier.empty() ? !before.empty()
                           : !before.starts_with(Uel) || !before.ends_with(jobLine) ||
                                 before.find("@PJL USTATUS JOB=ON\r\n") == std::string::npos) {
        return ::testing::AssertionFailure() << before.size() << " bytes ahead of the job, ending "
                                             << Around(before, before.size()) << "; wanted "
                                             << (identifier.empty() ? "none" : "a header naming " + identifier);
    }
    if (after != trailer) {
        const std::size_t i = FirstDifference(after, 0, trailer);
        return ::testing::AssertionFailure() << after.size() << " bytes behind the job, wanted "
                                             << trailer.size() << "; byte " << i << " differs: " << Around(after, i);
    }
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult TookAll(const SpoolerRun& run, std::size_t size) {
    if (run.taken == size && run.failures == 0 && run.dirtyErrors == 0) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << run.taken << " of " << size << " bytes taken in " << run.calls
                                         << " calls; " << run.failures << " failed, " << run.dirtyErrors
                                         << " succeeded with a last error";
}

BOOL ScenarioTest::RecordWrite(HANDLE port, LPBYTE buffer, DWORD size, LPDWORD written) {
    const BOOL result = emulatorTable.WritePort(port, buffer, size, written);
    current->writes.push_back({std::string(reinterpret_cast<const char*>(buffer), size), *written,
                               current->documents});
    return result;
}

BOOL ScenarioTest::RecordControl(HANDLE port, DWORD controlId, LPSTR valueName, LPSTR in, DWORD inSize, LPSTR out,
                                 DWORD outSize, LPDWORD returned) {
    {
        std::lock_guard lock(current->controlMutex_);
        current->controlThreads_.push_back(GetCurrentThreadId());
    }
    return emulatorTable.GetPrinterDataFromPort(port, controlId, valueName, in, inSize, out, outSize, returned);
}

int ScenarioTest::OwnControlRequests() {
    std::lock_guard lock(controlMutex_);
    return static_cast<int>(std::count(controlThreads_.begin(), controlThreads_.end(), GetCurrentThreadId()));
}

BOOL ScenarioTest::RecordStartDoc(HANDLE port, LPSTR printerName, DWORD jobId, DWORD level, LPBYTE docInfo) {
    ++current->documents;
    return emulatorTable.StartDocPort(port, printerName, jobId, level, docInfo);
}

void ScenarioTest::SetUp() {
    MonitorTest::SetUp();
    ports_ = std::make_unique<emulator::PortMonitor>();
    emulatorTable = *ports_->Table();
    below_ = emulatorTable;
    below_.WritePort = RecordWrite;
    below_.StartDocPort = RecordStartDoc;
    below_.GetPrinterDataFromPort = RecordControl;
    current = this;
    // USB ports are two-way only as the USB port monitor's.
    for (const char* name : {"USB001", "USB002"}) {
        platform::RegistrySetString(HKEY_LOCAL_MACHINE, std::string(UsbPortKey) + name, "Description",
                                    "Virtual printer port for USB");
    }
}

void ScenarioTest::TearDown() {
    while (!opened_.empty()) Close(opened_.back());
    // The short threads that tell the spooler a status word hold a printer
    // handle and their blocks until they end.
    SettleThreads();
    current = nullptr;
    MonitorTest::TearDown();
}

void ScenarioTest::PlugInPrinter(const char* portName, DWORD mode, emulator::LinkFaults faults) {
    // Made on the virtual clock, so that the printer's time is the test's.
    printer = std::make_unique<emulator::Printer>();
    printer->Change([&](emulator::PrinterState& state) { state.faults = faults; });
    ports_->Attach(portName, *printer);
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, PortModeKey, PortModeValue, mode);
    writes.clear();
}

PortContext* ScenarioTest::Connect(const char* portName, DWORD mode, bool client, emulator::LinkFaults faults) {
    PlugInPrinter(portName, mode, faults);
    HANDLE handle = nullptr;
    std::string name = portName;
    EXPECT_TRUE(monitor.OpenPortEx(name.data(), printerName_, &handle, &below_));
    auto* port = static_cast<PortContext*>(handle);
    EXPECT_TRUE(port != nullptr && (port->portKind & PK_BIDI) != 0) << portName << " is not two-way";
    if (client) {
        // The printer's queue stands on the port with a driver of the known
        // models: its jobs get a client.
        testing::DescribePrinter(printerName_, "Quor Laser Printer 6200tx PCL6", portName, false);
    }
    if (port != nullptr && client) SetPortFlag(port, PF_MODEL_KNOWN);
    return opened_.emplace_back(port);
}

void ScenarioTest::Close(PortContext* port) {
    if (port == nullptr || std::erase(opened_, port) == 0) return;
    EXPECT_TRUE(monitor.ClosePort(port));
}

std::string ScenarioTest::Start(PortContext* port, DWORD jobId) {
    EXPECT_TRUE(monitor.StartDocPort(port, printerName_, jobId, 1, reinterpret_cast<LPBYTE>(&docInfo_)));
    return port->jobIdentifier;
}

SpoolerRun ScenarioTest::Spool(PortContext* port, const std::string& job, std::size_t block, int maxCalls) {
    SpoolerRun run;
    while (run.taken < job.size() && run.calls < maxCalls) {
        const auto length = static_cast<DWORD>(std::min(block, job.size() - run.taken));
        DWORD written = 0xdeadbeef;
        SetLastError(0xdeadbeef);
        ++run.calls;
        auto* data = reinterpret_cast<LPBYTE>(const_cast<char*>(job.data() + run.taken));
        if (!monitor.WritePort(port, data, length, &written)) {
            ++run.failures;
            break;
        }
        run.dirtyErrors += GetLastError() != 0;
        run.takes.push_back(written);
        // What the port says it took beyond the block can't be passed again.
        if (written > length) break;
        run.taken += written;
    }
    return run;
}

::testing::AssertionResult ScenarioTest::PrintedAsOneJob(const std::string& name, uint32_t pages) {
    for (int i = 0; i < 600 && !printer->Idle(); ++i) Sleep(1000);
    const auto jobs = printer->Jobs();
    const uint32_t printed = printer->State().pageCount - emulator::PrinterState::Default().pageCount;
    auto failure = ::testing::AssertionFailure() << "the printer saw " << jobs.size() << " jobs, printed "
                                                 << printed << " pages";
    for (const auto& job : jobs) {
        failure << "; \"" << job.name << "\" to \"" << job.endName << "\", " << job.pagesPrinted
                << (job.finished ? " pages, finished" : " pages, not finished");
    }
    if (jobs.size() != 1 || printed != pages) return failure;
    const auto& job = jobs[0];
    if (job.name != name || job.endName != name || job.framed == name.empty() || !job.finished ||
        job.result != emulator::JobResult::Ok || job.pagesPrinted != pages) {
        return failure;
    }
    return ::testing::AssertionSuccess();
}

}  // namespace langmon::scenario
