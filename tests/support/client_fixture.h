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


class ClientTest : public JobRoadTest {
protected:
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
