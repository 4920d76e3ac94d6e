#include "background/reconcile.h"

#include "background/printer_lookup.h"
#include "framing/job_record.h"
#include "manager/manager_link.h"
#include "monitor/lower_port.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "parser/job_progress.h"
#include "parser/response_parser.h"
#include "platform/memory.h"
#include "variables/derived.h"
#include "variables/spooler_status.h"
#include "variables/status_variable.h"

namespace langmon {

namespace {

// The flags of one job and one poll; those of the status thread, of an open
// document, of a refused manager, of a job the spooler deleted and of a
// closing port belong to others and stay.
constexpr uint32_t PerJobFlags = PF_JOB_ACTIVE | PF_HEADER_SENT | PF_HEADER_DUE | PF_MODEL_KNOWN |
                                 PF_JOB_RESET | PF_OFFLINE | PF_JOB_GONE | PF_DISCARD;

/* ForgetJobsAtPrinter: the chain goes, and with it a value the first node
   shares with PrintingJobInfo2: freed once, and the row left without it. */
void ForgetJobsAtPrinter(PortContext* port) {
    StatusVariable* row = FindVariable("PrintingJobInfo2", port->variables, port);
    const JobInfoNode* first = port->jobInfoChain;
    const bool shared = row != nullptr && row->Value != nullptr && first != nullptr &&
                        first->Snapshot != nullptr && first->Snapshot->Value == row->Value;
    ClearJobInfoChain(port);
    if (shared) {
        GlobalFree(row->Value);
        row->Value = nullptr;
    }
}

}  // namespace

int ReconcileClients(PortContext* port) {
    if (port == nullptr) return 0;
    PrinterList* list = nullptr;
    ListPrintersOnPort(port, &list);
    LockPort(port);
    for (const PrinterList* node = list; node != nullptr; node = node->next) {
        const char* name = node->printerInfo->pPrinterName;
        ManagerLink* link = FindLink(name, port);
        if (link == nullptr) link = CreateManagerLink(name, port);
        if (link != nullptr) link->linkFlags |= LinkSeen;
    }
    for (ManagerLink* link = port->managers; link != nullptr;) {
        ManagerLink* next = link->next;
        if ((link->linkFlags & LinkSeen) != 0) {
            link->linkFlags &= ~LinkSeen;
        } else {
            RemoveLink(link, port);
        }
        link = next;
    }
    UnlockPort(port);
    FreePrinterList(list);
    return 1;
}

void ResetPortState(PortContext* port) {
    ClearPortFlag(port, PerJobFlags);
    LockPort(port);
    port->statusTickCount = 0;
    DeriveErrorVariables(port, 1);
    ResetJobStatus(port);
    DerivePrinterVariables(port, 1);
    DropPending(port);
    if (port->parser != nullptr) ResetParser(port->parser, 1);
    FreeJobRecords(port);
    ForgetJobsAtPrinter(port);
    // After a refresh that asked the printer for its service tag or its
    // panel, the spooler shows what came back: that status stays.
    if (port->serviceTagPublish == 0) {
        for (ManagerLink* link = port->managers; link != nullptr; link = link->next) {
            NotifyLinkStatus(port, link, nullptr);
        }
    }
    port->jobOpen = 0;
    UnlockPort(port);
}

}  // namespace langmon
