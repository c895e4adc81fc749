// The database exports' bodies, written once over a format view (FibexView, AutosarView): each
// step checks its pointer arguments, takes the database lock, finds the format's loaded
// database and does the query through the view. Every step runs inside the export guard, so an
// export is one call: `return decodeSignal<FibexView>(header, payload, name, value);`.
//
// A view is a struct of static functions over one format's records:
//   Handle, Database, Signal, Frame, Cluster, Ecu, Controller   the record types
//   handle(), read(path, loaded), usable()                      the process-wide handle
//   bufferMap()                                                 frame name -> transmit buffer
//   nameBufferSize(db)                                          the name outputs' buffer size
//   findSignal(db, name), carrierFrame(signal), nameOf(signal)  signals
//   msbFirstOf(signal), positionOf(db, signal), codingOf(db, signal, msbFirst)
//   findFrame(db, name), walkSignals(db, frame, visit), byteLengthOf(frame), firstPduCyclic(frame)
//   findCluster(db, name), clusterParameters(cluster)
//   findEcu(db, name), firstController(ecu), controllerParameters(db, ecu, controller)
// Templates rather than an interface: the codec steps inline the view, so a decode or encode
// costs no more than a hand-written export (no virtual call, no extra lookup or allocation).
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

#include "KeLoComm.h"
#include "dbapi/database_handles.h"
#include "dbapi/database_status.h"
#include "dbapi/parameter_blocks.h"
#include "dbapi/signal_codec.h"
#include "exports/device_table.h"

namespace kelo {
namespace dbapi {

// Runs an export's body; anything thrown inside becomes kInternalFailure.
template <typename Body>
unsigned char guardedStatus(Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        return kInternalFailure;
    }
}

// Whether a signal name ends in "_UB": the encoders write such a name as an update bit.
inline bool endsWithUpdateBitSuffix(const char* name) {
    const std::size_t n = std::strlen(name);
    return n >= 3 && std::strcmp(name + n - 3, "_UB") == 0;
}

// The slot identifier of a received frame's 28-byte header (little-endian at offset 16).
inline std::uint16_t headerSlot(const unsigned char* header) {
    return static_cast<std::uint16_t>(header[16] | (header[17] << 8));
}

// The longest key of the maps plus the terminator: the buffer size the name outputs need.
template <typename... Maps>
unsigned int longestKeyPlusOne(const Maps&... maps) {
    std::size_t longest = 0;
    auto scan = [&longest](const auto& map) {
        for (const auto& entry : map)
            longest = std::max(longest, entry.first.size());
    };
    (scan(maps), ...);
    return static_cast<unsigned int>(longest + 1);
}

// The receive-by-name exports' own upper index bound: nothing changes it, so only index 0
// passes their check (and only while entry 0 holds a device).
inline constexpr signed char kReceiveByNameIndexBound = 0;

// Size of the record receiveForName fills: 26 header bytes and up to 255 16-bit words.
inline constexpr std::size_t kReceiveRecordSize = 26 + 2 * 255;

// The device half of a receive-by-name export: the index check, one received frame, and the
// copies of its header and payload. Returns the status to answer with when it is not kOk; on
// kOk, `record` holds the frame (header at 0, payload at 26).
inline unsigned char receiveForName(signed char idx, unsigned char* record,
                                    unsigned char* headerOut, unsigned char* payloadOut,
                                    unsigned int timeoutMs) {
    if (idx < 0 || idx > kReceiveByNameIndexBound) return kBadDeviceIndex;
    CommunicationLib* lib = DeviceSlotTable[idx].lib.load(std::memory_order_acquire);
    if (lib == nullptr) return kBadDeviceIndex;
    const unsigned char status = lib->Fr_Receive(record, timeoutMs);
    if (status != kOk) return status;
    if (headerOut) std::memcpy(headerOut, record, 28);
    if (payloadOut) std::memcpy(payloadOut, record + 26, 2u * record[20]);
    return kOk;
}

// Runs `query(db)` on the view's loaded database under the shared lock; kNoDatabase without one.
template <typename View, typename Query>
unsigned char withDatabase(Query&& query) {
    std::shared_lock<std::shared_mutex> lock(DatabaseLock);
    const typename View::Database* db = View::usable();
    if (db == nullptr) return kNoDatabase;
    return query(*db);
}

// ---- handle ------------------------------------------------------------------------------------

// Checks the path, reads the file and puts the database into the handle (none when it did not
// load), deleting the one it replaces; a successful load empties the frame maps. kNotAFile
// leaves the loaded database. Flags: 0 or KELO_DB_READ_ALL; any other bit is kBadArgument
// before anything else happens.
template <typename View>
unsigned char openDatabase(const char* path, unsigned int flags = 0) {
    return guardedStatus([&]() -> unsigned char {
        if ((flags & ~KELO_DB_READ_ALL) != 0) return kBadArgument;
        if (!isExistingFile(path)) return kNotAFile;
        bool loaded = false;
        std::unique_ptr<typename View::Handle> fresh =
            View::read(path, (flags & KELO_DB_READ_ALL) != 0, loaded);
        {
            std::unique_lock<std::shared_mutex> lock(DatabaseLock);
            delete View::handle();
            View::handle() = loaded ? fresh.release() : nullptr;
        }
        if (!loaded) return kNotLoaded;
        resetFrameMaps();
        return kOk;
    });
}

// Deletes the database of the handle; kNoDatabase when none is there. The frame maps stay.
template <typename View>
unsigned char closeDatabase() {
    return guardedStatus([&]() -> unsigned char {
        std::unique_lock<std::shared_mutex> lock(DatabaseLock);
        if (View::handle() == nullptr) return kNoDatabase;
        delete View::handle();
        View::handle() = nullptr;
        return kOk;
    });
}

// ---- names -------------------------------------------------------------------------------------

template <typename View>
unsigned char maxNameLength(unsigned int* length) {
    return guardedStatus([&]() -> unsigned char {
        if (length == nullptr) return kBadArgument;
        return withDatabase<View>([&](const typename View::Database& db) {
            *length = View::nameBufferSize(db);
            return kOk;
        });
    });
}

// The frame name at a received header's slot and cycle ("" when none).
template <typename View>
unsigned char frameNameOfHeader(const unsigned char* header, char* nameOut) {
    return guardedStatus([&]() -> unsigned char {
        if (header == nullptr || nameOut == nullptr) return kBadArgument;
        return withDatabase<View>([&](const typename View::Database& db) {
            copyName(db.frameNameAt(headerSlot(header), header[19]), nameOut);
            return kOk;
        });
    });
}

// The frame that carries a signal; *firstUse is 1 the first time a frame is named after an open.
template <typename View>
unsigned char frameNameBySignal(const char* signalName, char* frameNameOut,
                                unsigned char* firstUse) {
    return guardedStatus([&]() -> unsigned char {
        if (signalName == nullptr || frameNameOut == nullptr || firstUse == nullptr)
            return kBadArgument;
        return withDatabase<View>([&](const typename View::Database& db) -> unsigned char {
            const typename View::Signal* signal = View::findSignal(db, signalName);
            if (signal == nullptr) return kSignalUnknown;
            const std::string* frame = View::carrierFrame(*signal);
            if (frame == nullptr) return kNotInFrame;
            copyName(*frame, frameNameOut);
            *firstUse = registerFrame(*frame) ? 1 : 0;
            return kOk;
        });
    });
}

// ---- codec -------------------------------------------------------------------------------------

// The frame at the header's slot and cycle, the signal (or update bit) among its signals, and
// its physical value.
template <typename View>
unsigned char decodeSignal(const unsigned char* rxHeader, const unsigned char* payload,
                           const char* signalName, float* value) {
    return guardedStatus([&]() -> unsigned char {
        if (rxHeader == nullptr || payload == nullptr || signalName == nullptr || value == nullptr)
            return kBadArgument;
        return withDatabase<View>([&](const typename View::Database& db) -> unsigned char {
            const std::string& frameName = db.frameNameAt(headerSlot(rxHeader), rxHeader[19]);
            // Compared as a view: lengths first, so most names are rejected without a byte
            // compare.
            const std::string_view wanted(signalName);
            if (frameName.empty()) return kFrameUnknown;
            const typename View::Frame* frame = View::findFrame(db, frameName);
            if (frame == nullptr) return kFrameUnknown;
            unsigned char status = kNotInFrame;
            using Signal = typename View::Signal;
            View::walkSignals(db, *frame, [&](const Signal* s, const Signal* updateBit, bool msb) {
                if (s != nullptr && View::nameOf(*s) == wanted) {
                    status = decodeValue(View::codingOf(db, *s, msb), payload, kDecodePayloadSize,
                                         value);
                    return true;
                }
                if (updateBit != nullptr && View::nameOf(*updateBit) == wanted) {
                    *value = decodeUpdateBit(payload, kDecodePayloadSize,
                                             View::positionOf(db, *updateBit));
                    status = kOk;
                    return true;
                }
                return false;
            });
            return status;
        });
    });
}

// Writes a physical value (or, for a "_UB" name, an update bit) into a payload.
template <typename View>
unsigned char encodeSignal(const char* signalName, float value, unsigned char* payload,
                           unsigned char payloadLength) {
    return guardedStatus([&]() -> unsigned char {
        if (signalName == nullptr || payload == nullptr) return kBadArgument;
        return withDatabase<View>([&](const typename View::Database& db) -> unsigned char {
            const typename View::Signal* signal = View::findSignal(db, signalName);
            if (signal == nullptr) return kSignalUnknown;
            if (View::carrierFrame(*signal) == nullptr) return kNotInFrame;
            if (endsWithUpdateBitSuffix(signalName))
                return encodeUpdateBit(View::positionOf(db, *signal), value, payload,
                                       payloadLength);
            return encodeValue(View::codingOf(db, *signal, View::msbFirstOf(*signal)), value,
                               payload, payloadLength);
        });
    });
}

// ---- parameter blocks --------------------------------------------------------------------------

// The slot parameters of a frame record; the view gives its byte length and whether its first
// PDU is sent cyclically (true without a PDU).
template <typename View>
SlotParameters slotOf(const typename View::Frame& frame) {
    SlotParameters slot;
    slot.slotId = frame.slotId;
    slot.byteLength = View::byteLengthOf(frame);
    slot.channelMask = frame.channelMask;
    slot.baseCycle = frame.baseCycle;
    slot.cycleRepetition = frame.cycleRepetition;
    slot.cyclic = View::firstPduCyclic(frame);
    return slot;
}

template <typename View>
unsigned char slotParameter(const char* frameName, unsigned char p2, unsigned char p3,
                            unsigned char* block) {
    return guardedStatus([&]() -> unsigned char {
        if (frameName == nullptr || block == nullptr) return kBadArgument;
        return withDatabase<View>([&](const typename View::Database& db) -> unsigned char {
            const typename View::Frame* frame = View::findFrame(db, frameName);
            if (frame == nullptr) return kFrameUnknown;
            fillSlotBlock(slotOf<View>(*frame), p2, p3, block);
            return kOk;
        });
    });
}

// The parameters both formats' cluster and controller records name alike; each view fills the
// rest from its own fields.
template <typename Record>
ClusterParameters commonClusterFields(const Record& c) {
    ClusterParameters p;
    p.macroPerCycle = c.macroPerCycle;
    p.numberOfStaticSlots = c.numberOfStaticSlots;
    p.numberOfMinislots = c.numberOfMinislots;
    p.offsetCorrectionStart = c.offsetCorrectionStart;
    p.actionPointOffset = c.actionPointOffset;
    p.minislotActionPointOffset = c.minislotActionPointOffset;
    p.dynamicSlotIdlePhase = c.dynamicSlotIdlePhase;
    p.symbolWindow = c.symbolWindow;
    p.payloadLengthStatic = c.payloadLengthStatic;
    p.coldStartAttempts = c.coldStartAttempts;
    p.listenNoise = c.listenNoise;
    p.maxWithoutClockCorrectionPassive = c.maxWithoutClockCorrectionPassive;
    p.maxWithoutClockCorrectionFatal = c.maxWithoutClockCorrectionFatal;
    p.networkManagementVectorLength = c.networkManagementVectorLength;
    p.casRxLowMax = c.casRxLowMax;
    p.maxInitializationError = c.maxInitializationError;
    return p;
}

template <typename Record>
ControllerParameters commonControllerFields(const Record& c) {
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
    p.offsetCorrectionOut = c.offsetCorrectionOut;
    p.externOffsetCorrection = c.externOffsetCorrection;
    p.externRateCorrection = c.externRateCorrection;
    p.microPerCycle = c.microPerCycle;
    p.rateCorrectionOut = c.rateCorrectionOut;
    p.maxDynamicPayloadLength = c.maxDynamicPayloadLength;
    p.macroInitialOffsetA = c.macroInitialOffsetA;
    p.wakeUpPattern = c.wakeUpPattern;
    p.macroInitialOffsetB = c.macroInitialOffsetB;
    p.microInitialOffsetA = c.microInitialOffsetA;
    p.microInitialOffsetB = c.microInitialOffsetB;
    return p;
}

// The ECU's first controller into the node block (and, when cc is given, its channels into the
// controller block).
template <typename View>
unsigned char fillFromController(const typename View::Database& db, const char* ecuName,
                                 std::uint8_t* node, std::uint8_t* cc) {
    const typename View::Ecu* ecu = View::findEcu(db, ecuName);
    if (ecu == nullptr) return kUnknownClusterOrEcu;
    const typename View::Controller* controller = View::firstController(*ecu);
    if (controller == nullptr) return kNoController;
    const ControllerParameters parameters = View::controllerParameters(db, *ecu, *controller);
    fillNodeBlock(parameters, node);
    if (cc != nullptr) fillCcBlockChannels(parameters, cc);
    return kOk;
}

// The cluster block and the controller block's bit rate are written before the ECU is looked up.
template <typename View>
unsigned char parameters(const char* clusterName, const char* ecuName, unsigned char* clusterBlock,
                         unsigned char* nodeBlock, unsigned char* ccBlock) {
    return guardedStatus([&]() -> unsigned char {
        if (clusterName == nullptr || ecuName == nullptr || clusterBlock == nullptr ||
            nodeBlock == nullptr || ccBlock == nullptr)
            return kBadArgument;
        return withDatabase<View>([&](const typename View::Database& db) -> unsigned char {
            const typename View::Cluster* cluster = View::findCluster(db, clusterName);
            if (cluster == nullptr) return kUnknownClusterOrEcu;
            const ClusterParameters p = View::clusterParameters(*cluster);
            fillClusterBlock(p, clusterBlock);
            fillCcBlockFromCluster(p, ccBlock);
            return fillFromController<View>(db, ecuName, nodeBlock, ccBlock);
        });
    });
}

template <typename View>
unsigned char controllerParameter(const char* ecuName, fnpt* node) {
    return guardedStatus([&]() -> unsigned char {
        if (ecuName == nullptr || node == nullptr) return kBadArgument;
        return withDatabase<View>([&](const typename View::Database& db) {
            return fillFromController<View>(db, ecuName, reinterpret_cast<std::uint8_t*>(node),
                                            nullptr);
        });
    });
}

// ---- by frame name through the device ----------------------------------------------------------

// Slot configuration by name: the slot query, the device export, and on success the buffer index
// the device wrote back remembered under the frame's name.
template <typename View>
unsigned char setSlotByName(unsigned char idx, unsigned char node, const char* frameName,
                            unsigned char p3, unsigned char p4) {
    return guardedStatus([&]() -> unsigned char {
        unsigned char block[12] = {};
        const unsigned char found = slotParameter<View>(frameName, p3, p4, block);
        if (found != kOk) return found;
        const unsigned char set =
            KFr_Set_Slot_Parameter_Wrapper(static_cast<signed char>(idx), node, block);
        if (set != kOk) return set;
        storeBufferIndex(View::bufferMap(), frameName, block[0]);
        return kOk;
    });
}

// Transmit by name: the remembered buffer (0, and entered, for a name never configured) and the
// byte length halved to 16-bit words. Needs no database.
template <typename View>
unsigned char transmitByName(unsigned char idx, unsigned char node, const char* frameName,
                             unsigned char* data, unsigned char length) {
    return guardedStatus([&]() -> unsigned char {
        if (frameName == nullptr) return kBadArgument;
        const std::uint8_t buffer = bufferIndexFor(View::bufferMap(), frameName);
        return KFr_Transmit_Wrapper(static_cast<signed char>(idx), node, buffer, data,
                                    static_cast<unsigned char>(length >> 1));
    });
}

// Multi-frame staging by name: the remembered buffer as for transmit; the length is not halved.
template <typename View>
unsigned char stageByName(unsigned char idx, const char* frameName, unsigned char entry,
                          unsigned char* data, unsigned char length) {
    return guardedStatus([&]() -> unsigned char {
        if (frameName == nullptr) return kBadArgument;
        const std::uint8_t buffer = bufferIndexFor(View::bufferMap(), frameName);
        return KFr_FillData_beforeTransmit_MultiFrame_Wrapper(static_cast<signed char>(idx), entry,
                                                              buffer, data, length);
    });
}

// Receive by name: the device half, then the frame's name from the database (kNoDatabase
// without one, the header and payload copies already made).
template <typename View>
unsigned char receiveByName(signed char idx, unsigned char* headerOut, unsigned char* payloadOut,
                            char* frameNameOut, unsigned int timeoutMs) {
    return guardedStatus([&]() -> unsigned char {
        unsigned char record[kReceiveRecordSize] = {};
        const unsigned char status = receiveForName(idx, record, headerOut, payloadOut, timeoutMs);
        if (status != kOk) return status;
        return withDatabase<View>([&](const typename View::Database& db) {
            if (frameNameOut)
                copyName(db.frameNameAt(headerSlot(record), record[19]), frameNameOut);
            return kOk;
        });
    });
}

// ---- name lists --------------------------------------------------------------------------------

// Appends names to a zero-filled list buffer, ";"-separated, while the room test passes;
// kListTooSmall when a name does not fit (what was appended stays). The separator is not counted
// in the room test, so a full list may use every byte of the buffer and then has no terminating
// NUL; nothing is ever written past bufSize bytes.
unsigned char appendNames(const std::vector<const std::string*>& names, char* buf,
                          unsigned int bufSize, unsigned int* total, unsigned int* count);

// The common head of the list queries: zero-fill and count 0 before any other check.
bool startList(char* buf, unsigned int bufSize, unsigned int* total, unsigned int* count);

// A list of the whole database: `names(db)`.
template <typename View, typename Names>
unsigned char nameList(char* buf, unsigned int bufSize, unsigned int* total, unsigned int* count,
                       Names names) {
    return guardedStatus([&]() -> unsigned char {
        if (!startList(buf, bufSize, total, count)) return kBadArgument;
        return withDatabase<View>([&](const typename View::Database& db) {
            return appendNames(names(db), buf, bufSize, total, count);
        });
    });
}

// A keyed list: the record `map(db)` holds under the key, and `items(record)`. A null key is
// kBadArgument (as for every null argument) but is looked at only once the database is there.
template <typename View, typename Map, typename Items>
unsigned char keyedNameList(const char* key, char* buf, unsigned int bufSize, unsigned int* total,
                            unsigned int* count, Map map, Items items) {
    return guardedStatus([&]() -> unsigned char {
        if (!startList(buf, bufSize, total, count)) return kBadArgument;
        return withDatabase<View>([&](const typename View::Database& db) -> unsigned char {
            if (key == nullptr) return kBadArgument;
            const auto& records = map(db);
            const auto entry = records.find(key);
            if (entry == records.end()) return kKeyUnknown;
            return appendNames(items(entry->second), buf, bufSize, total, count);
        });
    });
}

}  // namespace dbapi
}  // namespace kelo
