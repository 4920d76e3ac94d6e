// The job identifier as it goes out in JOB and EOJ lines, and the records by
// which the printer's reports find their job.

#include "framing/job_identifier.h"
#include "framing/job_record.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "platform/registry.h"

#include "support/platform_fixture.h"

#include <string>

namespace langmon {
namespace {

using testing::MonitorTest;

class JobIdentifierTest : public MonitorTest {};

std::string Identifier(const char* name) {
    char out[25];
    BuildJobIdentifier(out, name, JobIdentifierTag);
    return out;
}

TEST_F(JobIdentifierTest, NameHashAndTickStandInTheirPlaces) {
    platform::UseVirtualClock(0x1A2B);
    // Expected hashes were worked out apart from this code, with the
    // identifier's two tables and their one odd entry.
    const struct {
        const char* name;
        std::string expected;
    } cases[] = {
        {"PC", "03" "5043000000" "F17D" "00001A2B"},  // two bytes, the rest zeros
        {nullptr, "03" "0000000000" "C6A0" "00001A2B"},  // no name: eight asterisks hashed
        {"", "03" "0000000000" "C6A0" "00001A2B"},
        {"ABCDEFGHIJKLMNOPQRST", "03" "4142434445" "C78C" "00001A2B"},  // five bytes shown, twenty hashed
        {"\xF5", "03" "F500000000" "45C0" "00001A2B"},  // hits the odd table entry
        {"\x05\x81Z", "03" "05815A0000" "6AF0" "00001A2B"},  // a byte below 0x10 keeps two digits
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Identifier(c.name), c.expected) << (c.name ? c.name : "(null)");
    }
}

TEST_F(JobIdentifierTest, ANewIdentifierCarriesTheComputerName) {
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, "System\\CurrentControlSet\\control\\ComputerName\\ComputerName",
                                "ComputerName", "PC");
    char out[25];
    NewJobIdentifier(out);
    char tick[9];
    std::snprintf(tick, sizeof tick, "%08X", GetTickCount());
    EXPECT_EQ(std::string(out), std::string("035043000000F17D") + tick);
}

TEST_F(JobIdentifierTest, RecordsAreFoundByEitherNameOldestFirst) {
    PortContext* port = CreatePortContext("LPT1", "Laser");
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(SetJobIdentifier("A", JobStartName, port), 0);  // no record yet

    AddJobRecord(7, port);
    AddJobRecord(8, port);
    EXPECT_EQ(SetJobIdentifier("X", JobStartName, port), 1);  // the newest: job 8
    EXPECT_EQ(SetJobIdentifier("X", JobEndName, port), 1);
    port->jobListHead->EndIdentifier[0] = 'X';  // job 7 ends under the name job 8 starts with

    ASSERT_NE(FindJobRecord("X", JobStartName, port), nullptr);
    EXPECT_EQ(FindJobRecord("X", JobStartName, port)->JobId, 8u);
    EXPECT_EQ(FindJobRecord("X", JobEndName, port)->JobId, 7u);
    EXPECT_EQ(FindJobRecord("X", JobStartName | JobEndName, port)->JobId, 7u);
    EXPECT_EQ(FindJobRecord("", JobStartName, port)->JobId, 7u);  // job 7 has no start name
    EXPECT_EQ(FindJobRecord(nullptr, JobStartName, port), nullptr);

    EXPECT_EQ(DropOldestJobRecord(port), 1);
    EXPECT_EQ(port->jobListHead->JobId, 8u);
    EXPECT_EQ(DropOldestJobRecord(port), 1);
    EXPECT_EQ(port->jobListHead, nullptr);
    EXPECT_EQ(port->jobListTail, nullptr);
    EXPECT_EQ(DropOldestJobRecord(port), 0);

    AddJobRecord(9, port);  // the port's end frees what is left
    LockPort(nullptr);
    DestroyPortContext(port);
    UnlockPort(nullptr);
}

}  // namespace
}  // namespace langmon
