#include "support/client_fixture.h"

#include "platform/registry.h"
#include "platform/spooler_printers.h"

namespace langmon::testing {

std::vector<DWORD> ClientTest::SpoolerSaw(const std::string& printer) {
    SettleThreads();
    return platform::PrinterStatusWords(printer);
}

StatusVariable* ClientTest::RowOf(PortContext* port, const char* name) {
    StatusVariable* row = FindVariable(name, port->variables, port);
    EXPECT_NE(row, nullptr) << name;
    return row;
}

void ClientTest::SetPrinterStatus(PortContext* port, uint32_t word0, uint32_t word1, uint32_t word2) {
    const uint32_t words[3] = {word0, word1, word2};
    StatusVariable* row = RowOf(port, "PrinterStatus");
    SetVariable(row, words);
    row->Dirty = 1;
}

}  // namespace langmon::testing
