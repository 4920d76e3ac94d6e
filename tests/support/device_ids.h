// Device ID texts of printers the tests put on a port, written out by hand.
#pragma once

#include <string>

namespace langmon::testing {

// A 6200tx that is ready and idle: covers closed, four toners and the unit
// fitted and well, the multi-purpose tray and one cassette of A4.
inline const std::string ReadyStatusBlock = "AAAPAQAAAAAABAJ/WiNLIzwjLSNkAwADUIKAggAAQQIAAQAAAAAAAAAA";
inline const std::string KnownPrinterId =
    "MFG:Quor;CMD:PJL,NPDL,NMPS-C;MDL:Laser Printer 6200tx;CLS:PRINTER;STS:" + ReadyStatusBlock + ";";
// A printer that answers but is none of the known models.
inline const std::string ForeignPrinterId = "MFG:Other;CMD:PCL;MDL:Office Jet 12;CLS:PRINTER;";

}  // namespace langmon::testing
