#include "backend_job.h"

#include "cups_link.h"
#include "daemon_job.h"
#include "side_channel.h"

#include "langmon/client_view.h"
#include "langmon/daemon_printer.h"
#include "langmon/error_words.h"
#include "langmon/interruption.h"
#include "langmon/job_progress_view.h"
#include "langmon/job_sender.h"
#include "langmon/monitoring_view.h"
#include "langmon/own_stores.h"
#include "langmon/printer_target.h"
#include "langmon/printer_view.h"
#include "langmon/progress_line.h"

#include "daemon/status_protocol.h"
#include "monitor/port_context.h"
#include "platform/clock.h"
#include "platform/spooler_printers.h"
#include "platform/text.h"
#include "platform/user_input.h"
#include "portkind/port_kind.h"
#include "ports/snmp_device_id.h"

#include <langmon/monitor.h>

#include <cups/backend.h>

#include <chrono>
#include <optional>
#include <ostream>
#include <sstream>
#include <vector>

#include <poll.h>
#include <sys/ioctl.h>

namespace langmon::backend {

namespace {

// CUPS hands a job over a pipe a few KiB at a time; blocks of this size keep
// WritePort's calls few without holding much.
constexpr unsigned BlockBytes = 16384;
// How long the job is followed after its end for the printer's report of
// it, jams and empty trays included: CUPS shows them meanwhile, and cancels
// the job if a person wants it gone.
constexpr DWORD FollowLimitMs = 600000;
// The longest a drain waits for the printer to take what it was given.
constexpr auto DrainLimit = std::chrono::seconds(30);

}  // namespace

int RunBackendJob(const BackendJob& job, std::ostream& cups, const std::atomic<bool>& cancelled) {
    tool::KeepStatusStoresOwn();
    CupsLines lines(cups);
    if (const std::string problem = tool::CheckPrinterTarget(job.deviceUri); !problem.empty()) {
        lines.Write("ERROR: " + platform::Printable(job.deviceUri) + ": " + platform::Printable(problem));
        return CUPS_BACKEND_STOP;
    }
    // A printer langmond owns gets its jobs through the daemon: the port
    // is the daemon's.
    const std::string socketPath = protocol::SocketPath();
    if (const std::string held = tool::DaemonPrinterFor(job.deviceUri, socketPath); !held.empty()) {
        return RunDaemonJob(job, held, socketPath, lines, cancelled);
    }
    platform::InputFile input = job.file.empty() ? platform::InputFile::StandardInput() : platform::InputFile(job.file);
    if (!input.Problem().empty()) {
        lines.Write("ERROR: " + platform::Printable(input.Problem()));
        return CUPS_BACKEND_FAILED;
    }
    const std::string portName = tool::ChoosePortName(job.deviceUri, "");
    tool::PrinterTarget target(job.deviceUri, portName);
    lines.Debug("the printer: " + target.Description() + ", on port " + portName);

    // The monitor reads the machine as it starts; what CUPS says is added
    // to it then.
    MONITOR monitor{};
    InitializeMonitorEx(nullptr, &monitor);
    target.DescribePort(portName);
    // The machine: a queue of the job's printer on the port, with the
    // family's driver of the model the printer names (jobs through CUPS are
    // PostScript), unless a machine file describes it already. A printer of
    // another make gets its jobs as they are: its queue's driver is one the
    // monitor knows no model of, so it frames nothing.
    std::string deviceId = target.ProbeDeviceId();
    const std::string model = tool::DeviceIdModel(deviceId);
    const bool foreign = !model.empty() && !tool::FamilyModel(model);
    std::string queue = tool::PrinterOnPort(portName);
    if (queue.empty()) {
        queue = job.queue.empty() ? "langmon" : job.queue;
        if (foreign) {
            platform::AddPrinterQueue(queue, model, portName, false);
        } else {
            tool::AddStandInQueue(portName, model, queue, tool::QueueLanguage::PostScript);
        }
    }
    HANDLE port = nullptr;
    if (!monitor.OpenPortEx(const_cast<char*>(portName.c_str()), const_cast<char*>(queue.c_str()), &port,
                            target.Lower())) {
        lines.Write("ERROR: the port " + portName + " could not be opened: " + tool::ErrorWords(GetLastError()));
        return CUPS_BACKEND_FAILED;
    }
    auto* const context = static_cast<PortContext*>(port);

    std::atomic<bool> writeFailing{false};
    std::atomic<bool> holdingBlock{false};
    std::atomic<bool> atPrinter{true};
    SideChannelSources sources;
    sources.deviceId = [&target, deviceId]() mutable {
        if (deviceId.empty()) deviceId = target.ProbeDeviceId();
        return deviceId;
    };
    sources.busy = [&atPrinter] { return atPrinter.load(); };
    sources.bidi = (context->portKind & PK_BIDI) != 0;
    sources.drain = [&holdingBlock, &writeFailing] {
        // Written is with the printer once WritePort took it: the drain
        // waits for the block in hand and whatever the pipe still holds.
        const auto until = std::chrono::steady_clock::now() + DrainLimit;
        while (std::chrono::steady_clock::now() < until) {
            int waiting = 0;
            if (!holdingBlock.load() && ioctl(0, FIONREAD, &waiting) == 0 && waiting == 0) return true;
            if (writeFailing.load()) return false;
            poll(nullptr, 0, 20);
        }
        return false;
    };
    sources.softReset = [&monitor, port] {
        char answer[4] = {};
        DWORD returned = 0;
        return monitor.GetPrinterDataFromPort(port, 7, nullptr, nullptr, 0, answer, sizeof answer, &returned) != FALSE;
    };
    if (const ports::NetworkPrinter* network = target.Network()) {
        const ports::SnmpPeer peer{network->host, network->snmpPort, network->community, ports::SnmpTimeOutMs};
        AnswerOverSnmp(peer, &sources);
    }
    CupsLink link(lines, StoreView(lines, queue, foreign), job.sideChannel ? std::optional(sources) : std::nullopt,
                  writeFailing);

    // The client's view of the job is followed from before it starts, so
    // that the printer's report of its end is not missed.
    tool::JobProgressWatch progress(queue);
    std::ostream nowhere(nullptr);
    tool::ProgressLine progressLine(nowhere, false);
    tool::SendWatch watch{cancelled};
    watch.patient = true;
    watch.streaming = true;
    watch.holdingBlock = &holdingBlock;
    watch.waiting = [&](const std::string& reason) {
        writeFailing = !reason.empty();
        if (!reason.empty()) {
            lines.Write("INFO: waiting for the printer: " + platform::Printable(reason));
        }
    };
    tool::FollowStart followFrom;
    watch.ending = [&followFrom] { followFrom = tool::FollowFromNow(); };
    const tool::JobTicket ticket{job.id, job.title, job.user};
    const tool::SentJob sent = tool::SendJob(monitor, port, queue, ticket, input, BlockBytes, target, watch);
    writeFailing = false;
    int exitCode = CUPS_BACKEND_OK;
    if (!sent.started) {
        lines.Write("ERROR: the job could not be started: " + tool::ErrorWords(sent.startError));
        exitCode = CUPS_BACKEND_FAILED;
    } else if (!sent.writeFailure.empty() && !cancelled.load()) {
        lines.Write("ERROR: the job did not go through: " + platform::Printable(sent.writeFailure));
        exitCode = CUPS_BACKEND_FAILED;
    }
    lines.Debug(std::to_string(sent.taken) + " of " + std::to_string(sent.job.Size()) + " bytes taken");

    if (sent.started && !cancelled.load()) {
        const auto jobNow = [] { return std::string(); };
        tool::FollowMonitoring(nowhere, context, followFrom, FollowLimitMs, FollowLimitMs, cancelled, progressLine,
                               jobNow);
        if (const std::optional<uint32_t> pages = tool::JobEndPages(progress.Records(), job.id)) {
            lines.Write("PAGE: total " + std::to_string(*pages));
        }
    }
    atPrinter = false;
    link.Stop();
    if (cancelled.load()) {
        // The job is ended at the printer (EndDocPort sent its end); CUPS
        // wants the backend gone, not waiting on the printer's report, so
        // the port is left open as the process ends: its threads still use
        // what is below it.
        lines.Write("INFO: the job was cancelled; it ended at the printer");
        tool::LeaveAtOnce(CUPS_BACKEND_OK);
    }
    if (!monitor.ClosePort(port)) {
        lines.Debug("ClosePort failed: " + tool::ErrorWords(GetLastError()));
    }
    return exitCode;
}

}  // namespace langmon::backend
