// Status applications' requests through GetPrinterDataFromPort at the C
// edge, on a port whose printer has a client bound to the status manager:
// ControlID 0 with any value name ("IsWakeup", "Wake Up", "Stop Polling",
// "Suspend", the LM_ values, "LM_ServiceTag", "Refresh:" and a printer's
// name), the job reset (7), the device ID (17) and other codes for the port
// monitor below, with answer buffers of every small size, large ones, and
// none. Between requests the client may write its "RefreshStatus" list, and
// the spooler may start, feed and end a job. The printer is emulated and the
// clock virtual, so that every wait of a request costs nothing.
//
// The input: a byte that chooses the printer (its low three bits, see
// Printers) and the port (bit 3: USB001, else LPT1); then up to MostRequests
// records of an operation byte, a flags byte and a text up to a NUL:
//   operation % 8: 0-3 ControlID 0, 4 ControlID 7, 5 ControlID 17, 6 the
//     ControlID is the flags byte that follows, then a second flags byte;
//     7 the client writes RefreshStatus (flags even) or the spooler starts a
//     job with the text as its data, or ends the job it started (flags odd);
//   flags: bits 0-3 the answer buffer's size (see Sizes), bit 4 no buffer,
//     bit 5 no place for the size returned, bit 6 no value name.
// Every answer buffer is exactly as large as the size passed, so that a byte
// written past it is the address sanitizer's to see. Once the requests are
// through, the port's semaphore must be free again for the next job.

#include "fuzz_input.h"
#include "fuzz_monitor.h"

#include "langmon/printer_target.h"
#include "monitor/port_context.h"
#include "platform/sync.h"

#include <langmon/status_manager.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

using namespace langmon;

// The printer behind the port, in the words of its description.
constexpr const char* Printers[] = {
    "",       "model=Laser Printer 6300tx", "silent", "foreign", "power-off", "jam", "small-reads",
    "garbage"};
constexpr DWORD Sizes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 32, 64, 260, 1024, 4096};
constexpr int MostRequests = 16;

constexpr uint8_t NoBuffer = 0x10;
constexpr uint8_t NoReturned = 0x20;
constexpr uint8_t NoName = 0x40;

class Spooler {
public:
    explicit Spooler(HANDLE port) : port_(port) {}
    ~Spooler() { EndJob(); }

    // Starts a job and hands it `data`, or ends the job that runs.
    void StartOrEndJob(std::string_view data) {
        if (jobOpen_) return EndJob();
        jobOpen_ = fuzz::StartJob(port_, ++jobId_);
        bool failed = false;
        if (jobOpen_) fuzz::SendBlocks(port_, data, data.size(), &failed);
    }

private:
    void EndJob() {
        if (jobOpen_) fuzz::LanguageMonitor().EndDocPort(port_);
        jobOpen_ = false;
    }

    HANDLE port_;
    bool jobOpen_ = false;
    DWORD jobId_ = 0;
};

void Request(HANDLE port, DWORD controlId, uint8_t flags, std::string_view name) {
    const DWORD size = Sizes[flags & 0x0F];
    auto buffer = std::make_unique<char[]>(size);
    std::string valueName(name);
    DWORD returned = 0;
    fuzz::LanguageMonitor().GetPrinterDataFromPort(
        port, controlId, (flags & NoName) != 0 ? nullptr : valueName.data(), nullptr, 0,
        (flags & NoBuffer) != 0 ? nullptr : buffer.get(), size,
        (flags & NoReturned) != 0 ? nullptr : &returned);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::InputReader input(data, size);
    const uint8_t setting = input.Byte();
    const char* portName = (setting & 0x08) != 0 ? "USB001" : "LPT1";
    fuzz::LanguageMonitor();
    fuzz::GivePrinterAClient(portName);
    tool::PrinterTarget printer(std::string("emulator:") + Printers[setting & 0x07], portName);
    fuzz::FuzzPort port(portName, *printer.Lower());
    uint32_t client = 0;
    OpenManagerExA(fuzz::PrinterName, STATUS_MANAGER_DEVICE, 0, &client);
    {
        Spooler spooler(port.Handle());
        for (int request = 0; request < MostRequests && !input.AtEnd(); ++request) {
            const uint8_t operation = input.Byte() % 8;
            const uint8_t flags = input.Byte();
            switch (operation) {
                case 4:
                    Request(port.Handle(), 7, flags, input.Text());
                    break;
                case 5:
                    Request(port.Handle(), 17, flags, input.Text());
                    break;
                case 6: {
                    const uint8_t requestFlags = input.Byte();
                    Request(port.Handle(), flags, requestFlags, input.Text());
                    break;
                }
                case 7:
                    if ((flags & 1) == 0) {
                        const std::string_view list = input.Text();
                        UpdatePrinterStatusA(client, "RefreshStatus", list.data(),
                                             static_cast<DWORD>(list.size()));
                    } else {
                        spooler.StartOrEndJob(input.Text());
                    }
                    break;
                default:
                    Request(port.Handle(), 0, flags, input.Text());
                    break;
            }
        }
    }
    // Every request gives the port back to the next: a semaphore kept would
    // hold the next job for half a minute a block.
    if (WaitForSingleObject(port.Context()->serialSemaphore, 60000) != WAIT_OBJECT_0) {
        std::fprintf(stderr, "printer data: the port's semaphore was not given back\n");
        std::abort();
    }
    ReleaseSemaphore(port.Context()->serialSemaphore, 1, nullptr);
    CloseManager(client);
    return 0;
}
