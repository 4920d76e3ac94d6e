// Reading the machine description: what the REGEDIT4 text may hold, what it
// turns into, and how a malformed text is refused whole with the line named.

#include "platform/machine_description.h"

#include "platform/registry.h"
#include "support/platform_fixture.h"

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace langmon {
namespace {

using MachineDescriptionTest = testing::PlatformTest;
using Typed = std::pair<DWORD, std::vector<BYTE>>;

// The sample description that ships in examples/.
std::string ExampleMachine() {
    return LANGMON_EXAMPLES "/machine.reg";
}

// A key line whose path is `depth` keys deep.
std::string KeyOfDepth(std::size_t depth) {
    std::string line = "[HKEY_LOCAL_MACHINE";
    for (std::size_t level = 0; level < depth; ++level) line += "\\K";
    return line + "]";
}

Typed ValueAt(HKEY root, const char* path, const char* name) {
    const auto value = platform::RegistryGetValue(root, path, name);
    return value ? Typed(value->type, value->data) : Typed(REG_NONE, {});
}

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
    EXPECT_EQ(error + platform::MachineDescriptionProblem(), "");

    const char* quor = "SOFTWARE\\Quor\\Status Monitor";
    EXPECT_EQ(ValueAt(HKEY_LOCAL_MACHINE, quor, "CTIFlag"), Typed(REG_DWORD, {3, 0, 0, 0}));
    EXPECT_EQ(ValueAt(HKEY_LOCAL_MACHINE, quor, "CreateThreadInterval"),
              Typed(REG_DWORD, {0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(platform::RegistryGetString(HKEY_LOCAL_MACHINE, quor, ""), "a \"quoted\" C:\\path");
    EXPECT_EQ(ValueAt(HKEY_LOCAL_MACHINE, quor, "Blob"), Typed(REG_BINARY, {1, 2, 0xAB, 0xCD, 0xFF}));
    EXPECT_EQ(ValueAt(HKEY_LOCAL_MACHINE, quor, "Multi"), Typed(REG_MULTI_SZ, {0x41, 0, 0}));
    EXPECT_EQ(ValueAt(HKEY_LOCAL_MACHINE, quor, "Empty"), Typed(REG_BINARY, {}));
    // A key line alone makes the key.
    EXPECT_TRUE(platform::RegistryKeyExists(HKEY_LOCAL_MACHINE, "SOFTWARE\\Quor\\Status Monitor\\Printers"));
    EXPECT_EQ(platform::RegistryGetString(HKEY_DYN_DATA, "Config Manager\\Enum\\C1A2B3C4", "HardWareKey"),
              "Root\\*PNP0400\\0000");
}

TEST_F(MachineDescriptionTest, RefusesAMalformedTextWholeAndNamesTheLine) {
    const std::string key = "REGEDIT4\n[HKEY_LOCAL_MACHINE\\S]\n";  // then a bad value
    const std::pair<std::string, const char*> refusals[] = {
        {"", "1: empty; the first line must be REGEDIT4"},
        {"; comment\nREGEDIT4\n", "1: the first line must be REGEDIT4"},
        {"REGEDIT4\n\"a\"=dword:1\n", "2: a value before any [key] line"},
        {"REGEDIT4\n[HKEY_CURRENT_USER\\Software]\n",
         "2: unknown root key \"HKEY_CURRENT_USER\" (HKEY_LOCAL_MACHINE or HKEY_DYN_DATA)"},
        {"REGEDIT4\n[HKEY_LOCAL_MACHINE\\a\\\\b]\n", "2: an empty key name in the path"},
        {"REGEDIT4\n[-HKEY_LOCAL_MACHINE\\Software]\n", "2: deleting a key is not supported"},
        {key + "\"a\"=-\n", "3: deleting a value is not supported"},
        {key + "\"a\"=\"open\n", "3: a string without its closing quote"},
        {key + "\"a\"=\"x\\n\"\n", "3: unknown escape \\n in a string"},
        {key + "\"a\"=dword:123456789\n", "3: a dword needs 1 to 8 hex digits and nothing else"},
        {key + "\"a\"=hex:01,\\\n 0g\n", "4: \"0g\" is not a hex byte"},
        {key + "\"a\"=hex:01,02,\n", "3: a hex list ends with ','"},
        {key + "\"a\"=hex:01,\\\n", "3: the hex list goes on past the end of the text"},
        {key + "\"a\"=sz:x\n", "3: unknown kind of value (a string, dword: or hex: expected)"},
        {key + "HKLM\\S\n", "3: not a key, a value or a comment"},
        // Deeper than any registry nests, up to a million levels: refused
        // with the line, not loaded to be freed one level a stack frame.
        {"REGEDIT4\n;\n" + KeyOfDepth(513) + "\n", "3: a key nested deeper than 512 levels"},
        {"REGEDIT4\n" + KeyOfDepth(1000000) + "\n", "2: a key nested deeper than 512 levels"},
    };
    for (const auto& [text, what] : refusals) {
        SCOPED_TRACE(text);
        platform::RegistrySetDword(HKEY_LOCAL_MACHINE, "Software\\langmon", "KeyboardType", 7);
        std::string error;
        EXPECT_FALSE(platform::LoadMachineDescription(text, "m.reg", &error));
        EXPECT_EQ(error, std::string("m.reg:") + what);
        EXPECT_EQ(platform::MachineDescriptionProblem(), error);
        // Nothing of the text and nothing from before: the machine is empty.
        EXPECT_TRUE(platform::RegistrySubkeys(HKEY_LOCAL_MACHINE, "").empty());
    }

    // A file that can't be read, a directory, or one longer than a machine
    // description may be leaves the machine empty too.
    const std::pair<std::string, std::string> files[] = {
        {"/nonexistent/machine.reg", "/nonexistent/machine.reg: cannot be read (No such file or directory)"},
        {"/", "/: cannot be read (Is a directory)"},
        {"/dev/zero", "/dev/zero: more than 33554432 bytes, the most a machine description may hold"},
    };
    for (const auto& [path, what] : files) {
        platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, "Software\\langmon");
        std::string error;
        EXPECT_FALSE(platform::LoadMachineDescriptionFile(path, &error));
        EXPECT_EQ(error, what);
        EXPECT_EQ(platform::MachineDescriptionProblem(), what);
        EXPECT_TRUE(platform::RegistrySubkeys(HKEY_LOCAL_MACHINE, "").empty());
    }
}

// As deep as a registry nests, and as many printers as a large machine
// lists: keys enumerate in the order the file first names them, whatever
// case it names them in later, and each is found by its name in any case.
TEST_F(MachineDescriptionTest, ManyKeysAndDeepKeysLoadAsTheFileNamesThem) {
    const std::string printers = "System\\CurrentControlSet\\control\\Print\\Printers";
    std::string text = "REGEDIT4\n" + KeyOfDepth(512) + "\n\"Deep\"=dword:1\n";
    constexpr int Count = 5000;
    for (int i = 0; i < Count; ++i) {
        text += "[HKEY_LOCAL_MACHINE\\" + printers + "\\Printer " + std::to_string(Count - i) + "]\n";
        text += "\"Port\"=\"LPT1:\"\n";
    }
    // Named again in other cases: the same keys and values, which keep their places.
    text += "[HKEY_LOCAL_MACHINE\\SYSTEM\\currentcontrolset\\CONTROL\\print\\PRINTERS\\PRINTER 2]\n";
    text += "\"PORT\"=\"USB001\"\n";
    std::string error;
    ASSERT_TRUE(platform::LoadMachineDescription(text, "big.reg", &error)) << error;

    const std::vector<std::string> names = platform::RegistrySubkeys(HKEY_LOCAL_MACHINE, printers);
    ASSERT_EQ(names.size(), std::size_t{Count});
    for (int i = 0; i < Count; ++i) ASSERT_EQ(names[i], "Printer " + std::to_string(Count - i));
    EXPECT_EQ(platform::RegistryGetString(HKEY_LOCAL_MACHINE, printers + "\\printer 2", "port"), "USB001");
    EXPECT_EQ(platform::RegistryValueNames(HKEY_LOCAL_MACHINE, printers + "\\Printer 2"),
              std::vector<std::string>{"Port"});
    EXPECT_EQ(platform::RegistryGetString(HKEY_LOCAL_MACHINE, printers + "\\PRINTER 4999", "Port"), "LPT1:");
    std::string deep;
    for (int level = 0; level < 512; ++level) deep += "\\K";
    EXPECT_EQ(platform::RegistryGetDword(HKEY_LOCAL_MACHINE, deep, "Deep"), 1u);
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

// The example machine's ports are classified in the port-kind tests; its own
// here is a text in Shift-JIS bytes, written as hex(1) over two lines.
TEST_F(MachineDescriptionTest, TheExampleMachineLoadsItsShiftJisText) {
    std::string error;
    ASSERT_TRUE(platform::LoadMachineDescriptionFile(ExampleMachine(), &error)) << error;
    EXPECT_EQ(platform::RegistryGetString(
                  HKEY_LOCAL_MACHINE, "System\\CurrentControlSet\\control\\Print\\Monitors\\Local Port\\Ports\\LPT1",
                  "Description"),
              "ECP \x83v\x83\x8a\x83\x93\x83^ \x83|\x81[\x83g");
}

// Found by the fuzzer: a name with a NUL byte made a key that RegEnumKeyExA
// lists and RegOpenKeyExA, which takes a C text, can never open (it finds
// the key named by the bytes before the NUL, or none). Such a file is
// refused like any other malformed one.
TEST_F(MachineDescriptionTest, RefusesANameWithANulByte) {
    using namespace std::string_literals;
    const std::pair<std::string, const char*> refusals[] = {
        {"REGEDIT4\n[HKEY_LOCAL_MACHINE\\Syst\0m]\n"s, "m.reg:2: a NUL byte in a key name"},
        {"REGEDIT4\n[HKEY_LOCAL_MACHINE\\S]\n\"a\0b\"=\"x\"\n"s, "m.reg:3: a NUL byte in a value name"},
    };
    for (const auto& [text, what] : refusals) {
        std::string error;
        EXPECT_FALSE(platform::LoadMachineDescription(text, "m.reg", &error));
        EXPECT_EQ(error, what);
        EXPECT_TRUE(platform::RegistrySubkeys(HKEY_LOCAL_MACHINE, "").empty());
    }
    // A text may hold one: its bytes are the value's.
    std::string error;
    ASSERT_TRUE(platform::LoadMachineDescription("REGEDIT4\n[HKEY_LOCAL_MACHINE\\S]\n\"a\"=\"x\0y\"\n"s, "m.reg", &error))
        << error;
    EXPECT_EQ(ValueAt(HKEY_LOCAL_MACHINE, "S", "a"), Typed(REG_SZ, {'x', 0, 'y', 0}));
}

}  // namespace
}  // namespace langmon
