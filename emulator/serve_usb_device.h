// The emulated printer as a USB printer class device: a directory that
// FUSE (libfuse3) mounts, holding one file, "lp0", that behaves as the
// kernel's usblp makes /dev/usb/lp0 behave, so that the USB port monitor
// meets it as it would a printer on a USB cable:
//
// - a write goes to the printer. While the printer holds bytes back, the
//   next write waits (or fails with EAGAIN when the file is non-blocking),
//   and a blocking write returns once the printer has taken all of it, as
//   usblp's returns when its transfer completes;
// - a read returns what the printer has sent back (its PJL replies), and
//   waits when there is nothing (EAGAIN when non-blocking); poll(2) tells
//   both, and FUSE's poll notifications wake a waiting poll;
// - usblp's device ID ioctl, LPIOC_GET_DEVICE_ID (_IOC(_IOC_READ, 'P', 1,
//   len)), answers the printer's device ID as it stands at that moment, in
//   usblp's layout: two bytes of big-endian length that count themselves,
//   then the text, at most 1023 bytes in all, cut to `len`. A printer that
//   does not answer (off, silent) makes it fail with EIO;
// - one open at a time, as usblp allows: another is EBUSY.
//
// USB knows no documents: the printer sees one begin with the first byte
// after a quiet spell and end once the device has been quiet for
// LineQuietMs, as on a serial line.
//
// It is served in the emulator's one loop: the FUSE descriptor is read
// non-blocking, and a request that must wait (a write the printer will not
// take yet, a read with nothing to read) is answered later, from Serve,
// without holding the loop. The mount goes when the device does (lazily,
// so that a host still holding the file does not keep it); a mount left by
// a process that was killed is found dead at the next start and taken away
// before mounting afresh.
#pragma once

#include "emulator/host_stream.h"
#include "emulator/printer.h"
#include "emulator/printer_transport.h"

#include <deque>
#include <string>
#include <vector>

struct fuse_session;
struct fuse_pollhandle;
struct fuse_req;

namespace langmon::emulator {

// The device file's name in the mounted directory.
inline constexpr const char* UsbDeviceName = "lp0";

class UsbDevice final : public PrinterTransport {
public:
    // Mounts the device at `directory`, made if missing (and then removed
    // with the device).
    UsbDevice(Printer& printer, const std::string& directory);
    ~UsbDevice() override;
    UsbDevice(const UsbDevice&) = delete;
    UsbDevice& operator=(const UsbDevice&) = delete;

    // Empty once mounted; otherwise why it could not be.
    const std::string& Problem() const { return problem_; }
    // The device file, e.g. "/tmp/printer/lp0".
    const std::string& Path() const { return path_; }

    std::string Address() const override { return "langmon:" + path_; }
    void AddWaits(std::vector<pollfd>& waits) const override;
    void Serve() override;

private:
    friend struct UsbDeviceOps;

    // A request that waits for the printer.
    struct Waiting {
        fuse_req* request;
        std::string bytes;     // a write's bytes
        size_t size = 0;       // a read's size
        bool taken = false;    // a write's bytes are with the printer
    };

    void Write(fuse_req* request, std::string_view bytes, bool nonBlocking);
    void Read(fuse_req* request, size_t size, bool nonBlocking);
    void AnswerDeviceId(fuse_req* request, unsigned command, size_t outSize);
    // Answers what waited and can now be answered.
    void FinishWaiting(uint32_t now);
    // What poll(2) on the file would see now.
    unsigned ReadyEvents();
    // Wakes the polls that wait, once what they would see has changed.
    void NotifyPolls();
    void Unmount();
    void EndSession();

    Printer& printer_;
    std::string problem_;
    std::string directory_;
    std::string path_;
    fuse_session* session_ = nullptr;
    bool mounted_ = false;
    bool madeDirectory_ = false;
    int fd_ = -1;
    HostStream stream_;
    int opens_ = 0;
    std::deque<Waiting> writes_;
    std::deque<Waiting> reads_;
    std::vector<fuse_pollhandle*> polls_;
    unsigned polledEvents_ = 0;  // what the last poll or wake-up told
    void* buffer_ = nullptr;     // libfuse's buffer of one request
};

}  // namespace langmon::emulator
