#include "manager/job_printer.h"

#include "manager/manager_link.h"
#include "monitor/monitor_entry.h"
#include "platform/spooler_jobs.h"

namespace langmon {

JobPrinter::JobPrinter(PortContext* port) : port_(port) {
    LockPort(port_);
    if (port_->jobManager != nullptr) printer_ = port_->jobManager->spoolerHandle;
    if (printer_ == nullptr) {
        opened_ = OpenPrinterA(port_->printerName, &printer_, nullptr) != 0;
        if (!opened_) printer_ = nullptr;
    }
}

JobPrinter::~JobPrinter() {
    if (opened_) ClosePrinter(printer_);
    UnlockPort(port_);
}

}  // namespace langmon
