// The status code of the "STS:" field as the printer's state and activity give
// it; the rest of the block is checked against the monitor by the round-trip
// scenarios.

#include "emulator/status_block.h"
#include "emulator_test_support.h"

namespace langmon::emulator::emutest {
namespace {

Block BlockOf(const PrinterState& state, Activity activity = Activity::Idle) {
    return StsOf(BuildDeviceId(state, EvaluateCondition(state, activity)));
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

}  // namespace
}  // namespace langmon::emulator::emutest
