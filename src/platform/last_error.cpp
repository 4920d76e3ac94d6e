#include "platform/last_error.h"

// One last error per thread, shared with any program on either side of the
// library through the two C entries. Every call of the data path reads or
// sets it, so it lives in the static TLS block, reached without a call: a
// few bytes that any loader, dlopen's included, has room for.
namespace {
[[gnu::tls_model("initial-exec")]] thread_local DWORD threadLastError = 0;
}  // namespace

extern "C" LANGMON_API DWORD GetLastError(void) { return threadLastError; }

extern "C" LANGMON_API void SetLastError(DWORD dwErrCode) { threadLastError = dwErrCode; }
