// The spooler's handle of the running job's printer, for a question about
// the job or the printer's queue: the job client's own handle, or, without
// one, a handle opened for the port's printer name and closed again. The
// port's lock is held while the handle is in use, so the client's link
// can't be taken down under it.
#pragma once

#include "monitor/port_context.h"

namespace langmon {

class JobPrinter {
public:
    explicit JobPrinter(PortContext* port);
    ~JobPrinter();
    JobPrinter(const JobPrinter&) = delete;
    JobPrinter& operator=(const JobPrinter&) = delete;

    // Null when the printer can't be had.
    HANDLE Handle() const { return printer_; }

private:
    PortContext* port_;
    HANDLE printer_ = nullptr;
    bool opened_ = false;
};

}  // namespace langmon
