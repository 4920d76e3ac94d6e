// PortContext: the record of one open port. Every entry point gets it as the
// port handle. The record and its name text are one allocation.
#pragma once

#include "acquisition/lm_values.h"
#include "platform/sync.h"
#include "platform/win32_types.h"
#include "variables/model_mask.h"

#include <atomic>
#include <cstdint>

namespace langmon {

struct ManagerLink;
struct JobRecord;
struct JobInfoNode;
struct PjlParserState;
struct StatusVariable;

constexpr uint32_t PortSignature = 20304;  // 0x4F50, "PO"

// The most that compatibility mode sends in one lower write from its own
// buffer: the delay line's bytes and the front of the block behind them. A
// 4096-byte block behind a full line fits whole.
constexpr uint32_t LineWriteBufferSize = 4096;

// Every wait on serialSemaphore is bounded by this; each caller has its own
// answer to a time-out.
constexpr DWORD SerialWaitMs = 30000;

// The live bits of PortContext::flags. Several threads change them, not all
// under one lock, so they change only through SetPortFlag and ClearPortFlag.
enum PortFlags : uint32_t {
    PF_JOB_ACTIVE = 0x1,        // a document is open for the spooler
    PF_STATUS_RUN = 0x2,        // the status thread may run
    PF_STATUS_ALIVE = 0x4,      // the status thread runs
    PF_HEADER_SENT = 0x10,      // the job header is out
    PF_HEADER_DUE = 0x20,       // this job still wants a header
    PF_DOC_OPEN = 0x40,         // a document, real or pseudo, is open below
    PF_MODEL_KNOWN = 0x80,      // the last device ID named a model of the model table
    PF_JOB_RESET = 0x200,       // the spooler reset this job
    PF_CHANNEL_DOC = 0x1000,    // the open document is a channel that needs nothing below
    PF_OFFLINE = 0x2000,        // the printer does not answer
    PF_JOB_GONE = 0x40000,      // the tracking of the job was wound up early
    PF_DISCARD = 0x100000,      // this job's data is swallowed, not sent
    PF_NO_MANAGER = 0x4000000,  // the status manager refused: no binding attempts
    PF_JOB_DELETED = 0x10000000,  // the spooler no longer knows the running job
    PF_CLOSING = 0x40000000,    // the port is closing
};

// portMode: which way the port moves data.
enum PortModeBits : uint32_t {
    PM_COMPAT = 0x1,
    PM_ECP = 0x2,
};

struct PortContext {
    uint32_t signature;
    uint32_t recordSize;  // the allocation, name text included
    PortContext* next;
    char* portName;  // the text behind the fixed part of the record
    uint32_t flags;  // PortFlags
    char* printerName;
    uint32_t jobId;
    uint32_t docInfoLevel;
    void* docInfo;  // deep copy of the spooler's DOC_INFO
    HANDLE downstreamPort;
    uint32_t portKind;  // PortKindBits
    ManagerLink* managers;
    ManagerLink* jobManager;
    JobRecord* jobListHead;
    JobRecord* jobListTail;
    StatusVariable* variables;
    PjlParserState* parser;
    uint32_t pendingLength;
    uint8_t* pendingData;
    char* responseTail;  // in the parser's Carry buffer; null: none
    HANDLE serialSemaphore;
    HANDLE statusWakeEvent;
    HANDLE closingEvent;
    uint32_t stallTick;  // 0xFFFFFFFF: none
    int32_t savedPriority;
    HANDLE priorityThread;
    ModelMask modelMask;
    JobInfoNode* jobInfoChain;
    uint32_t lastPageReport;
    MONITOR lower;
    uint32_t portMode;  // PortModeBits
    uint32_t ecpBusy;
    CRITICAL_SECTION* portLock;  // allocated apart; null: the port runs unlocked
    HANDLE statusEndedEvent;
    // The status thread, kept until it is joined: by the next start, by
    // ClosePort, by the port's destruction. Nothing frees the port while its
    // thread can still touch it.
    HANDLE statusThread;
    // The event behind statusWakeEvent. The thread clears statusWakeEvent as
    // the sign that it is leaving, but the event lives on until the thread is
    // joined, so a caller that read the field just before still signals a
    // live event.
    HANDLE statusWakeObject;
    // Request words: plain words that other threads set and the status
    // thread reads at every pass; read and written with PortWord.
    uint32_t suspendRequested;
    uint32_t wakeRequested;
    uint32_t watchJob;
    uint32_t goodbyePending;
    char jobIdentifier[25];
    uint32_t tailValid;
    char dataTail[81];
    // How many of the job's bytes the delay line holds, at the end of
    // dataTail: no byte of an earlier job may leave with this one.
    uint32_t tailLength;
    // Where compatibility mode puts the line's bytes and the front of a
    // block side by side, so that both go down in one lower write. Part of
    // the record, so that the data path never allocates; touched, like
    // dataTail, only under the semaphore.
    uint8_t lineWriteBuffer[LineWriteBufferSize];
    int32_t sniffResult;
    char trailerIdentifier[81];
    uint32_t sniffStop;
    uint32_t pollDocOpened;
    uint32_t dataSeen;
    // Page statistics of the job being reported.
    uint32_t colorPageTotal;
    uint32_t bwPageTotal;
    uint32_t yellowCoverageSum;
    uint32_t magentaCoverageSum;
    uint32_t cyanCoverageSum;
    uint32_t blackCoverageSum;
    uint32_t yellowCoverage;
    uint32_t magentaCoverage;
    uint32_t cyanCoverage;
    uint32_t blackCoverage;
    uint32_t lastColorPages;
    uint32_t skipPageReport;
    uint32_t statusTickCount;
    uint32_t lastWriteError;
    uint32_t lastWriteFailed;
    LmBlock lmBlock;
    uint32_t serviceTagStatus;
    uint32_t serviceTagPublish;
    char serviceTagText[8];
    uint32_t jobHasUel;
    uint32_t uelDropped;  // the job's leading UEL has been taken away unsent
    uint32_t trailerEof;
    uint32_t jobIsPostScript;
    uint32_t cancelStateCount;
    uint32_t jobOpen;
    // Manager request threads that may still touch the port: ClosePort waits
    // for them to end before the record goes.
    uint32_t requestThreads;
    // The name says USB ("USB001" to "USB128"). Read on every block of a
    // job, so the name is read once, when the record is made.
    uint32_t usbPort;
};

// One atomic step per read or write of a word that threads share without a
// lock (the request words, watchJob, goodbyePending).
inline uint32_t PortWord(const uint32_t& word) {
    return std::atomic_ref<uint32_t>(const_cast<uint32_t&>(word)).load();
}
inline void SetPortWord(uint32_t& word, uint32_t value) {
    std::atomic_ref<uint32_t>(word).store(value);
}

inline bool IsUsbPort(const PortContext* port) { return port->usbPort != 0; }

// One atomic step per change of a bit.
inline bool HasPortFlag(const PortContext* port, uint32_t bits) {
    return (std::atomic_ref<uint32_t>(const_cast<uint32_t&>(port->flags)).load() & bits) != 0;
}
inline void SetPortFlag(PortContext* port, uint32_t bits) {
    std::atomic_ref<uint32_t>(port->flags).fetch_or(bits);
}
inline void ClearPortFlag(PortContext* port, uint32_t bits) {
    std::atomic_ref<uint32_t>(port->flags).fetch_and(~bits);
}

}  // namespace langmon
