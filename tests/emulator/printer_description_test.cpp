// A printer described in words: single keys, a state file, and the short
// form a user gives after "emulator:".

#include "emulator/printer_description.h"
#include "emulator/status_block.h"
#include "emulator_test_support.h"

#include <cstdio>
#include <fstream>

namespace langmon::emulator::emutest {
namespace {

TEST(PrinterDescriptionTest, KeysSetTheStateAndNameWhatIsWrong) {
    PrinterState state = PrinterState::Default();
    for (auto [key, value] : {std::pair{"toner.cyan", "4"}, {"toner.black.fitted", "no"}, {"tray.2.kind", "large"},
                              {"feed", "mp"}, {"covers", "front,rear"}, {"setting.PAPERTYPE3", "RECYCLE"}}) {
        EXPECT_EQ(SetPrinterValue(state, key, value), "") << key;
    }
    EXPECT_EQ(state.toners[0].level, 4);
    EXPECT_FALSE(state.toners[3].fitted);
    EXPECT_EQ(state.trays[2].kind, TrayKind::Large);
    EXPECT_EQ(state.feedSlot, 0);
    EXPECT_EQ(state.openCovers, CoverFront | CoverRear);
    EXPECT_EQ(state.settings["PAPERTYPE3"], "RECYCLE");

    EXPECT_EQ(SetPrinterValue(state, "toner.cyan", "200"), "bad value \"200\" for toner.cyan");
    EXPECT_EQ(SetPrinterValue(state, "service-tag", "ABC"), "bad value \"ABC\" for service-tag");
    EXPECT_EQ(SetPrinterValue(state, "setting.COPIES", "1000"), "bad value \"1000\" for setting.COPIES");
    EXPECT_EQ(SetPrinterValue(state, "toner.white", "4"), "unknown key toner.white");
    EXPECT_EQ(state.toners[0].level, 4);
}

TEST(PrinterDescriptionTest, StateFileNamesTheLineOfItsProblem) {
    const std::string path = ::testing::TempDir() + "emulator_state_test.txt";
    std::ofstream(path) << "# a 6300tx short of black toner\n"
                           "model = Laser Printer 6300tx\n"
                           "\n"
                           "toner.black = 3   # low\n"
                           "jam = lots\n";
    PrinterState state = PrinterState::Default();
    EXPECT_EQ(LoadPrinterStateFile(path, state), path + ":5: bad value \"lots\" for jam (places 0 to 20, or none alone)");
    EXPECT_EQ(state.model, Model6300);
    EXPECT_EQ(state.toners[3].level, 3);

    // The same file named after "emulator:", where its problem comes out whole.
    EXPECT_EQ(ApplyPrinterDescription("silent,state=" + path, state), path + ":5: bad value \"lots\" for jam (places 0 to 20, or none alone)");
    std::remove(path.c_str());

    // A directory is no state file, and a file that goes on is read no
    // further than a description may go.
    EXPECT_EQ(ApplyPrinterDescription("state=/", state), "/: cannot be read (Is a directory)");
    EXPECT_EQ(LoadPrinterStateFile("/dev/zero", state),
              "/dev/zero: more than 65536 bytes, the most a printer description may hold");
}

TEST(PrinterDescriptionTest, FaultWordsAfterTheEmulatorPrefix) {
    PrinterState state = PrinterState::Default();
    ASSERT_EQ(ApplyPrinterDescription("jam,silent,paper-out,one-byte,toner-low,warming-up", state), "");
    EXPECT_TRUE(state.faults.silent);
    EXPECT_EQ(state.faults.writeLimit, 1u);
    EXPECT_NE(state.warmUpMs, 0u);
    const Block block = StsOf(BuildDeviceId(state, EvaluateCondition(state, Activity::Idle)));
    EXPECT_EQ(block.code(), 0x0700u);                // the jam is the most urgent
    EXPECT_NE(block.u32(34), 0u);                    // a jam place
    EXPECT_EQ(HostBinLevel(block.u16(26)), 0);       // the feeding cassette is empty
    EXPECT_EQ(block.u16(18) & 0x03, 2);              // black toner low

    PrinterState foreign = PrinterState::Default();
    ASSERT_EQ(ApplyPrinterDescription("foreign,toner.cyan=9", foreign), "");
    EXPECT_EQ(foreign.toners[0].level, 9);
    EXPECT_EQ(BuildDeviceId(foreign, EvaluateCondition(foreign, Activity::Idle)).find("STS:"), std::string::npos);

    EXPECT_EQ(ApplyPrinterDescription("jam,smoke", foreign).rfind("unknown printer word \"smoke\": ", 0), 0u);
}

// After "emulator:" a list goes on over the commas to the next setting or
// fault word, and a word it doesn't take is named with those it does.
TEST(PrinterDescriptionTest, AListGoesOnUpToTheNextSettingOrFaultWord) {
    PrinterState state = PrinterState::Default();
    ASSERT_EQ(ApplyPrinterDescription(
                  "covers=front,top,toner.cyan=4,jam=3,5,options=duplex,ramdisk,silent,commands=PJL,PCL,paper-out",
                  state),
              "");
    EXPECT_EQ(state.openCovers, CoverFront | CoverTop);
    EXPECT_EQ(state.toners[0].level, 4);
    EXPECT_EQ(state.jamPlaces, (1u << 3) | (1u << 5));
    EXPECT_TRUE(state.duplex && state.ramDisk && !state.outTray2);
    EXPECT_TRUE(state.faults.silent);
    EXPECT_EQ(state.commandSet, "PJL,PCL");
    EXPECT_EQ(state.trays[state.feedSlot].sheets, 0);
    // A fault word ends a list: its covers are its own.
    ASSERT_EQ(ApplyPrinterDescription("covers=rear,top,cover-open", state), "");
    EXPECT_EQ(state.openCovers, CoverFront);

    const std::pair<const char*, const char*> wrong[] = {
        {"covers=none,front", "bad value \"none\" for covers (front, top, right, rear, duplex, fuser, toner, "
                              "cassette, or none alone)"},
        {"options=duplex,fax", "bad value \"fax\" for options (duplex, ramdisk, outtray2, option7001, "
                               "option3001, or none alone)"},
    };
    for (const auto& [description, problem] : wrong) {
        EXPECT_EQ(ApplyPrinterDescription(description, state), problem) << description;
    }
}

}  // namespace
}  // namespace langmon::emulator::emutest
