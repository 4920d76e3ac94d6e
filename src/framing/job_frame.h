// The PJL around each job. The header asks the printer for unsolicited status
// and names the job; the trailer closes it under a name of the same kind.
// When the printer later reports a named job's start or end, the name leads
// back to the job's record.
#pragma once

#include <cstdint>

namespace langmon {

struct PortContext;

// What a caller asks of a header or trailer.
struct JobFrameRequest {
    uint32_t wantStatus;  // the status lines of the header
    uint32_t wantJob;     // the JOB line of a header, the EOJ line of a trailer
    uint32_t wantName;    // the JOB or EOJ line names the job
    char name[84];
    uint32_t wantUser;    // the JOB line names the user
    uint32_t wantCounts;  // quantity and copies count
    uint32_t quantity;    // 0xFFFFFFFF: no QTY line
    uint32_t copies;      // 0xFFFFFFFF: no COPIES line
};

// Which pieces the text builders put in.
struct JobFrameSwitches {
    uint32_t ustatusDevice;
    uint32_t ustatusJob;
    uint32_t ustatusPage;
    uint32_t infoStatus;
    uint32_t jobLine;
    uint32_t jobName;
    uint32_t jobUser;
    uint32_t readyMessage;
    uint32_t quantity;
    uint32_t copies;
    uint32_t ustatusOff;
};

constexpr uint32_t NoCount = 0xFFFFFFFFu;
// Room a header needs; a trailer needs less.
constexpr uint32_t JobFrameBufferSize = 1024;

void DeriveFrameSwitches(const JobFrameRequest* request, JobFrameSwitches* switches, const PortContext* port);
// Write the text with its NUL to `out` and return its length; 0 with nothing
// written when an argument is null or no piece is on.
uint32_t BuildJobHeader(char* out, const JobFrameRequest* request, PortContext* port);
uint32_t BuildJobTrailer(char* out, const JobFrameRequest* request, PortContext* port);
// The running job's user name, at most 16 bytes, into `out` (17 bytes of
// room); its length, or 0 when there is none or it holds a double-byte pair.
uint32_t ResolveUserName(char* out, PortContext* port);

}  // namespace langmon
