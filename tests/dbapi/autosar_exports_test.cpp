// The KFr_AutoSar_* exports against AUTOSAR files of tests/data/autosar. Expected values come
// from the reader's own records of the same file, so the tests check what the exports make of
// the records (lists, codec placement, block bytes), not the reader again. By-name transmit and
// receive run against the device emulator on 127.0.1.70-72.
#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CommunicationLib.h"
#include "autosar/autosar_reader.h"
#include "dbapi_test_support.h"
#include "device/command_codes.h"
#include "emulator.h"
#include "exports/device_table.h"

using namespace kelo_dbapi_test;
namespace autosar = kelo::autosar;

namespace {

std::string arxml(const char* name) {
    return std::string(KELO_TEST_DATA_DIR) + "/autosar/" + name;
}
// The example program's system description: a complete cluster with three ECUs and twelve frames.
const std::string kSystem = arxml("../../../examples/chassis-flexray-4.2.arxml");
const std::string kEcusAndClusters = arxml("ecus-and-cluster-cycle-forms-4.1.arxml");
const std::string kNoCluster = arxml("units-in-second-package-4.1.arxml");

std::string address(int n) {
    return "127.0.1." + std::to_string(n);
}

// The system file opened through the export, and the same file read by a reader of the test's
// own for the expected values.
class AutosarExports : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(KFr_AutoSar_Open(kSystem.c_str()), 0);
        ASSERT_TRUE(reader_.IsLoaded());
    }
    void TearDown() override { KFr_AutoSar_Close(); }
    const autosar::tAutoSarDatabase& db() const { return reader_.Database(); }

    autosar::AutoSarReader reader_{kSystem};
};

struct ListResult {
    unsigned char status;
    std::string text;
    unsigned int total;
    unsigned int count;
};

// Calls a list query with a buffer of bufSize bytes inside a larger sentinel-filled array and
// checks that nothing past bufSize was written.
template <typename Query>
ListResult list(Query query, unsigned int bufSize) {
    std::vector<char> buffer(bufSize + 16, '#');
    ListResult r{};
    r.total = 0xDEAD;
    r.count = 0xBEEF;
    r.status = query(buffer.data(), bufSize, &r.total, &r.count);
    for (std::size_t i = bufSize; i < buffer.size(); ++i)
        EXPECT_EQ(buffer[i], '#') << "written past the buffer at " << i;
    r.text.assign(buffer.data(), strnlen(buffer.data(), bufSize));
    for (std::size_t i = r.text.size(); i < bufSize; ++i)
        EXPECT_EQ(buffer[i], 0) << "not zero-filled at " << i;
    return r;
}

std::string joined(const std::vector<std::string>& names) {
    std::string s;
    for (const std::string& n : names)
        s += (s.empty() ? "" : ";") + n;
    return s;
}

// The two formats are independent: closing one leaves the other.
TEST(AutosarHandle, ClosingOneFormatLeavesTheOther) {
    unsigned int length = 0;
    ASSERT_EQ(KFr_AutoSar_Open(kSystem.c_str()), 0);
    ASSERT_EQ(KFr_Fibex_Open(queriesFile().c_str()), 0);
    EXPECT_EQ(KFr_Fibex_Close(), 0);
    EXPECT_EQ(KFr_AutoSar_GetMaxNameLength(&length), 0);
    EXPECT_GT(length, std::strlen("Engine_Status_Frame"));
    EXPECT_EQ(KFr_AutoSar_Close(), 0);
    EXPECT_EQ(KFr_AutoSar_Close(), 9);
}

TEST_F(AutosarExports, ListsFollowTheDatabaseAndTheRoomTest) {
    std::vector<std::string> ecus, clusters;
    for (const auto& e : db().ecus)
        ecus.push_back(e.first);
    for (const auto& c : db().clusters)
        clusters.push_back(c.first);
    ASSERT_EQ(ecus.size(), 3u);

    auto ecuList = [](char* b, unsigned int n, unsigned int* t, unsigned int* c) {
        return KFr_AutoSar_GetAllECUName(b, n, t, c);
    };
    const std::string all = joined(ecus);
    const std::string firstTwo = joined({ecus[0], ecus[1]});
    // bufSize: room for everything; exactly the room test's limit (the list then fills every
    // byte, without a terminator); one less; nothing.
    struct Case {
        unsigned int bufSize;
        unsigned char status;
        std::string text;
        unsigned int count;
    } cases[] = {
        {256, 0, all, 3},
        {unsigned(all.size()), 0, all, 3},
        {unsigned(all.size() - 1), 21, firstTwo, 2},
        {unsigned(ecus[0].size()), 21, "", 0},
        {unsigned(ecus[0].size() + 1), 21, ecus[0], 1},
        {0, 21, "", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("bufSize " + std::to_string(c.bufSize));
        const ListResult r = list(ecuList, c.bufSize);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.text, c.text);
        EXPECT_EQ(r.count, c.count);
        EXPECT_EQ(r.total, 3u);
    }

    const ListResult clusterList = list(KFr_AutoSar_GetAllClusterName, 256);
    EXPECT_EQ(clusterList.status, 0);
    EXPECT_EQ(clusterList.text, joined(clusters));

    // Keyed lists: frames of the cluster, frames an ECU sends or receives, signals of a frame
    // ("_UB" companions in mapping order).
    const autosar::tAutoSarClusterConfig& cluster = db().clusters.begin()->second;
    auto byCluster = [&](char* b, unsigned int n, unsigned int* t, unsigned int* c) {
        return KFr_AutoSar_GetAllFrameName_ByClusterName(cluster.name.c_str(), b, n, t, c);
    };
    const ListResult frames = list(byCluster, 1024);
    EXPECT_EQ(frames.status, 0);
    EXPECT_EQ(frames.text, joined(cluster.frameNames));
    EXPECT_EQ(frames.total, cluster.frameNames.size());

    const ListResult signals = list(
        [](char* b, unsigned int n, unsigned int* t, unsigned int* c) {
            return KFr_AutoSar_GetAllSignalName_ByFrameName("Brake_Status_Frame", b, n, t, c);
        },
        256);
    EXPECT_EQ(signals.status, 0);
    EXPECT_EQ(signals.text, "BrakePressure;BrakePressure_UB;AbsActive");
    EXPECT_EQ(signals.total, 3u);

    const autosar::tAutoSarECUInfo& ecu = db().ecus.at(ecus[0]);
    std::vector<std::string> ecuFrames(ecu.sentFrames);
    ecuFrames.insert(ecuFrames.end(), ecu.receivedFrames.begin(), ecu.receivedFrames.end());
    std::sort(ecuFrames.begin(), ecuFrames.end());
    ecuFrames.erase(std::unique(ecuFrames.begin(), ecuFrames.end()), ecuFrames.end());
    const ListResult byEcu = list(
        [&](char* b, unsigned int n, unsigned int* t, unsigned int* c) {
            return KFr_AutoSar_GetAllFrameName_ByECUName(ecus[0].c_str(), b, n, t, c);
        },
        1024);
    EXPECT_EQ(byEcu.status, 0);
    EXPECT_EQ(byEcu.text, joined(ecuFrames));

    // Unknown keys: 22, buffer zero-filled, total untouched.
    for (auto query :
         {KFr_AutoSar_GetAllFrameName_ByClusterName, KFr_AutoSar_GetAllFrameName_ByECUName,
          KFr_AutoSar_GetAllSignalName_ByFrameName}) {
        const ListResult r = list([&](char* b, unsigned int n, unsigned int* t,
                                      unsigned int* c) { return query("NoSuchName", b, n, t, c); },
                                  32);
        EXPECT_EQ(r.status, 22);
        EXPECT_EQ(r.text, "");
        EXPECT_EQ(r.count, 0u);
        EXPECT_EQ(r.total, 0xDEADu);
    }

    // A file without clusters or ECUs: empty lists, status 0.
    ASSERT_EQ(KFr_AutoSar_Open(kNoCluster.c_str()), 0);
    const ListResult empty = list(KFr_AutoSar_GetAllClusterName, 16);
    EXPECT_EQ(empty.status, 0);
    EXPECT_EQ(empty.text, "");
    EXPECT_EQ(empty.total, 0u);
    EXPECT_EQ(empty.count, 0u);
}

TEST_F(AutosarExports, FrameNamesBySlotAndBySignal) {
    char name[64];
    // Every cell of the slot-by-cycle table, and a slot nothing uses.
    for (const auto& [slot, cycles] : db().frameNamesBySlot) {
        for (unsigned cycle = 0; cycle < 64; ++cycle) {
            const auto header = rxHeader(slot, static_cast<std::uint8_t>(cycle));
            std::strcpy(name, "stale");
            ASSERT_EQ(KFr_AutoSar_GetFrameName(header.data(), name), 0);
            ASSERT_EQ(std::string(name), cycles[cycle]) << "slot " << slot << " cycle " << cycle;
        }
    }
    const auto unused = rxHeader(2000, 0);
    ASSERT_EQ(KFr_AutoSar_GetFrameName(unused.data(), name), 0);
    EXPECT_STREQ(name, "");

    unsigned char firstUse = 9;
    ASSERT_EQ(KFr_AutoSar_GetFrameName_BySignalName("BrakePressure", name, &firstUse), 0);
    EXPECT_STREQ(name, "Brake_Status_Frame");
    EXPECT_EQ(firstUse, 1);
    ASSERT_EQ(KFr_AutoSar_GetFrameName_BySignalName("AbsActive", name, &firstUse), 0);
    EXPECT_EQ(firstUse, 0) << "same frame";
    ASSERT_EQ(KFr_AutoSar_GetFrameName_BySignalName("BrakePressure_UB", name, &firstUse), 0);
    EXPECT_STREQ(name, "Brake_Status_Frame");
    EXPECT_EQ(KFr_AutoSar_GetFrameName_BySignalName("NoSuchSignal", name, &firstUse), 14);
    EXPECT_EQ(KFr_AutoSar_GetFrameName_BySignalName("", name, &firstUse), 14);
    // A successful open of either format starts the registration afresh.
    ASSERT_EQ(KFr_Fibex_Open(queriesFile().c_str()), 0);
    ASSERT_EQ(KFr_Fibex_Close(), 0);
    ASSERT_EQ(KFr_AutoSar_GetFrameName_BySignalName("AbsActive", name, &firstUse), 0);
    EXPECT_EQ(firstUse, 1);
}

// A raw value that fits the signal's field, away from the edges.
std::int64_t sampleRaw(const autosar::tAutoSarSignalInfo& s, unsigned salt) {
    if (s.length <= 1) return 1;
    const std::int64_t span = std::int64_t(1) << std::min<unsigned>(s.length - 1, 20);
    const std::int64_t raw = (span / 3 + salt) % span;
    return s.isSigned ? -raw : raw;
}

// Every signal of every frame is encoded and decoded back through the exports, and the bits
// land where the records place them (PDU byte offset + start position, byte order).
TEST_F(AutosarExports, EveryMappedSignalRoundTripsAtItsRecordedPosition) {
    int checked = 0;
    for (const auto& [frameName, frame] : db().frames) {
        if (frame.slotId == 0 || frame.pdus.empty()) continue;
        std::vector<unsigned char> payload(frame.frameLength, 0);
        std::vector<std::pair<const autosar::tAutoSarSignalInfo*, float>> written;
        unsigned salt = 0;
        for (const autosar::tAutoSarPDUInfo* pdu : frame.pdus) {
            for (const autosar::tAutoSarSignalInfo* s : pdu->signals) {
                SCOPED_TRACE(frameName + "/" + s->name);
                float value = 0;
                if (s->name.size() > 3 && s->name.compare(s->name.size() - 3, 3, "_UB") == 0) {
                    value = 1.0f;
                } else {
                    const std::int64_t raw = sampleRaw(*s, ++salt);
                    value = float(raw);
                    const autosar::tAutoSarCompuMethodInfo* m = s->compuMethod;
                    if (m && m->category == "LINEAR" && !m->scales.empty())
                        value = float(raw) * m->scales[0].factor + m->scales[0].offset;
                }
                ASSERT_EQ(KFr_AutoSar_encodeSignal(s->name.c_str(), value, payload.data(),
                                                   static_cast<unsigned char>(payload.size())),
                          0);
                written.push_back({s, value});
            }
        }
        std::vector<unsigned char> received(510, 0);
        std::copy(payload.begin(), payload.end(), received.begin());
        const auto header = rxHeader(frame.slotId, frame.baseCycle);
        for (const auto& [s, value] : written) {
            SCOPED_TRACE(frameName + "/" + s->name);
            float decoded = -12345;
            ASSERT_EQ(
                KFr_AutoSar_decodeSignal(header.data(), received.data(), s->name.c_str(), &decoded),
                0);
            EXPECT_NEAR(decoded, value, std::fabs(value) * 1e-5 + 1e-3);
            ++checked;
        }
    }
    EXPECT_GE(checked, 20);

    // Placement against the records, for one signal of each byte order.
    for (const char* name : {"EngineSpeed", "VehicleSpeed", "BrakePressure", "SteeringAngle"}) {
        SCOPED_TRACE(name);
        const autosar::tAutoSarSignalInfo& s = db().signals.at(name);
        const autosar::tAutoSarPDUInfo& pdu = db().pdus.at(s.pduName);
        const unsigned p = pdu.frameStartPosition / 8 * 8 + s.startPosition;
        std::vector<unsigned char> payload(64, 0);
        const std::int64_t raw = 1;  // a single bit shows the field's least significant bit
        float value = 1.0f;
        if (s.compuMethod && s.compuMethod->category == "LINEAR" && !s.compuMethod->scales.empty())
            value = s.compuMethod->scales[0].factor * float(raw) + s.compuMethod->scales[0].offset;
        ASSERT_EQ(KFr_AutoSar_encodeSignal(name, value, payload.data(), 64), 0);
        // Least significant byte first: the start position is the field's lowest bit. Most
        // significant byte first: it is the field's highest bit, and the lowest bit lies
        // (length - 1) bits further on in the big-endian bit order.
        unsigned lsb = p;
        if (s.byteOrder != 0) {
            unsigned byte = p / 8, bit = p % 8;
            for (unsigned i = 1; i < s.length; ++i) {
                if (bit == 0) {
                    bit = 7;
                    ++byte;
                } else {
                    --bit;
                }
            }
            lsb = byte * 8 + bit;
        }
        for (unsigned i = 0; i < payload.size(); ++i)
            EXPECT_EQ(payload[i], i == lsb / 8 ? (1u << (lsb % 8)) : 0u) << "byte " << i;
    }
}

// Signals of a frame's second PDU land at that PDU's byte offset in the frame, in both byte
// orders; decoding finds them again by slot and cycle.
TEST(AutosarCodec, SignalsOfASecondPduSitAtItsOffsetInTheFrame) {
    ASSERT_EQ(KFr_AutoSar_Open(arxml("frame-with-two-pdus-4.2.arxml").c_str()), 0);
    std::vector<unsigned char> payload(510, 0);
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
    const auto header = rxHeader(5, 0);
    for (const auto& w : writes) {
        float value = 0;
        ASSERT_EQ(KFr_AutoSar_decodeSignal(header.data(), payload.data(), w.name, &value), 0)
            << w.name;
        EXPECT_EQ(value, w.value) << w.name;
    }
    // The bit-count test of the encoder: a most-significant-byte-first field near the end of the
    // payload counts its start bit plus its length, and is refused.
    EXPECT_EQ(KFr_AutoSar_encodeSignal("TailBig", 1.0f, payload.data(), 7), 15);
    EXPECT_EQ(KFr_AutoSar_Close(), 0);
}

TEST_F(AutosarExports, CodecStatusCodesAndUpdateBits) {
    std::vector<unsigned char> payload(510, 0);
    const autosar::tAutoSarFrameInfo& frame = db().frames.at("Brake_Status_Frame");
    const auto header = rxHeader(frame.slotId, frame.baseCycle);
    float value = 0;
    // Update bit: exactly one bit, at the recorded position.
    ASSERT_EQ(KFr_AutoSar_encodeSignal("BrakePressure_UB", 1.0f, payload.data(), 8), 0);
    const autosar::tAutoSarSignalInfo& ub = db().signals.at("BrakePressure_UB");
    const unsigned p = db().pdus.at(ub.pduName).frameStartPosition / 8 * 8 + ub.startPosition;
    for (unsigned i = 0; i < 8; ++i)
        EXPECT_EQ(payload[i], i == p / 8 ? 1u << (p % 8) : 0u);
    ASSERT_EQ(KFr_AutoSar_decodeSignal(header.data(), payload.data(), "BrakePressure_UB", &value),
              0);
    EXPECT_EQ(value, 1.0f);
    ASSERT_EQ(KFr_AutoSar_encodeSignal("BrakePressure_UB", 2.0f, payload.data(), 8), 0);
    EXPECT_EQ(payload[p / 8], 0) << "the lowest bit of the truncated value";

    struct Case {
        const char* what;
        unsigned char status;
        unsigned char code;
    } cases[] = {
        {"unknown signal (encode)",
         KFr_AutoSar_encodeSignal("NoSuchSignal", 1.0f, payload.data(), 8), 14},
        {"does not fit", KFr_AutoSar_encodeSignal("AbsActive", 1.0f, payload.data(), 0), 15},
        {"signal of another frame",
         KFr_AutoSar_decodeSignal(header.data(), payload.data(), "EngineSpeed", &value), 16},
        {"no frame at slot and cycle",
         KFr_AutoSar_decodeSignal(rxHeader(2000, 0).data(), payload.data(), "AbsActive", &value),
         17},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.status, c.code) << c.what;
}

TEST_F(AutosarExports, ParameterBlocksCarryTheRecordsFields) {
    const autosar::tAutoSarClusterConfig& c = db().clusters.begin()->second;
    const std::string ecuName = "EngineControl";
    const autosar::tAutoSarController& n = *db().ecus.at(ecuName).controllers.front();

    std::vector<unsigned char> cluster(36, 0xA5), node(48, 0xA5), cc(5, 0xA5);
    ASSERT_EQ(KFr_AutoSar_GetParameter(c.name.c_str(), ecuName.c_str(), cluster.data(), node.data(),
                                       cc.data()),
              0);
    auto u16 = [](const std::vector<unsigned char>& b, int at) { return b[at] | b[at + 1] << 8; };
    auto u32 = [](const std::vector<unsigned char>& b, int at) {
        return std::uint32_t(b[at] | b[at + 1] << 8 | b[at + 2] << 16) | std::uint32_t(b[at + 3])
                                                                             << 24;
    };
    struct Field {
        const char* name;
        std::uint32_t got;
        std::uint32_t want;
    } fields[] = {
        {"gMacroPerCycle", std::uint32_t(u16(cluster, 0)), c.macroPerCycle & 0xFFFF},
        {"gdStaticSlot", std::uint32_t(u16(cluster, 2)), c.staticSlotDuration & 0xFFFF},
        {"gNumberOfStaticSlots", std::uint32_t(u16(cluster, 4)), c.numberOfStaticSlots},
        {"gNumberOfMinislots", std::uint32_t(u16(cluster, 6)), c.numberOfMinislots},
        {"gdNIT", std::uint32_t(u16(cluster, 8)), c.networkIdleTime},
        {"gOffsetCorrectionStart", std::uint32_t(u16(cluster, 10)), c.offsetCorrectionStart},
        {"gdWakeupSymbolRxWindow", std::uint32_t(u16(cluster, 12)), c.wakeupRxWindow},
        {"gdWakeupSymbolTxIdle", std::uint32_t(u16(cluster, 14)), c.wakeupTxIdle},
        {"gdMinislot", cluster[16], c.minislotDuration & 0xFF},
        {"gdActionPointOffset", cluster[17], c.actionPointOffset & 0xFF},
        {"gdMinislotActionPointOffset", cluster[18], c.minislotActionPointOffset & 0xFF},
        {"gdDynamicSlotIdlePhase", cluster[19], c.dynamicSlotIdlePhase & 0xFF},
        {"gdSymbolWindow", cluster[20], c.symbolWindow & 0xFF},
        {"gPayloadLengthStatic", cluster[21], c.payloadLengthStatic & 0xFF},
        {"gColdStartAttempts", cluster[22], c.coldStartAttempts & 0xFF},
        {"gListenNoise", cluster[23], c.listenNoise & 0xFF},
        {"gMaxWithoutClockCorrectionPassive", cluster[24],
         c.maxWithoutClockCorrectionPassive & 0xFF},
        {"gMaxWithoutClockCorrectionFatal", cluster[25], c.maxWithoutClockCorrectionFatal & 0xFF},
        {"gSyncNodeMax", cluster[26], c.syncFrameIdCountMax & 0xFF},
        {"gNetworkManagementVectorLength", cluster[27], c.networkManagementVectorLength & 0xFF},
        {"gdTSSTransmitter", cluster[28], c.transmissionStartSequenceDuration & 0xFF},
        {"gdCASRxLowMax", cluster[29], c.casRxLowMax & 0xFF},
        {"gdWakeupSymbolRxIdle", cluster[30], c.wakeupRxIdle & 0xFF},
        {"gdWakeupSymbolRxLow", cluster[31], c.wakeupRxLow & 0xFF},
        {"gdWakeupSymbolTxLow", cluster[32], c.wakeupTxActive & 0xFF},
        {"gdMacrotick (us)", cluster[33],
         std::uint32_t(std::lround(c.macrotickDuration * 1e6)) & 0xFF},
        {"gdMaxInitializationError", cluster[34], c.maxInitializationError & 0xFF},
        {"gCycleCountMax", cluster[35], c.cycleCountMax & 0xFF},
        {"cc bit rate", cc[4],
         c.baudrate == 2500000u   ? 2u
         : c.baudrate == 5000000u ? 1u
         : c.baudrate == 8000000u ? 3u
                                  : 0u},
        {"cc byte 0", cc[0], 0},
        {"cc byte 3", cc[3], 0},
        {"cc channel A", cc[1], n.channelMask == 2 ? 0u : 1u},
        {"cc channel B", cc[2], n.channelMask == 1 ? 0u : 1u},
        {"pdListenTimeout", u32(node, 0), n.listenTimeout},
        {"pAllowPassiveToActive", node[4], n.allowPassiveToActive & 0xFF},
        {"pAllowHaltDueToClock", node[5], n.allowHaltDueToClock ? 1u : 0u},
        {"pClusterDriftDamping", node[6], n.clusterDriftDamping & 0xFF},
        {"pDecodingCorrection", node[7], n.decodingCorrection & 0xFF},
        {"pDelayCompensation[A]", node[8], n.delayCompensationA & 0xFF},
        {"pDelayCompensation[B]", node[9], n.delayCompensationB & 0xFF},
        {"pdAcceptedStartupRange", std::uint32_t(u16(node, 10)), n.acceptedStartupRange & 0xFFFF},
        {"pdMaxDrift", std::uint32_t(u16(node, 12)), n.maxDrift & 0xFFFF},
        {"pLatestTx", std::uint32_t(u16(node, 14)), n.latestTx & 0xFFFF},
        {"pKeySlotId", std::uint32_t(u16(node, 16)), n.keySlotId & 0xFFFF},
        {"key slot startup", node[18], 1},
        {"key slot sync", node[19], 1},
        {"pOffsetCorrectionOut", std::uint32_t(u16(node, 20)), n.offsetCorrectionOut & 0xFFFF},
        {"pExternOffsetCorrection", node[22], n.externOffsetCorrection & 0xFF},
        {"pExternRateCorrection", node[23], n.externRateCorrection & 0xFF},
        {"pMicroPerCycle", u32(node, 24), n.microPerCycle},
        {"pMicroPerMacroNom", u32(node, 28),
         std::uint32_t(std::lround(c.macrotickDuration / n.microtickDuration))},
        {"microticks per macrotick", node[32], (n.microPerCycle / c.macroPerCycle) & 0xFF},
        {"pRateCorrectionOut", std::uint32_t(u16(node, 34)), n.rateCorrectionOut & 0xFFFF},
        {"pPayloadLengthDynMax", std::uint32_t(u16(node, 36)), n.maxDynamicPayloadLength & 0xFFFF},
        {"pMacroInitialOffset[A]", node[38], n.macroInitialOffsetA & 0xFF},
        {"pWakeupPattern - 1", node[39], (n.wakeUpPattern - 1) & 0xFF},
        {"pMacroInitialOffset[B]", node[40], n.macroInitialOffsetB & 0xFF},
        {"pSingleSlotEnabled", std::uint32_t(u16(node, 42)), n.keySlotOnlyEnabled ? 1u : 0u},
        {"reserved 44", std::uint32_t(u16(node, 44)), 0},
        {"pMicroInitialOffset[A]", node[46], n.microInitialOffsetA & 0xFF},
        {"pMicroInitialOffset[B]", node[47], n.microInitialOffsetB & 0xFF},
    };
    ASSERT_TRUE(n.keySlotUsedForStartup || n.keySlotUsedForSync);
    ASSERT_GE(n.keySlotId, 1u);
    ASSERT_NE(c.macroPerCycle, 0u);
    for (const Field& f : fields)
        EXPECT_EQ(f.got, f.want) << f.name;

    // The controller query alone fills the same node block with the divisor just kept.
    std::vector<unsigned char> alone(48, 0x5A);
    ASSERT_EQ(
        KFr_AutoSar_GetControllerParameter(ecuName.c_str(), reinterpret_cast<fnpt*>(alone.data())),
        0);
    EXPECT_EQ(alone, node);

    // Slot block from the frame record.
    const autosar::tAutoSarFrameInfo& frame = db().frames.at("Gateway_Info_Frame");
    unsigned char slot[12];
    std::memset(slot, 0xCC, sizeof slot);
    ASSERT_EQ(KFr_AutoSar_GetSlotParameter("Gateway_Info_Frame", 3, 1, slot), 0);
    const unsigned char expected[12] = {
        255,
        0xCC,
        static_cast<unsigned char>(frame.slotId),
        static_cast<unsigned char>(frame.slotId >> 8),
        1,
        static_cast<unsigned char>(frame.frameLength >> 1),
        3,
        static_cast<unsigned char>(frame.channelMask != 2),
        static_cast<unsigned char>(frame.channelMask != 1),
        frame.baseCycle,
        frame.cycleRepetition,
        static_cast<unsigned char>(frame.pdus.empty() || frame.pdus[0]->transmissionMode == 1)};
    EXPECT_EQ(std::vector<unsigned char>(slot, slot + 12),
              std::vector<unsigned char>(expected, expected + 12));
    EXPECT_EQ(slot[11], 0) << "Gateway_Info_Frame's PDU is event-controlled";

    // Codes: unknown frame 17, unknown cluster 5, unknown ECU 5, ECU without controller 9.
    EXPECT_EQ(KFr_AutoSar_GetSlotParameter("NoSuchFrame", 0, 0, slot), 17);
    EXPECT_EQ(KFr_AutoSar_GetParameter("NoSuchCluster", ecuName.c_str(), cluster.data(),
                                       node.data(), cc.data()),
              5);
    EXPECT_EQ(KFr_AutoSar_GetParameter(c.name.c_str(), "NoSuchEcu", cluster.data(), node.data(),
                                       cc.data()),
              5);
    EXPECT_EQ(KFr_AutoSar_GetControllerParameter("NoSuchEcu", reinterpret_cast<fnpt*>(node.data())),
              5);
    ASSERT_EQ(KFr_AutoSar_Open(kEcusAndClusters.c_str()), 0);
    EXPECT_EQ(KFr_AutoSar_GetControllerParameter("Bare", reinterpret_cast<fnpt*>(node.data())), 9);
    // A cluster without parameters sets the shared divisor to 0: 40 microticks per macrotick.
    ASSERT_EQ(
        KFr_AutoSar_GetParameter("EmptyCluster", "NodeA", cluster.data(), node.data(), cc.data()),
        0);
    EXPECT_EQ(node[32], 40);
}

// The node block's microticks-per-macrotick byte divides by the gMacroPerCycle of whichever
// GetParameter ran last, FIBEX or AUTOSAR.
TEST(AutosarParameters, TheDivisorIsSharedWithTheFibexQuery) {
    ASSERT_EQ(KFr_AutoSar_Open(kEcusAndClusters.c_str()), 0);
    ASSERT_EQ(KFr_Fibex_Open(queriesFile().c_str()), 0);
    unsigned char cluster[36], node[48], cc[5];
    fnpt fibexNode;

    // The FIBEX NodeA has 215000 microticks per cycle: 43 per macrotick with 5000 macroticks.
    ASSERT_EQ(KFr_Fibex_GetParameter("QueryCluster", "NodeA", cluster, node, cc), 0);
    ASSERT_EQ(KFr_Fibex_GetControllerParameter("NodeA", &fibexNode), 0);
    EXPECT_EQ(fibexNode.microPerMacro, 43);
    // An AUTOSAR cluster without parameters sets the divisor to 0: the FIBEX controller now gets
    // 40.
    ASSERT_EQ(KFr_AutoSar_GetParameter("EmptyCluster", "NodeA", cluster, node, cc), 0);
    ASSERT_EQ(KFr_Fibex_GetControllerParameter("NodeA", &fibexNode), 0);
    EXPECT_EQ(fibexNode.microPerMacro, 40);
    // An AUTOSAR cluster of 5000 macroticks divides the FIBEX controller's microticks again.
    ASSERT_EQ(KFr_AutoSar_GetParameter("Backbone", "NodeA", cluster, node, cc), 0);
    EXPECT_EQ(cluster[0] | cluster[1] << 8, 5000);
    ASSERT_EQ(KFr_Fibex_GetControllerParameter("NodeA", &fibexNode), 0);
    EXPECT_EQ(fibexNode.microPerMacro, 43);
    EXPECT_EQ(KFr_Fibex_Close(), 0);
    EXPECT_EQ(KFr_AutoSar_Close(), 0);
}

// By-name slot configuration, transmit and receive on the emulator.
class AutosarByName : public AutosarExports {
  protected:
    void open(int hostNumber) {
        emu_ = std::make_unique<kelo::emu::DeviceEmulator>(address(hostNumber));
        ASSERT_TRUE(emu_->start());
        lib_ = GetKeLoComm();
        ASSERT_EQ(lib_->Fr_Open(address(hostNumber).c_str()), 0);
        // The receive-by-name exports take only index 0; put the device there.
        ASSERT_EQ(kelo::DeviceSlotTable[0].lib.load(), nullptr);
        kelo::DeviceSlotTable[0].lib.store(lib_);
        emu_->clearReceived();
    }
    void TearDown() override {
        kelo::DeviceSlotTable[0].lib.store(nullptr);
        if (lib_) {
            emu_->clearFaults();
            lib_->Fr_Close();
            delete lib_;
        }
        AutosarExports::TearDown();
    }
    static bool mapped(const std::string& frame, std::uint8_t* index = nullptr) {
        std::lock_guard<std::mutex> lock(kelo::dbapi::FrameMapsLock);
        const auto it = kelo::dbapi::AutosarFrameBufferIndexMap.find(frame);
        if (it == kelo::dbapi::AutosarFrameBufferIndexMap.end()) return false;
        if (index) *index = it->second;
        return true;
    }

    std::unique_ptr<kelo::emu::DeviceEmulator> emu_;
    CommunicationLib* lib_ = nullptr;
};

TEST_F(AutosarByName, ConfigureTransmitAndReceiveByName) {
    open(70);
    // A device index other than 0 must be given to the configuration exports: open one the
    // ordinary way on the same emulator for them.
    const signed char idx = KFr_Open_Wrapper(address(70).c_str());
    ASSERT_GT(idx, 0);
    const unsigned char u = static_cast<unsigned char>(idx);

    ASSERT_EQ(KFr_AutoSar_Set_Slot_Parameter_Wrapper(u, 0, "Wheel_Speeds_Frame", 0, 1), 0);
    ASSERT_EQ(KFr_AutoSar_Set_Slot_Parameter_Wrapper(u, 0, "Engine_Status_Frame", 0, 1), 0);
    std::uint8_t buffer = 0xEE;
    ASSERT_TRUE(mapped("Engine_Status_Frame", &buffer));
    EXPECT_EQ(buffer, 1) << "the second buffer the device assigned";
    EXPECT_EQ(KFr_AutoSar_Set_Slot_Parameter_Wrapper(u, 0, "NoSuchFrame", 0, 1), 17);
    EXPECT_FALSE(mapped("NoSuchFrame"));
    emu_->refuse(kelo::kCmdSetSlotParameter, 1, 1);
    EXPECT_EQ(KFr_AutoSar_Set_Slot_Parameter_Wrapper(u, 0, "Body_Frame", 0, 1), 1);
    EXPECT_FALSE(mapped("Body_Frame")) << "a refused configuration leaves the map";

    // Opens of either format leave the AUTOSAR map alone.
    ASSERT_EQ(KFr_AutoSar_Open(kSystem.c_str()), 0);
    ASSERT_EQ(KFr_Fibex_Open(queriesFile().c_str()), 0);
    ASSERT_EQ(KFr_Fibex_Close(), 0);
    ASSERT_TRUE(mapped("Engine_Status_Frame", &buffer));
    EXPECT_EQ(buffer, 1);

    // Transmit by name: the remembered buffer, the length halved to words.
    std::vector<unsigned char> data(8, 0);
    ASSERT_EQ(KFr_AutoSar_encodeSignal("EngineSpeed", 2400.0f, data.data(), 8), 0);
    ASSERT_EQ(KFr_AutoSar_encodeSignal("EngineSpeed_UB", 1.0f, data.data(), 8), 0);
    emu_->clearReceived();
    ASSERT_EQ(KFr_AutoSar_Transmit_Wrapper(u, 0, "Engine_Status_Frame", data.data(), 8), 0);
    auto sent = emu_->received(kelo::kCmdTransmit);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].payload[1], 1);
    EXPECT_EQ(sent[0].payload[2], 4);
    // A name never configured goes out with buffer 0 and is entered.
    ASSERT_EQ(KFr_AutoSar_Transmit_Wrapper(u, 0, "Diag_Frame", data.data(), 8), 0);
    sent = emu_->received(kelo::kCmdTransmit);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[1].payload[1], 0);
    ASSERT_TRUE(mapped("Diag_Frame", &buffer));
    EXPECT_EQ(buffer, 0);
    EXPECT_EQ(KFr_Close_Wrapper(idx), 0);

    // Receive by name on index 0: the node sends the configured frame back.
    unsigned char block[12] = {};
    ASSERT_EQ(KFr_AutoSar_GetSlotParameter("Engine_Status_Frame", 0, 1, block), 0);
    // The device's slot record: node, the 12-byte block, one spare byte.
    std::vector<unsigned char> record(14);
    std::memcpy(record.data() + 1, block, 12);
    ASSERT_EQ(lib_->Fr_Set_Slot_Parameter(record.data()), 0);
    ASSERT_EQ(lib_->Fr_Transmit(0, record[1], data.data(), 4), 0);
    ASSERT_EQ(lib_->Fr_Configure_Node(0), 0);
    ASSERT_EQ(lib_->Fr_Start_Node(0), 0);
    ASSERT_EQ(lib_->Fr_StartFrRxUpload(0), 0);

    unsigned char header[28];
    std::vector<unsigned char> payload(510, 0);
    char name[64] = "";
    // Other configured buffers may come round first; take frames until this one arrives.
    for (int i = 0; i < 64 && std::strcmp(name, "Engine_Status_Frame") != 0; ++i)
        ASSERT_EQ(KFr_AutoSar_Receive_Wrapper(0, header, payload.data(), name, 3000), 0);
    ASSERT_STREQ(name, "Engine_Status_Frame");
    float value = 0;
    ASSERT_EQ(KFr_AutoSar_decodeSignal(header, payload.data(), "EngineSpeed", &value), 0);
    EXPECT_FLOAT_EQ(value, 2400.0f);
    ASSERT_EQ(KFr_AutoSar_decodeSignal(header, payload.data(), "EngineSpeed_UB", &value), 0);
    EXPECT_EQ(value, 1.0f);

    // Without a database the frame is still copied out and the answer is 9.
    ASSERT_EQ(KFr_AutoSar_Close(), 0);
    std::strcpy(name, "untouched");
    std::fill(payload.begin(), payload.end(), 0);
    ASSERT_EQ(KFr_AutoSar_Receive_Wrapper(0, header, payload.data(), name, 3000), 9);
    EXPECT_EQ(std::vector<unsigned char>(payload.begin(), payload.begin() + 8), data);
    EXPECT_STREQ(name, "untouched");
    for (signed char bad : {-1, 1, 126, 127})
        EXPECT_EQ(KFr_AutoSar_Receive_Wrapper(bad, header, payload.data(), name, 20), 6);
}

}  // namespace
