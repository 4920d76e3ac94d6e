// The machine description: one text file in the REGEDIT4 format, named by the
// environment variable LANGMON_REGISTRY, that fills the registry. Everything the
// platform answers about the machine (the spooler's printers, drivers and ports,
// the computer name, the keyboard, the Windows version, network redirections)
// comes from that registry.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace langmon::platform {

// A machine description file is read up to this many bytes; a longer one is
// refused. A machine with tens of thousands of printers fits.
inline constexpr std::size_t MachineDescriptionByteLimit = 32u << 20;
// Keys nest at most this deep, as the Windows registry's do (512 levels).
// A deeper path is refused with its line: no machine needs one.
inline constexpr std::size_t MachineKeyDepthLimit = 512;

// Replaces the registry with the keys and values of `text`. A malformed text is
// refused whole: the registry is left empty and `error` says where, as
// "<source>:<line>: <what is wrong>".
bool LoadMachineDescription(std::string_view text, std::string_view source, std::string* error);
bool LoadMachineDescriptionFile(const std::string& path, std::string* error);

// Once per process, at the first InitializeMonitorEx: loads the file that
// LANGMON_REGISTRY names, if it names one; else describes an ordinary
// machine: the local port monitor's ports (LPT1: to LPT3:, COM1:, COM2:,
// FILE:). A file that can't be read or is malformed is reported on standard
// error and the machine starts empty.
void LoadMachineFromEnvironmentOnce();

// What went wrong with the last load, empty when it went well.
const std::string& MachineDescriptionProblem();

}  // namespace langmon::platform
