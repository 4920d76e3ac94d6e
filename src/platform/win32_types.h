// The Win32 types and constants that the logic uses beyond those of the public
// header, with their Win32 values.
#pragma once

#include <langmon/monitor.h>

#include <cstddef>
#include <cstdint>

namespace langmon {

using SIZE_T = std::size_t;
using LPVOID = void*;
using LPCVOID = const void*;
using REGSAM = DWORD;
using LPTHREAD_START_ROUTINE = DWORD (*)(LPVOID);

constexpr DWORD INFINITE = 0xFFFFFFFFu;

// Results of the waits.
constexpr DWORD WAIT_OBJECT_0 = 0x00000000u;
constexpr DWORD WAIT_ABANDONED = 0x00000080u;
constexpr DWORD WAIT_TIMEOUT = 0x00000102u;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFFu;
constexpr DWORD MAXIMUM_WAIT_OBJECTS = 64;

// Thread creation and priorities.
constexpr DWORD CREATE_SUSPENDED = 0x00000004u;
constexpr int THREAD_PRIORITY_LOWEST = -2;
constexpr int THREAD_PRIORITY_BELOW_NORMAL = -1;
constexpr int THREAD_PRIORITY_NORMAL = 0;
constexpr int THREAD_PRIORITY_ABOVE_NORMAL = 1;
constexpr int THREAD_PRIORITY_HIGHEST = 2;
constexpr int THREAD_PRIORITY_ERROR_RETURN = 0x7FFFFFFF;

// GlobalAlloc flags; every block is zero-filled whatever the flags say.
constexpr UINT GMEM_FIXED = 0x0000u;
constexpr UINT GMEM_ZEROINIT = 0x0040u;
constexpr UINT GPTR = GMEM_FIXED | GMEM_ZEROINIT;

}  // namespace langmon
