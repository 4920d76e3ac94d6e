// Libraries loaded at run time, with the contracts of LoadLibraryA,
// GetProcAddress and FreeLibrary. A library name "NAME.DLL" stands for the
// shared object "libname.so" (lower case); a name with a '/' is a path and is
// taken as it is. The object is looked for in each directory of the
// environment variable LANGMON_LIBRARY_PATH (':' between them), then beside
// the module that holds this code (liblangmon.so, or the program that links
// the monitor in), then, for a program, in the installation's library folder
// by its place relative to the program's (../lib), then by the dynamic
// loader's search: LD_LIBRARY_PATH, the system's folders. A library that
// exports LangmonAttachHost is handed the host's calls before LoadLibraryA
// returns.
#pragma once

#include "platform/win32_types.h"

#include <cstddef>
#include <string>

namespace langmon {

using HMODULE = HANDLE;

// A module handle, or null with ERROR_MOD_NOT_FOUND. Loading a library that is
// loaded already counts one more use and gives the same handle.
HMODULE LoadLibraryA(LPCSTR name);
// The address of an exported function, or null with ERROR_PROC_NOT_FOUND
// (ERROR_INVALID_HANDLE for a handle that is not a loaded library).
void* GetProcAddress(HMODULE module, LPCSTR procName);
// Ends one use; the library goes when its last use ends.
BOOL FreeLibrary(HMODULE module);

#ifndef ERROR_MOD_NOT_FOUND
#define ERROR_MOD_NOT_FOUND 126u
#endif
#ifndef ERROR_PROC_NOT_FOUND
#define ERROR_PROC_NOT_FOUND 127u
#endif

namespace platform {

// A library that lives inside the process, found by LoadLibraryA under `name`
// (compared without regard to case) before any file: `lookup` answers
// GetProcAddress. Tests put fakes at this seam. Registering a name again
// replaces the lookup.
using LibraryLookup = void* (*)(const char* procName);
void RegisterLibrary(const std::string& name, LibraryLookup lookup);
void UnregisterLibrary(const std::string& name);

// Why LoadLibraryA(name) found nothing, for a person to act on: every file it
// tried, in order, and that LANGMON_LIBRARY_PATH naming the right folder
// makes the library found.
std::string DescribeMissingLibrary(const char* name);

// Uses of libraries not yet ended by FreeLibrary, for leak checks.
std::size_t LoadedLibraryUses();

}  // namespace platform
}  // namespace langmon
