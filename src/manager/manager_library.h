// The status manager library behind a link: loaded by its name, its functions
// looked up by theirs. Another library of the same name and functions can
// take its place.
#pragma once

namespace langmon {

struct ManagerLink;

// The name the library is loaded by.
inline constexpr const char* ManagerLibraryName = "KVTRM.DLL";

// Loads the library into the link and looks up its eleven functions; each
// that is missing stays null. 1 if the library was loaded.
int LoadManagerLibrary(ManagerLink* link);
// Lets the link's library go, if it has one, and forgets its functions.
void UnloadManagerLibrary(ManagerLink* link);

}  // namespace langmon
