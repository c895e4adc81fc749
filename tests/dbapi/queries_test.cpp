// Database handle, name queries, the codec through its exports, and the parameter queries,
// against tests/data/fibex/dbapi-queries.xml (no device involved).
#include <cstring>
#include <string>
#include <vector>

#include "dbapi_test_support.h"

using namespace kelo_dbapi_test;

namespace {

// ---- name queries ------------------------------------------------------------------------------

class NameQueries : public FibexDatabaseTest {};

TEST_F(NameQueries, FrameNameBySlotAndCycle) {
    struct Row {
        std::uint16_t slot;
        std::uint8_t cycle;
        const char* name;
    };
    const Row rows[] = {
        {10, 0, "Frame20"}, {10, 63, "Frame20"},   {20, 1, "EventFrame"}, {20, 5, "EventFrame"},
        {20, 6, ""},        {30, 2, "EmptyFrame"}, {30, 3, ""},           {50, 62, "TwoPduFrame"},
        {999, 0, ""},       {10, 64, ""},          {10, 255, ""},         {0, 0, ""},
    };
    for (const Row& r : rows) {
        char name[64];
        std::memset(name, 'x', sizeof name);
        const auto h = rxHeader(r.slot, r.cycle);
        ASSERT_EQ(KFr_Fibex_GetFrameName(h.data(), name), 0);
        EXPECT_STREQ(name, r.name) << "slot " << r.slot << " cycle " << int(r.cycle);
    }
}

TEST_F(NameQueries, FrameBySignalNameRegistersFirstUseUntilTheNextOpen) {
    struct Row {
        const char* signal;
        unsigned char status;
        const char* frame;
        unsigned char firstUse;
    };
    const Row rows[] = {
        {"Sig03_Temp", 0, "Frame20", 1},
        {"Sig01_Speed", 0, "Frame20", 0},
        {"Sig01_Speed_UB", 0, "Frame20", 0},
        {"SharedValue", 0, "SharedFrameA", 1},
        {"SecondPduValue", 0, "TwoPduFrame", 1},
        {"EvtValue", 0, "EventFrame", 1},
        {"OrphanValue", 16, nullptr, 0xEE},
        {"NoSuchSignal", 14, nullptr, 0xEE},
        {"", 14, nullptr, 0xEE},
        {"sig01_speed", 14, nullptr, 0xEE},
    };
    for (const Row& r : rows) {
        char frame[64] = "untouched";
        unsigned char firstUse = 0xEE;
        ASSERT_EQ(KFr_Fibex_GetFrameName_BySignalName(r.signal, frame, &firstUse), r.status)
            << r.signal;
        EXPECT_EQ(firstUse, r.firstUse) << r.signal;
        EXPECT_STREQ(frame, r.frame ? r.frame : "untouched") << r.signal;
    }
    // A new open empties the registration.
    ASSERT_EQ(KFr_Fibex_Open(queriesFile().c_str()), 0);
    char frame[64];
    unsigned char firstUse = 0;
    ASSERT_EQ(KFr_Fibex_GetFrameName_BySignalName("Sig01_Speed", frame, &firstUse), 0);
    EXPECT_EQ(firstUse, 1);
    // Closing does not.
    ASSERT_EQ(KFr_Fibex_Close(), 0);
    ASSERT_EQ(KFr_Fibex_Open(queriesFile().c_str()), 0);  // (an open does)
    ASSERT_EQ(KFr_Fibex_GetFrameName_BySignalName("Sig01_Speed", frame, &firstUse), 0);
    EXPECT_EQ(firstUse, 1);
}

TEST_F(NameQueries, MaxNameLengthHoldsTheLongestNameAndItsTerminator) {
    unsigned int length = 0;
    ASSERT_EQ(KFr_Fibex_GetMaxNameLength(&length), 0);
    EXPECT_EQ(length, std::strlen("Sig06_Torque_UB") + 1);
    EXPECT_EQ(KFr_Fibex_GetMaxNameLength(nullptr), 5);
}

// ---- the codec through its exports -------------------------------------------------------------

class SignalsByName : public FibexDatabaseTest {};

struct SignalValue {
    const char* name;
    float written;
    float read;  // what decoding gives back
};

// Every signal of Frame20 written into one payload, then every one read back: neighbours must
// not disturb each other.
TEST_F(SignalsByName, EveryFrame20SignalRoundTripsInOnePayload) {
    const SignalValue rows[] = {
        {"Sig01_Speed", 100.5f, 100.5f},
        {"Sig02_Rpm", 3000.25f, 3000.25f},
        {"Sig03_Temp", 42.5f, 42.5f},
        {"Sig04_Gear", 5.0f, 5.0f},
        {"Sig05_Flag", 1.0f, 1.0f},
        {"Sig06_Torque", -300.0f, -300.0f},
        {"Sig07_Angle", -1234.0f, -1234.0f},
        {"Sig08_Odo", 123456.75f, 123456.75f},
        {"Sig09_Pressure", 7.5f, 7.5f},
        {"Sig10_Mode", 3.0f, 3.0f},
        {"Sig11_Level", -2000.0f, 0.0f},  // IDENTICAL: no factor/offset pair, see below
        {"Sig12_Current", 8191.875f, 8191.875f},
        {"Sig13_Voltage", -10.0f, -10.0f},
        {"Sig14_Status", 7.0f, 7.0f},
        {"Sig15_Valid", 1.0f, 1.0f},
        {"Sig16_Counter", 117.5f, 117.5f},
        {"Sig17_Big", 4.0e9f, 4.0e9f},
        {"Sig18_Wide", 5.0f, 0.0f},  // a 64-bit field reads as 0
        {"Sig19_Slope", 64.0f, 64.0f},
        {"Sig20_Ratio", 0.5f, 0.5f},
        {"Sig01_Speed_UB", 1.0f, 1.0f},
        {"Sig02_Rpm_UB", 0.0f, 0.0f},
        {"Sig06_Torque_UB", 1.0f, 1.0f},
    };
    std::vector<unsigned char> payload(510, 0);
    for (const SignalValue& r : rows)
        ASSERT_EQ(KFr_Fibex_encodeSignal(r.name, r.written, payload.data(), 48), 0) << r.name;
    const auto h = rxHeader(10, 7, 24);
    for (const SignalValue& r : rows) {
        float value = 0.0f;
        const bool identical = std::strcmp(r.name, "Sig11_Level") == 0;
        // An IDENTICAL method has no factor/offset pair: decoding answers 16 for it (encoding
        // treats it as identity).
        ASSERT_EQ(KFr_Fibex_decodeSignal(h.data(), payload.data(), r.name, &value),
                  identical ? 16 : 0)
            << r.name;
        EXPECT_FLOAT_EQ(value, r.read) << r.name;
    }
    // Sig11_Level went in as -2000 all the same: 12 bits at MSB bit 131 (byte 16 bits 3..0,
    // byte 17) = 0x830.
    EXPECT_EQ(payload[16] & 0x0F, 0x08);
    EXPECT_EQ(payload[17], 0x30);
    // The update bits sit where the file puts them: bits 352, 353, 354 = byte 44 bits 0, 1, 2.
    EXPECT_EQ(payload[44], 0x05);
}

TEST_F(SignalsByName, StatusCodes) {
    std::vector<unsigned char> payload(510, 0);
    float value = 0;
    const auto frame20 = rxHeader(10, 0);
    const auto noFrame = rxHeader(11, 0);
    const auto eventOffCycle = rxHeader(20, 2);
    EXPECT_EQ(KFr_Fibex_decodeSignal(noFrame.data(), payload.data(), "Sig01_Speed", &value), 17);
    EXPECT_EQ(KFr_Fibex_decodeSignal(eventOffCycle.data(), payload.data(), "EvtValue", &value), 17);
    EXPECT_EQ(KFr_Fibex_decodeSignal(frame20.data(), payload.data(), "EvtValue", &value), 16);
    EXPECT_EQ(KFr_Fibex_decodeSignal(frame20.data(), payload.data(), "Nope", &value), 16);
    EXPECT_EQ(KFr_Fibex_decodeSignal(frame20.data(), payload.data(), "", &value), 16);
    EXPECT_EQ(KFr_Fibex_encodeSignal("Nope", 1.0f, payload.data(), 48), 14);
    EXPECT_EQ(KFr_Fibex_encodeSignal("", 1.0f, payload.data(), 48), 14);
    EXPECT_EQ(KFr_Fibex_encodeSignal("OrphanValue", 1.0f, payload.data(), 48), 16);
    // Sig20_Ratio: bit position 311 + 8 bits needs 40 bytes.
    EXPECT_EQ(KFr_Fibex_encodeSignal("Sig20_Ratio", 1.0f, payload.data(), 39), 15);
    EXPECT_EQ(KFr_Fibex_encodeSignal("Sig20_Ratio", 1.0f, payload.data(), 40), 0);
    EXPECT_EQ(KFr_Fibex_encodeSignal("Sig01_Speed_UB", 1.0f, payload.data(), 44), 15);
    EXPECT_EQ(KFr_Fibex_encodeSignal(nullptr, 1.0f, payload.data(), 48), 5);
    EXPECT_EQ(KFr_Fibex_decodeSignal(frame20.data(), nullptr, "Sig01_Speed", &value), 5);
}

TEST_F(SignalsByName, SignalsOfTheSecondPduUseTheirPositionInsideThePdu) {
    // SecondPduValue sits at bit 8 of its PDU; the PDU starts at byte 4 of the frame, but signal
    // positions count from the start of the PDU, so the codec reads byte 1.
    std::vector<unsigned char> payload(510, 0);
    payload[1] = 40;  // (40 * 0.5) - 10 = 10
    payload[5] = 80;
    const auto h = rxHeader(50, 0, 5);
    float value = 0;
    ASSERT_EQ(KFr_Fibex_decodeSignal(h.data(), payload.data(), "SecondPduValue", &value), 0);
    EXPECT_FLOAT_EQ(value, 10.0f);
}

// ---- parameter blocks --------------------------------------------------------------------------

class ParameterBlocks : public FibexDatabaseTest {};

std::uint32_t le(const unsigned char* b, int at, int width) {
    std::uint32_t v = 0;
    for (int i = width - 1; i >= 0; --i)
        v = (v << 8) | b[at + i];
    return v;
}

struct BlockField {
    int offset;
    int width;
    std::uint32_t value;
    const char* item;
};

TEST_F(ParameterBlocks, ClusterBlockHoldsEveryClusterParameterInItsField) {
    unsigned char cluster[36], node[48], cc[5];
    std::memset(cluster, 0xEE, sizeof cluster);
    ASSERT_EQ(KFr_Fibex_GetParameter("QueryCluster", "NodeA", cluster, node, cc), 0);
    const BlockField fields[] = {
        {0, 2, 5000, "MACRO-PER-CYCLE"},
        {2, 2, 1302, "STATIC-SLOT"},
        {4, 2, 1306, "NUMBER-OF-STATIC-SLOTS"},
        {6, 2, 1305, "NUMBER-OF-MINISLOTS"},
        {8, 2, 1301, "N-I-T"},
        {10, 2, 1307, "OFFSET-CORRECTION-START"},
        {12, 2, 1303, "WAKE-UP-SYMBOL-RX-WINDOW"},
        {14, 2, 1304, "WAKE-UP-SYMBOL-TX-IDLE"},
        {16, 1, 24, "MINISLOT"},
        {17, 1, 22, "ACTION-POINT-OFFSET"},
        {18, 1, 25, "MINISLOT-ACTION-POINT-OFFSET"},
        {19, 1, 23, "DYNAMIC-SLOT-IDLE-PHASE"},
        {20, 1, 26, "SYMBOL-WINDOW"},
        {21, 1, 37, "PAYLOAD-LENGTH-STATIC"},
        {22, 1, 21, "COLD-START-ATTEMPTS"},
        {23, 1, 31, "LISTEN-NOISE"},
        {24, 1, 35, "MAX-WITHOUT-CLOCK-CORRECTION-PASSIVE"},
        {25, 1, 34, "MAX-WITHOUT-CLOCK-CORRECTION-FATAL"},
        {26, 1, 38, "SYNC-NODE-MAX"},
        {27, 1, 36, "NETWORK-MANAGEMENT-VECTOR-LENGTH"},
        {28, 1, 27, "T-S-S-TRANSMITTER"},
        {29, 1, 39, "CAS-RX-LOW-MAX"},
        {30, 1, 28, "WAKE-UP-SYMBOL-RX-IDLE"},
        {31, 1, 29, "WAKE-UP-SYMBOL-RX-LOW"},
        {32, 1, 30, "WAKE-UP-SYMBOL-TX-LOW"},
        {33, 1, 32, "MACROTICK"},
        {34, 1, 33, "MAX-INITIALIZATION-ERROR"},
        {35, 1, 40, "CYCLE"},
    };
    int covered = 0;
    for (const BlockField& f : fields) {
        EXPECT_EQ(le(cluster, f.offset, f.width), f.value) << f.item << " at " << f.offset;
        covered += f.width;
    }
    EXPECT_EQ(covered, 36) << "every byte of the block is a field";
    EXPECT_EQ(kelo::dbapi::MacroPerCycleDivisor.load(), 5000);
}

TEST_F(ParameterBlocks, ClusterFoundByIdAsWellAsByName) {
    unsigned char a[36], b[36], node[48], cc[5];
    ASSERT_EQ(KFr_Fibex_GetParameter("QueryCluster", "NodeA", a, node, cc), 0);
    ASSERT_EQ(KFr_Fibex_GetParameter("CL_Q", "NodeA", b, node, cc), 0);
    EXPECT_EQ(0, std::memcmp(a, b, 36));
}

const BlockField kNodeAFields[] = {
    {0, 4, 401202, "LISTEN-TIMEOUT"},
    {4, 1, 110, "ALLOW-PASSIVE-TO-ACTIVE"},
    {5, 1, 1, "ALLOW-HALT-DUE-TO-CLOCK"},
    {6, 1, 102, "CLUSTER-DRIFT-DAMPING"},
    {7, 1, 103, "DECODING-CORRECTION"},
    {8, 1, 105, "DELAY-COMPENSATION-A"},
    {9, 1, 106, "DELAY-COMPENSATION-B"},
    {10, 2, 2005, "ACCEPTED-STARTUP-RANGE"},
    {12, 2, 2001, "MAX-DRIFT"},
    {14, 2, 2002, "LATEST-TX"},
    {16, 2, 10, "KEY-SLOT-USAGE/STARTUP-SYNC"},
    {18, 1, 1, "key slot used for startup"},
    {19, 1, 1, "key slot used for sync"},
    {20, 2, 2003, "OFFSET-CORRECTION-OUT"},
    {22, 1, 107, "EXTERN-OFFSET-CORRECTION"},
    {23, 1, 108, "EXTERN-RATE-CORRECTION"},
    {24, 4, 215000, "MICRO-PER-CYCLE"},
    {28, 4, 104, "MICRO-PER-MACRO-NOM"},
    {32, 1, 43, "MICRO-PER-CYCLE / MACRO-PER-CYCLE"},
    {33, 1, 0, "reserved"},
    {34, 2, 2004, "RATE-CORRECTION-OUT"},
    {36, 2, 101, "MAX-DYNAMIC-PAYLOAD-LENGTH"},
    {38, 1, 111, "MACRO-INITIAL-OFFSET-A"},
    {39, 1, 49, "WAKE-UP-PATTERN - 1"},
    {40, 1, 112, "MACRO-INITIAL-OFFSET-B"},
    {41, 1, 0, "reserved"},
    {42, 2, 2006, "SINGLE-SLOT-ENABLED"},
    {44, 2, 0, "always 0"},
    {46, 1, 113, "MICRO-INITIAL-OFFSET-A"},
    {47, 1, 114, "MICRO-INITIAL-OFFSET-B"},
};

TEST_F(ParameterBlocks, NodeBlockHoldsEveryControllerParameterInItsField) {
    unsigned char cluster[36], node[48], cc[5];
    std::memset(node, 0xEE, sizeof node);
    std::memset(cc, 0xEE, sizeof cc);
    ASSERT_EQ(KFr_Fibex_GetParameter("QueryCluster", "NodeA", cluster, node, cc), 0);
    int covered = 0;
    for (const BlockField& f : kNodeAFields) {
        EXPECT_EQ(le(node, f.offset, f.width), f.value) << f.item << " at " << f.offset;
        covered += f.width;
    }
    EXPECT_EQ(covered, 48);
    // Controller block: 0, channel A, not B, 0, 5 Mbit/s.
    const unsigned char ccWant[5] = {0, 1, 0, 0, 1};
    EXPECT_EQ(0, std::memcmp(cc, ccWant, 5));

    // The C record names the same bytes.
    fnpt record;
    ASSERT_EQ(KFr_Fibex_GetControllerParameter("NodeA", &record), 0);
    EXPECT_EQ(0, std::memcmp(&record, node, 48));
    EXPECT_EQ(record.listenTimeout, 401202u);
    EXPECT_EQ(record.keySlotId, 10);
    EXPECT_EQ(record.microPerMacro, 43);
    EXPECT_EQ(record.microInitialOffsetB, 114);
}

TEST_F(ParameterBlocks, ControllerQueryBeforeAnyClusterQueryUses40) {
    kelo::dbapi::MacroPerCycleDivisor.store(0);
    fnpt record;
    ASSERT_EQ(KFr_Fibex_GetControllerParameter("NodeA", &record), 0);
    EXPECT_EQ(record.microPerMacro, 40);
}

TEST_F(ParameterBlocks, ControllersWithoutKeySlotOrWakeUpPatternAndTheirChannels) {
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
    struct Row {
        const char* cluster;
        unsigned char code;
    };
    for (const Row& r : {Row{"QueryCluster", 1}, Row{"Cluster2M5", 2}, Row{"Cluster8M", 3},
                         Row{"Cluster10M", 0}, Row{"Cluster1M", 0}}) {
        unsigned char cluster[36], node[48], cc[5] = {9, 9, 9, 9, 9};
        ASSERT_EQ(KFr_Fibex_GetParameter(r.cluster, "NodeA", cluster, node, cc), 0);
        EXPECT_EQ(cc[4], r.code) << r.cluster;
        EXPECT_EQ(cc[0], 0);
        EXPECT_EQ(cc[3], 0);
    }
}

TEST_F(ParameterBlocks, UnknownNamesAndEcusWithoutController) {
    unsigned char cluster[36], node[48], cc[5];
    std::memset(cluster, 0xEE, sizeof cluster);
    std::memset(node, 0xEE, sizeof node);
    EXPECT_EQ(KFr_Fibex_GetParameter("NoCluster", "NodeA", cluster, node, cc), 5);
    EXPECT_EQ(cluster[0], 0xEE) << "nothing is written for an unknown cluster";
    EXPECT_EQ(KFr_Fibex_GetParameter("QueryCluster", "NoSuchEcu", cluster, node, cc), 5);
    EXPECT_EQ(le(cluster, 0, 2), 5000u)
        << "the cluster block is filled before the ECU is looked up";
    EXPECT_EQ(node[0], 0xEE);
    EXPECT_EQ(KFr_Fibex_GetParameter("QueryCluster", "NoController", cluster, node, cc), 9);
    EXPECT_EQ(node[0], 0xEE);
    fnpt record;
    EXPECT_EQ(KFr_Fibex_GetControllerParameter("NoSuchEcu", &record), 5);
    EXPECT_EQ(KFr_Fibex_GetControllerParameter("NoController", &record), 9);
    EXPECT_EQ(KFr_Fibex_GetControllerParameter("", &record), 5);
    EXPECT_EQ(KFr_Fibex_GetControllerParameter("NodeA", nullptr), 5);
}

TEST_F(ParameterBlocks, SlotBlocks) {
    struct Row {
        const char* frame;
        std::array<unsigned char, 12> want;
    };
    // p2 = 0x22 goes to byte 6, p3 = 0x33 to byte 4; byte 1 keeps the caller's 0xEE.
    const Row rows[] = {
        {"Frame20", {255, 0xEE, 10, 0, 0x33, 24, 0x22, 1, 1, 0, 1, 1}},
        {"EventFrame", {255, 0xEE, 20, 0, 0x33, 4, 0x22, 0, 1, 1, 4, 0}},
        {"EmptyFrame", {255, 0xEE, 30, 0, 0x33, 3, 0x22, 1, 0, 2, 2, 1}},
        {"TwoPduFrame", {255, 0xEE, 50, 0, 0x33, 5, 0x22, 1, 0, 0, 2, 1}},
    };
    for (const Row& r : rows) {
        std::array<unsigned char, 12> block;
        block.fill(0xEE);
        ASSERT_EQ(KFr_Fibex_GetSlotParameter(r.frame, 0x22, 0x33, block.data()), 0) << r.frame;
        EXPECT_EQ(block, r.want) << r.frame;
    }
    std::array<unsigned char, 12> block;
    block.fill(0xEE);
    EXPECT_EQ(KFr_Fibex_GetSlotParameter("NoSuchFrame", 0, 0, block.data()), 17);
    EXPECT_EQ(KFr_Fibex_GetSlotParameter("FR_20", 0, 0, block.data()), 17) << "names, not IDs";
    EXPECT_EQ(KFr_Fibex_GetSlotParameter("", 0, 0, block.data()), 17);
    EXPECT_EQ(block[0], 0xEE);
}

TEST_F(ParameterBlocks, PduInfoDescribesTheFirstPduWhateverTheIndex) {
    for (int index : {0, 1}) {
        unsigned char info[4] = {9, 9, 9, 9};
        ASSERT_EQ(KFr_Fibex_GetPDUinfo("FR_TWO", index, info), 0);
        const unsigned char want[4] = {0, 1, 4, 0};  // byte 0, high byte first, 4 bytes
        EXPECT_EQ(0, std::memcmp(info, want, 4)) << "index " << index;
    }
    unsigned char info[4] = {9, 9, 9, 9};
    EXPECT_EQ(KFr_Fibex_GetPDUinfo("FR_TWO", 2, info), 5);
    EXPECT_EQ(KFr_Fibex_GetPDUinfo("FR_TWO", -1, info), 0) << "a signed comparison";
    EXPECT_EQ(KFr_Fibex_GetPDUinfo("FR_EMPTY", 0, info), 5);
    // Keyed by ID: an unknown key (a name, too) enters an empty frame under that key.
    ASSERT_EQ(kelo::dbapi::FibexDb->frames.count("TwoPduFrame"), 0u);
    EXPECT_EQ(KFr_Fibex_GetPDUinfo("TwoPduFrame", 0, info), 5);
    EXPECT_EQ(kelo::dbapi::FibexDb->frames.count("TwoPduFrame"), 1u);
}

}  // namespace
