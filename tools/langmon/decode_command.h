// `langmon decode DEVICE_ID`: what the monitor makes of a printer's IEEE 1284
// device ID, such as the text of /sys/class/usbmisc/lp0/device/ieee1284_id.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace langmon::tool {

struct DecodeOptions {
    std::string deviceId;
    bool json = false;
    bool variables = false;  // every variable in hex too
};

// Reads the words after "decode": the text ("-" reads it from standard
// input), --json and --variables. False with a message in `error` otherwise.
bool ParseDecodeOptions(const std::vector<std::string>& words, DecodeOptions* options,
                        std::string* error);

// Opens a fresh port whose printer answers the text, polls it once and
// reports. Returns 0; 2 with a message on `err` for a text that is no
// device ID the monitor can read; 1 with a message for a known model's
// device ID whose STS: field does not decode, which the monitor passes over.
int RunDecode(const DecodeOptions& options, std::ostream& out, std::ostream& err);

}  // namespace langmon::tool
