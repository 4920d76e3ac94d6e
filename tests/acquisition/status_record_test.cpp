// What one status record does to the port's variables: the values clients
// get, the one Condition that wins, what stays untouched, when the port gives
// up on its jobs, and what an allocation failure may leave behind.
#include "acquisition/acquisition_fixture.h"

#include "platform/memory.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string>

namespace langmon {
namespace {

using testing::AcquisitionTest;
using testing::ReadyRecord;

// One PrinterBinConfig entry, from the numbers clients read.
std::vector<uint8_t> Entry(uint16_t binId, uint16_t inputType, uint16_t size, uint8_t level,
                           uint8_t type) {
    std::vector<uint8_t> e(12, 0);
    std::memcpy(&e[0], &binId, 2);
    std::memcpy(&e[2], &inputType, 2);
    std::memcpy(&e[4], &size, 2);
    e[6] = level;
    e[7] = type;
    return e;
}
std::vector<uint8_t> BinConfig(uint32_t count, std::vector<std::vector<uint8_t>> entries) {
    std::vector<uint8_t> v(4, 0);
    std::memcpy(v.data(), &count, 4);
    for (const auto& e : entries) v.insert(v.end(), e.begin(), e.end());
    v.resize(40, 0);
    return v;
}
std::vector<uint8_t> NoPaper(uint16_t binId, uint16_t size, uint8_t type) {
    std::vector<uint8_t> v(8, 0);
    std::memcpy(&v[0], &binId, 2);
    std::memcpy(&v[2], &size, 2);
    v[5] = type;
    return v;
}

class StatusRecordTest : public AcquisitionTest {
protected:
    // PrinterOptConfig as id/subId/value triples, after the count.
    std::vector<uint32_t> Options() {
        std::vector<uint32_t> out;
        const auto* v = static_cast<const uint8_t*>(Var("PrinterOptConfig")->Value);
        for (uint32_t i = 0; v != nullptr && i < Word("PrinterOptConfig"); ++i) {
            OptionEntry e;
            std::memcpy(&e, v + 4 + 8 * i, sizeof e);
            out.insert(out.end(), {e.OptionId, e.OptionSubId, e.OptionValue});
        }
        return out;
    }
};

TEST_F(StatusRecordTest, TheReadyPrinterWithNoJobAndWithOne) {
    const auto feederBefore = Bytes("CurrentFeeder", 4);
    const auto noPaperBefore = Bytes("ErrNoPaper2", 8);
    EXPECT_EQ(Apply(ReadyRecord()), 1);
    EXPECT_EQ(Word("PrinterMemory"), 131072u);
    EXPECT_EQ(Word("ErrCoverOpen"), 0u);
    EXPECT_EQ(Bytes("TonerRemain", 4), (std::vector<uint8_t>{90, 75, 60, 45}));
    EXPECT_EQ(Bytes("CRURemain", 4), (std::vector<uint8_t>{100, 0, 0, 0}));
    EXPECT_EQ(Word("ErrSupplies"), 0u);
    EXPECT_EQ(Word("ErrPaperJam"), 0u);
    EXPECT_EQ(Words("PrinterStatus", 3), (std::vector<uint32_t>{0, 0, 1}));
    EXPECT_EQ(Word("IconState"), 0u);
    EXPECT_EQ(Options(), (std::vector<uint32_t>{1, 1, 0, 8001, 8001, 0, 8002, 8002, 0, 8003, 8003,
                                                0, 8004, 8004, 0}));
    EXPECT_EQ(Bytes("PrinterBinConfig", 40),
              BinConfig(2, {Entry(2001, 2001, 9, 254, 0), Entry(1, 1, 9, 253, 0)}));
    // The feeder is the business of a port with jobs.
    EXPECT_EQ(Bytes("CurrentFeeder", 4), feederBefore);
    EXPECT_EQ(Bytes("ErrNoPaper2", 8), noPaperBefore);

    AddJobRecord(7, port);
    Apply(ReadyRecord());
    EXPECT_EQ(Word("CurrentFeeder"), 1u);
    EXPECT_EQ(Bytes("ErrNoPaper2", 8), NoPaper(1, 9, 0));
    EXPECT_EQ(Words("PrinterStatus", 3), (std::vector<uint32_t>{0, 0, 0x00000008}));
}

// The lowest Condition wins, with the exceptions the printer's states need.
// Each case changes the ready record in the status code, the cover word, the
// engine state or the tray of slot 1, which the feed word names.
TEST_F(StatusRecordTest, OneConditionWinsAndBecomesPrinterStatus) {
    const struct {
        const char* what;
        uint32_t code;
        uint16_t cover;
        uint8_t engine;
        uint16_t tray1;
        bool job;
        uint32_t coverOpen, word1, word2, icon;
    } cases[] = {
        {"cover open on idle", 0x0F01, 0x0200, 0, 0x8082, false, 0x7F, 0, 0x8000, 1},
        {"no Condition, cover open", 0x1000, 0x0200, 0, 0x8082, false, 0x7F, 0, 0, 0},
        {"cancelling, cover open", 0x0400, 0, 0, 0x8082, false, 0x27F, 0, 0, 0},
        {"jam with a job", 0x0700, 0x027F, 0, 0x8082, true, 0, 0, 0x10000, 1},
        {"idle with a job", 0x0F01, 0x027F, 0, 0x8082, true, 0, 0, 0x8, 0},
        {"paper problem, feeder empty, job", 0x0A02, 0x027F, 0, 0xA082, true, 0, 0, 0x800000, 1},
        {"paper problem, feeder empty", 0x0A02, 0x027F, 0, 0xA082, false, 0, 0, 0x4000000, 1},
        {"paper problem, paper there, job", 0x0A02, 0x027F, 0, 0x8082, true, 0, 0, 0x4000000, 1},
        {"paper out, feeder empty, job", 0x0A00, 0x027F, 0, 0xA082, true, 0, 0, 0x40000000, 1},
        {"engine printing", 0x0F01, 0x027F, 1, 0x8082, false, 0, 0, 0x8, 0},
        {"engine busy", 0x0F01, 0x027F, 2, 0x8082, false, 0, 0, 0x200, 2},
        {"engine busy, cover open", 0x0F01, 0, 2, 0x8082, false, 0x27F, 0, 0x8000, 1},
        {"hardware failure", 0x0105, 0x027F, 0, 0x8082, false, 0, 0x80, 0, 1},
        {"warming up", 0x0F00, 0x027F, 0, 0x8082, false, 0, 0, 0x10, 2},
        {"idle 40", 0x0C02, 0x027F, 0, 0x8082, false, 0, 0, 0x40, 0},
        {"idle 39", 0x0E0F, 0x027F, 0, 0x8082, false, 0, 0, 0, 0},
        {"operator attention", 0x0C01, 0x027F, 0, 0x8082, false, 0, 0, 0x1000, 1},
        {"paper problem 19", 0x0A01, 0x027F, 0, 0x8082, false, 0, 0, 0x40000, 1},
        {"out of memory", 0x0A03, 0x027F, 0, 0x8082, false, 0, 0, 0x200000, 1},
        {"supply fault by code", 0x0816, 0x027F, 0, 0x8082, false, 0, 0x80000000, 0, 1},
        {"unit fault by code", 0x0808, 0x027F, 0, 0x8082, false, 0, 0x4, 0, 1},
        {"toner low by code", 0x0E08, 0x027F, 0, 0x8082, false, 0, 0, 0x2, 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        FreeJobRecords(port);
        if (c.job) AddJobRecord(3, port);
        StatusRecord r = ReadyRecord();
        r.StatusCode = c.code;
        r.CoverWord = c.cover;
        r.EngineState = c.engine;
        r.TrayWord[1] = c.tray1;
        Apply(r);
        EXPECT_EQ(Word("ErrCoverOpen"), c.coverOpen);
        EXPECT_EQ(Words("PrinterStatus", 3), (std::vector<uint32_t>{0, c.word1, c.word2}));
        EXPECT_EQ(Word("IconState"), c.icon);
    }
}

// The four toner words and the unit's, then the aux byte.
TEST_F(StatusRecordTest, SuppliesRaiseTheConditionAndOverrideTheLevels) {
    const struct {
        const char* what;
        uint16_t words[5];
        uint8_t aux;
        uint32_t supplies;
        std::vector<uint8_t> toner;
        uint8_t unit;
        uint32_t word1, word2;
    } cases[] = {
        // clang-format off
        {"third toner in state 0", {0x5A23, 0x4B23, 0x3C20, 0x2D23, 0x6403}, 3,
         0x00000004, {90, 75, 255, 45}, 100, 0, 0x2000},
        {"unit marker word", {0x5A23, 0x4B23, 0x3C23, 0x2D23, 0x7F03}, 3,
         0x40000000, {90, 75, 60, 45}, 254, 0, 1},
        {"toner marker word", {0x5A23, 0x7F03, 0x3C23, 0x2D23, 0x6403}, 3,
         0, {90, 254, 60, 45}, 100, 0, 1},
        {"two in state 1, one in 2", {0x5A21, 0x4B21, 0x3C23, 0x2D22, 0x6403}, 3,
         0x00080300, {90, 75, 60, 45}, 100, 0, 0x4000},
        {"one in state 2", {0x5A23, 0x4B22, 0x3C23, 0x2D23, 0x6403}, 3,
         0x00020000, {90, 75, 60, 45}, 100, 0, 0x2},
        {"states 0 and 1", {0x5A20, 0x4B21, 0x3C23, 0x2D23, 0x6403}, 3,
         0x00000201, {255, 75, 60, 45}, 100, 0, 0x2000},
        {"fourth toner fault", {0x5A23, 0x4B23, 0x3C23, 0x2D63, 0x6403}, 3,
         0x08000000, {90, 75, 60, 255}, 100, 0x80000000, 0},
        {"unit fault", {0x5A23, 0x4B23, 0x3C23, 0x2D23, 0x640B}, 3,
         0x80000000, {90, 75, 60, 45}, 100, 0x4, 0},
        {"toner and unit fault", {0x5A23, 0x4B23, 0x3C23, 0x2D63, 0x6423}, 3,
         0x88000000, {90, 75, 60, 255}, 100, 0x80000000, 0},
        {"unit supply fault", {0x5A23, 0x4B23, 0x3C23, 0x2D23, 0x6443}, 3,
         0x10000000, {90, 75, 60, 45}, 255, 0x80000000, 0},
        {"unit in state 0", {0x5A23, 0x4B23, 0x3C23, 0x2D23, 0x6400}, 3,
         0x00000010, {90, 75, 60, 45}, 255, 0, 0x2000},
        {"sixth item in state 0", {0x5A23, 0x4B23, 0x3C23, 0x2D23, 0x6403}, 0x10,
         0x00000020, {90, 75, 60, 45}, 100, 0, 0x2000},
        {"sixth item in state 1", {0x5A23, 0x4B23, 0x3C23, 0x2D23, 0x6403}, 0x01,
         0x00002000, {90, 75, 60, 45}, 100, 0, 0x4000},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        StatusRecord r = ReadyRecord();
        for (int i = 0; i < 4; ++i) r.SupplyWord[i] = c.words[i];
        r.CruWord = c.words[4];
        r.AuxByte = c.aux;
        Apply(r);
        EXPECT_EQ(Word("ErrSupplies"), c.supplies);
        EXPECT_EQ(Bytes("TonerRemain", 4), c.toner);
        EXPECT_EQ(Bytes("CRURemain", 4), (std::vector<uint8_t>{c.unit, 0, 0, 0}));
        EXPECT_EQ(Words("PrinterStatus", 3), (std::vector<uint32_t>{0, c.word1, c.word2}));
    }
}

TEST_F(StatusRecordTest, HardwareNumberIdleFlagAndPeriodicChange) {
    StatusRecord r = ReadyRecord();
    r.StatusCode = 0x0105;
    r.HwErrorHigh = 0x12;
    r.HwErrorLow = 0x3456;
    Apply(r);
    EXPECT_EQ(Word("ErrHWError"), 0x123456u);
    r = ReadyRecord();
    r.HwErrorHigh = 0x77;  // not a hardware failure: the last number stays
    Apply(r);
    EXPECT_EQ(Word("ErrHWError"), 0x123456u);
    r.StatusCode = 0x0E0F;  // idle 39 shows in the supplies' flags
    Apply(r);
    EXPECT_EQ(Word("ErrSupplies"), 0x40000000u);

    r = ReadyRecord();
    const uint8_t aux[] = {0x13, 0x23, 0x33, 0x03, 0xD3};
    const uint32_t change[] = {1, 0, 0, 0, 1};
    for (int i = 0; i < 5; ++i) {
        r.AuxByte = aux[i];
        Apply(r);
        EXPECT_EQ(Word("ErrPeriodicChange"), change[i]) << int(aux[i]);
    }
}

TEST_F(StatusRecordTest, JamPlacesCloseTheGapOfBitSix) {
    const struct {
        uint32_t jam, places, word1, word2;
    } cases[] = {
        {0x00000040, 0, 0x8, 0},           {0x00000080, 0x40, 0, 0x10000},
        {0x000000C1, 0x41, 0x8, 0},        {0x00000001, 0x01, 0, 0x10000},
        {0x00100000, 0x80000, 0, 0x10000}, {0xFFE00000, 0, 0, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << std::hex << "jam 0x" << c.jam);
        StatusRecord r = ReadyRecord();
        r.JamWord = c.jam;
        Apply(r);
        EXPECT_EQ(Word("ErrPaperJam"), c.places);
        EXPECT_EQ(Words("PrinterStatus", 3), (std::vector<uint32_t>{0, c.word1, c.word2}));
    }
}

TEST_F(StatusRecordTest, EachTrayWordGivesItsEntry) {
    const struct {
        uint16_t word, inputType, size;
        uint8_t level, type;
    } cases[] = {
        {0x4000, 2001, 0xFFFF, 0, 15}, {0x5000, 2001, 0xFFFF, 254, 15},
        {0x4040, 2001, 0xFFFF, 0, 15}, {0x8000, 1, 0xFFFF, 253, 15},
        {0x9000, 1, 0xFFFF, 253, 15},  {0xA000, 1, 0xFFFF, 0, 15},
        {0xB000, 1, 0xFFFF, 254, 15},  {0x8040, 9, 0xFFFF, 253, 15},
        {0xC000, 3, 0xFFFF, 0, 15},    {0xC040, 3, 0xFFFF, 0, 15},
        {0x800D, 1, 7, 253, 15},       {0x8019, 1, 256, 253, 15},
        {0x801A, 1, 1238, 253, 15},    {0x801B, 1, 0xFFFF, 253, 15},
        {0x801F, 1, 0xFFFF, 253, 15},  {0x8900, 1, 0xFFFF, 253, 19},
        {0x8780, 1, 0xFFFF, 253, 7},   {0x8F80, 1, 0xFFFF, 253, 15},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << std::hex << "tray word 0x" << c.word);
        StatusRecord r = ReadyRecord();
        r.TrayWord[0] = c.word;
        r.TrayWord[1] = 0;
        Apply(r);
        EXPECT_EQ(Bytes("PrinterBinConfig", 40),
                  BinConfig(1, {Entry(2001, c.inputType, c.size, c.level, c.type)}));
    }
}

TEST_F(StatusRecordTest, TraysFillTheEntriesWithoutGapsAndTheFeederIsFoundById) {
    const struct {
        const char* what;
        uint16_t trays[3];
        uint16_t feed;
        std::vector<uint8_t> config;
        uint32_t feeder;
        std::vector<uint8_t> noPaper;
    } cases[] = {
        // clang-format off
        {"slot 1 empty", {0x5082, 0, 0x8082}, 0x8F1B,
         BinConfig(2, {Entry(2001, 2001, 9, 254, 0), Entry(2, 1, 9, 253, 0)}), 2,
         NoPaper(2, 0xFFFF, 7)},
        {"feed slot 3 names no tray", {0x5082, 0x8082, 0}, 0xC002,
         BinConfig(2, {Entry(2001, 2001, 9, 254, 0), Entry(1, 1, 9, 253, 0)}), 2001,
         NoPaper(0, 9, 15)},
        {"fed from an absent tray", {0, 0x8082, 0}, 0x0002,
         BinConfig(1, {Entry(1, 1, 9, 253, 0)}), 1, NoPaper(2001, 9, 15)},
        {"no trays", {0, 0, 0}, 0x4102, BinConfig(0, {}), 0, NoPaper(1, 9, 0)},
        // clang-format on
    };
    AddJobRecord(4, port);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        StatusRecord r = ReadyRecord();
        r.StatusCode = 0x0D00;  // printing: an idle printer would close the job
        for (int i = 0; i < 3; ++i) r.TrayWord[i] = c.trays[i];
        r.FeedWord = c.feed;
        Apply(r);
        EXPECT_EQ(Bytes("PrinterBinConfig", 40), c.config);
        EXPECT_EQ(Word("CurrentFeeder"), c.feeder);
        EXPECT_EQ(Bytes("ErrNoPaper2", 8), c.noPaper);
    }
}

TEST_F(StatusRecordTest, OptionsComeAndGoWithTheirBits) {
    ASSERT_EQ(Var("PrinterOptConfig")->Value, nullptr);
    StatusRecord r = ReadyRecord();
    for (int i = 0; i < 4; ++i) r.SupplyWord[i] &= ~0x20;  // no toner fitted
    r.OptionWord = 0x0005;
    Apply(r);
    EXPECT_EQ(Options(), (std::vector<uint32_t>{1, 1, 0, 3001, 3001, 0}));
    EXPECT_EQ(port->lmBlock.LM_DuplexModule, 1u);
    EXPECT_EQ(port->lmBlock.LM_RamDisk, 0u);
    r.OptionWord = 0x0007;
    Apply(r);
    EXPECT_EQ(Options(), (std::vector<uint32_t>{1, 1, 0, 3001, 3001, 0, 7001, 7001, 0}));
    r.OptionWord = 0x0080;
    Apply(r);
    EXPECT_EQ(Options(), (std::vector<uint32_t>{}));
    EXPECT_EQ(Word("PrinterOptConfig"), 0u);
    EXPECT_EQ(port->lmBlock.LM_DuplexModule, 0u);
    EXPECT_EQ(port->lmBlock.LM_RamDisk, 1u);
    // The first entry stays first; in a list that isn't ascending an id goes
    // in front of the first smaller one that follows one at least as large.
    EXPECT_EQ(AddOption(8001, 8001, 0, port), 1);
    EXPECT_EQ(AddOption(1, 1, 0, port), 1);
    EXPECT_EQ(AddOption(3001, 3001, 5, port), 1);
    EXPECT_EQ(Options(), (std::vector<uint32_t>{8001, 8001, 0, 3001, 3001, 5, 1, 1, 0}));
    EXPECT_EQ(AddOption(3001, 3001, 6, port), 0);
    EXPECT_EQ(RemoveOption(3001, 1, port), 0);
    EXPECT_EQ(RemoveOption(8001, 8001, port), 1);
    EXPECT_EQ(Options(), (std::vector<uint32_t>{3001, 3001, 5, 1, 1, 0}));
}

TEST_F(StatusRecordTest, AnUnchangedRecordChangesNothingClientsWouldSee) {
    AddJobRecord(9, port);
    EXPECT_EQ(Apply(ReadyRecord()), 1);
    ClearDirty();
    EXPECT_EQ(Apply(ReadyRecord()), 0);
    for (const char* name : {"PrinterMemory", "ErrCoverOpen", "TonerRemain", "CRURemain",
                             "ErrPaperJam", "PrinterBinConfig", "ErrNoPaper2", "PrinterOptConfig",
                             "ErrSupplies", "ErrPeriodicChange", "PrinterStatus", "IconState"}) {
        EXPECT_EQ(Var(name)->Dirty, 0u) << name;
    }
    // With jobs on the port the feeder goes out on every record.
    EXPECT_EQ(Var("CurrentFeeder")->Dirty, 1u);

    // A printer that reports no memory leaves the last figure.
    StatusRecord r = ReadyRecord();
    r.MemoryUnits = 0;
    Apply(r);
    EXPECT_EQ(Word("PrinterMemory"), 131072u);
}

TEST_F(StatusRecordTest, AnIconStateThatPublicationFreedIsStoredAgain) {
    StatusRecord open = ReadyRecord();
    open.CoverWord = 0x0200;
    EXPECT_EQ(Apply(open), 1);
    EXPECT_EQ(Apply(open), 0);
    StatusVariable* icon = Var("IconState");
    GlobalFree(icon->Value);
    icon->Value = nullptr;
    EXPECT_EQ(Apply(open), 1);
    EXPECT_EQ(Word("IconState"), 1u);
}

TEST_F(StatusRecordTest, TheThirdIdleRecordWithNoJobBeingSentClosesTheJobs) {
    AddJobRecord(21, port);
    AddJobRecord(22, port);
    const uint32_t codes[] = {0x0F01, 0x0C02, 0x0D00, 0x0E0F};  // idle, idle, printing, idle
    for (const uint32_t code : codes) {
        ASSERT_NE(port->jobListHead, nullptr) << std::hex << code;
        StatusRecord r = ReadyRecord();
        r.StatusCode = code;
        Apply(r);
    }
    EXPECT_EQ(port->jobListHead, nullptr);
    EXPECT_EQ(Words("PrinterStatus", 3), (std::vector<uint32_t>{0, 0, 0}));  // 39: nothing to show

    // A job being sent starts the count again.
    AddJobRecord(23, port);
    Apply(ReadyRecord());
    Apply(ReadyRecord());
    SetPortFlag(port, PF_JOB_ACTIVE);
    Apply(ReadyRecord());
    ClearPortFlag(port, PF_JOB_ACTIVE);
    Apply(ReadyRecord());
    Apply(ReadyRecord());
    EXPECT_NE(port->jobListHead, nullptr);
    Apply(ReadyRecord());
    EXPECT_EQ(port->jobListHead, nullptr);
    EXPECT_EQ(Words("PrinterStatus", 3), (std::vector<uint32_t>{0, 0, 1}));
}

// What a record leaves in the variables clients read, by name; none for no
// value. The options as a sorted set: a list's order depends on how it grew.
using Picture = std::map<std::string, std::optional<std::vector<uint64_t>>>;

Picture Take(PortContext* p) {
    Picture taken;
    for (const char* name :
         {"PrinterMemory", "ErrCoverOpen", "TonerRemain", "CRURemain", "ErrPaperJam",
          "PrinterBinConfig", "CurrentFeeder", "ErrNoPaper2", "PrinterOptConfig", "ErrHWError",
          "ErrSupplies", "ErrPeriodicChange", "PrinterStatus", "IconState"}) {
        const StatusVariable* row = FindVariable(name, p->variables, p);
        if (row->Value == nullptr) {
            taken[name] = std::nullopt;
            continue;
        }
        const bool options = std::strcmp(name, "PrinterOptConfig") == 0;
        std::vector<uint64_t> v((VariableSize(row) + 7 - (options ? 4 : 0)) / 8, 0);
        std::memcpy(v.data(), static_cast<const uint8_t*>(row->Value) + (options ? 4 : 0),
                    VariableSize(row) - (options ? 4 : 0));
        if (options) std::sort(v.begin(), v.end());
        taken[name] = v;
    }
    taken["LM_InputTray"] = std::vector<uint64_t>{p->lmBlock.LM_InputTray};
    return taken;
}

TEST_F(StatusRecordTest, AFailedAllocationLeavesEachVariableOldOrNew) {
    StatusRecord record = ReadyRecord();
    record.SupplyWord[2] = 0x3C20;  // an empty toner: the level override runs too
    auto apply = [&](PortContext* p) {
        StatusRecord copy = record;
        ApplyStatusRecord(&copy, p);
    };
    PortContext* p = Open("LPT2");
    AddJobRecord(1, p);
    apply(p);
    const Picture expected = Take(p);
    Close(p);

    for (const bool andAllAfter : {false, true}) {
        for (std::size_t nth = 1;; ++nth) {
            SCOPED_TRACE(::testing::Message()
                         << "allocation " << nth << (andAllAfter ? " and after" : " alone"));
            p = Open("LPT2");
            ASSERT_NE(p, nullptr);
            AddJobRecord(1, p);
            const Picture before = Take(p);
            platform::FailAllocation(nth, andAllAfter);
            apply(p);
            const bool hit = platform::AllocationFailureHit();
            platform::StopFailingAllocations();
            const Picture after = Take(p);
            for (const auto& [name, value] : after) {
                if (name == "PrinterOptConfig" && value.has_value()) {
                    // Each option comes by itself: one that couldn't be had is missing.
                    const auto& all = *expected.at(name);
                    EXPECT_TRUE(
                        std::includes(all.begin(), all.end(), value->begin(), value->end()));
                } else {
                    EXPECT_TRUE(value == before.at(name) || value == expected.at(name)) << name;
                }
            }
            // The trays and their LM_ picture change together or not at all.
            EXPECT_EQ(after.at("PrinterBinConfig") == expected.at("PrinterBinConfig"),
                      after.at("LM_InputTray") == expected.at("LM_InputTray"));
            apply(p);  // and the port works on as if nothing had happened
            EXPECT_EQ(Take(p), expected);
            Close(p);
            if (!hit) break;
        }
    }
}

}  // namespace
}  // namespace langmon
