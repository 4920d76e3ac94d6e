#include "framing/job_frame.h"

#include "manager/job_printer.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "platform/memory.h"
#include "platform/spooler_jobs.h"
#include "portkind/port_kind.h"
#include "variables/status_variable.h"

#include <cstdio>
#include <cstring>
#include <string_view>

namespace langmon {
namespace {

constexpr std::string_view Uel = "\x1b%-12345X";
constexpr uint32_t UserNameLimit = 16;
// Where SendingJobInfo keeps the user's name: behind the 256-byte document.
constexpr size_t SendingUserNameOffset = 256;
constexpr size_t SendingUserNameSize = 32;

// Appends into the zeroed 1024-byte frame; a line is at most 512 bytes and
// each clause 256, so the pieces fit well within it.
class Frame {
public:
    void Put(std::string_view text) {
        size_t n = std::min(text.size(), sizeof text_ - 1 - length_);
        std::memcpy(text_ + length_, text.data(), n);
        length_ += n;
    }
    uint32_t CopyTo(char* out) const {
        std::memcpy(out, text_, length_ + 1);
        return static_cast<uint32_t>(length_);
    }

private:
    char text_[JobFrameBufferSize] = {};
    size_t length_ = 0;
};

// " NAME=\"...\"" when the name is switched on; empty otherwise.
void NameClause(char (&clause)[256], const JobFrameSwitches& s, const JobFrameRequest& request) {
    clause[0] = '\0';
    if (s.jobName) std::snprintf(clause, sizeof clause, " NAME=\"%.*s\"", int(sizeof request.name), request.name);
}

void UserClause(char (&clause)[256], const JobFrameSwitches& s, PortContext* port) {
    clause[0] = '\0';
    char user[UserNameLimit + 1] = {};
    if (s.jobUser && ResolveUserName(user, port) != 0) std::snprintf(clause, sizeof clause, " USER=\"%s\"", user);
}

bool IsLeadByte(unsigned char c) { return (c >= 0x81 && c <= 0x9F) || (c >= 0xE0 && c <= 0xFC); }
bool IsTrailByte(unsigned char c) { return (c >= 0x40 && c <= 0x7E) || (c >= 0x80 && c <= 0xFC); }

// The user name from the spooler's record of the job; false when it can't be had.
bool SpoolerUserName(PortContext* port, char (&name)[SendingUserNameSize + 1]) {
    const JobPrinter job(port);
    const HANDLE printer = job.Handle();
    if (printer == nullptr) return false;
    bool found = false;
    DWORD needed = 0;
    GetJobA(printer, port->jobId, 1, nullptr, 0, &needed);
    if (needed != 0) {
        auto* info = static_cast<JOB_INFO_1*>(GlobalAlloc(GPTR, needed));
        if (info != nullptr && GetJobA(printer, port->jobId, 1, reinterpret_cast<LPBYTE>(info), needed, &needed)) {
            std::snprintf(name, sizeof name, "%s", info->pUserName ? info->pUserName : "");
            found = true;
        }
        GlobalFree(info);
    }
    return found;
}

}  // namespace

void DeriveFrameSwitches(const JobFrameRequest* request, JobFrameSwitches* s, const PortContext* port) {
    *s = JobFrameSwitches{};
    s->quantity = NoCount;
    s->copies = NoCount;
    const bool bidi = (port->portKind & PK_BIDI) != 0;
    if (bidi && request->wantStatus) s->ustatusDevice = s->ustatusJob = s->ustatusPage = s->infoStatus = 1;
    if (request->wantJob) {
        s->jobLine = 1;
        if (bidi && request->wantName) s->jobName = 1;
        // On a two-way port the user goes only with the job's name.
        if (request->wantUser && (bidi ? request->wantName != 0 : true)) s->jobUser = 1;
    }
    if (request->wantCounts) {
        s->quantity = request->quantity;
        s->copies = request->copies;
    }
}

uint32_t BuildJobHeader(char* out, const JobFrameRequest* request, PortContext* port) {
    if (out == nullptr || request == nullptr || port == nullptr) return 0;
    JobFrameSwitches s;
    DeriveFrameSwitches(request, &s, port);
    if (!(s.ustatusDevice || s.ustatusJob || s.ustatusPage || s.infoStatus || s.jobLine || s.readyMessage ||
          s.ustatusOff || s.quantity != NoCount || s.copies != NoCount)) {
        return 0;
    }
    Frame frame;
    frame.Put(Uel);
    if (s.ustatusDevice) frame.Put("@PJL USTATUS DEVICE=ON\r\n");
    if (s.ustatusJob) frame.Put("@PJL USTATUS JOB=ON\r\n");
    if (s.ustatusPage) frame.Put("@PJL USTATUS PAGE=ON\r\n");
    if (s.infoStatus) frame.Put("@PJL INFO STATUS\r\n");
    char line[512];
    if (s.readyMessage) {
        char user[UserNameLimit + 1] = {};
        ResolveUserName(user, port);
        std::snprintf(line, sizeof line, "@PJL RDYMSG DISPLAY=\"%s\" LINE=2\r\n", user);
        frame.Put(line);
    }
    if (s.jobLine) {
        char name[256], user[256];
        NameClause(name, s, *request);
        UserClause(user, s, port);
        frame.Put("@PJL JOB");
        frame.Put(name);
        frame.Put(user);
        frame.Put("\r\n");
    }
    if (s.copies != NoCount) {
        std::snprintf(line, sizeof line, "@PJL SET COPIES=%u\r\n", s.copies);
        frame.Put(line);
    }
    if (s.quantity != NoCount) {
        std::snprintf(line, sizeof line, "@PJL SET QTY=%u\r\n", s.quantity);
        frame.Put(line);
    }
    return frame.CopyTo(out);
}

uint32_t BuildJobTrailer(char* out, const JobFrameRequest* request, PortContext* port) {
    if (out == nullptr || request == nullptr || port == nullptr) return 0;
    JobFrameSwitches s;
    DeriveFrameSwitches(request, &s, port);
    if (!(s.jobLine || s.readyMessage || s.ustatusOff)) return 0;
    Frame frame;
    if (port->trailerEof) {
        frame.Put("\x04");
        frame.Put(Uel);
    }
    if (s.jobLine) {
        char name[256];
        NameClause(name, s, *request);
        frame.Put("@PJL EOJ");
        frame.Put(name);
        frame.Put("\r\n");
    }
    if (s.readyMessage) frame.Put("@PJL RDYMSG DISPLAY=\"\" LINE=2\r\n");
    if (s.ustatusOff) frame.Put("@PJL USTATUSOFF\r\n");
    frame.Put(Uel);
    return frame.CopyTo(out);
}

uint32_t ResolveUserName(char* out, PortContext* port) {
    if (out == nullptr || port == nullptr) return 0;
    char name[SendingUserNameSize + 1] = {};
    bool found = false;
    LockPort(port);
    StatusVariable* row = FindVariable("SendingJobInfo", port->variables, port);
    if (row != nullptr && row->Value != nullptr) {
        std::memcpy(name, static_cast<const char*>(row->Value) + SendingUserNameOffset, SendingUserNameSize);
        found = true;
    }
    UnlockPort(port);
    if (!found && !SpoolerUserName(port, name)) return 0;

    // A name with a Shift-JIS pair in its first 16 bytes goes nowhere: the
    // printer's panel would show it broken.
    size_t length = std::strlen(name);
    for (size_t i = 0; i + 1 < std::min<size_t>(length, UserNameLimit); ++i) {
        if (IsLeadByte(static_cast<unsigned char>(name[i])) && IsTrailByte(static_cast<unsigned char>(name[i + 1]))) {
            return 0;
        }
    }
    if (length > UserNameLimit) {
        length = UserNameLimit;
        std::memcpy(name + 13, "...", 3);
        name[UserNameLimit] = '\0';
    }
    std::memcpy(out, name, length + 1);
    return static_cast<uint32_t>(length);
}

}  // namespace langmon
