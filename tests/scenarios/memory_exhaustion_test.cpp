// A whole session of a port through the monitor's entry table, as a spooler
// and a status application drive it, run with allocation N failing (only N,
// or N and every one after) for every N the session reaches: the port opens,
// answers every request a client makes, sends a job the printer reports on
// page by page, follows it with its status thread, and closes. Whatever N
// hits, and the status thread makes the Nth allocation land anywhere beside
// the spooler's calls, each call ends cleanly, nothing is left behind, and
// the next session without a fault is the one that never met one.

#include "scenarios/scenario_fixture.h"

#include "framing/job_record.h"
#include "monitor/monitor_entry.h"
#include "platform/library.h"
#include "platform/registry.h"
#include "platform/spooler_jobs.h"
#include "platform/thread.h"
#include "support/fake_manager.h"
#include "variables/derived.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <set>

namespace langmon::scenario {
namespace {

constexpr DWORD JobId = 7;
// What an answer buffer holds before the call.
constexpr char Untouched = '\x5A';

// What one call of the session gave back: its result, its last error and
// the bytes it answered with.
struct CallResult {
    std::string call;
    BOOL ok = FALSE;
    DWORD error = 0;
    std::string answer;

    bool operator==(const CallResult&) const = default;
};

std::ostream& operator<<(std::ostream& out, const CallResult& call) {
    out << call.call << (call.ok ? " succeeded" : " failed") << ", last error " << call.error << ", answer \"";
    for (const char c : call.answer) {
        if (c >= 0x20 && c < 0x7F) {
            out << c;
        } else {
            out << "\\x" << "0123456789ABCDEF"[(c >> 4) & 15] << "0123456789ABCDEF"[c & 15];
        }
    }
    return out << '"';
}

// What the spooler, the printer and the client saw of one session. The
// status thread's passes interleave with the spooler's calls, so the order
// in which the client is handed values differs from run to run; which
// values come, and the last of each, doesn't.
struct Session {
    std::vector<CallResult> calls;
    std::string printed;  // the job's name, made from the clock, masked
    std::map<std::string, std::set<std::string>> handed;
    std::map<std::string, std::string> last;
    std::vector<DWORD> statusWords;  // to the spooler
};

std::string MaskJobNames(std::string text) {
    static constexpr std::string_view name = "NAME=\"";
    for (std::size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + 1)) {
        text.replace(at + name.size(), 24, std::string(24, '#'));
    }
    return text;
}

// What a session may leave held behind, which is nothing it took.
struct Holdings {
    std::size_t blocks, objects, printers, libraries, keys, threads;
    int managers, watches;
    PortContext* ports;
    bool operator==(const Holdings&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Holdings& h) {
    return out << h.blocks << " blocks, " << h.objects << " kernel objects, " << h.printers << " printer handles, "
               << h.libraries << " library uses, " << h.keys << " registry keys, " << h.threads << " threads, "
               << h.managers << " managers, " << h.watches << " watches, ports " << (h.ports ? "left" : "none");
}

// A call that met no fault, or ended as a call ends when memory runs out:
// with ERROR_NOT_ENOUGH_MEMORY, or with an answer it documents.
bool Clean(const CallResult& call) {
    const std::string& c = call.call;
    int32_t code = 0;
    if (call.answer.size() == 4) std::memcpy(&code, call.answer.data(), 4);
    if (c == "Wake Up" || c == "Stop Polling" || c == "Suspend" || c.starts_with("Refresh:")) {
        return call.ok && call.answer.size() == 4 &&
               (code == 0 || code == -19 || code == -37 || code == -38 || code == -80);
    }
    if (c == "IsWakeup") return call.ok && code == 330;
    // The job reset answers 0, by the monitor or by the port monitor below.
    if (c == "ControlID 7") return !call.ok;
    if (c == "WritePort" || c == "EndDocPort" || c == "ClosePort") return call.ok != FALSE;
    // No tag: zeros, and the reason in LM_ServiceTagStatus.
    if (c == "LM_ServiceTag" && !call.ok) return call.answer.find_first_not_of('\0') == std::string::npos;
    // A value the port never had: nothing, and the last error as it was.
    if (c.starts_with("LM_") && !call.ok) return call.answer.find_first_not_of(Untouched) == std::string::npos;
    return call.ok || call.error == ERROR_NOT_ENOUGH_MEMORY;
}

class MemoryExhaustionTest : public ScenarioTest {
protected:
    void SetUp() override {
        ScenarioTest::SetUp();
        manager.ExportNotifications();
        testing::DescribePrinter("Laser", testing::Driver6200, "LPT1");
    }

    // The call's outcome, with the last error preset so a call that fails
    // without saying why shows.
    template <typename Call>
    void Record(Session& session, const char* name, Call call, std::string answer = {}) {
        SetLastError(0xdeadbeef);
        CallResult result;
        result.call = name;
        result.ok = call(answer);
        result.error = GetLastError();
        result.answer = std::move(answer);
        session.calls.push_back(std::move(result));
    }
    // A request of a status application: ControlID 0 and a value name. The
    // answer is the whole buffer: an LM_ value is copied without a count.
    void Ask(Session& session, PortContext* port, const char* name, DWORD size = 4) {
        Record(session, name, [&](std::string& out) {
            out.assign(size, Untouched);
            DWORD returned = 0;
            std::string text = name;
            return monitor.GetPrinterDataFromPort(port, 0, text.data(), nullptr, 0, out.data(), size, &returned);
        });
    }

    Session RunSession() {
        Session session;
        platform::ForgetPrinterStatusWords();
        manager.ForgetHanded();
        PlugInPrinter("LPT1", PM_COMPAT);
        HANDLE handle = nullptr;
        char portName[] = "LPT1";
        char printerName[] = "Laser";
        Record(session, "OpenPortEx", [&](std::string&) {
            return monitor.OpenPortEx(portName, printerName, &handle, PortMonitorBelow());
        });
        auto* port = static_cast<PortContext*>(handle);
        if (port != nullptr) {
            Ask(session, port, "IsWakeup");
            Ask(session, port, "LM_SysName", 32);
            Ask(session, port, "LM_ServiceTag", 8);
            manager.ClientWrites("Laser", "RefreshStatus", std::string("PrinterDisplay;ServiceTag") + '\0');
            Ask(session, port, "Refresh:Laser");
            Record(session, "ControlID 17", [&](std::string& out) {
                out.assign(512, '\0');
                DWORD returned = 0;
                const BOOL ok =
                    monitor.GetPrinterDataFromPort(port, 17, nullptr, nullptr, 0, out.data(), 512, &returned);
                out.resize(std::min<DWORD>(returned, 512));
                return ok;
            });
            Ask(session, port, "Wake Up");
            Record(session, "ControlID 7", [&](std::string& out) {
                DWORD returned = 0;
                return monitor.GetPrinterDataFromPort(port, 7, nullptr, nullptr, 0, out.data(), 0, &returned);
            });

            platform::SpoolerJob job;
            job.jobId = JobId;
            job.document = "report";
            job.userName = "ann";
            platform::SubmitJob("Laser", job);
            char docName[] = "report";
            DOC_INFO_1 doc{docName, nullptr, nullptr};
            Record(session, "StartDocPort", [&](std::string&) {
                return monitor.StartDocPort(port, printerName, JobId, 1, reinterpret_cast<LPBYTE>(&doc));
            });
            const std::string data = PostScriptJob(2, 600);
            Record(session, "WritePort", [&](std::string& out) {
                const SpoolerRun run = Spool(port, data, 4096, 50);
                out = std::to_string(run.taken);
                return run.failures == 0 ? TRUE : FALSE;
            });
            Record(session, "EndDocPort", [&](std::string&) { return monitor.EndDocPort(port); });
            platform::RemoveJob("Laser", JobId);

            // The printer prints the job and reports it; the status thread
            // reads its reports until the job leaves the port.
            for (int i = 0; i < 120 && JobsTracked(port); ++i) Sleep(1000);
            Record(session, "ReadPort", [&](std::string& out) {
                out.assign(256, '\0');
                DWORD read = 0;
                const BOOL ok = monitor.ReadPort(port, reinterpret_cast<LPBYTE>(out.data()), 256, &read);
                out.resize(std::min<DWORD>(read, 256));
                return ok;
            });
            Ask(session, port, "LM_MemorySizeInMByte");
            Ask(session, port, "Stop Polling");
            Ask(session, port, "Suspend");
            Record(session, "ClosePort", [&](std::string&) { return monitor.ClosePort(port); });
        }
        SettleThreads();

        session.printed = MaskJobNames(printer->Received());
        for (const auto& value : manager.HandedTo("Laser")) {
            const std::string bytes(value.bytes.begin(), value.bytes.end());
            session.handed[value.name].insert(bytes);
            session.last[value.name] = bytes;
        }
        session.statusWords = platform::PrinterStatusWords("Laser");
        return session;
    }

    Holdings Held() {
        return {platform::LiveBlockCount(),      platform::LiveObjectCount(),  platform::OpenPrinterHandleCount(),
                platform::LoadedLibraryUses(),   platform::OpenRegistryKeyCount(), platform::ManagedThreadCount(),
                manager.OpenManagers(),          manager.Watches(),            portList};
    }

    testing::FakeManager manager;
};

TEST_F(MemoryExhaustionTest, EveryAllocationFailureEndsCleanlyAndLeavesTheNextSessionWhole) {
    const Session reference = RunSession();
    // The session the faults are measured against is a whole one: every
    // call made and answered, the job printed, and its final figures handed
    // to its client.
    ASSERT_EQ(reference.calls.size(), 16u);
    for (const CallResult& call : reference.calls) EXPECT_TRUE(Clean(call)) << call;
    EXPECT_TRUE(reference.calls[2].answer.starts_with("Laser Printer 6200tx")) << reference.calls[2];
    const auto jobs = printer->Jobs();
    ASSERT_EQ(jobs.size(), 1u);
    EXPECT_TRUE(jobs[0].framed && jobs[0].finished && jobs[0].pagesPrinted == 2);
    const auto records = reference.handed.find("PrintingJobInfo2");
    ASSERT_NE(records, reference.handed.end());
    EXPECT_TRUE(std::ranges::any_of(records->second, [](const std::string& record) {
        uint32_t jobId = 0, pages = 0;
        std::memcpy(&jobId, record.data() + JobIdOffset, 4);
        std::memcpy(&pages, record.data() + PagesOffset, 4);
        return jobId == JobId && pages == 2;
    }));

    for (const bool andAllAfter : {false, true}) {
        int portsRefused = 0;
        for (std::size_t nth = 1;; ++nth) {
            SCOPED_TRACE(::testing::Message() << "allocation " << nth << (andAllAfter ? " and after" : ""));
            const Holdings held = Held();
            platform::FailAllocation(nth, andAllAfter);
            const Session faulted = RunSession();
            const bool hit = platform::AllocationFailureHit();
            platform::StopFailingAllocations();
            EXPECT_EQ(Held(), held);
            if (!faulted.calls[0].ok) ++portsRefused;
            for (const CallResult& call : faulted.calls) EXPECT_TRUE(Clean(call)) << call;

            const Session next = RunSession();
            EXPECT_EQ(next.calls, reference.calls);
            EXPECT_EQ(next.printed, reference.printed);
            EXPECT_EQ(next.handed, reference.handed);
            EXPECT_EQ(next.last, reference.last);
            EXPECT_EQ(next.statusWords, reference.statusWords);
            if (!hit) break;
        }
        // Three allocations are essential to a port: its record, its
        // semaphore and its lock. Without any other it opens and does less.
        EXPECT_TRUE(andAllAfter || portsRefused == 3) << portsRefused << " allocations refused the port";
    }
}

}  // namespace
}  // namespace langmon::scenario
