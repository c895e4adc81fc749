// The KFr_AutoSar_* exports: the AUTOSAR database handle, name and list queries, the signal
// codec, parameter queries and transmit/receive by frame name. They follow the FIBEX exports
// step for step and share their codec, block layouts and status codes; only the records they
// read differ. Each export catches everything at its boundary and answers with a status.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

#include "KeLoComm.h"
#include "autosar/autosar_reader.h"
#include "dbapi/database_handles.h"
#include "dbapi/export_support.h"
#include "dbapi/parameter_blocks.h"
#include "dbapi/signal_codec.h"

namespace kelo {
namespace dbapi {

namespace {

using autosar::tAutoSarDatabase;

// The database of a loaded AUTOSAR file; null otherwise. Call with DatabaseLock held.
const tAutoSarDatabase* usableAutosar() {
    return AutosarDb != nullptr && AutosarDb->IsLoaded() ? &AutosarDb->Database() : nullptr;
}

// Where a signal sits in the frame payload: the PDU's byte offset in the frame plus the
// signal's start position in the PDU. PDUs start on byte boundaries; the PDU's start position
// is a bit number (for most-significant-byte-first packing the bit 7 of the first byte), so its
// byte is the start position divided by 8.
std::uint16_t framePosition(const tAutoSarDatabase& db, const autosar::tAutoSarSignalInfo& s) {
    std::uint32_t pduByte = 0;
    if (!s.pduName.empty()) {
        const auto pdu = db.pdus.find(s.pduName);
        if (pdu != db.pdus.end()) pduByte = pdu->second.frameStartPosition / 8u;
    }
    return static_cast<std::uint16_t>(pduByte * 8u + s.startPosition);
}

// What the AUTOSAR records say about one signal, as the codec takes it. The scale is the
// compu-method's first COMPU-SCALE (offset V0, factor V1, both divided by the denominator when
// it is neither 0 nor 1). An IDENTICAL method carries no scale in AUTOSAR files; it reads as
// factor 1, offset 0.
SignalCoding codingOf(const tAutoSarDatabase& db, const autosar::tAutoSarSignalInfo& s) {
    SignalCoding c;
    c.bitPosition = framePosition(db, s);
    c.bitLength = s.length;
    c.msbFirst = s.byteOrder != 0;
    c.isSigned = s.isSigned;
    if (const autosar::tAutoSarCompuMethodInfo* method = s.compuMethod) {
        if (method->category == "LINEAR" || method->category == "IDENTICAL") {
            c.scaling = Scaling::Linear;
            if (!method->scales.empty()) {
                const autosar::tAutoSarCompuScale& scale = method->scales.front();
                const float d = (scale.denominator != 0.0f && scale.denominator != 1.0f)
                                    ? scale.denominator
                                    : 1.0f;
                c.hasScale = true;
                c.factor = scale.factor / d;
                c.offset = scale.offset / d;
            } else if (method->category == "IDENTICAL") {
                c.hasScale = true;
            }
        } else {
            c.scaling = Scaling::Other;
        }
    }
    return c;
}

std::uint32_t microseconds(double seconds) {
    return seconds > 0.0 ? static_cast<std::uint32_t>(std::lround(seconds * 1e6)) : 0u;
}

ClusterParameters clusterParameters(const autosar::tAutoSarClusterConfig& c) {
    ClusterParameters p;
    p.speed = c.baudrate;
    p.macroPerCycle = c.macroPerCycle;
    p.staticSlot = c.staticSlotDuration;
    p.numberOfStaticSlots = c.numberOfStaticSlots;
    p.numberOfMinislots = c.numberOfMinislots;
    p.nit = c.networkIdleTime;
    p.offsetCorrectionStart = c.offsetCorrectionStart;
    p.wakeUpSymbolRxWindow = c.wakeupRxWindow;
    p.wakeUpSymbolTxIdle = c.wakeupTxIdle;
    p.minislot = c.minislotDuration;
    p.actionPointOffset = c.actionPointOffset;
    p.minislotActionPointOffset = c.minislotActionPointOffset;
    p.dynamicSlotIdlePhase = c.dynamicSlotIdlePhase;
    p.symbolWindow = c.symbolWindow;
    p.payloadLengthStatic = c.payloadLengthStatic;
    p.coldStartAttempts = c.coldStartAttempts;
    p.listenNoise = c.listenNoise;
    p.maxWithoutClockCorrectionPassive = c.maxWithoutClockCorrectionPassive;
    p.maxWithoutClockCorrectionFatal = c.maxWithoutClockCorrectionFatal;
    p.syncNodeMax = c.syncFrameIdCountMax;
    p.networkManagementVectorLength = c.networkManagementVectorLength;
    p.tssTransmitter = c.transmissionStartSequenceDuration;
    p.casRxLowMax = c.casRxLowMax;
    p.wakeUpSymbolRxIdle = c.wakeupRxIdle;
    p.wakeUpSymbolRxLow = c.wakeupRxLow;
    p.wakeUpSymbolTxLow = c.wakeupTxActive;
    p.macrotick = microseconds(c.macrotickDuration);
    p.maxInitializationError = c.maxInitializationError;
    p.cycleCountMax = c.cycleCountMax;
    return p;
}

// The cluster a controller's connectors attach it to ("CLUSTER/CHANNEL" keys); null when none.
const autosar::tAutoSarClusterConfig* clusterOf(const tAutoSarDatabase& db,
                                                const autosar::tAutoSarController& controller) {
    for (const auto& entry : db.connectors) {
        const autosar::tAutoSarConnector& connector = entry.second;
        if (connector.controller != &controller) continue;
        for (const std::string& channelKey : connector.channelKeys) {
            const auto cluster = db.clusters.find(channelKey.substr(0, channelKey.find('/')));
            if (cluster != db.clusters.end()) return &cluster->second;
        }
    }
    return nullptr;
}

ControllerParameters controllerParameters(const tAutoSarDatabase& db,
                                          const autosar::tAutoSarController& c) {
    ControllerParameters p;
    p.listenTimeout = c.listenTimeout;
    p.allowPassiveToActive = c.allowPassiveToActive;
    p.allowHaltDueToClock = c.allowHaltDueToClock;
    p.clusterDriftDamping = c.clusterDriftDamping;
    p.decodingCorrection = c.decodingCorrection;
    p.delayCompensationA = c.delayCompensationA;
    p.delayCompensationB = c.delayCompensationB;
    p.acceptedStartupRange = c.acceptedStartupRange;
    p.maxDrift = c.maxDrift;
    p.latestTx = c.latestTx;
    // The key slot counts when the controller sends its startup or sync frame in it.
    p.keySlotId = (c.keySlotUsedForStartup || c.keySlotUsedForSync) ? c.keySlotId : 0;
    p.offsetCorrectionOut = c.offsetCorrectionOut;
    p.externOffsetCorrection = c.externOffsetCorrection;
    p.externRateCorrection = c.externRateCorrection;
    p.microPerCycle = c.microPerCycle;
    // AUTOSAR gives no pMicroPerMacroNom: it is the cluster's macrotick over the microtick.
    if (const autosar::tAutoSarClusterConfig* cluster = clusterOf(db, c);
        cluster != nullptr && c.microtickDuration > 0.0)
        p.microPerMacroNom = static_cast<std::uint32_t>(
            std::lround(cluster->macrotickDuration / c.microtickDuration));
    p.rateCorrectionOut = c.rateCorrectionOut;
    p.maxDynamicPayloadLength = c.maxDynamicPayloadLength;
    p.macroInitialOffsetA = c.macroInitialOffsetA;
    p.wakeUpPattern = c.wakeUpPattern;
    p.macroInitialOffsetB = c.macroInitialOffsetB;
    p.singleSlotEnabled = c.keySlotOnlyEnabled ? 1 : 0;
    p.microInitialOffsetA = c.microInitialOffsetA;
    p.microInitialOffsetB = c.microInitialOffsetB;
    p.channelMask = c.channelMask;
    return p;
}

// The ECU's first controller into the node block (and, when cc is given, its channels into the
// controller block). 5 unknown ECU, 9 no controller.
std::uint8_t fillFromController(const tAutoSarDatabase& db, const char* ecuName, std::uint8_t* node,
                                std::uint8_t* cc) {
    const auto ecu = db.ecus.find(ecuName);
    if (ecu == db.ecus.end()) return kBadArgument;
    if (ecu->second.controllers.empty() || ecu->second.controllers.front() == nullptr)
        return kNoDatabase;
    const ControllerParameters parameters =
        controllerParameters(db, *ecu->second.controllers.front());
    fillNodeBlock(parameters, node);
    if (cc != nullptr) fillCcBlockChannels(parameters, cc);
    return kOk;
}

// Appends names to a zero-filled list buffer, ";"-separated, while the room test passes; 21
// when a name does not fit (what was appended stays). The separator is not counted in the room
// test, so a full list may use every byte of the buffer and then has no terminating NUL; nothing
// is ever written past bufSize bytes.
std::uint8_t appendNames(const std::vector<const std::string*>& names, char* buf,
                         unsigned int bufSize, unsigned int* count) {
    std::size_t length = 0;  // current string length of buf
    for (const std::string* name : names) {
        if (bufSize == 0 || length + name->size() > std::size_t(bufSize) - 1) return kListTooSmall;
        if (length != 0) buf[length++] = ';';
        std::memcpy(buf + length, name->data(), name->size());
        length += name->size();
        ++*count;
    }
    return kOk;
}

// The common head of the list queries: zero-fill and count 0 before any other check.
bool startList(char* buf, unsigned int bufSize, unsigned int* total, unsigned int* count) {
    if (buf == nullptr || total == nullptr || count == nullptr) return false;
    std::memset(buf, 0, bufSize);
    *count = 0;
    return true;
}

template <typename Map>
std::vector<const std::string*> namesOf(const Map& map) {
    std::vector<const std::string*> names;
    names.reserve(map.size());
    for (const auto& entry : map)
        names.push_back(&entry.first);
    return names;
}

// Frames an ECU sends or receives, ascending, each once.
std::vector<const std::string*> framesOf(const autosar::tAutoSarECUInfo& ecu) {
    std::set<const std::string*, bool (*)(const std::string*, const std::string*)> names(
        [](const std::string* a, const std::string* b) { return *a < *b; });
    for (const std::string& name : ecu.sentFrames)
        names.insert(&name);
    for (const std::string& name : ecu.receivedFrames)
        names.insert(&name);
    return {names.begin(), names.end()};
}

// Signals a frame carries: its PDUs in mapping order, each PDU's signals in mapping order
// ("_UB" companions included).
std::vector<const std::string*> signalsOf(const autosar::tAutoSarFrameInfo& frame) {
    std::vector<const std::string*> names;
    for (const autosar::tAutoSarPDUInfo* pdu : frame.pdus) {
        if (pdu == nullptr) continue;
        for (const autosar::tAutoSarSignalInfo* signal : pdu->signals)
            if (signal != nullptr) names.push_back(&signal->name);
    }
    return names;
}

// A keyed list query: 5 for a null key (as for every null argument), 22 when the key is unknown.
template <typename Map, typename Items>
unsigned char keyedList(const Map& map, const char* key, Items items, char* buf,
                        unsigned int bufSize, unsigned int* total, unsigned int* count) {
    if (key == nullptr) return kBadArgument;
    const auto entry = map.find(key);
    if (entry == map.end()) return kKeyUnknown;
    const std::vector<const std::string*> names = items(entry->second);
    *total = static_cast<unsigned int>(names.size());
    return appendNames(names, buf, bufSize, count);
}

}  // namespace

}  // namespace dbapi
}  // namespace kelo

using namespace kelo::dbapi;
namespace autosar = kelo::autosar;

extern "C" {

KELOCOMM_API unsigned char KFr_AutoSar_Open(const char* path) {
    return guardedStatus([&]() -> unsigned char {
        if (!isExistingFile(path)) return kNoDatabase;
        auto reader = std::make_unique<autosar::AutoSarReader>(std::string(path));
        const bool loaded = reader->IsLoaded();
        return installDatabase(AutosarDb, std::move(reader), loaded);
    });
}

KELOCOMM_API unsigned char KFr_AutoSar_Close(void) {
    return guardedStatus([&]() { return closeDatabase(AutosarDb); });
}

KELOCOMM_API unsigned char KFr_AutoSar_GetMaxNameLength(unsigned int* length) {
    return guardedStatus([&]() -> unsigned char {
        if (length == nullptr) return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const autosar::tAutoSarDatabase* db = usableAutosar();
        if (db == nullptr) return kNoDatabase;
        *length = nameBufferSize(db->frames, db->signals);
        return kOk;
    });
}

KELOCOMM_API unsigned char KFr_AutoSar_GetFrameName(const unsigned char* rxHeader, char* nameOut) {
    return guardedStatus([&]() { return frameNameOfHeader(rxHeader, nameOut, usableAutosar); });
}

KELOCOMM_API unsigned char KFr_AutoSar_GetFrameName_BySignalName(const char* signalName,
                                                                 char* frameNameOut,
                                                                 unsigned char* firstUse) {
    return guardedStatus([&]() -> unsigned char {
        if (signalName == nullptr || frameNameOut == nullptr || firstUse == nullptr)
            return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const autosar::tAutoSarDatabase* db = usableAutosar();
        if (db == nullptr) return kNoDatabase;
        const auto signal = db->signals.find(signalName);
        if (signal == db->signals.end()) return kSignalUnknown;
        // The frame the signal's PDU is mapped into; empty when no frame carries it.
        const std::string& frame = signal->second.frameName;
        if (frame.empty()) return kNotInFrame;
        copyName(frame, frameNameOut);
        *firstUse = registerFrame(frame) ? 1 : 0;
        return kOk;
    });
}

KELOCOMM_API unsigned char KFr_AutoSar_GetAllClusterName(char* buf, unsigned int bufSize,
                                                         unsigned int* total, unsigned int* count) {
    return guardedStatus([&]() -> unsigned char {
        if (!startList(buf, bufSize, total, count)) return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const autosar::tAutoSarDatabase* db = usableAutosar();
        if (db == nullptr) return kNoDatabase;
        *total = static_cast<unsigned int>(db->clusters.size());
        return appendNames(namesOf(db->clusters), buf, bufSize, count);
    });
}

KELOCOMM_API unsigned char KFr_AutoSar_GetAllECUName(char* buf, unsigned int bufSize,
                                                     unsigned int* total, unsigned int* count) {
    return guardedStatus([&]() -> unsigned char {
        if (!startList(buf, bufSize, total, count)) return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const autosar::tAutoSarDatabase* db = usableAutosar();
        if (db == nullptr) return kNoDatabase;
        *total = static_cast<unsigned int>(db->ecus.size());
        return appendNames(namesOf(db->ecus), buf, bufSize, count);
    });
}

KELOCOMM_API unsigned char KFr_AutoSar_GetAllFrameName_ByClusterName(const char* clusterName,
                                                                     char* buf,
                                                                     unsigned int bufSize,
                                                                     unsigned int* total,
                                                                     unsigned int* count) {
    return guardedStatus([&]() -> unsigned char {
        if (!startList(buf, bufSize, total, count)) return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const autosar::tAutoSarDatabase* db = usableAutosar();
        if (db == nullptr) return kNoDatabase;
        return keyedList(
            db->clusters, clusterName,
            [](const autosar::tAutoSarClusterConfig& cluster) {
                std::vector<const std::string*> names;
                for (const std::string& name : cluster.frameNames)
                    names.push_back(&name);
                return names;
            },
            buf, bufSize, total, count);
    });
}

KELOCOMM_API unsigned char KFr_AutoSar_GetAllFrameName_ByECUName(const char* ecuName, char* buf,
                                                                 unsigned int bufSize,
                                                                 unsigned int* total,
                                                                 unsigned int* count) {
    return guardedStatus([&]() -> unsigned char {
        if (!startList(buf, bufSize, total, count)) return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const autosar::tAutoSarDatabase* db = usableAutosar();
        if (db == nullptr) return kNoDatabase;
        return keyedList(db->ecus, ecuName, framesOf, buf, bufSize, total, count);
    });
}

KELOCOMM_API unsigned char KFr_AutoSar_GetAllSignalName_ByFrameName(const char* frameName,
                                                                    char* buf, unsigned int bufSize,
                                                                    unsigned int* total,
                                                                    unsigned int* count) {
    return guardedStatus([&]() -> unsigned char {
        if (!startList(buf, bufSize, total, count)) return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const autosar::tAutoSarDatabase* db = usableAutosar();
        if (db == nullptr) return kNoDatabase;
        return keyedList(db->frames, frameName, signalsOf, buf, bufSize, total, count);
    });
}

KELOCOMM_API unsigned char KFr_AutoSar_decodeSignal(const unsigned char* rxHeader,
                                                    const unsigned char* payload,
                                                    const char* signalName, float* value) {
    return guardedStatus([&]() -> unsigned char {
        if (rxHeader == nullptr || payload == nullptr || signalName == nullptr || value == nullptr)
            return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const autosar::tAutoSarDatabase* db = usableAutosar();
        if (db == nullptr) return kNoDatabase;
        const std::string& frameName = db->frameNameAt(headerSlot(rxHeader), rxHeader[19]);
        // Compared as a view: lengths first, so most names are rejected without a byte compare.
        const std::string_view wanted(signalName);
        if (frameName.empty()) return kFrameUnknown;
        const auto frame = db->frames.find(frameName);
        if (frame == db->frames.end()) return kFrameUnknown;
        for (const autosar::tAutoSarPDUInfo* pdu : frame->second.pdus) {
            if (pdu == nullptr) continue;
            for (const autosar::tAutoSarSignalInfo* signal : pdu->signals) {
                if (signal == nullptr) continue;
                if (signal->name == wanted)
                    return decodeValue(codingOf(*db, *signal), payload, kDecodePayloadSize, value);
                const autosar::tAutoSarSignalInfo* updateBit = signal->updateBitSignal;
                if (updateBit != nullptr && updateBit->name == wanted) {
                    *value = decodeUpdateBit(payload, kDecodePayloadSize,
                                             framePosition(*db, *updateBit));
                    return kOk;
                }
            }
        }
        return kNotInFrame;
    });
}

KELOCOMM_API unsigned char KFr_AutoSar_encodeSignal(const char* signalName, float value,
                                                    unsigned char* payload,
                                                    unsigned char payloadLength) {
    return guardedStatus([&]() -> unsigned char {
        if (signalName == nullptr || payload == nullptr) return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const autosar::tAutoSarDatabase* db = usableAutosar();
        if (db == nullptr) return kNoDatabase;
        const auto entry = db->signals.find(signalName);
        if (entry == db->signals.end()) return kSignalUnknown;
        const autosar::tAutoSarSignalInfo& signal = entry->second;
        if (signal.frameName.empty()) return kNotInFrame;
        if (endsWithUpdateBitSuffix(signalName))
            return encodeUpdateBit(framePosition(*db, signal), value, payload, payloadLength);
        return encodeValue(codingOf(*db, signal), value, payload, payloadLength);
    });
}

KELOCOMM_API unsigned char KFr_AutoSar_GetSlotParameter(const char* frameName, unsigned char p2,
                                                        unsigned char p3, unsigned char* block) {
    return guardedStatus([&]() -> unsigned char {
        if (frameName == nullptr || block == nullptr) return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const autosar::tAutoSarDatabase* db = usableAutosar();
        if (db == nullptr) return kNoDatabase;
        const auto entry = db->frames.find(frameName);
        if (entry == db->frames.end()) return kFrameUnknown;
        const autosar::tAutoSarFrameInfo& frame = entry->second;
        SlotParameters slot;
        slot.slotId = frame.slotId;
        slot.byteLength = frame.frameLength;
        slot.channelMask = frame.channelMask;
        slot.baseCycle = frame.baseCycle;
        slot.cycleRepetition = frame.cycleRepetition;
        const autosar::tAutoSarPDUInfo* first = frame.pdus.empty() ? nullptr : frame.pdus[0];
        slot.cyclic = first == nullptr || first->transmissionMode == 1;
        fillSlotBlock(slot, p2, p3, block);
        return kOk;
    });
}

KELOCOMM_API unsigned char KFr_AutoSar_GetParameter(const char* clusterName, const char* ecuName,
                                                    unsigned char* clusterBlock,
                                                    unsigned char* nodeBlock,
                                                    unsigned char* ccBlock) {
    return guardedStatus([&]() -> unsigned char {
        if (clusterName == nullptr || ecuName == nullptr || clusterBlock == nullptr ||
            nodeBlock == nullptr || ccBlock == nullptr)
            return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const autosar::tAutoSarDatabase* db = usableAutosar();
        if (db == nullptr) return kNoDatabase;
        const auto cluster = db->clusters.find(clusterName);
        if (cluster == db->clusters.end()) return kBadArgument;
        const ClusterParameters parameters = clusterParameters(cluster->second);
        fillClusterBlock(parameters, clusterBlock);
        fillCcBlockFromCluster(parameters, ccBlock);
        return fillFromController(*db, ecuName, nodeBlock, ccBlock);
    });
}

KELOCOMM_API unsigned char KFr_AutoSar_GetControllerParameter(const char* ecuName, fnpt* node) {
    return guardedStatus([&]() -> unsigned char {
        if (ecuName == nullptr || node == nullptr) return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const autosar::tAutoSarDatabase* db = usableAutosar();
        if (db == nullptr) return kNoDatabase;
        return fillFromController(*db, ecuName, reinterpret_cast<std::uint8_t*>(node), nullptr);
    });
}

KELOCOMM_API unsigned char KFr_AutoSar_Set_Slot_Parameter_Wrapper(unsigned char idx,
                                                                  unsigned char node,
                                                                  const char* frameName,
                                                                  unsigned char p3,
                                                                  unsigned char p4) {
    return guardedStatus([&]() {
        return setSlotByName(idx, node, frameName, p3, p4, KFr_AutoSar_GetSlotParameter,
                             AutosarFrameBufferIndexMap);
    });
}

KELOCOMM_API unsigned char KFr_AutoSar_Transmit_Wrapper(unsigned char idx, unsigned char p1,
                                                        const char* frameName, unsigned char* data,
                                                        unsigned char length) {
    return guardedStatus([&]() {
        return transmitByName(AutosarFrameBufferIndexMap, idx, p1, frameName, data, length);
    });
}

KELOCOMM_API unsigned char KFr_AutoSar_Receive_Wrapper(signed char idx, unsigned char* headerOut,
                                                       unsigned char* payloadOut,
                                                       char* frameNameOut, unsigned int param) {
    return guardedStatus([&]() {
        return receiveByName(idx, headerOut, payloadOut, frameNameOut, param, usableAutosar);
    });
}

}  // extern "C"
