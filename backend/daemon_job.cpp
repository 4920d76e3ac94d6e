#include "daemon_job.h"

#include "side_channel.h"

#include "langmon/printer_address.h"

#include "daemon/job_stream.h"
#include "daemon/status_client.h"
#include "ports/socket_port_monitor.h"
#include "platform/user_input.h"

#include <cups/backend.h>

#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/ioctl.h>

namespace langmon::backend {

namespace {

// How often the backend asks again for a printer that has another job at it.
constexpr auto BusyAskEvery = std::chrono::seconds(1);
// How long a reading of the daemon's view may take.
constexpr int ViewReplyMs = 2000;
// The longest a drain waits for the printer to take what it was given.
constexpr auto DrainLimit = std::chrono::seconds(30);
// How long a read of the job waits before it looks for a cancel again.
constexpr int InputWaitMs = 250;

// The printer's view as the daemon has it: its "status" reply, read on a
// connection of the link's own.
PrinterViewSource DaemonView(CupsLines& lines, const std::string& printer,
                             const std::string& socketPath) {
    auto client = std::make_shared<protocol::StatusClient>();
    return [&lines, printer, socketPath, client]() {
        std::string problem;
        if (!client->Connected() && !client->Connect(socketPath, "langmon backend", &problem)) {
            lines.Debug(problem);
            return nlohmann::ordered_json::object();
        }
        protocol::DaemonMessage reply;
        if (!client->Ask(protocol::StatusRequest{0, printer}, &reply, &problem, ViewReplyMs)) {
            lines.Debug("langmond's view of \"" + printer + "\": " + problem);
            return nlohmann::ordered_json::object();
        }
        const auto* status = std::get_if<protocol::StatusReply>(&reply);
        if (status == nullptr) return nlohmann::ordered_json::object();
        return nlohmann::ordered_json::parse(status->printer.dump());
    };
}

}  // namespace

int RunDaemonJob(const BackendJob& job, const std::string& printer, const std::string& socketPath,
                 CupsLines& lines, const std::atomic<bool>& cancelled) {
    platform::InputFile input =
        job.file.empty() ? platform::InputFile::StandardInput() : platform::InputFile(job.file);
    if (!input.Problem().empty()) {
        lines.Write("ERROR: " + platform::Printable(input.Problem()));
        return CUPS_BACKEND_FAILED;
    }
    lines.Debug("the printer is langmond's \"" + printer +
                "\": the job goes through the daemon on " + socketPath);
    protocol::JobStream stream;
    std::string problem;
    if (!stream.Connect(socketPath, "langmon backend", &problem)) {
        lines.Write("ERROR: langmond: " + platform::Printable(problem));
        return CUPS_BACKEND_FAILED;
    }
    // Another job at the printer (another queue's, or a command's) is
    // waited out, as a spooler waits for a port that is in use.
    protocol::JobStream::Start start;
    bool said = false;
    while ((start = stream.Begin(printer, job.title, job.user, &problem)) ==
               protocol::JobStream::Start::Busy &&
           !cancelled.load()) {
        if (!said) lines.Write("INFO: waiting for the printer: it has another job at it");
        said = true;
        std::this_thread::sleep_for(BusyAskEvery);
    }
    if (cancelled.load()) return CUPS_BACKEND_OK;
    if (start != protocol::JobStream::Start::Started) {
        lines.Write("ERROR: the job could not be started: " + platform::Printable(problem));
        return CUPS_BACKEND_FAILED;
    }
    lines.Debug("job " + std::to_string(stream.Job()) + " at langmond");

    std::atomic<bool> holdingBlock{false};
    std::atomic<bool> atPrinter{true};
    const std::atomic<bool> writeFailing{
        false};  // the daemon waits for the printer; its view tells why
    SideChannelSources sources;
    sources.busy = [&atPrinter] { return atPrinter.load(); };
    sources.bidi = true;
    sources.drain = [&holdingBlock] {
        // Written is with the printer once the daemon said it took it.
        const auto until = std::chrono::steady_clock::now() + DrainLimit;
        while (std::chrono::steady_clock::now() < until) {
            int waiting = 0;
            if (!holdingBlock.load() && ioctl(0, FIONREAD, &waiting) == 0 && waiting == 0)
                return true;
            poll(nullptr, 0, 20);
        }
        return false;
    };
    // The daemon holds the port; a network printer's SNMP is anyone's.
    tool::PrinterAddress address;
    if (tool::ParsePrinterAddress(job.deviceUri, &address).empty() && address.kind == tool::AddressKind::Network) {
        AnswerOverSnmp({address.host, address.snmpPort, address.community, ports::SnmpTimeOutMs}, &sources);
    }
    CupsLink link(lines, DaemonView(lines, printer, socketPath),
                  job.sideChannel ? std::optional(sources) : std::nullopt, writeFailing);

    // The job goes on as CUPS's filters give it, each read at once.
    std::vector<char> block(protocol::MaxDataBytes);
    uint64_t taken = 0;
    std::string failure;
    while (!cancelled.load()) {
        if (!input.Ready(InputWaitMs)) continue;
        const std::size_t got = input.Read(block.data(), block.size());
        if (got == 0) {
            failure = input.Problem();
            break;
        }
        holdingBlock = true;
        const bool written = stream.Write({reinterpret_cast<const uint8_t*>(block.data()), got},
                                          cancelled, 0, &problem);
        holdingBlock = false;
        if (!written) {
            failure = problem;
            break;
        }
        taken += got;
    }
    lines.Debug(std::to_string(taken) + " bytes taken by the printer");
    int exitCode = CUPS_BACKEND_OK;
    if (cancelled.load()) {
        // A cancel between two chunks is told; one in the middle of a chunk
        // has let the connection go, which the daemon takes as a cancel.
        if (stream.Connected()) stream.Cancel(&problem);
        lines.Write("INFO: the job was cancelled; it ended at the printer");
    } else if (!failure.empty()) {
        if (stream.Connected()) stream.Cancel(&problem);
        lines.Write("ERROR: the job did not go through: " + platform::Printable(failure));
        exitCode = CUPS_BACKEND_FAILED;
    } else {
        std::optional<uint32_t> pages;
        if (!stream.End(&pages, cancelled, &problem)) {
            lines.Write(cancelled.load()
                            ? "INFO: the job was cancelled; it ended at the printer"
                            : "ERROR: the job's end was not told: " + platform::Printable(problem));
            exitCode = cancelled.load() ? CUPS_BACKEND_OK : CUPS_BACKEND_FAILED;
        } else if (pages) {
            lines.Write("PAGE: total " + std::to_string(*pages));
        }
    }
    atPrinter = false;
    link.Stop();
    return exitCode;
}

}  // namespace langmon::backend
