// The database queries of both formats without a device: names, lists, the codec through the
// exports, the parameter blocks and the status texts. FIBEX rows read
// tests/data/fibex/dbapi-queries.xml, AUTOSAR rows the example system description (or the test
// file a row names).
#include <cstring>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "autosar/autosar_reader.h"
#include "dbapi_test_support.h"

using namespace kelo_dbapi_test;

namespace {

const Format* const F = &kFibex;
const Format* const A = &kAutosar;

// Opens the file a table row works on.
void use(const Format& f, const std::string& file) {
    ASSERT_EQ(f.open(file.c_str()), 0) << file;
}

class NameQueries : public DatabaseTest {};

// The longest name of frames, signals, clusters and ECUs plus its terminator: the room a name
// output needs (names are copied whole, without a bound).
TEST_F(NameQueries, MaxNameLengthHoldsTheLongestNameAndItsTerminator) {
    for (const auto& [f, file, longest] : {std::tuple{F, kQueries, "Sig06_Torque_UB"},
                                           std::tuple{A, kAutosarExample, "Engine_Status_Frame"}}) {
        use(*f, file);
        unsigned int length = 0;
        ASSERT_EQ(f->maxNameLength(&length), 0);
        EXPECT_EQ(length, std::strlen(longest) + 1) << f->name;
    }
}

// A slot nothing uses, and cycles past 63 of a slot used in every cycle, name nothing: the name
// is overwritten with "". (The read-all tests check the used cells of both formats' files.)
TEST_F(NameQueries, FrameNameOutsideTheSlotTableIsEmpty) {
    use(kFibex, kQueries);
    use(kAutosar, kAutosarExample);
    for (const auto& [f, used] : {std::pair{F, 10}, {A, 1}})
        for (const auto& [slot, cycle] : {std::pair{2000, 0}, {0, 0}, {used, 64}, {used, 255}}) {
            char name[64] = "stale";
            EXPECT_EQ(f->frameName(rxHeader(std::uint16_t(slot), std::uint8_t(cycle)).data(), name),
                      0);
            EXPECT_STREQ(name, "") << f->name << " slot " << slot << " cycle " << cycle;
        }
}

// firstUse is 1 the first time a frame is named after a successful open of either format. A
// signal in no frame answers 16; names are compared whole and with their case.
TEST_F(NameQueries, FrameBySignalNameRegistersFirstUseUntilTheNextOpen) {
    const char* const u = "untouched";  // a refused signal leaves the outputs alone
    const std::tuple<const Format*, const char*, int, const char*, int> rows[] = {
        {F, "Sig03_Temp", 0, "Frame20", 1},
        {F, "Sig01_Speed", 0, "Frame20", 0},
        {F, "SharedValue", 0, "SharedFrameA", 1},
        {F, "OrphanValue", 16, u, 0xEE},
        {F, "", 14, u, 0xEE},
        {F, "sig01_speed", 14, u, 0xEE},
        {A, "BrakePressure", 0, "Brake_Status_Frame", 1},
        {A, "AbsActive", 0, "Brake_Status_Frame", 0},
        {A, "BrakePressure_UB", 0, "Brake_Status_Frame", 0}};
    ASSERT_EQ(KFr_AutoSar_Open(kAutosarExample.c_str()), 0);
    ASSERT_EQ(KFr_Fibex_Open(kQueries.c_str()), 0);
    for (const auto& [f, signal, status, name, first] : rows) {
        char frame[64] = "untouched";
        unsigned char firstUse = 0xEE;
        ASSERT_EQ(f->frameBySignal(signal, frame, &firstUse), status) << signal;
        EXPECT_EQ(firstUse, first) << signal;
        EXPECT_STREQ(frame, name) << signal;
    }
    char frame[64];
    unsigned char firstUse = 0;
    ASSERT_EQ(KFr_Fibex_Open(kQueries.c_str()), 0);
    ASSERT_EQ(KFr_Fibex_GetFrameName_BySignalName("Sig01_Speed", frame, &firstUse), 0);
    EXPECT_EQ(firstUse, 1);
    ASSERT_EQ(KFr_Fibex_Close(), 0);  // leaves the AUTOSAR database loaded
    ASSERT_EQ(KFr_AutoSar_GetFrameName_BySignalName("AbsActive", frame, &firstUse), 0);
    EXPECT_EQ(firstUse, 1) << "a FIBEX open starts the AUTOSAR registration afresh too";
}

// ---- AUTOSAR name lists ------------------------------------------------------------------------

using ListQuery = unsigned char (*)(const char*, char*, unsigned int, unsigned int*, unsigned int*);
using ListCall = std::function<unsigned char(char*, unsigned int, unsigned int*, unsigned int*)>;
struct ListRow {
    ListCall call;
    unsigned int bufSize;
    unsigned char status;
    std::string text;
    unsigned int total, count;
};
ListRow ecus(unsigned int bufSize, unsigned char status, const std::string& text,
             unsigned int count) {
    return {KFr_AutoSar_GetAllECUName, bufSize, status, text, 3, count};
}
ListRow keyed(ListQuery query, const char* key, unsigned int bufSize, const std::string& text,
              unsigned int total) {
    return {[=](char* b, unsigned int n, unsigned int* t, unsigned int* c) {
                return query(key, b, n, t, c);
            },
            bufSize,
            0,
            text,
            total,
            total};
}

// The buffer of bufSize bytes sits in a larger sentinel-filled array: nothing past bufSize may be
// written, and what the names leave of it is zero-filled. bufSize: room for everything; exactly
// the room test's limit (every byte used, without a terminator); one less (21, and the count of
// names copied); a name without its separator, and with it; nothing. Then the other lists, and a
// file without clusters. Unknown keys are bad-input rows.
TEST_F(NameQueries, AutosarListsFollowTheDatabaseAndTheRoomTest) {
    const std::string all = "BrakeControl;EngineControl;Gateway";
    const std::string frames =
        "Body_Frame;Brake_NM_Frame;Brake_Status_Frame;Chassis_Frame;Diag_Frame;Dynamic_Frame;"
        "Engine_NM_Frame;Engine_Status_Frame;Gateway_Info_Frame;Gearbox_Frame;Odometer_Frame;"
        "Wheel_Speeds_Frame";
    const auto rows = table(
        ecus(256, 0, all, 3), ecus(34, 0, all, 3), ecus(33, 21, "BrakeControl;EngineControl", 2),
        ecus(12, 21, "", 0), ecus(13, 21, "BrakeControl", 1), ecus(0, 21, "", 0),
        ListRow{KFr_AutoSar_GetAllClusterName, 256, 0, "FlexRayBackbone", 1, 1},
        keyed(KFr_AutoSar_GetAllFrameName_ByClusterName, "FlexRayBackbone", 1024, frames, 12),
        keyed(KFr_AutoSar_GetAllFrameName_ByECUName, "BrakeControl", 1024, frames, 12),
        keyed(KFr_AutoSar_GetAllSignalName_ByFrameName, "Brake_Status_Frame", 256,
              "BrakePressure;BrakePressure_UB;AbsActive", 3),
        ListRow{KFr_AutoSar_GetAllClusterName, 16, 0, "", 0, 0});
    use(kAutosar, kAutosarExample);
    for (const ListRow& row : rows) {
        if (&row == &rows.back())
            use(kAutosar, dataFile("autosar/units-in-second-package-4.1.arxml"));
        SCOPED_TRACE(row.text + ", bufSize " + std::to_string(row.bufSize));
        std::vector<char> buffer(row.bufSize + 16, '#');
        unsigned int total = 0xDEAD, count = 0xBEEF;
        EXPECT_EQ(row.call(buffer.data(), row.bufSize, &total, &count), row.status);
        for (std::size_t i = row.bufSize; i < buffer.size(); ++i)
            EXPECT_EQ(buffer[i], '#') << "written past the buffer at " << i;
        const std::string text(buffer.data(), strnlen(buffer.data(), row.bufSize));
        for (std::size_t i = text.size(); i < row.bufSize; ++i)
            EXPECT_EQ(buffer[i], 0) << "not zero-filled at " << i;
        EXPECT_EQ(text, row.text);
        EXPECT_EQ(total, row.total);
        EXPECT_EQ(count, row.count);
    }
}

// ---- the codec through the exports -------------------------------------------------------------

class SignalsByName : public DatabaseTest {};

// Every signal of Frame20 written into one payload, then every one read back: neighbours must
// not disturb each other. Sig11_Level (IDENTICAL: no factor/offset pair, which encoding treats
// as identity) reads as 0 with 16, Sig18_Wide (a 64-bit field) as 0.
TEST_F(SignalsByName, EveryFrame20SignalRoundTripsInOnePayload) {
    const std::pair<const char*, float> rows[] = {
        {"Sig01_Speed", 100.5f},   {"Sig02_Rpm", 3000.25f},   {"Sig03_Temp", 42.5f},
        {"Sig04_Gear", 5.0f},      {"Sig05_Flag", 1.0f},      {"Sig06_Torque", -300.0f},
        {"Sig07_Angle", -1234.0f}, {"Sig08_Odo", 123456.75f}, {"Sig09_Pressure", 7.5f},
        {"Sig10_Mode", 3.0f},      {"Sig11_Level", -2000.0f}, {"Sig12_Current", 8191.875f},
        {"Sig13_Voltage", -10.0f}, {"Sig14_Status", 7.0f},    {"Sig15_Valid", 1.0f},
        {"Sig16_Counter", 117.5f}, {"Sig17_Big", 4.0e9f},     {"Sig18_Wide", 5.0f},
        {"Sig19_Slope", 64.0f},    {"Sig20_Ratio", 0.5f},     {"Sig01_Speed_UB", 1.0f},
        {"Sig02_Rpm_UB", 0.0f},    {"Sig06_Torque_UB", 1.0f}};
    use(kFibex, kQueries);
    std::vector<unsigned char> payload(510, 0);
    for (const auto& [name, written] : rows)
        ASSERT_EQ(KFr_Fibex_encodeSignal(name, written, payload.data(), 48), 0) << name;
    const auto h = rxHeader(10, 7, 24);
    for (const auto& [name, written] : rows) {
        float value = 0.0f;
        const bool identical = std::strcmp(name, "Sig11_Level") == 0;
        ASSERT_EQ(KFr_Fibex_decodeSignal(h.data(), payload.data(), name, &value),
                  identical ? 16 : 0)
            << name;
        EXPECT_FLOAT_EQ(value, identical || std::strcmp(name, "Sig18_Wide") == 0 ? 0.0f : written)
            << name;
    }
}

// Raw 1 of a signal sets the field's least significant bit alone (byte orders, PDU offsets);
// an update bit sets exactly one bit, and takes the lowest bit of the value.
TEST_F(SignalsByName, AutosarFieldsAndUpdateBitsLandWhereTheRecordsPlaceThem) {
    use(kAutosar, kAutosarExample);
    const std::tuple<const char*, float, int, int> rows[] = {
        {"EngineSpeed", 0.25f, 0, 0x01},     {"VehicleSpeed", 0.01f, 2, 0x01},
        {"BrakePressure", 0.1f, 0, 0x01},    {"SteeringAngle", 0.1f, 0, 0x01},
        {"BrakePressure_UB", 1.0f, 1, 0x80}, {"BrakePressure_UB", 2.0f, 1, 0x00}};
    for (const auto& [signal, value, byte, bits] : rows) {
        std::vector<unsigned char> payload(64, 0), want(64, 0);
        want[byte] = static_cast<unsigned char>(bits);
        ASSERT_EQ(KFr_AutoSar_encodeSignal(signal, value, payload.data(), 64), 0);
        EXPECT_EQ(payload, want) << signal << " = " << value;
    }
}

// Decoding: no frame in the cycle 17, a signal of another frame 16. Encoding: in no frame 16, does
// not fit 15 (Sig20_Ratio: bit 311 + 8 bits needs 40 bytes; TailBig, most significant byte first
// near the end: start bit plus length counts). Both formats share these steps; unknown names are
// bad-input rows.
TEST_F(SignalsByName, StatusCodes) {
    use(kFibex, kQueries);
    std::vector<unsigned char> payload(510, 0);
    float v = 0;
    EXPECT_EQ(KFr_Fibex_decodeSignal(rxHeader(20, 2).data(), payload.data(), "EvtValue", &v), 17);
    EXPECT_EQ(KFr_Fibex_decodeSignal(rxHeader(10, 0).data(), payload.data(), "EvtValue", &v), 16);
    for (const auto& [signal, length, status] : {std::tuple{"OrphanValue", 48, 16},
                                                 {"Sig20_Ratio", 39, 15},
                                                 {"Sig20_Ratio", 40, 0},
                                                 {"Sig01_Speed_UB", 44, 15}})
        EXPECT_EQ(KFr_Fibex_encodeSignal(signal, 1.0f, payload.data(), std::uint8_t(length)),
                  status)
            << signal << " into " << length;
    use(kAutosar, kTwoPdus);
    EXPECT_EQ(KFr_AutoSar_encodeSignal("TailBig", 1.0f, payload.data(), 7), 15);
}

// Signal positions count from the start of their PDU; the PDU's offset in the frame is added. In
// the AUTOSAR frame Head sits at byte 0 with its update bit at bit 31, Tail at byte 4 (the second
// PDU's start) and TailBig, most significant byte first, has twelve bits from bit 7 of byte 5.
TEST_F(SignalsByName, SignalsOfASecondPduSitAtThePdusOffsetInTheFrame) {
    use(kFibex, kQueries);
    std::vector<unsigned char> payload(510, 0);
    payload[1] = 40;  // SecondPduValue at bit 8 of its PDU: (40 * 0.5) - 10 = 10
    payload[5] = 80;
    float value = 0;
    const auto h = rxHeader(50, 0, 5);
    ASSERT_EQ(KFr_Fibex_decodeSignal(h.data(), payload.data(), "SecondPduValue", &value), 0);
    EXPECT_FLOAT_EQ(value, 10.0f);
    use(kAutosar, kTwoPdus);
    std::fill(payload.begin(), payload.end(), 0);
    const std::pair<const char*, float> writes[] = {
        {"Head", 0xAB}, {"Head_UB", 1}, {"Tail", 0x34}, {"TailBig", 0xABC}};
    for (const auto& [name, written] : writes)
        ASSERT_EQ(KFr_AutoSar_encodeSignal(name, written, payload.data(), 8), 0) << name;
    EXPECT_EQ(std::vector<unsigned char>(payload.begin(), payload.begin() + 8),
              (std::vector<unsigned char>{0xAB, 0, 0, 0x80, 0x34, 0xAB, 0xC0, 0}));
    for (const auto& [name, written] : writes) {
        ASSERT_EQ(KFr_AutoSar_decodeSignal(rxHeader(5, 0).data(), payload.data(), name, &value), 0);
        EXPECT_EQ(value, written) << name;
    }
}

// ---- parameter blocks --------------------------------------------------------------------------

class ParameterBlocks : public DatabaseTest {};

// The blocks' fields in order: their widths, and the values of FIBEX (QueryCluster, NodeA of the
// test file) and AUTOSAR (FlexRayBackbone, EngineControl of the example).
struct Block {
    std::vector<int> widths;
    std::vector<std::uint32_t> fibex, autosar;
};
// The cluster block: eight 16-bit fields from MACRO-PER-CYCLE to WAKE-UP-SYMBOL-TX-IDLE, then a
// byte each from MINISLOT to CYCLE.
const Block kCluster{
    {2, 2, 2, 2, 2, 2, 2, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1},
    {5000, 1302, 1306, 1305, 1301, 1307, 1303, 1304, 24, 22, 25, 23, 26, 37,
     21,   31,   35,   34,   38,   36,   27,   39,   28, 29, 30, 32, 33, 40},
    {5000, 50, 60, 314, 103, 4920, 301, 180, 6,  3,  2,  1, 13, 16,
     8,    2,  10, 14,  15,  2,    9,   87,  59, 55, 60, 1, 0,  63}};
// The node block: LISTEN-TIMEOUT to MICRO-INITIAL-OFFSET-B, the C record fnpt's fields.
const Block kNode{
    {4, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 1, 1, 2, 1, 1, 4, 4, 1, 1, 2, 2, 1, 1, 1, 1, 2, 2, 1, 1},
    {401202, 110,    1,   102, 103, 105,  106, 2005, 2001, 2002, 10, 1,    1, 2003, 107,
     108,    215000, 104, 43,  0,   2004, 101, 111,  49,   112,  0,  2006, 0, 113,  114},
    {401202, 10,     1,  2,  56, 3,   4,   212, 601, 249, 1, 1, 1, 127, 0,
     0,      200000, 40, 40, 0,  601, 127, 7,   32,  8,   0, 0, 0, 23,  24}};

// Checks every field; returns the bytes covered.
int checkBlock(const unsigned char* block, const Block& b, bool fibex) {
    int offset = 0;
    for (std::size_t i = 0; i < b.widths.size(); ++i) {
        EXPECT_EQ(le(block, offset, b.widths[i]), (fibex ? b.fibex : b.autosar)[i])
            << "field " << i << " at " << offset;
        offset += b.widths[i];
    }
    return offset;
}

TEST_F(ParameterBlocks, EveryFieldOfTheClusterNodeAndControllerBlocks) {
    const struct {
        const Format* f;
        const std::string& file;
        const char *cluster, *ecu;
        std::array<unsigned char, 5> cc;  // 0, channel A, channel B, 0, bit rate
    } rows[] = {{F, kQueries, "QueryCluster", "NodeA", {0, 1, 0, 0, 1}},
                {A, kAutosarExample, "FlexRayBackbone", "EngineControl", {0, 1, 1, 0, 0}}};
    for (const auto& r : rows) {
        SCOPED_TRACE(r.f->name);
        use(*r.f, r.file);
        unsigned char cluster[36], node[48];
        std::array<unsigned char, 5> cc;
        std::memset(cluster, 0xEE, sizeof cluster);
        std::memset(node, 0xEE, sizeof node);
        cc.fill(0xEE);
        ASSERT_EQ(r.f->parameter(r.cluster, r.ecu, cluster, node, cc.data()), 0);
        EXPECT_EQ(checkBlock(cluster, kCluster, r.f == &kFibex), 36);
        EXPECT_EQ(checkBlock(node, kNode, r.f == &kFibex), 48);
        EXPECT_EQ(cc, r.cc);
        EXPECT_EQ(kelo::dbapi::MacroPerCycleDivisor.load(), 5000);
        // The controller query alone fills the same bytes, with the divisor just kept.
        fnpt record;
        std::memset(&record, 0x5A, sizeof record);
        ASSERT_EQ(r.f->controllerParameter(r.ecu, &record), 0);
        EXPECT_EQ(0, std::memcmp(&record, node, 48));
    }
    // The C record names the same bytes.
    fnpt record;
    use(kFibex, kQueries);
    ASSERT_EQ(KFr_Fibex_GetControllerParameter("NodeA", &record), 0);
    EXPECT_EQ(record.listenTimeout, 401202u);
    EXPECT_EQ(record.microInitialOffsetB, 114);
    unsigned char a[36], b[36], node[48], cc[5];
    ASSERT_EQ(KFr_Fibex_GetParameter("QueryCluster", "NodeA", a, node, cc), 0);
    ASSERT_EQ(KFr_Fibex_GetParameter("CL_Q", "NodeA", b, node, cc), 0);
    EXPECT_EQ(0, std::memcmp(a, b, 36)) << "a FIBEX cluster is found by its ID as well";
}

// One field of the blocks GetParameter fills: `at` counts through the cluster block (0..35), the
// node block (36..83) and the controller block (84..88). A status other than 0 checks no field.
struct Probe {
    const char *cluster, *ecu;
    int at, width;
    std::uint32_t want;
};
Probe probe(const char* cluster, const char* ecu, int at, int width, std::uint32_t want) {
    return {cluster, ecu, at, width, want};
}
const char* const kQ = "QueryCluster";

// NodeB has no key slot nor wake-up pattern (0 - 1 = 255 at 75), channel B alone and no
// MICRO-PER-CYCLE of its own; NodeAB has a key slot and a pattern. The bit rate code is byte 88
// (the 10 Mbit/s code, 1, is EveryField's). An ECU without a controller answers 9 after the
// cluster block is written.
TEST_F(ParameterBlocks, KeySlotsWakeUpPatternsChannelsBitRatesAndEcusWithoutController) {
    use(kFibex, kQueries);
    const auto rows = table(
        probe(kQ, "NodeB", 52, 2, 0), probe(kQ, "NodeB", 54, 1, 0), probe(kQ, "NodeB", 55, 1, 0),
        probe(kQ, "NodeB", 75, 1, 255), probe(kQ, "NodeB", 68, 1, 40),
        probe(kQ, "NodeB", 50, 2, 77), probe(kQ, "NodeB", 85, 1, 0), probe(kQ, "NodeB", 86, 1, 1),
        probe(kQ, "NodeAB", 52, 2, 41), probe(kQ, "NodeAB", 75, 1, 1),
        probe(kQ, "NodeAB", 68, 1, 0), probe("Cluster2M5", "NodeA", 88, 1, 2),
        probe("Cluster8M", "NodeA", 88, 1, 3), probe("Cluster10M", "NodeA", 88, 1, 0),
        probe("Cluster1M", "NodeA", 88, 1, 0), probe(kQ, "NoController", 0, 2, 5000));
    for (const Probe& r : rows) {
        unsigned char b[89];
        std::memset(b, 0xEE, sizeof b);
        EXPECT_EQ(KFr_Fibex_GetParameter(r.cluster, r.ecu, b, b + 36, b + 84),
                  std::strcmp(r.ecu, "NoController") ? 0 : 9);
        EXPECT_EQ(le(b, r.at, r.width), r.want) << r.cluster << " " << r.ecu << " at " << r.at;
    }
    unsigned char node[48];
    node[0] = 0xEE;
    EXPECT_EQ(KFr_Fibex_GetControllerParameter("NoController", reinterpret_cast<fnpt*>(node)), 9);
    EXPECT_EQ(node[0], 0xEE);
}

// The node block's microticks per macrotick divide by the gMacroPerCycle of whichever
// GetParameter of either format ran last; 40 before any, and after a cluster without parameters.
TEST_F(ParameterBlocks, TheDivisorIsTheLastClusterQuerysOfEitherFormat) {
    use(kAutosar, kEcusAndClusters);
    use(kFibex, kQueries);
    unsigned char cluster[36], node[48], cc[5];
    const auto microPerMacro = [] {
        fnpt n;
        EXPECT_EQ(KFr_Fibex_GetControllerParameter("NodeA", &n), 0);
        return n.microPerMacro;
    };
    kelo::dbapi::MacroPerCycleDivisor.store(0);
    EXPECT_EQ(microPerMacro(), 40);
    ASSERT_EQ(KFr_Fibex_GetParameter("QueryCluster", "NodeA", cluster, node, cc), 0);
    EXPECT_EQ(microPerMacro(), 43);  // 215000 microticks per cycle / 5000
    ASSERT_EQ(KFr_AutoSar_GetParameter("EmptyCluster", "NodeA", cluster, node, cc), 0);
    EXPECT_EQ(node[32], 40);
    EXPECT_EQ(microPerMacro(), 40);
    ASSERT_EQ(KFr_AutoSar_GetParameter("Backbone", "NodeA", cluster, node, cc), 0);
    EXPECT_EQ(cluster[0] | cluster[1] << 8, 5000);
    EXPECT_EQ(microPerMacro(), 43);
}

struct SlotRow {
    const Format* f;
    const char* frame;
    std::array<unsigned char, 12> want;
};
// The frame's slot block with p2 = 0x22 (byte 6) and p3 = 0x33 (byte 4); byte 1 keeps the
// caller's 0xEE. Bytes 5 and 7 to 11 as given.
SlotRow slot(const Format* f, const char* frame, unsigned char id, unsigned char b5,
             std::array<unsigned char, 5> b7) {
    return {f, frame, {255, 0xEE, id, 0, 0x33, b5, 0x22, b7[0], b7[1], b7[2], b7[3], b7[4]}};
}

// Gateway_Info_Frame's PDU is event-controlled: byte 11 is 0. Frames are found by name, not ID.
TEST_F(ParameterBlocks, SlotBlocks) {
    const auto rows = table(slot(F, "Frame20", 10, 24, {1, 1, 0, 1, 1}),
                            slot(F, "EventFrame", 20, 4, {0, 1, 1, 4, 0}),
                            slot(F, "EmptyFrame", 30, 3, {1, 0, 2, 2, 1}),
                            slot(A, "Gateway_Info_Frame", 8, 8, {1, 0, 2, 8, 0}),
                            slot(A, "Engine_Status_Frame", 1, 8, {1, 1, 0, 1, 1}));
    for (const auto& r : rows) {
        use(*r.f, r.f == F ? kQueries : kAutosarExample);
        std::array<unsigned char, 12> block;
        block.fill(0xEE);
        ASSERT_EQ(r.f->slotParameter(r.frame, 0x22, 0x33, block.data()), 0) << r.frame;
        EXPECT_EQ(block, r.want) << r.frame;
    }
    std::array<unsigned char, 12> block;
    block.fill(0xEE);
    EXPECT_EQ(KFr_Fibex_GetSlotParameter("FR_20", 0, 0, block.data()), 17);
    EXPECT_EQ(block[0], 0xEE);
}

// An index past the frame's PDUs, or a frame without one, answers 5; a key the frame map does not
// hold (a name, too) enters an empty frame under it, which the queries by name then see.
TEST_F(ParameterBlocks, PduInfoDescribesTheFirstPduWhateverTheIndex) {
    use(kFibex, kQueries);
    std::array<unsigned char, 4> info;
    for (int index : {0, 1, -1}) {  // -1: a signed comparison
        info.fill(9);
        ASSERT_EQ(KFr_Fibex_GetPDUinfo("FR_TWO", index, info.data()), 0);
        // Byte 0, high byte first, 4 bytes.
        EXPECT_EQ(info, (std::array<unsigned char, 4>{0, 1, 4, 0})) << "index " << index;
    }
    EXPECT_EQ(KFr_Fibex_GetPDUinfo("FR_TWO", 2, info.data()), 5);
    EXPECT_EQ(KFr_Fibex_GetPDUinfo("FR_EMPTY", 0, info.data()), 5);
    ASSERT_EQ(kelo::dbapi::FibexDb->frames.count("TwoPduFrame"), 0u);
    EXPECT_EQ(KFr_Fibex_GetPDUinfo("TwoPduFrame", 0, info.data()), 5);
    EXPECT_EQ(kelo::dbapi::FibexDb->frames.count("TwoPduFrame"), 1u);
}

// KeLo_DatabaseStatusText: a sentence for every status a database export returns, the number for
// any other.
TEST(DatabaseStatusText, EveryCodeHasASentenceAndAnUnknownOneNamesItsNumber) {
    for (int code : {0, 1, 2, 3, 4, 5, 6, 7, 9, 14, 15, 16, 17, 18, 21, 22}) {
        const char* text = KeLo_DatabaseStatusText(static_cast<unsigned char>(code));
        ASSERT_NE(text, nullptr) << code;
        EXPECT_GT(std::strlen(text), 5u) << code;
        EXPECT_EQ(std::string(text).find("unknown database status"), std::string::npos) << code;
        EXPECT_EQ(text, KeLo_DatabaseStatusText(static_cast<unsigned char>(code))) << "one text";
    }
    EXPECT_STREQ(KeLo_DatabaseStatusText(8), "unknown database status 8");
    EXPECT_STREQ(KeLo_DatabaseStatusText(255), "unknown database status 255");
}

}  // namespace
