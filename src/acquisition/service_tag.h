// The printer's service tag, read on a client's request: one INFO SERVICETAG
// request between two UELs, and the answer as the parser stores it.
#pragma once

#include <cstdint>

namespace langmon {

struct PortContext;

// serviceTagStatus values.
constexpr uint32_t ServiceTagRead = 0;
constexpr uint32_t ServiceTagNotTried = 1;  // not two-way, no variables, no semaphore, no document
// ERROR_DEVICE_NOT_CONNECTED (the printer doesn't answer) and
// ERROR_INVALID_PRINTER_STATE (jobs in the port's list, or the request or
// its answer failed) are the other two.

// The 40-byte request: UEL, "@PJL INFO SERVICETAG" CR LF, UEL.
extern const char ServiceTagRequest[41];

// Asks the printer for its tag and copies it to `out`, at most `outSize`
// bytes, the rest of `out` zero. 1 with serviceTagStatus 0 when the tag came;
// otherwise `out` is all zeros and the result is 0, or 1 when the request
// went out only after a pause. serviceTagStatus says why.
int ReadServiceTag(PortContext* port, char* out, uint32_t outSize);

}  // namespace langmon
