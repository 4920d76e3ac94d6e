// The emulated printer on a serial line: a pseudo-terminal whose slave is the
// printer's tty. What a host writes to the slave goes into the printer; what
// the printer sends back comes out of it. The line is raw: no echo, no
// translation, every byte as it was.
//
// A serial line knows no documents, so the printer sees one begin with the
// first byte after a quiet line and end once the line has been quiet for
// LineQuietMs; its own input time-out then ends a job sent without PJL.
//
// The line keeps a descriptor of the slave open itself, so that a host that
// closes its end between jobs leaves the line up rather than hung up.
#pragma once

#include "emulator/host_stream.h"
#include "emulator/printer.h"
#include "emulator/printer_transport.h"

#include <cstdint>
#include <string>

namespace langmon::emulator {

class PtyLine final : public PrinterTransport {
public:
    explicit PtyLine(Printer& printer);
    ~PtyLine() override;
    PtyLine(const PtyLine&) = delete;
    PtyLine& operator=(const PtyLine&) = delete;

    // Empty once the pty is open; otherwise why it could not be.
    const std::string& Problem() const { return problem_; }
    // The slave's path, e.g. "/dev/pts/7".
    const std::string& Path() const { return slavePath_; }

    std::string Address() const override { return "langmon:" + slavePath_; }
    void AddWaits(std::vector<pollfd>& waits) const override;
    void Serve() override;

private:
    std::string problem_;
    std::string slavePath_;
    int master_ = -1;
    int slave_ = -1;
    HostStream stream_;
};

}  // namespace langmon::emulator
