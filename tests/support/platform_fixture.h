// The ground every test stands on: the virtual clock, an empty machine, no
// injected faults, and at the end a check that nothing was leaked (heap blocks,
// kernel objects, registry keys).
#pragma once

#include "platform/clock.h"
#include "platform/memory.h"
#include "platform/registry.h"
#include "platform/spooler.h"
#include "platform/spooler_printers.h"
#include "platform/sync.h"

#include <gtest/gtest.h>
#include <langmon/monitor.h>

namespace langmon::testing {

// A start tick well away from 0, so that a forgotten "tick 0 means unset" shows.
constexpr DWORD TestStartTick = 0x00100000u;

// Drivers of the model table, one of each model.
inline constexpr const char* Driver6200 = "Quor Printer 6200tx PS";
inline constexpr const char* Driver6300 = "Quor Laser Printer 6300tx PCL6";

// A printer queue of the spooler on `port` with `driver`, by default with
// the status key that makes the status manager keep its variables.
inline void DescribePrinter(const std::string& name, const std::string& driver, const std::string& port,
                            bool statusKey = true, const std::string& monitor = "") {
    platform::AddPrinterQueue(name, driver, port, statusKey, monitor);
}
inline void ForgetPrinter(const std::string& name) { platform::RemovePrinterQueue(name); }

class PlatformTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Lets virtual time run until every thread but the test's own has ended:
    // the short threads the monitor starts hold blocks until they end.
    static void SettleThreads();

    // Milliseconds of virtual time since the test began.
    DWORD Elapsed() const { return GetTickCount() - TestStartTick; }

private:
    std::size_t blocksAtStart_ = 0;
    std::size_t objectsAtStart_ = 0;
    std::size_t keysAtStart_ = 0;
};

// As PlatformTest, with the monitor initialised and its entry table at hand.
class MonitorTest : public PlatformTest {
protected:
    void SetUp() override;
    MONITOR monitor{};
};

}  // namespace langmon::testing
