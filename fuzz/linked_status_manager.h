// The status manager library linked into a fuzz target instead of loaded from
// libkvtrm.so. The monitor finds it as "KVTRM.DLL" all the same, through the
// loader's seam for libraries that live in the process, and a target can
// empty it between two inputs, which it could not do to a loaded library
// short of unloading it: stores live as long as the library does.
#pragma once

namespace langmon::fuzz {

// Makes the library known to the loader as KVTRM.DLL and hands it the host's
// SetEvent, as the loader does for a library it loads from a file. Once.
void LinkStatusManager();

// Ends every handle and watch and forgets every store.
void EmptyStatusManager();

}  // namespace langmon::fuzz
