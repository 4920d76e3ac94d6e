#include "sink_port_monitor.h"

#include "langmon/answer_port_monitor.h"

namespace langmon::bench {

const char SinkDeviceId[] =
    "MFG:Quor;CMD:PJL,NPDL,NMPS-C;MDL:Laser Printer 6200tx;CLS:PRINTER;DES:Quor Laser Printer 6200tx;"
    "STS:AAAPAQAAAAAABAJ/WiNLIzwjLSNkAwADUIKAggAAQQIAAQAAAAAAAAAA;";
const char SinkStsField[] = "AAAPAQAAAAAABAJ/WiNLIzwjLSNkAwADUIKAggAAQQIAAQAAAAAAAAAA;";

MONITOR SinkTable() { return tool::AnswerPortMonitor(SinkDeviceId); }

}  // namespace langmon::bench
