// The printer's device ID, through the status poll of a two-way USB port:
// the fields, the model, the command set and the 56-character status block
// behind "STS:". The input holds up to four answers separated by NUL, polled
// in turn on one port, so that a printer whose answer changes between polls
// (another model, a block that turns bad) is covered too.

#include "fuzz_monitor.h"

#include "acquisition/poll.h"

#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace langmon;
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    fuzz::FuzzPort port("USB001", "");
    for (std::size_t answer = 0; answer < fuzz::MostAnswers; ++answer) {
        const std::size_t end = rest.find('\0');
        port.Answer(rest.substr(0, end));
        PollPrinterStatus(port.Context());
        if (end == std::string_view::npos) break;
        rest.remove_prefix(end + 1);
    }
    return 0;
}
