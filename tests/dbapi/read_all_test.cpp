// The read-all opens (KFr_Fibex_OpenEx / KFr_AutoSar_OpenEx with KELO_DB_READ_ALL) on files laid
// out the way authoring tools write them: the slot table entry by entry against the strict open,
// signals to frames, decoding and encoding through the opened database, and the notes on what
// the reader skipped or read in its own way.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "autosar/autosar_reader.h"
#include "dbapi_test_support.h"
#include "fibex/fibex_reader.h"

namespace {

using namespace kelo_dbapi_test;

const std::string kPackages = dataFile("autosar/read-all-packages-4.2.arxml");
const std::string kCompuMethods = dataFile("autosar/read-all-compu-methods-4.2.arxml");
const std::string kTimings = dataFile("fibex/read-all-timings.xml");
const std::string kUnreadable = dataFile("fibex/read-all-unreadable.xml");
const std::string kBodyStatus = "/Body/Communication/Frames/BodyCtrl/Status";
const std::string kGatewayStatus = "/Body/Communication/Frames/Gateway/Deep/Deeper/Status";

using SlotTable = std::map<std::pair<int, int>, std::string>;  // (slot, cycle) -> frame

// The slot table as the frame-name export answers it (the test files use slots below 64).
SlotTable slotTable(unsigned char (*frameName)(const unsigned char*, char*)) {
    SlotTable table;
    char name[256];
    for (int slot = 1; slot < 64; ++slot) {
        for (int cycle = 0; cycle < 64; ++cycle) {
            const auto header =
                rxHeader(static_cast<std::uint16_t>(slot), static_cast<std::uint8_t>(cycle));
            EXPECT_EQ(frameName(header.data(), name), 0);
            if (name[0] != '\0') table[{slot, cycle}] = name;
        }
    }
    return table;
}

struct Timing {
    int slot, base, repetition;
    std::string frame;
};
// The cells a list of timings claims, the first claim of a cell winning.
SlotTable expand(const std::vector<Timing>& timings) {
    SlotTable table;
    for (const Timing& t : timings) {
        for (int cycle = t.base; cycle < 64; cycle += t.repetition)
            table.emplace(std::make_pair(t.slot, cycle), t.frame);
    }
    return table;
}

using OpenEx = unsigned char (*)(const char*, unsigned int);
using FrameName = unsigned char (*)(const unsigned char*, char*);
bool isFibex(const std::string& path) {
    return path.size() > 4 && path.compare(path.size() - 4, 4, ".xml") == 0;
}
OpenEx openExOf(const std::string& path) {
    return isFibex(path) ? KFr_Fibex_OpenEx : KFr_AutoSar_OpenEx;
}
FrameName frameNameOf(const std::string& path) {
    return isFibex(path) ? KFr_Fibex_GetFrameName : KFr_AutoSar_GetFrameName;
}

TEST(ReadAllOpen, SlotTablesEntryByEntryAgainstTheStrictOpen) {
    const std::vector<Timing> fibexAll = {{12, 0, 2, "TwoTimings"},  {13, 1, 2, "TwoTimings"},
                                          {20, 0, 4, "FourTimings"}, {20, 1, 4, "FourTimings"},
                                          {21, 2, 4, "FourTimings"}, {21, 3, 4, "FourTimings"},
                                          {7, 0, 1, "TimedOnA"}};
    const struct {
        std::string path;
        int strictStatus;
        std::vector<Timing> strict, readAll;
    } cases[] = {
        // The channel-B triggering without timing clears TimedOnA's schedule in the strict read.
        {kTimings, 0, {{12, 0, 2, "TwoTimings"}, {20, 0, 4, "FourTimings"}}, fibexAll},
        {kUnreadable, 7, {}, fibexAll},
        // Strict: only the first package of frames is read, so both triggerings of "Status"
        // meet the BodyCtrl frame and "Slow" has no name.
        {kPackages,
         0,
         {{5, 0, 1, "Status"}, {6, 1, 2, "Status"}, {10, 0, 2, "Fast"}},
         {{5, 0, 1, kBodyStatus},
          {6, 1, 2, kGatewayStatus},
          {10, 0, 2, "Fast"},
          {11, 1, 2, "Fast"},
          {20, 3, 4, "Slow"}}},  // repetition 4: one cycle in four
        {kCompuMethods, 7, {}, {{3, 0, 1, "Values"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        ASSERT_EQ(openExOf(c.path)(c.path.c_str(), 0), c.strictStatus);
        if (c.strictStatus == 0) {
            EXPECT_EQ(slotTable(frameNameOf(c.path)), expand(c.strict));
        }
        ASSERT_EQ(openExOf(c.path)(c.path.c_str(), KELO_DB_READ_ALL), 0);
        const SlotTable readAll = slotTable(frameNameOf(c.path));
        EXPECT_EQ(readAll, expand(c.readAll));
        std::printf("[ slots    ] %s: strict %zu cells%s, read-all %zu cells\n", c.path.c_str(),
                    expand(c.strict).size(), c.strictStatus ? " (refused)" : "", readAll.size());
    }
}

TEST(ReadAllOpen, FlagsZeroIsTheStrictOpenAndUnknownFlagsChangeNothing) {
    ASSERT_EQ(KFr_AutoSar_Open(kPackages.c_str()), 0);
    const SlotTable strict = slotTable(KFr_AutoSar_GetFrameName);
    ASSERT_EQ(KFr_AutoSar_OpenEx(kPackages.c_str(), 0), 0);
    EXPECT_EQ(slotTable(KFr_AutoSar_GetFrameName), strict);
    for (const std::string& refused : {kCompuMethods, kAutosar.unsupported, kAutosar.malformed})
        EXPECT_EQ(KFr_AutoSar_OpenEx(refused.c_str(), 0), KFr_AutoSar_Open(refused.c_str()));
    EXPECT_EQ(KFr_Fibex_OpenEx(kUnreadable.c_str(), 0), 7);
    // Not a database at all: refused with read-all too.
    EXPECT_EQ(KFr_Fibex_OpenEx(kPackages.c_str(), KELO_DB_READ_ALL), 7);
    EXPECT_EQ(KFr_AutoSar_OpenEx(kTimings.c_str(), KELO_DB_READ_ALL), 7);
    EXPECT_EQ(KFr_AutoSar_OpenEx(kAutosar.malformed.c_str(), KELO_DB_READ_ALL), 7);

    // Files the strict readers read whole give the same slot table either way.
    for (const Format* f : kFormats) {
        SCOPED_TRACE(f->name);
        ASSERT_EQ(openExOf(f->example)(f->example.c_str(), 0), 0);
        const SlotTable exampleStrict = slotTable(f->frameName);
        ASSERT_EQ(openExOf(f->example)(f->example.c_str(), KELO_DB_READ_ALL), 0);
        EXPECT_EQ(slotTable(f->frameName), exampleStrict);
        EXPECT_FALSE(exampleStrict.empty());
    }

    ASSERT_EQ(KFr_Fibex_OpenEx(kTimings.c_str(), KELO_DB_READ_ALL), 0);
    EXPECT_EQ(KFr_Fibex_OpenEx(kUnreadable.c_str(), 0x2u), 5);
    EXPECT_EQ(KFr_Fibex_OpenEx(nullptr, KELO_DB_READ_ALL), 9);
    char name[64];
    EXPECT_EQ(KFr_Fibex_GetFrameName(rxHeader(13, 1).data(), name), 0);
    EXPECT_STREQ(name, "TwoTimings");  // still the read-all database
    EXPECT_EQ(KFr_Fibex_Close(), 0);
}

TEST(ReadAllOpen, TheCodecOnImpliedCategoriesSharedNamesAndEveryTiming) {
    const std::string bodyCounter = "/Body/Communication/Signals/BodyCtrl/Counter";
    const std::string gatewayCounter = "/Body/Communication/Signals/Gateway/Counter";
    const struct {
        const std::string& file;
        std::string signal;
        int slot, cycle;
        std::vector<unsigned char> payload;
        float value;
    } rows[] = {
        {kPackages, "Speed", 5, 9, {200}, 100},
        {kPackages, bodyCounter, 5, 9, {0, 0, 7}, 7},
        {kPackages, "Temp", 6, 3, {0, 60}, 20},
        {kPackages, gatewayCounter, 6, 3, {0x3A}, 10},
        // Implied categories: x0.25; the first of two linear scales; texts and nothing decode
        // raw; 2x - 10, the linear scale after the "SNA" text; BITFIELD_TEXTTABLE raw.
        {kCompuMethods, "SigLinear", 3, 0, {16}, 4},
        {kCompuMethods, "SigScale", 3, 0, {0, 0, 50}, 50},
        {kCompuMethods, "SigTexts", 3, 0, {0, 0, 0, 1}, 1},
        {kCompuMethods, "SigBoth", 3, 0, {0, 0, 0, 0, 30}, 50},
        {kCompuMethods, "SigNone", 3, 0, {0, 0, 0, 0, 0, 9}, 9},
        {kCompuMethods, "SigBitfield", 3, 0, {0, 0, 0, 0, 0, 0, 2}, 2},
        // RollRate (x0.5 - 10) in both timings of TwoTimings; only the read-all table has 13.
        {kTimings, "RollRate", 12, 2, {0x2C, 1}, 140},
        {kUnreadable, "RollRate", 13, 1, {0x2C, 1}, 140},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.signal);
        const bool fibex = isFibex(row.file);
        ASSERT_EQ(openExOf(row.file)(row.file.c_str(), KELO_DB_READ_ALL), 0);
        unsigned char payload[510] = {};
        std::copy(row.payload.begin(), row.payload.end(), payload);
        float value = -1;
        const auto header =
            rxHeader(static_cast<std::uint16_t>(row.slot), static_cast<std::uint8_t>(row.cycle));
        EXPECT_EQ((fibex ? KFr_Fibex_decodeSignal : KFr_AutoSar_decodeSignal)(
                      header.data(), payload, row.signal.c_str(), &value),
                  0);
        EXPECT_FLOAT_EQ(value, row.value);
    }
    unsigned char out[8] = {};
    EXPECT_EQ(KFr_AutoSar_encodeSignal("SigBoth", 50.0f, out, 8), 0);
    EXPECT_EQ(out[4], 30);
    float value = 0;
    ASSERT_EQ(KFr_Fibex_Open(kTimings.c_str()), 0);
    EXPECT_EQ(KFr_Fibex_decodeSignal(rxHeader(13, 1).data(), out, "RollRate", &value), 17);
    // The channel-B triggering without timing no longer clears TimedOnA's slot.
    ASSERT_EQ(KFr_Fibex_OpenEx(kTimings.c_str(), KELO_DB_READ_ALL), 0);
    unsigned char block[12] = {};
    EXPECT_EQ(KFr_Fibex_GetSlotParameter("TimedOnA", 0, 0, block), 0);
    EXPECT_EQ(le(block, 2, 2), 7u);
    EXPECT_EQ(KFr_Fibex_Close(), 0);

    // A shared SHORT-NAME is not a key; the full path is, in every query and list.
    ASSERT_EQ(KFr_AutoSar_OpenEx(kPackages.c_str(), KELO_DB_READ_ALL), 0);
    char frame[256];
    unsigned char first = 0;
    EXPECT_EQ(KFr_AutoSar_GetFrameName_BySignalName("Counter", frame, &first), 14);
    EXPECT_EQ(KFr_AutoSar_GetFrameName_BySignalName(gatewayCounter.c_str(), frame, &first), 0);
    EXPECT_EQ(frame, kGatewayStatus);
    char list[512];
    unsigned int total = 0, count = 0;
    EXPECT_EQ(KFr_AutoSar_GetAllFrameName_ByECUName("Gateway", list, sizeof list, &total, &count),
              0);
    EXPECT_EQ(std::string(list), kGatewayStatus + ";Slow");
    EXPECT_EQ(KFr_AutoSar_GetAllSignalName_ByFrameName(kGatewayStatus.c_str(), list, sizeof list,
                                                       &total, &count),
              0);
    EXPECT_EQ(std::string(list), gatewayCounter + ";Temp");
    EXPECT_EQ(KFr_AutoSar_Close(), 0);
}

TEST(ReadAllOpen, NotesSayWhatWasSkippedOrReadInItsOwnWay) {
    kelo::autosar::AutoSarReader compu(kCompuMethods, true);
    ASSERT_TRUE(compu.IsLoaded());
    const auto& methods = compu.Database().compuMethods;
    const std::pair<const char*, const char*> implied[] = {
        {"CM_Linear", "LINEAR"},   {"CM_Scale", "SCALE_LINEAR"},
        {"CM_Texts", "TEXTTABLE"}, {"CM_Both", "SCALE_LINEAR_AND_TEXTTABLE"},
        {"CM_None", "IDENTICAL"},  {"CM_Bitfield", "TEXTTABLE"}};
    for (const auto& [name, category] : implied)
        EXPECT_EQ(methods.at(name).category, category) << name;
    EXPECT_EQ(compu.Database().units.size(), 3u);  // km_h, degC and the empty unit references
    const std::vector<std::string>& notes = compu.Database().notes;
    ASSERT_EQ(notes.size(), 7u);
    EXPECT_EQ(notes[0], "error #13 in ParseUnits: UNIT without SHORT-NAME skipped");
    EXPECT_EQ(notes[6],
              "error #16 in ParseCompuMethods: CATEGORY 'BITFIELD_TEXTTABLE' of "
              "COMPU-METHOD 'CM_Bitfield' read as TEXTTABLE");

    // A release the strict reader refuses, read as 4.2.
    kelo::autosar::AutoSarReader newer(std::string(), true);
    EXPECT_EQ(newer.LoadText(R"(<AUTOSAR xsi:schemaLocation="http://autosar.org/schema/r4.0 )"
                             R"(AUTOSAR_00048.xsd"><AR-PACKAGES/></AUTOSAR>)"),
              0);
    EXPECT_EQ(newer.Database().notes.at(0),
              "error #12 in LoadFile: Release of schema 'AUTOSAR_00048.xsd' read as release 4.2");

    kelo::fibex::BusDatabase database;
    kelo::fibex::FibexReader fibex(database);
    fibex.readAll = true;
    fibex.ReadFIBEXData(kUnreadable);
    ASSERT_TRUE(fibex.loaded);
    EXPECT_EQ(database.versionCode, 3);
    EXPECT_EQ(database.notes, (std::vector<std::string>{
                                  "error #41 in LoadFile: Version '4.1.0' read as version code 3",
                                  "error #42 in ParseCodings: fx:CODING without SHORT-NAME skipped",
                                  "error #42 in ParseECUs: fx:ECU without SHORT-NAME skipped"}));
    EXPECT_EQ(database.ecusByName.count("Brake"), 1u);
}

}  // namespace
