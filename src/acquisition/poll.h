// The poll of the printer: its device ID, whether it is there and which model
// it is, and what it sent back unasked. A job's start, its header gate, the
// status thread and the device data requests all poll through here.
#pragma once

#include <cstdint>

namespace langmon {

struct PortContext;
struct StatusVariable;

// The answer to a device ID request holds at most this many bytes, so that it
// always ends in NUL.
constexpr uint32_t DeviceIdBytes = 2047;

// One read of the device ID; settles PF_OFFLINE and PF_MODEL_KNOWN. 1 if the
// port isn't two-way or a known model answered, else 0. The caller holds
// serialSemaphore.
int PollPrinterStatus(PortContext* port);
// PollPrinterStatus for a caller that doesn't hold serialSemaphore: it is
// taken for the poll, waiting at most SerialWaitMs. -1 if it couldn't be had.
int PollPrinterStatusHoldingSemaphore(PortContext* port);
// One pass of the status thread's work, with serialSemaphore held. Returns 1.
int PollRound(PortContext* port);
// An open document for this round's talk with the printer; 1 if there is one
// or none is needed.
int EnsurePollDocument(PortContext* port);
// Reads the printer empty into the response parser. 1 if the read was made or
// the port isn't two-way; 0 without a document.
int ReadPrinterResponses(PortContext* port, int publish);
// Reads and forgets what the printer has sent. 1, or 0 without a document.
// A non-zero `wait` sleeps 1100 ms before each read of the first loop.
int DrainPrinterInput(int wait, PortContext* port);

// A conversation with the printer outside a job: the pseudo document is
// opened unless one is open already, with the read time-outs of a port that
// isn't USB, and closed again at the end by the one who opened it.
class PrinterConversation {
public:
    explicit PrinterConversation(PortContext* port);
    ~PrinterConversation();
    PrinterConversation(const PrinterConversation&) = delete;
    PrinterConversation& operator=(const PrinterConversation&) = delete;

    // False when no document could be opened.
    bool Ready() const { return ready_; }

private:
    PortContext* port_;
    bool ready_ = true;
    bool opened_ = false;
};
// The read time-outs of a port other than USB. 1 if the port monitor below
// can set them.
int SetReadTimeouts(PortContext* port);
// Marks dirty every row with a value that goes to all clients or to each
// client of the model, so that they get everything anew.
void MarkPublishedDirty(StatusVariable* table);

// 1 if the device ID text (NUL-terminated) can be read: it ends in ';' once
// trailing blanks are left off, and has no run of 258 blanks.
int DeviceIdUsable(const char* text);

}  // namespace langmon
