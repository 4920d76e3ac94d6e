#include "fuzz_monitor.h"

#include "linked_status_manager.h"

#include "emulator/printer_condition.h"
#include "emulator/status_block.h"
#include "langmon/answer_port_monitor.h"
#include "langmon/harness_monitor.h"
#include "platform/clock.h"
#include "platform/spooler_printers.h"
#include "platform/thread.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

namespace langmon::fuzz {

namespace {

// A driver of the model table with a status key: its printers get a client.
constexpr const char* ClientDriver = "Quor Printer 6200tx PS";

// The longest a thread of the monitor outlives its port: a status word for
// the spooler is retried for 17 seconds.
constexpr int SettleSeconds = 60;

// A spooler gives a job up when the port took nothing this many calls running.
constexpr int MostFruitlessWrites = 100;

// What the answering port monitor was written, from whichever thread wrote.
std::mutex receivedMutex;
std::string received;

BOOL RecordWrite(HANDLE, LPBYTE buffer, DWORD length, LPDWORD written) {
    std::lock_guard lock(receivedMutex);
    received.append(reinterpret_cast<const char*>(buffer), length);
    *written = length;
    return TRUE;
}

// The device ID target polls through the two-way USB port of the harness's
// machine.
MONITOR InitializedMonitor() {
    platform::UseVirtualClock();
    MONITOR table{};
    if (!tool::InitializeHarnessMonitor(&table)) std::abort();
    LinkStatusManager();
    return table;
}

}  // namespace

const MONITOR& LanguageMonitor() {
    static const MONITOR table = InitializedMonitor();
    return table;
}

std::string ReadyPrinterId() {
    const emulator::PrinterState state = emulator::PrinterState::Default();
    return emulator::BuildDeviceId(state, emulator::EvaluateCondition(state, emulator::Activity::Idle));
}

void GivePrinterAClient(const char* portName) {
    platform::AddPrinterQueue(PrinterName, ClientDriver, portName, true);
}

BOOL StartJob(HANDLE port, DWORD jobId) {
    std::string printer(PrinterName);
    char document[] = "fuzz";
    DOC_INFO_1 info{document, nullptr, nullptr};
    return LanguageMonitor().StartDocPort(port, printer.data(), jobId, 1, reinterpret_cast<LPBYTE>(&info));
}

std::size_t SendBlocks(HANDLE port, std::string_view bytes, std::size_t block, bool* failed) {
    *failed = false;
    std::size_t taken = 0;
    for (int fruitless = 0; taken < bytes.size() && fruitless < MostFruitlessWrites;) {
        // The spooler's buffer is its own: the monitor may not keep a pointer into the input.
        std::string piece(bytes.substr(taken, block));
        DWORD written = 0;
        if (!LanguageMonitor().WritePort(port, reinterpret_cast<LPBYTE>(piece.data()),
                                         static_cast<DWORD>(piece.size()), &written)) {
            *failed = true;
            break;
        }
        fruitless = written == 0 ? fruitless + 1 : 0;
        taken += written;
    }
    return taken;
}

FuzzPort::FuzzPort(const char* portName, std::string_view deviceId)
    : lower_(tool::AnswerPortMonitor(std::string(deviceId))) {
    lower_.WritePort = RecordWrite;
    {
        std::lock_guard lock(receivedMutex);
        received.clear();
    }
    Open(portName);
}

FuzzPort::FuzzPort(const char* portName, const MONITOR& lower) : lower_(lower) { Open(portName); }

void FuzzPort::Open(const char* portName) {
    std::string name(portName);
    std::string printer(PrinterName);
    // A port that can't be opened is a fault of the harness, not a finding.
    if (!LanguageMonitor().OpenPortEx(name.data(), printer.data(), &handle_, &lower_)) std::abort();
    context_ = static_cast<PortContext*>(handle_);
}

FuzzPort::~FuzzPort() {
    LanguageMonitor().ClosePort(handle_);
    // Virtual time runs on while the threads that outlive the port finish,
    // so that the next input meets none of them.
    for (int second = 0; second < SettleSeconds && platform::ManagedThreadCount() > 1; ++second) Sleep(1000);
    if (platform::ManagedThreadCount() > 1) {
        std::fprintf(stderr, "a thread of the monitor outlived its port by %d seconds\n", SettleSeconds);
        std::abort();
    }
    EmptyStatusManager();
}

// The answer belongs to the port monitor, not to one table of it: the table
// the port holds answers the new text too.
void FuzzPort::Answer(std::string_view deviceId) {
    lower_ = tool::AnswerPortMonitor(std::string(deviceId));
    lower_.WritePort = RecordWrite;
}

std::string FuzzPort::Received() const {
    std::lock_guard lock(receivedMutex);
    return received;
}

}  // namespace langmon::fuzz
