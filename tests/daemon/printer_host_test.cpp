// The daemon's printers on the virtual clock: each held on a port of its
// own with its status thread awake, read as its status client reads it.

#include "printer_host.h"

#include "support/platform_fixture.h"

#include <gtest/gtest.h>

namespace langmon::daemon {
namespace {

class PrinterHostTest : public testing::MonitorTest {
protected:
    void TearDown() override {
        SettleThreads();
        MonitorTest::TearDown();
    }
};

TEST_F(PrinterHostTest, HoldsEachPrinterOnAPortOfItsOwnAwakeUntilItIsLetGo) {
    PrinterHost host;
    std::string problem;
    ASSERT_TRUE(host.Add("office", "langmon:/emulator", "", &problem)) << problem;
    ASSERT_TRUE(host.Add("lab", "langmon:/emulator?jam=3", "", &problem)) << problem;
    EXPECT_FALSE(host.Add("lab", "langmon:/emulator", "", &problem));
    EXPECT_EQ(problem, "a printer named \"lab\" is held already");
    EXPECT_FALSE(host.Add("attic", "langmon://printer.lan?snmp=0", "", &problem));
    EXPECT_NE(problem.find("snmp takes a port from 1 to 65535"), std::string::npos) << problem;

    const std::vector<HostedPrinter> printers = host.Printers();
    ASSERT_EQ(printers.size(), 2u);
    EXPECT_EQ(printers[0].portName, "LPT1:");
    EXPECT_EQ(printers[1].portName, "LPT2:");
    EXPECT_EQ(printers[1].model, "Laser Printer 6200tx");

    // With no job at all, the status threads keep polling: a pass takes a
    // few seconds of the virtual clock.
    Sleep(10000);
    EXPECT_EQ(host.View("office")["condition"], "ready") << host.View("office").dump(2);
    EXPECT_EQ(host.View("lab")["condition"], "paper-jam") << host.View("lab").dump(2);
    EXPECT_TRUE(host.View("attic").is_null());

    EXPECT_TRUE(host.Remove("office"));
    EXPECT_FALSE(host.Remove("office"));
    ASSERT_TRUE(host.Add("hall", "langmon:/emulator", "", &problem)) << problem;
    EXPECT_EQ(host.Printers().back().portName, "LPT1:");
    host.CloseAll();
    EXPECT_TRUE(host.Printers().empty());
}

}  // namespace
}  // namespace langmon::daemon
