// The ground of the client tests: printer queues described the way the
// spooler keeps them, and a status manager library of the test's own behind
// the monitor, so that a job's printer gets a real link with a manager.
#pragma once

#include "support/fake_manager.h"
#include "support/job_road_fixture.h"

#include "variables/status_variable.h"

#include <string>
#include <vector>

namespace langmon::testing {

// Drivers of the model table, one of each model.
inline constexpr const char* Driver6200 = "Quor Printer 6200tx PS";
inline constexpr const char* Driver6300 = "Quor Laser Printer 6300tx PCL6";

class ClientTest : public JobRoadTest {
protected:
    // A printer queue of the spooler on `port` with `driver`. With a status
    // key the driver is one the status manager keeps variables for.
    static void DescribePrinter(const std::string& name, const std::string& driver,
                                const std::string& port, bool statusKey = true);
    // The status words the spooler was given for the printer, once the
    // threads that give them have ended.
    std::vector<DWORD> SpoolerSaw(const std::string& printer);
    // A row of the port's table by name; fails the test when there is none.
    static StatusVariable* RowOf(PortContext* port, const char* name);
    // Stores `words` in PrinterStatus and marks it dirty.
    static void SetPrinterStatus(PortContext* port, uint32_t word0, uint32_t word1, uint32_t word2);

    FakeManager manager;
};

}  // namespace langmon::testing
