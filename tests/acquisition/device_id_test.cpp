// The printer's device ID as the port reads it: which printers are known
// models, and what maker, model, languages and status the fields leave in
// the variables.
#include "acquisition/acquisition_fixture.h"

#include "acquisition/device_id.h"
#include "platform/memory.h"
#include "support/device_ids.h"

#include <string>

namespace langmon {
namespace {

using testing::AcquisitionTest;
using testing::ForeignPrinterId;
using testing::KnownPrinterId;

class DeviceIdTest : public AcquisitionTest {
protected:
    std::string Text(const char* name) {
        const StatusVariable* row = Var(name);
        return row != nullptr && row->Value != nullptr ? static_cast<const char*>(row->Value)
                                                       : "(none)";
    }
    std::string SysName() { return std::string(port->lmBlock.LM_SysName, 32); }
};

bool SameMask(ModelMask a, ModelMask b) {
    return a.low == b.low && a.high == b.high;
}

TEST_F(DeviceIdTest, TheModelFieldDecidesWhetherThePrinterIsKnown) {
    constexpr ModelMask Earlier{0x5, 0x5};  // what an earlier poll left
    constexpr ModelMask Foreign{0, 0};
    const struct {
        std::string text;
        int known;
        ModelMask mask;
    } cases[] = {
        {"MFG:Quor;MDL:Laser Printer 6200tx;", 1, ModelMask6200},
        {KnownPrinterId, 1, ModelMask6200},
        {"MODEL:Laser Printer 6300tx;", 1, ModelMask6300},
        {"MDL:Laser Printer 6200tx X;", 0, Foreign},
        {"MDL:laser printer 6200tx;", 0, Foreign},
        {"MDL:Laser Printer 6300tx;MODEL:Laser Printer 6200tx;", 1, ModelMask6200},
        {"MDL:Laser Printer 6200tx;MDL:Office Jet 12;", 0, Foreign},
        {ForeignPrinterId, 0, Foreign},
        {"MFG:Quor;CMD:PJL;", 0, Earlier},
        {" MDL:Laser Printer 6200tx;", 0, Earlier},
        {"DES:MDL:Laser Printer 6200tx;", 0, Earlier},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        port->modelMask = Earlier;
        std::string copy = c.text;
        EXPECT_EQ(IdentifyPrinter(port, copy.data()), c.known);
        EXPECT_TRUE(SameMask(port->modelMask, c.mask))
            << std::hex << port->modelMask.low << " " << port->modelMask.high;
    }
}

// What a known printer's fields leave is the round-trip scenarios'; these are
// the other keys, the foreign reading, and a value stored once.
TEST_F(DeviceIdTest, FieldsUnderTheirOtherKeysAndUnchangedValuesAreNotSentAgain) {
    std::string maker = "MANUFACTURER:Quor Co;MDL:Laser Printer 6200tx;";
    ApplyDeviceId(maker.data(), port);
    EXPECT_EQ(Text("PrinterManufacturer"), "Quor Co");
    // The languages end with their field: names behind its ';' are not read.
    std::string known = KnownPrinterId;
    ApplyDeviceId(known.data(), port);
    StoreEmulations("NMPS,NPD;NPDL", port);
    EXPECT_EQ(Words("EmulationInfo", 1), (std::vector<uint32_t>{0}));

    // A known model named under MODEL is known, but its name is not read.
    std::string text = "MODEL:Laser Printer 6300tx;CMD:NPDL;";
    std::string copy = text;
    ASSERT_EQ(IdentifyPrinter(port, copy.data()), 1);
    ApplyDeviceId(text.data(), port);
    EXPECT_EQ(Text("PrinterModel"), "Laser Printer 6200tx");
    EXPECT_EQ(SysName(), std::string("Laser Printer 6200tx") + std::string(12, '\0'));
    EXPECT_EQ(Words("EmulationInfo", 2), (std::vector<uint32_t>{1, 0}));
    // Only a foreign printer is; its languages are not.
    std::string foreign = "MFG:Other;CMD:PCL,NMPS-C;MODEL:Office Jet 12;";
    ApplyForeignDeviceId(foreign.data(), port);
    EXPECT_EQ(foreign, "MFG:Other;CMD:PCL,NMPS-C;MODEL:Office Jet 12;") << "every ';' put back";
    EXPECT_EQ(Text("PrinterManufacturer"), "Other");
    EXPECT_EQ(Text("PrinterModel"), "Office Jet 12");
    EXPECT_EQ(Words("EmulationInfo", 2), (std::vector<uint32_t>{1, 0}));

    EXPECT_EQ(StoreManufacturer("Quor", port), 1);
    EXPECT_EQ(StoreEmulations("PJL,NPDL,NMPS-C;", port), 1);
    ClearDirty();
    EXPECT_EQ(StoreManufacturer("Quor", port), 0);
    EXPECT_EQ(StoreEmulations("NMPS-C,NPDL;", port), 0);
    EXPECT_EQ(Var("PrinterManufacturer")->Dirty + Var("EmulationInfo")->Dirty, 0u);
    // A value that can't be had leaves the last one.
    platform::FailAllocation(1, true);
    EXPECT_EQ(StoreManufacturer("Other", port), 0);
    EXPECT_EQ(StoreEmulations("NPDL;", port), 0);
    platform::StopFailingAllocations();
    EXPECT_EQ(Text("PrinterManufacturer"), "Quor");
    EXPECT_EQ(Words("EmulationInfo", 3), (std::vector<uint32_t>{2, 0, 5}));
}

}  // namespace
}  // namespace langmon
