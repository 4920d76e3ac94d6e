// The ground of the reply tests: an open port whose parser is handed blocks as
// the reader hands them over, and its variables read as a client gets them.
#pragma once

#include "parser/response_parser.h"
#include "variables/status_variable.h"

#include "support/job_road_fixture.h"

#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace langmon::testing {

class ReplyTest : public JobRoadTest {
protected:
    void SetUp() override {
        JobRoadTest::SetUp();
        port = Open("LPT1");
        ASSERT_NE(port, nullptr);
    }

    // Each block in turn; the result of each. With `publish` 0 the dirty
    // marks stay for the test to read.
    std::vector<int> Feed(const std::vector<std::string>& blocks, int publish = 1) {
        std::vector<int> results;
        for (const std::string& block : blocks) {
            results.push_back(ParseResponseBuffer(port, block.c_str(), publish));
        }
        return results;
    }
    std::string Tail() const { return port->responseTail != nullptr ? port->responseTail : ""; }

    // The row the port shows under that name, or null.
    StatusVariable* Row(const char* name) const {
        return FindVariable(name, port->variables, port);
    }
    // A four-byte value; none while the row has no value or there is no row.
    std::optional<uint32_t> Word(const char* name) const {
        const StatusVariable* row = Row(name);
        if (row == nullptr || row->Value == nullptr) return std::nullopt;
        uint32_t value = 0;
        std::memcpy(&value, row->Value, sizeof value);
        return value;
    }
    bool Dirty(const char* name) const { return Row(name) != nullptr && Row(name)->Dirty != 0; }

    PortContext* port = nullptr;
};

}  // namespace langmon::testing
