// The ground of the job tests: a machine whose spooler lists the ports, a
// scripted port monitor below, the ways a spooler drives a job, and the texts
// the printer should receive around it.
#pragma once

#include "framing/job_record.h"
#include "manager/manager_link.h"
#include "monitor/job_data.h"
#include "monitor/job_end.h"
#include "monitor/job_start.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_mode.h"
#include "portkind/port_kind.h"

#include "support/device_ids.h"
#include "support/job_frame_texts.h"
#include "support/platform_fixture.h"
#include "support/scripted_port_monitor.h"

#include <string>
#include <vector>

namespace langmon::testing {


// Holds a port's status thread at its first step, where it reconciles the
// port's clients under the port's lock, for as long as the hold lasts: a test
// sees what the spooler's calls alone do. The hold must end before the port
// closes, which waits for the thread.
class StatusThreadHold {
public:
    explicit StatusThreadHold(PortContext* port) : port_(port) { LockPort(port_); }
    ~StatusThreadHold() { UnlockPort(port_); }
    StatusThreadHold(const StatusThreadHold&) = delete;
    StatusThreadHold& operator=(const StatusThreadHold&) = delete;

private:
    PortContext* port_;
};

class JobRoadTest : public MonitorTest {
protected:
    static constexpr const char* Printer = "Laser";

    void SetUp() override;
    void TearDown() override;

    // The spooler lists the port with this description.
    static void ListPort(const std::string& name, const std::string& description);
    // "MyPortMode": 0 removes the fixed mode.
    static void FixPortMode(DWORD mode);

    // Opens a port with a ready printer of a known model behind it;
    // TearDown closes it.
    PortContext* Open(const char* name);
    // Closes a port opened by Open before TearDown would.
    BOOL Close(PortContext* port);
    // The test's printer stands on the port with a driver of a known model,
    // so its jobs get a client (a link without a manager behind it).
    static void GiveClient(PortContext* port);
    // The test's printer leaves the machine, and the port's clients go with
    // it, as reconciling the port would find.
    static void TakeClientAway(PortContext* port);
    // What the printer on the port answers from now on: a device ID, or
    // nothing at all.
    void PrinterAnswers(PortContext* port, const std::string& deviceId);
    void PrinterSilent(PortContext* port);
    BOOL Start(PortContext* port, DWORD jobId = 12);
    // One WritePort call, as the spooler makes it.
    BOOL Write(PortContext* port, const std::string& bytes, DWORD* written);
    // The spooler's loop: blocks of `block` bytes, each passed again from
    // what was not taken, at most `calls` calls. Returns the bytes taken.
    std::size_t Send(PortContext* port, const std::string& job, std::size_t block = 4096,
                     int calls = 10000);
    // A whole job as the spooler runs it: start, every byte, end.
    void RunJob(PortContext* port, const std::string& job);
    std::string Received(const char* name) { return lower.Port(name).Received(); }

    ScriptedPortMonitor lower;
    char docName[8] = "letter";
    DOC_INFO_1 doc1{docName, nullptr, nullptr};

private:
    std::vector<PortContext*> opened_;
};

}  // namespace langmon::testing
