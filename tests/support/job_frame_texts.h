// The PJL the printer should receive around a job, written out by hand so
// that the tests check the monitor's text builders rather than reuse them.
#pragma once

#include <string>

namespace langmon::testing {

inline const std::string Uel = "\x1b%-12345X";

// The header a job on a two-way port with a client gets, naming `identifier`:
// 136 bytes with a 24-character identifier.
inline std::string ExpectedHeader(const std::string& identifier) {
    return Uel +
           "@PJL USTATUS DEVICE=ON\r\n"
           "@PJL USTATUS JOB=ON\r\n"
           "@PJL USTATUS PAGE=ON\r\n"
           "@PJL INFO STATUS\r\n"
           "@PJL JOB NAME=\"" + identifier + "\"\r\n";
}

// The trailer that ends it: 51 bytes with a 24-character identifier.
inline std::string ExpectedTrailer(const std::string& identifier) {
    return "@PJL EOJ NAME=\"" + identifier + "\"\r\n" + Uel;
}

}  // namespace langmon::testing
