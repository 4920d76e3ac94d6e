#include "platform/last_error.h"

// One last error per thread, shared with any program on either side of the
// library through the two C entries.
namespace {
thread_local DWORD threadLastError = 0;
}  // namespace

extern "C" LANGMON_API DWORD GetLastError(void) { return threadLastError; }

extern "C" LANGMON_API void SetLastError(DWORD dwErrCode) { threadLastError = dwErrCode; }
