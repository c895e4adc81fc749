// The database queries of both formats without a device: names, lists, the codec through the
// exports and the parameter blocks. FIBEX rows read tests/data/fibex/dbapi-queries.xml, AUTOSAR
// rows the example system description (or the test file a row names).
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "autosar/autosar_reader.h"
#include "dbapi_test_support.h"

using namespace kelo_dbapi_test;
namespace autosar = kelo::autosar;

namespace {

const Format* const F = &kFibex;
const Format* const A = &kAutosar;

// Opens the file a table row works on.
void use(const Format& f, const std::string& file) {
    ASSERT_EQ(f.open(file.c_str()), 0) << file;
}

class NameQueries : public DatabaseTest {};

TEST_F(NameQueries, ClosingOneFormatLeavesTheOther) {
    unsigned int length = 0;
    ASSERT_EQ(KFr_AutoSar_Open(kAutosarExample.c_str()), 0);
    ASSERT_EQ(KFr_Fibex_Open(kQueries.c_str()), 0);
    EXPECT_EQ(KFr_Fibex_Close(), 0);
    EXPECT_EQ(KFr_AutoSar_GetMaxNameLength(&length), 0);
    EXPECT_EQ(KFr_AutoSar_Close(), 0);
    EXPECT_EQ(KFr_AutoSar_Close(), 9);
}

// The longest name of frames, signals, clusters and ECUs plus its terminator; name outputs are
// copied whole, without a bound.
TEST_F(NameQueries, MaxNameLengthHoldsTheLongestNameAndItsTerminator) {
    for (const auto& [f, file, longest] : {std::tuple{F, kQueries, "Sig06_Torque_UB"},
                                           std::tuple{A, kAutosarExample, "Engine_Status_Frame"}}) {
        use(*f, file);
        unsigned int length = 0;
        ASSERT_EQ(f->maxNameLength(&length), 0);
        EXPECT_EQ(length, std::strlen(longest) + 1) << f->name;
    }
    char name[64];
    std::memset(name, 'x', sizeof name);
    unsigned char firstUse = 0;
    ASSERT_EQ(KFr_AutoSar_GetFrameName_BySignalName("EngineSpeed", name, &firstUse), 0);
    EXPECT_EQ(std::string(name, 20), std::string("Engine_Status_Frame") + '\0');
}

TEST_F(NameQueries, FrameNameBySlotAndCycle) {
    const struct {
        std::uint16_t slot;
        std::uint8_t cycle;
        const char* name;
    } rows[] = {
        {10, 0, "Frame20"}, {10, 63, "Frame20"},   {20, 1, "EventFrame"}, {20, 5, "EventFrame"},
        {20, 6, ""},        {30, 2, "EmptyFrame"}, {30, 3, ""},           {50, 62, "TwoPduFrame"},
        {999, 0, ""},       {10, 64, ""},          {10, 255, ""},         {0, 0, ""}};
    char name[64];
    use(kFibex, kQueries);
    for (const auto& r : rows) {
        std::memset(name, 'x', sizeof name);
        ASSERT_EQ(KFr_Fibex_GetFrameName(rxHeader(r.slot, r.cycle).data(), name), 0);
        EXPECT_STREQ(name, r.name) << "slot " << r.slot << " cycle " << int(r.cycle);
    }
    // AUTOSAR: every cell of the reader's slot-by-cycle table, and a slot nothing uses.
    use(kAutosar, kAutosarExample);
    const autosar::AutoSarReader reader(kAutosarExample);
    for (const auto& [slot, cycles] : reader.Database().frameNamesBySlot)
        for (unsigned cycle = 0; cycle < 64; ++cycle) {
            std::strcpy(name, "stale");
            ASSERT_EQ(KFr_AutoSar_GetFrameName(rxHeader(slot, std::uint8_t(cycle)).data(), name),
                      0);
            ASSERT_EQ(std::string(name), cycles[cycle]) << "slot " << slot << " cycle " << cycle;
        }
    ASSERT_EQ(KFr_AutoSar_GetFrameName(rxHeader(2000, 0).data(), name), 0);
    EXPECT_STREQ(name, "");
}

// firstUse is 1 the first time a frame is named after a successful open of either format.
struct BySignal {
    const Format* f;
    const char* signal;
    unsigned char status;
    const char* frame;
    unsigned char firstUse;
};
BySignal named(const Format* f, const char* signal, const char* frame, unsigned char firstUse) {
    return {f, signal, 0, frame, firstUse};
}
BySignal refused(const Format* f, const char* signal, unsigned char status) {
    return {f, signal, status, nullptr, 0xEE};
}

// firstUse is 1 the first time a frame is named after a successful open of either format. A
// signal in no frame answers 16; names are compared whole and with their case.
TEST_F(NameQueries, FrameBySignalNameRegistersFirstUseUntilTheNextOpen) {
    const auto rows =
        table(named(F, "Sig03_Temp", "Frame20", 1), named(F, "Sig01_Speed", "Frame20", 0),
              named(F, "Sig01_Speed_UB", "Frame20", 0), named(F, "SharedValue", "SharedFrameA", 1),
              named(F, "SecondPduValue", "TwoPduFrame", 1), named(F, "EvtValue", "EventFrame", 1),
              refused(F, "OrphanValue", 16), refused(F, "", 14), refused(F, "sig01_speed", 14),
              named(A, "BrakePressure", "Brake_Status_Frame", 1),
              named(A, "AbsActive", "Brake_Status_Frame", 0),
              named(A, "BrakePressure_UB", "Brake_Status_Frame", 0), refused(A, "", 14));
    ASSERT_EQ(KFr_AutoSar_Open(kAutosarExample.c_str()), 0);
    ASSERT_EQ(KFr_Fibex_Open(kQueries.c_str()), 0);
    for (const auto& r : rows) {
        char frame[64] = "untouched";
        unsigned char firstUse = 0xEE;
        ASSERT_EQ(r.f->frameBySignal(r.signal, frame, &firstUse), r.status) << r.signal;
        EXPECT_EQ(firstUse, r.firstUse) << r.signal;
        EXPECT_STREQ(frame, r.frame ? r.frame : "untouched") << r.signal;
    }
    char frame[64];
    unsigned char firstUse = 0;
    ASSERT_EQ(KFr_Fibex_Open(kQueries.c_str()), 0);
    ASSERT_EQ(KFr_Fibex_GetFrameName_BySignalName("Sig01_Speed", frame, &firstUse), 0);
    EXPECT_EQ(firstUse, 1);
    ASSERT_EQ(KFr_Fibex_Close(), 0);
    ASSERT_EQ(KFr_AutoSar_GetFrameName_BySignalName("AbsActive", frame, &firstUse), 0);
    EXPECT_EQ(firstUse, 1) << "a FIBEX open starts the AUTOSAR registration afresh too";
}

// ---- AUTOSAR name lists ------------------------------------------------------------------------

struct ListResult {
    unsigned char status;
    std::string text;
    unsigned int total, count;
};
using ListQuery = unsigned char (*)(const char*, char*, unsigned int, unsigned int*, unsigned int*);

// Calls a list query with a buffer of bufSize bytes inside a larger sentinel-filled array and
// checks that nothing past bufSize was written and the rest of the buffer is zero-filled.
ListResult list(ListQuery keyed, const char* key, unsigned int bufSize,
                unsigned char (*all)(char*, unsigned int, unsigned int*, unsigned int*) = nullptr) {
    std::vector<char> buffer(bufSize + 16, '#');
    ListResult r{0, "", 0xDEAD, 0xBEEF};
    r.status = all ? all(buffer.data(), bufSize, &r.total, &r.count)
                   : keyed(key, buffer.data(), bufSize, &r.total, &r.count);
    for (std::size_t i = bufSize; i < buffer.size(); ++i)
        EXPECT_EQ(buffer[i], '#') << "written past the buffer at " << i;
    r.text.assign(buffer.data(), strnlen(buffer.data(), bufSize));
    for (std::size_t i = r.text.size(); i < bufSize; ++i)
        EXPECT_EQ(buffer[i], 0) << "not zero-filled at " << i;
    return r;
}

struct ListRow {
    ListQuery keyed;
    const char* key;
    unsigned char (*all)(char*, unsigned int, unsigned int*, unsigned int*);
    unsigned int bufSize;
    unsigned char status;
    std::string text;
    unsigned int total, count;
};
ListRow ecus(unsigned int bufSize, unsigned char status, const std::string& text,
             unsigned int count) {
    return {nullptr, nullptr, KFr_AutoSar_GetAllECUName, bufSize, status, text, 3, count};
}
ListRow keyed(ListQuery query, const char* key, unsigned int bufSize, const std::string& text,
              unsigned int total) {
    return {query, key, nullptr, bufSize, 0, text, total, total};
}

// bufSize: room for everything; exactly the room test's limit (every byte used, without a
// terminator); one less (21, and the count of names copied); a name without its separator, and
// with it; nothing. Then the other lists. Unknown keys are bad-input rows.
TEST_F(NameQueries, AutosarListsFollowTheDatabaseAndTheRoomTest) {
    use(kAutosar, kAutosarExample);
    const std::string all = "BrakeControl;EngineControl;Gateway";
    const std::string frames =
        "Body_Frame;Brake_NM_Frame;Brake_Status_Frame;Chassis_Frame;Diag_Frame;Dynamic_Frame;"
        "Engine_NM_Frame;Engine_Status_Frame;Gateway_Info_Frame;Gearbox_Frame;Odometer_Frame;"
        "Wheel_Speeds_Frame";
    const auto rows = table(
        ecus(256, 0, all, 3), ecus(34, 0, all, 3), ecus(33, 21, "BrakeControl;EngineControl", 2),
        ecus(12, 21, "", 0), ecus(13, 21, "BrakeControl", 1), ecus(0, 21, "", 0),
        ListRow{nullptr, nullptr, KFr_AutoSar_GetAllClusterName, 256, 0, "FlexRayBackbone", 1, 1},
        keyed(KFr_AutoSar_GetAllFrameName_ByClusterName, "FlexRayBackbone", 1024, frames, 12),
        keyed(KFr_AutoSar_GetAllFrameName_ByECUName, "BrakeControl", 1024, frames, 12),
        keyed(KFr_AutoSar_GetAllSignalName_ByFrameName, "Brake_Status_Frame", 256,
              "BrakePressure;BrakePressure_UB;AbsActive", 3));
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.key ? row.key : "") + " bufSize " +
                     std::to_string(row.bufSize));
        const ListResult r = list(row.keyed, row.key, row.bufSize, row.all);
        EXPECT_EQ(r.status, row.status);
        EXPECT_EQ(r.text, row.text);
        EXPECT_EQ(r.total, row.total);
        EXPECT_EQ(r.count, row.count);
    }
    // A file without clusters or ECUs: empty lists, status 0.
    use(kAutosar, dataFile("autosar/units-in-second-package-4.1.arxml"));
    const ListResult empty = list(nullptr, nullptr, 16, KFr_AutoSar_GetAllClusterName);
    EXPECT_EQ(empty.status, 0);
    EXPECT_EQ(empty.text, "");
    EXPECT_EQ(empty.total + empty.count, 0u);
}

// ---- the codec through the exports -------------------------------------------------------------

class SignalsByName : public DatabaseTest {};

// Every signal of Frame20 written into one payload, then every one read back: neighbours must
// not disturb each other. Sig11_Level (IDENTICAL: no factor/offset pair) reads as 0 with 16,
// Sig18_Wide (a 64-bit field) as 0.
TEST_F(SignalsByName, EveryFrame20SignalRoundTripsInOnePayload) {
    const struct {
        const char* name;
        float written, read;  // read: what decoding gives back
    } rows[] = {{"Sig01_Speed", 100.5f, 100.5f},     {"Sig02_Rpm", 3000.25f, 3000.25f},
                {"Sig03_Temp", 42.5f, 42.5f},        {"Sig04_Gear", 5.0f, 5.0f},
                {"Sig05_Flag", 1.0f, 1.0f},          {"Sig06_Torque", -300.0f, -300.0f},
                {"Sig07_Angle", -1234.0f, -1234.0f}, {"Sig08_Odo", 123456.75f, 123456.75f},
                {"Sig09_Pressure", 7.5f, 7.5f},      {"Sig10_Mode", 3.0f, 3.0f},
                {"Sig11_Level", -2000.0f, 0.0f},     {"Sig12_Current", 8191.875f, 8191.875f},
                {"Sig13_Voltage", -10.0f, -10.0f},   {"Sig14_Status", 7.0f, 7.0f},
                {"Sig15_Valid", 1.0f, 1.0f},         {"Sig16_Counter", 117.5f, 117.5f},
                {"Sig17_Big", 4.0e9f, 4.0e9f},       {"Sig18_Wide", 5.0f, 0.0f},
                {"Sig19_Slope", 64.0f, 64.0f},       {"Sig20_Ratio", 0.5f, 0.5f},
                {"Sig01_Speed_UB", 1.0f, 1.0f},      {"Sig02_Rpm_UB", 0.0f, 0.0f},
                {"Sig06_Torque_UB", 1.0f, 1.0f}};
    use(kFibex, kQueries);
    std::vector<unsigned char> payload(510, 0);
    for (const auto& r : rows)
        ASSERT_EQ(KFr_Fibex_encodeSignal(r.name, r.written, payload.data(), 48), 0) << r.name;
    const auto h = rxHeader(10, 7, 24);
    for (const auto& r : rows) {
        float value = 0.0f;
        // An IDENTICAL method has no factor/offset pair: decoding answers 16 for it (encoding
        // treats it as identity).
        const bool identical = std::strcmp(r.name, "Sig11_Level") == 0;
        ASSERT_EQ(KFr_Fibex_decodeSignal(h.data(), payload.data(), r.name, &value),
                  identical ? 16 : 0)
            << r.name;
        EXPECT_FLOAT_EQ(value, r.read) << r.name;
    }
    // Sig11_Level went in as -2000 all the same: 12 bits at MSB bit 131 (byte 16 bits 3..0,
    // byte 17) = 0x830. The update bits: bits 352, 353, 354 = byte 44 bits 0, 1, 2.
    EXPECT_EQ(payload[16] & 0x0F, 0x08);
    EXPECT_EQ(payload[17], 0x30);
    EXPECT_EQ(payload[44], 0x05);
}

// Raw 1 of a signal sets the field's least significant bit alone (byte orders, PDU offsets);
// an update bit sets exactly one bit, and takes the lowest bit of the value.
TEST_F(SignalsByName, AutosarFieldsAndUpdateBitsLandWhereTheRecordsPlaceThem) {
    use(kAutosar, kAutosarExample);
    const struct {
        const char* signal;
        float value;
        int byte;
        unsigned char bits;
    } rows[] = {{"EngineSpeed", 0.25f, 0, 0x01},     {"VehicleSpeed", 0.01f, 2, 0x01},
                {"BrakePressure", 0.1f, 0, 0x01},    {"SteeringAngle", 0.1f, 0, 0x01},
                {"BrakePressure_UB", 1.0f, 1, 0x80}, {"BrakePressure_UB", 2.0f, 1, 0x00}};
    for (const auto& r : rows) {
        std::vector<unsigned char> payload(64, 0), want(64, 0);
        want[r.byte] = r.bits;
        ASSERT_EQ(KFr_AutoSar_encodeSignal(r.signal, r.value, payload.data(), 64), 0);
        EXPECT_EQ(payload, want) << r.signal << " = " << r.value;
    }
    std::vector<unsigned char> payload(510, 0);
    float value = 0;
    ASSERT_EQ(KFr_AutoSar_encodeSignal("BrakePressure_UB", 1.0f, payload.data(), 8), 0);
    ASSERT_EQ(
        KFr_AutoSar_decodeSignal(rxHeader(2, 0).data(), payload.data(), "BrakePressure_UB", &value),
        0);
    EXPECT_EQ(value, 1.0f);
}

struct CodeRow {
    const Format* f;
    const std::string& file;
    const char* signal;
    int slot;  // decode at this slot and cycle; < 0: encode into `length` bytes
    int cycleOrLength;
    unsigned char status;
};
CodeRow decodes(const Format* f, const char* signal, int slot, int cycle, unsigned char status) {
    return {f, f == F ? kQueries : kAutosarExample, signal, slot, cycle, status};
}
CodeRow encodes(const Format* f, const char* signal, int length, unsigned char status,
                const std::string& file = kQueries) {
    return {f, f == A && file == kQueries ? kAutosarExample : file, signal, -1, length, status};
}

// Decoding: no frame in the cycle 17, a signal of another frame 16. Encoding: in no frame 16, does
// not fit 15 (Sig20_Ratio: bit 311 + 8 bits needs 40 bytes; TailBig, most significant byte first
// near the end: start bit plus length counts). Unknown names are bad-input rows.
TEST_F(SignalsByName, StatusCodes) {
    const auto rows = table(decodes(F, "Sig01_Speed", 11, 0, 17), decodes(F, "EvtValue", 20, 2, 17),
                            decodes(F, "EvtValue", 10, 0, 16), decodes(A, "EngineSpeed", 2, 0, 16),
                            encodes(F, "OrphanValue", 48, 16), encodes(F, "Sig20_Ratio", 39, 15),
                            encodes(F, "Sig20_Ratio", 40, 0), encodes(F, "Sig01_Speed_UB", 44, 15),
                            encodes(A, "AbsActive", 0, 15), encodes(A, "TailBig", 7, 15, kTwoPdus));
    for (const auto& r : rows) {
        use(*r.f, r.file);
        std::vector<unsigned char> payload(510, 0);
        float value = 0;
        const auto h = rxHeader(std::uint16_t(r.slot), std::uint8_t(r.cycleOrLength));
        EXPECT_EQ(r.slot < 0
                      ? r.f->encode(r.signal, 1.0f, payload.data(), std::uint8_t(r.cycleOrLength))
                      : r.f->decode(h.data(), payload.data(), r.signal, &value),
                  r.status)
            << r.f->name << " " << r.signal << " " << r.slot << "/" << r.cycleOrLength;
    }
}

// Signal positions count from the start of their PDU; the PDU's offset in the frame is added.
TEST_F(SignalsByName, SignalsOfASecondPduSitAtThePdusOffsetInTheFrame) {
    use(kFibex, kQueries);
    std::vector<unsigned char> payload(510, 0);
    payload[1] = 40;  // SecondPduValue at bit 8 of its PDU: (40 * 0.5) - 10 = 10
    payload[5] = 80;
    float value = 0;
    ASSERT_EQ(
        KFr_Fibex_decodeSignal(rxHeader(50, 0, 5).data(), payload.data(), "SecondPduValue", &value),
        0);
    EXPECT_FLOAT_EQ(value, 10.0f);

    use(kAutosar, kTwoPdus);
    std::fill(payload.begin(), payload.end(), 0);
    const struct {
        const char* name;
        float value;
    } writes[] = {{"Head", 0xAB}, {"Head_UB", 1}, {"Tail", 0x34}, {"TailBig", 0xABC}};
    for (const auto& w : writes)
        ASSERT_EQ(KFr_AutoSar_encodeSignal(w.name, w.value, payload.data(), 8), 0) << w.name;
    // Head at byte 0, its update bit at bit 31; Tail at byte 4 (the second PDU's start);
    // TailBig most significant byte first from bit 7 of byte 5, twelve bits.
    const std::vector<unsigned char> expected = {0xAB, 0, 0, 0x80, 0x34, 0xAB, 0xC0, 0};
    EXPECT_EQ(std::vector<unsigned char>(payload.begin(), payload.begin() + 8), expected);
    for (const auto& w : writes) {
        ASSERT_EQ(KFr_AutoSar_decodeSignal(rxHeader(5, 0).data(), payload.data(), w.name, &value),
                  0)
            << w.name;
        EXPECT_EQ(value, w.value) << w.name;
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
// MACRO-PER-CYCLE, STATIC-SLOT, NUMBER-OF-STATIC-SLOTS, NUMBER-OF-MINISLOTS, N-I-T,
// OFFSET-CORRECTION-START, WAKE-UP-SYMBOL-RX-WINDOW, WAKE-UP-SYMBOL-TX-IDLE; then a byte each:
// MINISLOT, ACTION-POINT-OFFSET, MINISLOT-ACTION-POINT-OFFSET, DYNAMIC-SLOT-IDLE-PHASE,
// SYMBOL-WINDOW, PAYLOAD-LENGTH-STATIC, COLD-START-ATTEMPTS, LISTEN-NOISE,
// MAX-WITHOUT-CLOCK-CORRECTION-PASSIVE and -FATAL, SYNC-NODE-MAX,
// NETWORK-MANAGEMENT-VECTOR-LENGTH, T-S-S-TRANSMITTER, CAS-RX-LOW-MAX, WAKE-UP-SYMBOL-RX-IDLE,
// -RX-LOW, -TX-LOW, MACROTICK (us), MAX-INITIALIZATION-ERROR, CYCLE.
const Block kCluster{
    {2, 2, 2, 2, 2, 2, 2, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1},
    {5000, 1302, 1306, 1305, 1301, 1307, 1303, 1304, 24, 22, 25, 23, 26, 37,
     21,   31,   35,   34,   38,   36,   27,   39,   28, 29, 30, 32, 33, 40},
    {5000, 50, 60, 314, 103, 4920, 301, 180, 6,  3,  2,  1, 13, 16,
     8,    2,  10, 14,  15,  2,    9,   87,  59, 55, 60, 1, 0,  63}};
// LISTEN-TIMEOUT, ALLOW-PASSIVE-TO-ACTIVE, ALLOW-HALT-DUE-TO-CLOCK, CLUSTER-DRIFT-DAMPING,
// DECODING-CORRECTION, DELAY-COMPENSATION-A and -B, ACCEPTED-STARTUP-RANGE, MAX-DRIFT, LATEST-TX,
// KEY-SLOT-USAGE (the slot, used for startup, used for sync), OFFSET-CORRECTION-OUT,
// EXTERN-OFFSET-CORRECTION, EXTERN-RATE-CORRECTION, MICRO-PER-CYCLE, MICRO-PER-MACRO-NOM,
// MICRO-PER-CYCLE / MACRO-PER-CYCLE, reserved, RATE-CORRECTION-OUT, MAX-DYNAMIC-PAYLOAD-LENGTH,
// MACRO-INITIAL-OFFSET-A, WAKE-UP-PATTERN - 1, MACRO-INITIAL-OFFSET-B, reserved,
// SINGLE-SLOT-ENABLED, always 0, MICRO-INITIAL-OFFSET-A and -B.
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
    EXPECT_EQ(record.keySlotId, 10);
    EXPECT_EQ(record.microPerMacro, 43);
    EXPECT_EQ(record.microInitialOffsetB, 114);
    unsigned char a[36], b[36], node[48], cc[5];
    ASSERT_EQ(KFr_Fibex_GetParameter("QueryCluster", "NodeA", a, node, cc), 0);
    ASSERT_EQ(KFr_Fibex_GetParameter("CL_Q", "NodeA", b, node, cc), 0);
    EXPECT_EQ(0, std::memcmp(a, b, 36)) << "a FIBEX cluster is found by its ID as well";
}

TEST_F(ParameterBlocks, ControllersWithoutKeySlotOrWakeUpPatternAndTheirChannels) {
    use(kFibex, kQueries);
    unsigned char cluster[36], node[48], cc[5];
    ASSERT_EQ(KFr_Fibex_GetParameter("QueryCluster", "NodeB", cluster, node, cc), 0);
    EXPECT_EQ(le(node, 16, 2), 0u);
    EXPECT_EQ(node[18], 0);
    EXPECT_EQ(node[19], 0);
    EXPECT_EQ(node[39], 255) << "an absent wake-up pattern (0) minus 1";
    EXPECT_EQ(node[32], 40) << "200000 / 5000";
    EXPECT_EQ(le(node, 14, 2), 77u);
    EXPECT_EQ(cc[1], 0);
    EXPECT_EQ(cc[2], 1);
    ASSERT_EQ(KFr_Fibex_GetParameter("QueryCluster", "NodeAB", cluster, node, cc), 0);
    EXPECT_EQ(le(node, 16, 2), 41u);
    EXPECT_EQ(node[39], 1);
    EXPECT_EQ(node[32], 0) << "no MICRO-PER-CYCLE: 0 / 5000";
    EXPECT_EQ(cc[1], 1);
    EXPECT_EQ(cc[2], 1);
}

TEST_F(ParameterBlocks, BitRateCodes) {
    use(kFibex, kQueries);
    for (const auto& [name, code] :
         {std::pair{"QueryCluster", 1}, std::pair{"Cluster2M5", 2}, std::pair{"Cluster8M", 3},
          std::pair{"Cluster10M", 0}, std::pair{"Cluster1M", 0}}) {
        unsigned char cluster[36], node[48], cc[5] = {9, 9, 9, 9, 9};
        ASSERT_EQ(KFr_Fibex_GetParameter(name, "NodeA", cluster, node, cc), 0);
        EXPECT_EQ(cc[4], code) << name;
        EXPECT_EQ(cc[0], 0);
        EXPECT_EQ(cc[3], 0);
    }
}

// The node block's microticks per macrotick divide by the gMacroPerCycle of whichever
// GetParameter of either format ran last; 40 before any, and after a cluster without parameters.
TEST_F(ParameterBlocks, TheDivisorIsTheLastClusterQuerysOfEitherFormat) {
    use(kAutosar, kEcusAndClusters);
    use(kFibex, kQueries);
    unsigned char cluster[36], node[48], cc[5];
    fnpt fibexNode;
    kelo::dbapi::MacroPerCycleDivisor.store(0);
    ASSERT_EQ(KFr_Fibex_GetControllerParameter("NodeA", &fibexNode), 0);
    EXPECT_EQ(fibexNode.microPerMacro, 40);
    ASSERT_EQ(KFr_Fibex_GetParameter("QueryCluster", "NodeA", cluster, node, cc), 0);
    ASSERT_EQ(KFr_Fibex_GetControllerParameter("NodeA", &fibexNode), 0);
    EXPECT_EQ(fibexNode.microPerMacro, 43);  // 215000 microticks per cycle / 5000
    ASSERT_EQ(KFr_AutoSar_GetParameter("EmptyCluster", "NodeA", cluster, node, cc), 0);
    EXPECT_EQ(node[32], 40);
    ASSERT_EQ(KFr_Fibex_GetControllerParameter("NodeA", &fibexNode), 0);
    EXPECT_EQ(fibexNode.microPerMacro, 40);
    ASSERT_EQ(KFr_AutoSar_GetParameter("Backbone", "NodeA", cluster, node, cc), 0);
    EXPECT_EQ(cluster[0] | cluster[1] << 8, 5000);
    ASSERT_EQ(KFr_Fibex_GetControllerParameter("NodeA", &fibexNode), 0);
    EXPECT_EQ(fibexNode.microPerMacro, 43);
}

// An ECU without a controller answers 9; the cluster block is written before the ECU is looked
// up. Unknown names are bad-input rows.
TEST_F(ParameterBlocks, EcusWithoutController) {
    use(kFibex, kQueries);
    unsigned char cluster[36], node[48], cc[5];
    std::memset(cluster, 0xEE, sizeof cluster);
    std::memset(node, 0xEE, sizeof node);
    EXPECT_EQ(KFr_Fibex_GetParameter("QueryCluster", "NoController", cluster, node, cc), 9);
    EXPECT_EQ(le(cluster, 0, 2), 5000u);
    EXPECT_EQ(KFr_Fibex_GetControllerParameter("NoController", reinterpret_cast<fnpt*>(node)), 9);
    use(kAutosar, kEcusAndClusters);
    EXPECT_EQ(KFr_AutoSar_GetControllerParameter("Bare", reinterpret_cast<fnpt*>(node)), 9);
    EXPECT_EQ(node[0], 0xEE);
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
                            slot(F, "TwoPduFrame", 50, 5, {1, 0, 0, 2, 1}),
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
    EXPECT_EQ(KFr_AutoSar_GetSlotParameter("FR_20", 0, 0, block.data()), 17);
    use(kFibex, kQueries);
    EXPECT_EQ(KFr_Fibex_GetSlotParameter("FR_20", 0, 0, block.data()), 17);
    EXPECT_EQ(block[0], 0xEE);
}

TEST_F(ParameterBlocks, PduInfoDescribesTheFirstPduWhateverTheIndex) {
    use(kFibex, kQueries);
    for (int index : {0, 1, -1}) {  // -1: a signed comparison
        unsigned char info[4] = {9, 9, 9, 9};
        ASSERT_EQ(KFr_Fibex_GetPDUinfo("FR_TWO", index, info), 0);
        const unsigned char want[4] = {0, 1, 4, 0};  // byte 0, high byte first, 4 bytes
        EXPECT_EQ(0, std::memcmp(info, want, 4)) << "index " << index;
    }
    unsigned char info[4] = {9, 9, 9, 9};
    EXPECT_EQ(KFr_Fibex_GetPDUinfo("FR_TWO", 2, info), 5);
    EXPECT_EQ(KFr_Fibex_GetPDUinfo("FR_EMPTY", 0, info), 5);
    // Keyed by ID: an unknown key (a name, too) enters an empty frame under that key, which the
    // queries by name then see.
    ASSERT_EQ(kelo::dbapi::FibexDb->frames.count("TwoPduFrame"), 0u);
    EXPECT_EQ(KFr_Fibex_GetPDUinfo("TwoPduFrame", 0, info), 5);
    EXPECT_EQ(kelo::dbapi::FibexDb->frames.count("TwoPduFrame"), 1u);
}

}  // namespace
