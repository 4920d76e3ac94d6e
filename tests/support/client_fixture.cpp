#include "support/client_fixture.h"

#include "platform/registry.h"
#include "platform/spooler_printers.h"

namespace langmon::testing {

void ClientTest::DescribePrinter(const std::string& name, const std::string& driver,
                                 const std::string& port, bool statusKey) {
    const std::string key = "System\\CurrentControlSet\\control\\Print\\Printers\\" + name;
    platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, key);
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, key, "Port", port);
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, key, "Printer Driver", driver);
    if (statusKey) {
        platform::RegistryCreateKey(HKEY_LOCAL_MACHINE,
                                    "Software\\Quor\\Status Monitor\\Printers\\" + driver +
                                        "\\Status Variables");
    }
}

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
