// The KFr_Fibex_* exports: the FIBEX database handle, name queries, the signal codec, parameter
// queries and transmit/receive by frame name. Each export catches everything at its boundary
// and answers with a status.
#include <cstring>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <string_view>

#include "KeLoComm.h"
#include "dbapi/database_handles.h"
#include "dbapi/export_support.h"
#include "dbapi/parameter_blocks.h"
#include "dbapi/signal_codec.h"
#include "exports/device_table.h"
#include "fibex/fibex_reader.h"

namespace kelo {
namespace dbapi {

namespace {

// What the FIBEX records say about one signal, as the codec takes it.
SignalCoding codingOf(const fibex::Signal& signal, bool msbFirst) {
    SignalCoding c;
    c.bitPosition = signal.bitPosition;
    c.msbFirst = msbFirst;
    if (const fibex::Coding* coding = signal.coding) {
        c.bitLength = coding->bitLength;
        c.isSigned = coding->isSigned;
        if (!coding->compuMethods.empty()) {
            const fibex::CompuMethod& method = coding->compuMethods.front();
            if (method.category == "LINEAR" || method.category == "IDENTICAL") {
                c.scaling = Scaling::Linear;
                if (!method.scales.empty()) {
                    c.hasScale = true;
                    c.factor = method.scales.front().factor;
                    c.offset = method.scales.front().offset;
                }
            } else {
                c.scaling = Scaling::Other;
            }
        }
    }
    return c;
}

const fibex::Cluster* findCluster(const fibex::BusDatabase& db, const char* name) {
    const auto byId = db.clusters.find(name);
    if (byId != db.clusters.end()) return &byId->second;
    for (const auto& entry : db.clusters)
        if (entry.second.shortName == name) return &entry.second;
    return nullptr;
}

ClusterParameters clusterParameters(const fibex::Cluster& c) {
    ClusterParameters p;
    p.speed = c.speed;
    p.macroPerCycle = c.macroPerCycle;
    p.staticSlot = c.staticSlot;
    p.numberOfStaticSlots = c.numberOfStaticSlots;
    p.numberOfMinislots = c.numberOfMinislots;
    p.nit = c.nit;
    p.offsetCorrectionStart = c.offsetCorrectionStart;
    p.wakeUpSymbolRxWindow = c.wakeUpSymbolRxWindow;
    p.wakeUpSymbolTxIdle = c.wakeUpSymbolTxIdle;
    p.minislot = c.minislot;
    p.actionPointOffset = c.actionPointOffset;
    p.minislotActionPointOffset = c.minislotActionPointOffset;
    p.dynamicSlotIdlePhase = c.dynamicSlotIdlePhase;
    p.symbolWindow = c.symbolWindow;
    p.payloadLengthStatic = c.payloadLengthStatic;
    p.coldStartAttempts = c.coldStartAttempts;
    p.listenNoise = c.listenNoise;
    p.maxWithoutClockCorrectionPassive = c.maxWithoutClockCorrectionPassive;
    p.maxWithoutClockCorrectionFatal = c.maxWithoutClockCorrectionFatal;
    p.syncNodeMax = c.syncNodeMax;
    p.networkManagementVectorLength = c.networkManagementVectorLength;
    p.tssTransmitter = c.tssTransmitter;
    p.casRxLowMax = c.casRxLowMax;
    p.wakeUpSymbolRxIdle = c.wakeUpSymbolRxIdle;
    p.wakeUpSymbolRxLow = c.wakeUpSymbolRxLow;
    p.wakeUpSymbolTxLow = c.wakeUpSymbolTxLow;
    p.macrotick = c.macrotick;
    p.maxInitializationError = c.maxInitializationError;
    p.cycleCountMax = c.cycle;
    return p;
}

ControllerParameters controllerParameters(const fibex::Ecu& ecu) {
    const fibex::Controller& c = ecu.controllers.front();
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
    p.keySlotId = c.keySlotUsageStartupSync;
    p.offsetCorrectionOut = c.offsetCorrectionOut;
    p.externOffsetCorrection = c.externOffsetCorrection;
    p.externRateCorrection = c.externRateCorrection;
    p.microPerCycle = c.microPerCycle;
    p.microPerMacroNom = c.microPerMacroNom;
    p.rateCorrectionOut = c.rateCorrectionOut;
    p.maxDynamicPayloadLength = c.maxDynamicPayloadLength;
    p.macroInitialOffsetA = c.macroInitialOffsetA;
    p.wakeUpPattern = c.wakeUpPattern;
    p.macroInitialOffsetB = c.macroInitialOffsetB;
    p.singleSlotEnabled = c.singleSlotEnabled;
    p.microInitialOffsetA = c.microInitialOffsetA;
    p.microInitialOffsetB = c.microInitialOffsetB;
    // The controller's channels: those its connectors in this ECU attach it to.
    for (const fibex::Connector& connector : ecu.connectors) {
        if (connector.channel == nullptr) continue;
        if (connector.controller != nullptr && connector.controller->shortName != c.shortName)
            continue;
        p.channelMask = static_cast<std::uint16_t>(p.channelMask | connector.channel->channelMask);
    }
    return p;
}

// Steps shared by KFr_Fibex_GetParameter and KFr_Fibex_GetControllerParameter: the ECU's first
// controller into the node block (and, when cc is given, its channels into the controller
// block). 5 unknown ECU, 9 no controller.
std::uint8_t fillFromController(const fibex::BusDatabase& db, const char* ecuName,
                                std::uint8_t* node, std::uint8_t* cc) {
    const auto ecu = db.ecusByName.find(ecuName);
    if (ecu == db.ecusByName.end()) return kBadArgument;
    if (ecu->second.controllers.empty()) return kNoDatabase;
    const ControllerParameters parameters = controllerParameters(ecu->second);
    fillNodeBlock(parameters, node);
    if (cc != nullptr) fillCcBlockChannels(parameters, cc);
    return kOk;
}

}  // namespace

}  // namespace dbapi
}  // namespace kelo

using namespace kelo::dbapi;
namespace fibex = kelo::fibex;

extern "C" {

KELOCOMM_API unsigned char KFr_Fibex_Open(const char* path) {
    return guardedStatus([&]() -> unsigned char {
        if (!isExistingFile(path)) return kNoDatabase;
        auto db = std::make_unique<fibex::BusDatabase>();
        fibex::FibexReader(*db).ReadFIBEXData(path);
        const bool loaded = db->loaded;
        return installDatabase(FibexDb, std::move(db), loaded);
    });
}

KELOCOMM_API unsigned char KFr_Fibex_Close(void) {
    return guardedStatus([&]() { return closeDatabase(FibexDb); });
}

KELOCOMM_API unsigned char KFr_Fibex_GetFrameName(const unsigned char* rxHeader, char* nameOut) {
    return guardedStatus([&]() { return frameNameOfHeader(rxHeader, nameOut, usableFibex); });
}

KELOCOMM_API unsigned char KFr_Fibex_GetFrameName_BySignalName(const char* signalName,
                                                               char* frameNameOut,
                                                               unsigned char* firstUse) {
    return guardedStatus([&]() -> unsigned char {
        if (signalName == nullptr || frameNameOut == nullptr || firstUse == nullptr)
            return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const fibex::BusDatabase* db = usableFibex();
        if (db == nullptr) return kNoDatabase;
        const auto signal = db->signalsByName.find(signalName);
        if (signal == db->signalsByName.end() || signal->second == nullptr) return kSignalUnknown;
        const fibex::Frame* frame =
            signal->second->frame ? signal->second->frame : signal->second->secondFrame;
        if (frame == nullptr) return kNotInFrame;
        copyName(frame->shortName, frameNameOut);
        *firstUse = registerFrame(frame->shortName) ? 1 : 0;
        return kOk;
    });
}

KELOCOMM_API unsigned char KFr_Fibex_GetMaxNameLength(unsigned int* length) {
    return guardedStatus([&]() -> unsigned char {
        if (length == nullptr) return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const fibex::BusDatabase* db = usableFibex();
        if (db == nullptr) return kNoDatabase;
        *length = nameBufferSize(db->framesByName, db->signalsByName);
        return kOk;
    });
}

KELOCOMM_API unsigned char KFr_Fibex_decodeSignal(const unsigned char* rxHeader,
                                                  const unsigned char* payload,
                                                  const char* signalName, float* value) {
    return guardedStatus([&]() -> unsigned char {
        if (rxHeader == nullptr || payload == nullptr || signalName == nullptr || value == nullptr)
            return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const fibex::BusDatabase* db = usableFibex();
        if (db == nullptr) return kNoDatabase;
        const std::string& frameName = db->frameNameAt(headerSlot(rxHeader), rxHeader[19]);
        // Compared as a view: lengths first, so most names are rejected without a byte compare.
        const std::string_view wanted(signalName);
        if (frameName.empty()) return kFrameUnknown;
        const auto frame = db->framesByName.find(frameName);
        if (frame == db->framesByName.end() || frame->second == nullptr) return kFrameUnknown;
        for (const fibex::PduInstance& pi : frame->second->pduInstances) {
            if (pi.pdu == nullptr) continue;
            for (const fibex::SignalInstance& si : pi.pdu->signalInstances) {
                if (si.signal != nullptr && si.signal->shortName == wanted)
                    return decodeValue(codingOf(*si.signal, si.isHighLowByteOrder), payload,
                                       kDecodePayloadSize, value);
                if (si.updateBitSignal != nullptr && si.updateBitSignal->shortName == wanted) {
                    *value = decodeUpdateBit(payload, kDecodePayloadSize,
                                             si.updateBitSignal->bitPosition);
                    return kOk;
                }
            }
        }
        return kNotInFrame;
    });
}

KELOCOMM_API unsigned char KFr_Fibex_encodeSignal(const char* signalName, float value,
                                                  unsigned char* payload,
                                                  unsigned char payloadLength) {
    return guardedStatus([&]() -> unsigned char {
        if (signalName == nullptr || payload == nullptr) return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const fibex::BusDatabase* db = usableFibex();
        if (db == nullptr) return kNoDatabase;
        const auto entry = db->signalsByName.find(signalName);
        if (entry == db->signalsByName.end() || entry->second == nullptr) return kSignalUnknown;
        const fibex::Signal& signal = *entry->second;
        if (signal.frame == nullptr && signal.secondFrame == nullptr) return kNotInFrame;
        if (endsWithUpdateBitSuffix(signalName))
            return encodeUpdateBit(signal.bitPosition, value, payload, payloadLength);
        return encodeValue(codingOf(signal, signal.isHighLowByteOrder), value, payload,
                           payloadLength);
    });
}

KELOCOMM_API unsigned char KFr_Fibex_GetSlotParameter(const char* frameName, unsigned char p2,
                                                      unsigned char p3, unsigned char* block) {
    return guardedStatus([&]() -> unsigned char {
        if (frameName == nullptr || block == nullptr) return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const fibex::BusDatabase* db = usableFibex();
        if (db == nullptr) return kNoDatabase;
        const auto entry = db->framesByName.find(frameName);
        if (entry == db->framesByName.end() || entry->second == nullptr) return kFrameUnknown;
        const fibex::Frame& frame = *entry->second;
        SlotParameters slot;
        slot.slotId = frame.slotId;
        slot.byteLength = frame.byteLength;
        slot.channelMask = frame.channelMask;
        slot.baseCycle = frame.baseCycle;
        slot.cycleRepetition = frame.cycleRepetition;
        const fibex::Pdu* first = frame.pduInstances.empty() ? nullptr : frame.pduInstances[0].pdu;
        slot.cyclic = first == nullptr || first->timingKind == 1;
        fillSlotBlock(slot, p2, p3, block);
        return kOk;
    });
}

KELOCOMM_API unsigned char KFr_Fibex_GetParameter(const char* clusterName, const char* ecuName,
                                                  unsigned char* clusterBlock,
                                                  unsigned char* nodeBlock,
                                                  unsigned char* ccBlock) {
    return guardedStatus([&]() -> unsigned char {
        if (clusterName == nullptr || ecuName == nullptr || clusterBlock == nullptr ||
            nodeBlock == nullptr || ccBlock == nullptr)
            return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const fibex::BusDatabase* db = usableFibex();
        if (db == nullptr) return kNoDatabase;
        const fibex::Cluster* cluster = findCluster(*db, clusterName);
        if (cluster == nullptr) return kBadArgument;
        const ClusterParameters parameters = clusterParameters(*cluster);
        fillClusterBlock(parameters, clusterBlock);
        fillCcBlockFromCluster(parameters, ccBlock);
        return fillFromController(*db, ecuName, nodeBlock, ccBlock);
    });
}

KELOCOMM_API unsigned char KFr_Fibex_GetPDUinfo(const char* frameKey, int index,
                                                unsigned char* info) {
    return guardedStatus([&]() -> unsigned char {
        if (frameKey == nullptr || info == nullptr) return kBadArgument;
        // An unknown key is entered into the frame map, so this query writes.
        std::unique_lock<std::shared_mutex> lock(DatabaseLock);
        fibex::BusDatabase* db = usableFibex();
        if (db == nullptr) return kNoDatabase;
        const fibex::Frame frame = db->frames[frameKey];
        if (static_cast<long long>(index) >= static_cast<long long>(frame.pduInstanceCount))
            return kBadArgument;
        // The layout of the frame's first PDU, whatever the index.
        std::memset(info, 0, 4);
        if (!frame.pduInstances.empty()) {
            const fibex::PduInstance& first = frame.pduInstances.front();
            info[0] = static_cast<unsigned char>(first.bitPosition / 8);
            info[1] = first.isHighLowByteOrder ? 1 : 0;
            const std::uint16_t length = first.pdu ? first.pdu->byteLength : 0;
            info[2] = static_cast<unsigned char>(length);
            info[3] = static_cast<unsigned char>(length >> 8);
        }
        return kOk;
    });
}

KELOCOMM_API unsigned char KFr_Fibex_Set_Slot_Parameter_Wrapper(unsigned char idx,
                                                                unsigned char node,
                                                                const char* frameName,
                                                                unsigned char p3,
                                                                unsigned char p4) {
    return guardedStatus([&]() {
        return setSlotByName(idx, node, frameName, p3, p4, KFr_Fibex_GetSlotParameter,
                             FrameBufferIndexMap);
    });
}

KELOCOMM_API unsigned char KFr_Fibex_Transmit_Wrapper(unsigned char idx, unsigned char p1,
                                                      const char* frameName, unsigned char* data,
                                                      unsigned char length) {
    return guardedStatus(
        [&]() { return transmitByName(FrameBufferIndexMap, idx, p1, frameName, data, length); });
}

KELOCOMM_API unsigned char KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(
    unsigned char idx, unsigned char p1, const char* frameName, unsigned char p3,
    unsigned char* data, unsigned char p5) {
    (void)p1;  // not used
    return guardedStatus([&]() -> unsigned char {
        if (frameName == nullptr) return kBadArgument;
        const std::uint8_t buffer = bufferIndexFor(FrameBufferIndexMap, frameName);
        return KFr_FillData_beforeTransmit_MultiFrame_Wrapper(static_cast<signed char>(idx), p3,
                                                              buffer, data, p5);
    });
}

}  // extern "C"

extern "C" KELOCOMM_API unsigned char KFr_Fibex_Receive_Wrapper(signed char idx,
                                                                unsigned char* headerOut,
                                                                unsigned char* payloadOut,
                                                                char* frameNameOut,
                                                                unsigned int param) {
    return guardedStatus([&]() {
        return receiveByName(idx, headerOut, payloadOut, frameNameOut, param, usableFibex);
    });
}

// Exported under its C++ (decorated) name.
KELOCOMM_API unsigned char KFr_Fibex_GetControllerParameter(const char* ecuName, fnpt* node) {
    return guardedStatus([&]() -> unsigned char {
        if (ecuName == nullptr || node == nullptr) return kBadArgument;
        std::shared_lock<std::shared_mutex> lock(DatabaseLock);
        const fibex::BusDatabase* db = usableFibex();
        if (db == nullptr) return kNoDatabase;
        return fillFromController(*db, ecuName, reinterpret_cast<std::uint8_t*>(node), nullptr);
    });
}
