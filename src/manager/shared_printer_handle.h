// A spooler printer handle with more than one user: a link opens it, and each
// thread that tells the spooler the printer's status uses it for a while
// after. The last user to let go closes it, so a link that goes while such a
// thread still retries leaves the handle open for that thread alone.
#pragma once

#include "platform/win32_types.h"

#include <cstdint>

namespace langmon {

struct SharedPrinterHandle {
    HANDLE printer;
    uint32_t users;  // changed atomically
};

// Takes over `printer` with one user. Null when there is no memory; the
// handle is then still the caller's.
SharedPrinterHandle* SharePrinterHandle(HANDLE printer);
// One more user of a shared handle.
void UsePrinterHandle(SharedPrinterHandle* shared);
// One user fewer; the last closes the printer and frees the record. Null is
// allowed.
void ReleasePrinterHandle(SharedPrinterHandle* shared);

}  // namespace langmon
