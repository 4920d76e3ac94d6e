// A job's first bytes, which WritePort's first call looks into (PostScript, a
// PJL job of its own, or neither) before the header goes out ahead of them:
// StartDocPort, the job in blocks as the spooler hands them over (each block
// passed again from what the port did not take), EndDocPort, on a two-way
// port whose printer, a ready Laser Printer 6200tx, has a client. The first
// byte of the input chooses the block length (see BlockLengthFor), the second
// the port and so the write strategy: USB001 (whole blocks), LPT1 in ECP mode
// (at most 4096 bytes a call) or LPT1 in compatibility mode (80 bytes behind);
// the rest is the job.
//
// The printer must receive the header that names the job, the job's bytes
// once and in order (without its own leading UEL, for which the header's
// stands, when the first block was long enough to be looked into), and the
// trailer; behind that at most the status thread's goodbye.

#include "fuzz_monitor.h"

#include "background/status_thread.h"
#include "monitor/port_context.h"
#include "platform/registry.h"
#include "support/job_frame_texts.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

using namespace langmon;
using testing::ExpectedHeader;
using testing::ExpectedTrailer;
using testing::Uel;
// A first block shorter than this is not looked into.
constexpr std::size_t LookedInto = 20;

struct Port {
    const char* name;
    DWORD mode;  // MyPortMode: 1 compatibility, 2 ECP
};
constexpr Port Ports[] = {{"USB001", 0}, {"LPT1", 2}, {"LPT1", 1}};

void FixPortMode(DWORD mode) {
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, "SOFTWARE\\Quor\\Status Monitor\\Printers",
                               "MyPortMode", mode);
}

[[noreturn]] void Fail(const std::string& what, const std::string& expected,
                       const std::string& received) {
    std::size_t at = 0;
    while (at < expected.size() && at < received.size() && expected[at] == received[at]) ++at;
    std::fprintf(
        stderr,
        "job start: %s; %zu bytes expected, %zu received, the first difference at byte %zu\n",
        what.c_str(), expected.size(), received.size(), at);
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const std::size_t block = fuzz::BlockLengthFor(data[0]);
    const Port& where = Ports[data[1] % std::size(Ports)];
    const std::string job(reinterpret_cast<const char*>(data) + 2, size - 2);

    fuzz::LanguageMonitor();
    fuzz::GivePrinterAClient(where.name);
    FixPortMode(where.mode);
    fuzz::FuzzPort port(where.name, fuzz::ReadyPrinterId());
    if (!fuzz::StartJob(port.Handle(), 1)) Fail("StartDocPort failed", "", "");
    const std::string identifier = port.Context()->jobIdentifier;
    bool failed = false;
    const std::size_t taken = fuzz::SendBlocks(port.Handle(), job, block, &failed);
    if (failed) Fail("WritePort failed", "", "");
    if (taken != job.size()) Fail("the port stopped taking the job", job, job.substr(0, taken));
    if (!fuzz::LanguageMonitor().EndDocPort(port.Handle())) Fail("EndDocPort failed", "", "");

    const bool looked = !job.empty();
    const bool uelDropped =
        looked && std::min(block, job.size()) >= LookedInto && job.starts_with(Uel);
    const std::string trailer = looked ? ExpectedTrailer(port.Context()->trailerIdentifier) : "";
    const std::string expected = (looked ? ExpectedHeader(identifier) : "") +
                                 job.substr(uelDropped ? Uel.size() : 0) + trailer;
    std::string received = port.Received();
    // A printer that never reports the job's end has lost it: the status
    // thread winds up and says goodbye behind the trailer.
    const std::string_view goodbye = UstatusOffText;
    if (received.size() > expected.size() && received.starts_with(expected) &&
        goodbye.starts_with(std::string_view(received).substr(expected.size()))) {
        received.resize(expected.size());
    }
    if (received != expected)
        Fail("the printer received other bytes than the job's", expected, received);
    return 0;
}
