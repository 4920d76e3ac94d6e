// Reading the machine description: what the REGEDIT4 text may hold, what it
// turns into, and how a malformed text is refused whole with the line named.

#include "platform/machine_description.h"

#include "platform/machine.h"
#include "platform/registry.h"
#include "support/platform_fixture.h"

#include <cstdlib>
#include <filesystem>
#include <vector>

namespace langmon {
namespace {

using MachineDescriptionTest = testing::PlatformTest;

// The sample description that ships in examples/.
std::string ExampleMachine() {
    const auto here = std::filesystem::path(__FILE__).parent_path();
    return (here / "../../examples/machine.reg").lexically_normal().string();
}

std::vector<BYTE> Bytes(std::initializer_list<BYTE> bytes) { return bytes; }

TEST_F(MachineDescriptionTest, AcceptsEveryFormItKnows) {
    const char* text =
        "\r\n"
        "REGEDIT4\r\n"
        "; the monitor's settings\n"
        "\n"
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quor\\Status Monitor]\n"
        "\"CTIFlag\"=dword:3\n"
        "\"CreateThreadInterval\" = DWORD:FFFFFFFF\n"
        "@=\"a \\\"quoted\\\" C:\\\\path\"\n"
        "\"Blob\"=hex:01,02,\\\n"
        "  ab, CD,\\\n"
        "  ff\n"
        "\"Multi\"=hex(7):41,00,00\n"
        "\"Empty\"=hex:\n"
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quor\\Status Monitor\\Printers]\n"
        "[HKEY_DYN_DATA\\Config Manager\\Enum\\C1A2B3C4]\n"
        "\"HardWareKey\"=\"Root\\\\*PNP0400\\\\0000\"\n";
    std::string error = "stale";
    ASSERT_TRUE(platform::LoadMachineDescription(text, "m.reg", &error)) << error;
    EXPECT_EQ(error, "");
    EXPECT_EQ(platform::MachineDescriptionProblem(), "");

    const char* quor = "SOFTWARE\\Quor\\Status Monitor";
    EXPECT_EQ(platform::RegistryGetDword(HKEY_LOCAL_MACHINE, quor, "CTIFlag"), 3u);
    EXPECT_EQ(platform::RegistryGetDword(HKEY_LOCAL_MACHINE, quor, "CreateThreadInterval"), 0xFFFFFFFFu);
    EXPECT_EQ(platform::RegistryGetString(HKEY_LOCAL_MACHINE, quor, ""), "a \"quoted\" C:\\path");
    auto blob = platform::RegistryGetValue(HKEY_LOCAL_MACHINE, quor, "Blob");
    ASSERT_TRUE(blob);
    EXPECT_EQ(blob->type, REG_BINARY);
    EXPECT_EQ(blob->data, Bytes({0x01, 0x02, 0xAB, 0xCD, 0xFF}));
    auto multi = platform::RegistryGetValue(HKEY_LOCAL_MACHINE, quor, "Multi");
    EXPECT_EQ(multi->type, REG_MULTI_SZ);
    EXPECT_EQ(multi->data, Bytes({0x41, 0x00, 0x00}));
    EXPECT_TRUE(platform::RegistryGetValue(HKEY_LOCAL_MACHINE, quor, "Empty")->data.empty());
    // A key line alone makes the key.
    EXPECT_TRUE(platform::RegistryKeyExists(HKEY_LOCAL_MACHINE, "SOFTWARE\\Quor\\Status Monitor\\Printers"));
    EXPECT_EQ(platform::RegistryGetString(HKEY_DYN_DATA, "Config Manager\\Enum\\C1A2B3C4", "HardWareKey"),
              "Root\\*PNP0400\\0000");
}

struct Refusal {
    const char* text;
    const char* error;
};

TEST_F(MachineDescriptionTest, RefusesAMalformedTextWholeAndNamesTheLine) {
    const Refusal refusals[] = {
        {"", "m.reg:1: empty; the first line must be REGEDIT4"},
        {"; comment\nREGEDIT4\n", "m.reg:1: the first line must be REGEDIT4"},
        {"REGEDIT4\n\"a\"=dword:1\n", "m.reg:2: a value before any [key] line"},
        {"REGEDIT4\n[HKEY_CURRENT_USER\\Software]\n",
         "m.reg:2: unknown root key \"HKEY_CURRENT_USER\" (HKEY_LOCAL_MACHINE or HKEY_DYN_DATA)"},
        {"REGEDIT4\n[HKEY_LOCAL_MACHINE\\a\\\\b]\n", "m.reg:2: an empty key name in the path"},
        {"REGEDIT4\n[-HKEY_LOCAL_MACHINE\\Software]\n", "m.reg:2: deleting a key is not supported"},
        {"REGEDIT4\n[HKEY_LOCAL_MACHINE\\S]\n\"a\"=-\n", "m.reg:3: deleting a value is not supported"},
        {"REGEDIT4\n[HKEY_LOCAL_MACHINE\\S]\n\"a\"=\"open\n", "m.reg:3: a string without its closing quote"},
        {"REGEDIT4\n[HKEY_LOCAL_MACHINE\\S]\n\"a\"=\"x\\n\"\n", "m.reg:3: unknown escape \\n in a string"},
        {"REGEDIT4\n[HKEY_LOCAL_MACHINE\\S]\n\"a\"=dword:123456789\n",
         "m.reg:3: a dword needs 1 to 8 hex digits and nothing else"},
        {"REGEDIT4\n[HKEY_LOCAL_MACHINE\\S]\n\"a\"=hex:01,\\\n 0g\n", "m.reg:4: \"0g\" is not a hex byte"},
        {"REGEDIT4\n[HKEY_LOCAL_MACHINE\\S]\n\"a\"=hex:01,02,\n", "m.reg:3: a hex list ends with ','"},
        {"REGEDIT4\n[HKEY_LOCAL_MACHINE\\S]\n\"a\"=hex:01,\\\n", "m.reg:3: the hex list goes on past the end of the text"},
        {"REGEDIT4\n[HKEY_LOCAL_MACHINE\\S]\n\"a\"=sz:x\n",
         "m.reg:3: unknown kind of value (a string, dword: or hex: expected)"},
        {"REGEDIT4\n[HKEY_LOCAL_MACHINE\\S]\nHKLM\\S\n", "m.reg:3: not a key, a value or a comment"},
    };
    for (const Refusal& refusal : refusals) {
        SCOPED_TRACE(refusal.text);
        platform::RegistrySetDword(HKEY_LOCAL_MACHINE, "Software\\langmon", "KeyboardType", 7);
        std::string error;
        EXPECT_FALSE(platform::LoadMachineDescription(refusal.text, "m.reg", &error));
        EXPECT_EQ(error, refusal.error);
        EXPECT_EQ(platform::MachineDescriptionProblem(), refusal.error);
        // Nothing of the text and nothing from before: the machine is empty.
        EXPECT_TRUE(platform::RegistrySubkeys(HKEY_LOCAL_MACHINE, "").empty());
        EXPECT_FALSE(platform::RegistryKeyExists(HKEY_LOCAL_MACHINE, "S"));
    }
}

TEST_F(MachineDescriptionTest, AFileThatCannotBeReadLeavesTheMachineEmpty) {
    platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, "Software\\langmon");
    std::string error;
    EXPECT_FALSE(platform::LoadMachineDescriptionFile("/nonexistent/machine.reg", &error));
    EXPECT_EQ(error, "/nonexistent/machine.reg: cannot be read (No such file or directory)");
    EXPECT_FALSE(platform::RegistryKeyExists(HKEY_LOCAL_MACHINE, "Software"));
}

// The environment's file is read once per process; a child process sees the
// report on standard error and what it loaded.
TEST(MachineFromEnvironment, ReportsAProblemOnStandardErrorOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            setenv("LANGMON_REGISTRY", "/nonexistent/machine.reg", 1);
            platform::LoadMachineFromEnvironmentOnce();
            const bool reported = !platform::MachineDescriptionProblem().empty();
            setenv("LANGMON_REGISTRY", ExampleMachine().c_str(), 1);
            platform::LoadMachineFromEnvironmentOnce();  // not read again
            std::exit(reported && !platform::RegistryKeyExists(HKEY_LOCAL_MACHINE, "System") ? 0 : 1);
        },
        ::testing::ExitedWithCode(0),
        "^langmon: /nonexistent/machine.reg: cannot be read \\(No such file or directory\\)\n$");
}

TEST_F(MachineDescriptionTest, TheExampleMachineLoads) {
    std::string error;
    ASSERT_TRUE(platform::LoadMachineDescriptionFile(ExampleMachine(), &error)) << error;

    char name[16];
    DWORD size = sizeof name;
    ASSERT_TRUE(GetComputerNameA(name, &size));
    EXPECT_STREQ(name, "OFFICE-PC");
    EXPECT_EQ(GetKeyboardType(1) & 0xD00, 0xD00);
    EXPECT_EQ(platform::RegistryGetDword(HKEY_LOCAL_MACHINE, "SOFTWARE\\Quor\\Status Monitor", "CTIFlag"), 3u);
    EXPECT_EQ(platform::RegistryGetString(HKEY_LOCAL_MACHINE,
                                          "System\\CurrentControlSet\\control\\Print\\Printers\\Quor CL6300",
                                          "Port"),
              "LPT1");
    // A text in Shift-JIS bytes, written as hex(1) over two lines.
    EXPECT_EQ(platform::RegistryGetString(
                  HKEY_LOCAL_MACHINE, "System\\CurrentControlSet\\control\\Print\\Monitors\\Local Port\\Ports\\LPT1",
                  "Description"),
              "ECP \x83v\x83\x8a\x83\x93\x83^ \x83|\x81[\x83g");
}

}  // namespace
}  // namespace langmon
