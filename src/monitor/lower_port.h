// The calls to the port monitor below, whose table OpenPortEx copied into
// `lower`. Writing and reading work only while a document is open below, so
// when no job runs and the monitor still wants to talk, it opens a pseudo
// document of its own. Every caller holds serialSemaphore (or timed out on it).
#pragma once

#include "monitor/port_context.h"

namespace langmon {

// The ControlIDs of GetPrinterDataFromPort the monitor itself gives meaning.
constexpr DWORD DeviceIdControl = 17;  // the printer's IEEE 1284 device ID
constexpr DWORD JobResetControl = 7;   // the spooler resets the running job

// The pseudo document, always passed with JobId 0 and Level 2.
extern const DOC_INFO_2 PseudoDocInfo;
// The time-outs every USB port gets at each document start.
extern const COMMTIMEOUTS UsbPortTimeouts;

BOOL LowerStartDoc(PortContext* port, LPSTR printerName, DWORD jobId, DWORD level, void* docInfo);
// Opens the pseudo document and marks PF_DOC_OPEN on success.
BOOL OpenPseudoDocument(PortContext* port);
// Opens the pseudo document unless a document is open already; `opened`
// tells whether this call opened it, and so must close it. False only when
// a document was needed and could not be opened.
bool OpenPseudoDocumentIfClosed(PortContext* port, bool* opened);
// Ends the document below and marks it closed, whatever the port monitor
// answered: the monitor won't write into a document it has given up.
void ClosePseudoDocument(PortContext* port);
BOOL LowerWrite(PortContext* port, const void* data, DWORD length, DWORD* written);
BOOL LowerRead(PortContext* port, void* buffer, DWORD size, DWORD* read);
BOOL LowerEndDoc(PortContext* port);
BOOL LowerClose(PortContext* port);

BOOL ForwardPortRequest(PortContext* port, DWORD controlId, LPSTR valueName, LPSTR in,
                        DWORD inSize, LPSTR out, DWORD outSize, LPDWORD returned);

// 1 when the document is the channel form that needs nothing below.
int IsChannelDoc(DWORD level, const void* docInfo);
void* CopyDocInfo(DWORD level, const void* docInfo);
void FreeDocInfo(DWORD level, void* copy);

// The one way of sending PJL text. 1 when all went out or the rest stands in
// the queue after a partial write; 0 otherwise, with the last error set.
int SendPjl(PortContext* port, const void* data, DWORD length, DWORD* written,
            int queueOnFailure, int knownModelOnly);
void DropPending(PortContext* port);
// Sends the queued text over and over, a little apart, until the port has
// taken it all; after a minute what is left is dropped. For those who are
// the last to talk to the printer for a while: a trailer cut short would
// have the printer print its rest as a job of its own.
void FlushPending(PortContext* port);

}  // namespace langmon
