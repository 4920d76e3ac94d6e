// The "STS:" field of the device ID, decoded the way the host decodes it.

#include "emulator/status_block.h"
#include "emulator_test_support.h"

namespace langmon::emulator::emutest {
namespace {

// Four toners fitted at 90, 75, 60 and 45, a full unit, an idle printer of
// 128 MB with a duplex unit, ten sheets of A4 plain in the multi-purpose
// tray, 250 of 500 in cassette 1, which feeds.
PrinterState WholeFieldState() {
    PrinterState state = PrinterState::Default();
    state.toners = {Toner{.level = 90}, Toner{.level = 75}, Toner{.level = 60}, Toner{.level = 45}};
    state.unit.level = 100;
    state.wasteState = SupplyState::Ok;
    state.trays[0] = Tray{TrayKind::Manual, false, 10, 100, 2, 1};
    state.trays[1] = Tray{TrayKind::Normal, false, 250, 500, 2, 1};
    state.trays[2] = Tray{};
    state.feedSlot = 1;
    state.duplex = true;
    state.memoryMB = 128;
    return state;
}

Block BlockOf(const PrinterState& state, Activity activity = Activity::Idle) {
    return StsOf(BuildDeviceId(state, EvaluateCondition(state, activity)));
}

// The whole field byte for byte: code 0x0F01, 4 x 32 MB, covers closed
// (0x027F), toners 0x5A23.. fitted with nothing to report, the unit 0x6403,
// the MP tray 0x5082 (low), cassette 0x8082 (some paper), feed 0x4102, duplex.
TEST(StatusBlockTest, WholeFieldOfAnIdlePrinter) {
    const std::string id = BuildDeviceId(WholeFieldState(), EvaluateCondition(WholeFieldState(), Activity::Idle));
    EXPECT_NE(id.find("STS:AAAPAQAAAAAABAJ/WiNLIzwjLSNkAwADUIKAggAAQQIAAQAAAAAAAAAA;"), std::string::npos) << id;
    EXPECT_NE(id.find("MDL:Laser Printer 6200tx;"), std::string::npos) << id;
    EXPECT_NE(id.find("CMD:PJL,NPDL,NMPS-C;"), std::string::npos) << id;
    EXPECT_EQ(id.back(), ';');
}

TEST(StatusBlockTest, StatusCodeFollowsTheState) {
    struct Case {
        const char* what;
        void (*change)(PrinterState&);
        Activity activity;
        uint32_t code;
        uint8_t engine;
    };
    const Case cases[] = {
        {"idle", [](PrinterState&) {}, Activity::Idle, 0x0F01, 0},
        {"warming up", [](PrinterState&) {}, Activity::WarmingUp, 0x0F00, 0},
        {"printing", [](PrinterState&) {}, Activity::Printing, 0x0D00, 1},
        {"busy", [](PrinterState&) {}, Activity::Busy, 0x0C02, 2},
        {"cancelling", [](PrinterState&) {}, Activity::Cancelling, 0x0400, 0},
        {"cover open", [](PrinterState& s) { s.openCovers = CoverFront; }, Activity::Idle, 0x0900, 0},
        {"jam", [](PrinterState& s) { s.jamPlaces = 1u << 3; }, Activity::Idle, 0x0700, 0},
        {"paper out", [](PrinterState& s) { s.trays[s.feedSlot].sheets = 0; }, Activity::Idle, 0x0A00, 0},
        {"out of memory", [](PrinterState& s) { s.outOfMemory = true; }, Activity::Idle, 0x0A03, 0},
        {"operator call", [](PrinterState& s) { s.operatorAttention = true; }, Activity::Idle, 0x0C01, 0},
        {"hardware", [](PrinterState& s) { s.hardwareError = 0x0001002A; }, Activity::Idle, 0x0100, 0},
        {"toner empty", [](PrinterState& s) { s.toners[3].level = 0; }, Activity::Idle, 0x0803, 0},
        {"toner missing", [](PrinterState& s) { s.toners[1].fitted = false; }, Activity::Idle, 0x0801, 0},
        {"toner fault", [](PrinterState& s) { s.toners[2].fault = true; }, Activity::Idle, 0x0817, 0},
        {"unit fault", [](PrinterState& s) { s.unit.fault = true; }, Activity::Idle, 0x0805, 0},
        {"toner near end", [](PrinterState& s) { s.toners[0].level = 2; }, Activity::Idle, 0x0E04, 0},
        {"toner low", [](PrinterState& s) { s.toners[3].level = 5; }, Activity::Idle, 0x0E0B, 0},
        {"waste box full", [](PrinterState& s) { s.wasteState = SupplyState::Empty; }, Activity::Idle, 0x0E03, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        PrinterState state = PrinterState::Default();
        c.change(state);
        const Block block = BlockOf(state, c.activity);
        ASSERT_EQ(block.bytes.size(), 42u);
        EXPECT_EQ(block.code(), c.code) << std::hex << block.code();
        EXPECT_EQ(block.u8(8), c.engine);
    }
}

TEST(StatusBlockTest, WordsOfSuppliesCoversJamsAndOptions) {
    PrinterState state = PrinterState::Default();
    state.toners = {Toner{.level = 2}, Toner{.level = 90, .fitted = false}, Toner{.level = 5, .fault = true},
                    Toner{.level = 0}};
    state.unit = Unit{.level = 40, .fault = true};
    state.wasteState = SupplyState::Low;
    state.periodicChange = true;
    state.openCovers = CoverFront | CoverCassette;
    state.jamPlaces = (1u << 3) | (1u << 6);
    state.hardwareError = 0x0001002A;
    state.option7001 = state.option3001 = state.ramDisk = true;
    state.memoryMB = 256;
    const Block block = BlockOf(state);
    ASSERT_EQ(block.bytes.size(), 42u);
    EXPECT_EQ(block.u16(4), 0x0001u);   // hardware error, high half
    EXPECT_EQ(block.u16(6), 0x002Au);   // and low half
    EXPECT_EQ(block.u8(9), 8);          // 256 MB
    EXPECT_EQ(block.u16(10), 0x007Eu);  // the host's XOR with 0x027F names both covers
    EXPECT_EQ(block.u16(12), 0x0221u);  // level 2, fitted, state 1
    EXPECT_EQ(block.u16(14), 0x5A03u);  // level 90, not fitted
    EXPECT_EQ(block.u16(16), 0x0562u);  // level 5, fault, fitted, state 2
    EXPECT_EQ(block.u16(18), 0x0020u);  // level 0, fitted, state 0
    EXPECT_EQ(block.u16(20) >> 8, 40);  // the unit's level
    EXPECT_NE(block.u16(20) & 0x0038, 0);  // and its fault bits
    EXPECT_EQ(block.u8(23) & 0x03, 2);     // the waste box is low
    EXPECT_EQ((block.u8(23) >> 4) & 0x03, 1);  // periodic change due
    EXPECT_EQ(block.u16(32), 0x0086u);  // 7001, 3001 and the RAM disk, no duplex
    EXPECT_EQ(block.u32(34), 0x48u);    // jam place 3 and the sensor bit

    // A level the printer can't measure goes out as the marker word.
    state.toners[0].level = UnknownLevel;
    state.unit.level = UnknownLevel;
    const Block marked = BlockOf(state);
    EXPECT_EQ(marked.u16(12), 0x7F03u);
    EXPECT_EQ(marked.u16(20), 0x7F03u);
}

TEST(StatusBlockTest, TrayWordsReadEmptyOnlyForAnEmptyTray) {
    for (TrayKind kind : {TrayKind::Manual, TrayKind::Normal, TrayKind::Large}) {
        for (int sheets : {0, 5, 50, 100}) {
            SCOPED_TRACE(testing::Message() << "kind " << int(kind) << ", " << sheets << " sheets");
            PrinterState state = PrinterState::Default();
            state.trays[2] = Tray{kind, false, sheets, 100, 1, 4};  // A3 heavy
            state.feedSlot = 2;
            const Block block = BlockOf(state);
            ASSERT_EQ(block.bytes.size(), 42u);
            const uint16_t word = block.u16(28);
            EXPECT_EQ(word >> 14, static_cast<int>(kind));
            EXPECT_EQ((word >> 7) & 0x1F, 4);  // media type
            EXPECT_EQ(word & 0x1F, 1);         // media size
            EXPECT_EQ(HostBinLevel(word) == 0, sheets == 0) << std::hex << word;
            if (sheets == 100) {
                EXPECT_EQ(HostBinLevel(word), 254);
            }
            EXPECT_EQ(block.u16(30), 0x8401u);  // slot 2 feeds heavy A3
        }
    }
}

}  // namespace
}  // namespace langmon::emulator::emutest
