// Variables that follow from others: the Err family from PrinterStatus, what
// an unreadable printer shows, and the job variables through a job's life.
#pragma once

#include <cstdint>
#include <cstring>

namespace langmon {

struct PortContext;
struct JobInfoNode;

// The JobStatus bits as clients see them.
enum JobStatusBits : uint32_t {
    JobRunning = 0x1,
    JobPaused = 0x2,
    JobCancelling = 0x4,
    JobOtherFlag = 0x100,
};

// What PrinterStatus's StatusWord1 says of a printer that isn't read.
constexpr uint32_t PrinterLostWord = 0x100;
constexpr uint32_t PrinterForeignWord = 0x200;
// StatusWord2's mark of a job on the port; it outlives every overwrite.
constexpr uint32_t JobOnPortBit = 0x8;

// Where the records of SendingJobInfo and PrintingJobInfo2 keep a job's
// figures; JobId lies at the same place in both. SendingJobInfo begins with
// the document's name and the user's, each cut to its field.
constexpr uint32_t DocumentBytes = 256;
constexpr uint32_t UserNameBytes = 32;
enum JobInfoOffsets : uint32_t {
    JobIdOffset = 288,
    PagesOffset = 292,  // PrintingJobInfo2 only, from here on
    ColorPagesOffset = 296,
    BwPagesOffset = 300,
    YellowCoverageOffset = 304,
    MagentaCoverageOffset = 308,
    CyanCoverageOffset = 312,
    BlackCoverageOffset = 316,
};

// A word of a job info record, wherever it lies in the block.
inline uint32_t ReadWord(const void* value, uint32_t offset) {
    uint32_t word;
    std::memcpy(&word, static_cast<const uint8_t*>(value) + offset, sizeof word);
    return word;
}
inline void WriteWord(void* value, uint32_t offset, uint32_t word) {
    std::memcpy(static_cast<uint8_t*>(value) + offset, &word, sizeof word);
}

// A `publish` of 1: what changed is marked dirty and published before return.

// First value of PrinterStatus; with `publish` the spooler is told too.
void InitPrinterStatus(PortContext* port, int publish);
// 0 if PrinterStatus has no row, else 1.
int DeriveErrorVariables(PortContext* port, int publish);
int DerivePrinterVariables(PortContext* port, int publish);
// JobStatus becomes 0, created if need be; nothing is marked dirty.
void ResetJobStatus(PortContext* port);
void UpdatePrinterExtStatus(PortContext* port);
// The three words of PrinterStatus, read under the port's lock; false, and
// zeros, when it has no value.
bool ReadPrinterStatusWords(PortContext* port, uint32_t words[3]);
// The printer answers, isn't lost, and is the model whose status is read.
bool StatusReadable(PortContext* port);

// The job variables as a job goes by.
// Sets (on 1) or clears the job bit of PrinterStatus's StatusWord2.
void SetPrinterJobBit(PortContext* port, int on);
// Sets or clears bits of JobStatus, as the job's client holds it; 1 if it
// published a change.
int UpdateJobStatus(PortContext* port, uint32_t mask, int set);
// SendingJobInfo opens (starting 1) or closes for the running job.
int PublishSendingJobInfo(PortContext* port, int starting);
// JobPaused follows the spooler's view of the running job.
void CheckSpoolerJob(PortContext* port);
// Winds up the tracking of the port's jobs; with `cancel` the running job's
// data is swallowed from now on. 1 only if `cancel` was honoured.
int CancelJobTracking(PortContext* port, int cancel);
// Frees every node of jobInfoChain with its snapshot and the snapshot's
// value, except a value that PrintingJobInfo2 holds as its own: a job that
// moved up shares its block with the row.
void ClearJobInfoChain(PortContext* port);
// Frees one node the same way; `rowValue` is the row's value it may share.
void FreeJobInfoNode(JobInfoNode* node, const void* rowValue);
}  // namespace langmon
