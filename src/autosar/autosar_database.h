// tAutoSarDatabase: the in-memory model of one AUTOSAR system description (releases 4.1, 4.2).
//
// Every collection is an ordered map from a record's SHORT-NAME (bytewise, ascending) to the
// record held by value; a later element of the same name replaces an earlier one. Links between
// records are non-owning pointers into the maps of the same database (a mapped value keeps its
// address while the map lives). References resolve through the maps' insert-or-find, so a
// reference to an unknown name creates an empty record under that name.
//
// ECU-level items whose SHORT-NAME is unique only within their parent (controllers, connectors,
// ECU communication ports) and cluster-level items (physical channels, triggerings) are keyed
// by their path below the package: "ECU/CONTROLLER", "ECU/CONNECTOR", "ECU/CONNECTOR/PORT",
// "CLUSTER/CHANNEL", "CLUSTER/CHANNEL/TRIGGERING" - the last segments of the references that
// name them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "xml/slot_table.h"

namespace kelo {
namespace autosar {

struct tAutoSarUnitInfo {
    std::string name;
    std::string description;
    std::string displayName;
};

// One COMPU-SCALE: a linear scale or a text-table entry.
struct tAutoSarCompuScale {
    float factor = 1.0f;       // second numerator V
    float offset = 0.0f;       // first numerator V
    float denominator = 1.0f;  // the denominator V (only 1 is supported)
    std::uint32_t lowerLimit = 0;
    std::uint32_t upperLimit = 0;
    std::string text;       // COMPU-CONST/VT
    bool rational = false;  // the numerator has the two V of an offset and a factor
};

struct tAutoSarCompuMethodInfo {
    std::string name;
    std::string description;
    std::string category;  // "LINEAR", "IDENTICAL", "TEXTTABLE", ... as written
    tAutoSarUnitInfo* unit = nullptr;
    std::vector<tAutoSarCompuScale> scales;
    std::uint32_t reserved = 0;
};

// An R- or P-port prototype of the first composition.
struct tAutoSarRPort {
    std::string name;
    std::string description;
    tAutoSarCompuMethodInfo* compuMethod = nullptr;
};

struct tAutoSarSystemSignal {
    std::string name;
    std::string description;
    tAutoSarRPort* port = nullptr;  // set by the signal-mapping step
};

struct tAutoSarSignalInfo {
    std::string name;
    std::string description;
    double initValue = 0.0;    // float precision
    std::uint16_t length = 0;  // bits
    tAutoSarCompuMethodInfo* compuMethod = nullptr;
    // True when the signal's SW-BASE-TYPE has BASE-TYPE-ENCODING "2C" (two's complement).
    bool isSigned = false;
    // Placement, set by the PDU step (the last PDU that maps the signal wins).
    std::uint16_t startPosition = 0;                // bit position as the file gives it
    std::uint16_t updateBitPosition = 0;            // 65535 when the mapping has no update bit
    std::uint8_t byteOrder = 0;                     // 1 = MOST-SIGNIFICANT-BYTE-FIRST, 0 otherwise
    tAutoSarSignalInfo* updateBitSignal = nullptr;  // the "_UB" companion
    std::string pduName;
    std::string frameName;  // set by the frame step
};

enum tAutoSarPduType : std::uint16_t { kISignalIPdu = 0, kNPdu = 1, kNmPdu = 2 };

struct tAutoSarPDUInfo {
    std::string name;
    std::string description;
    std::uint16_t length = 0;              // as the file gives it (bytes)
    std::uint16_t frameStartPosition = 0;  // set by the frame step
    std::uint16_t type = kISignalIPdu;
    std::uint8_t frameByteOrder = 0;           // set by the frame step
    std::uint16_t transmissionMode = 1;        // 2: event-controlled timing
    double minimumDelay = 0.0;                 // seconds, event-controlled PDUs only
    std::vector<tAutoSarSignalInfo*> signals;  // mapping order, "_UB" companions included
    std::int32_t signalCount = 0;
    std::string frameName;  // set by the frame step
};

struct tAutoSarFrameInfo {
    std::string name;
    std::string description;
    std::uint16_t frameLength = 0;  // bytes
    std::vector<tAutoSarPDUInfo*> pdus;
    // Schedule, set by the cluster step from the frame's triggerings: slot, base cycle and
    // repetition of the first triggering with a slot other than 0; the channel bits (1 = A,
    // 2 = B) of every triggering.
    std::uint16_t slotId = 0;
    std::uint8_t baseCycle = 0;
    std::uint8_t cycleRepetition = 0;
    std::uint16_t channelMask = 0;
    std::string clusterName;                // cluster of the first triggering
    std::vector<std::string> senderEcus;    // ascending, from OUT frame ports
    std::vector<std::string> receiverEcus;  // ascending, from IN frame ports
};

// FlexRay communication-controller parameters (0 / false when absent from the file).
struct tAutoSarController {
    std::string key;  // "ECU/CONTROLLER"
    std::string name;
    std::string description;
    std::string ecuName;
    std::uint32_t acceptedStartupRange = 0;    // pdAcceptedStartupRange
    bool allowHaltDueToClock = false;          // pAllowHaltDueToClock
    std::uint32_t allowPassiveToActive = 0;    // pAllowPassiveToActive
    std::uint32_t clusterDriftDamping = 0;     // pClusterDriftDamping
    std::uint32_t decodingCorrection = 0;      // pDecodingCorrection
    std::uint32_t delayCompensationA = 0;      // pDelayCompensation[A]
    std::uint32_t delayCompensationB = 0;      // pDelayCompensation[B]
    std::uint32_t externOffsetCorrection = 0;  // pExternOffsetCorrection
    std::uint32_t externRateCorrection = 0;    // pExternRateCorrection
    bool externalSync = false;
    bool fallBackInternal = false;
    std::uint32_t keySlotId = 0;                // pKeySlotId
    bool keySlotOnlyEnabled = false;            // pSingleSlotEnabled
    bool keySlotUsedForStartup = false;         // pKeySlotUsedForStartup
    bool keySlotUsedForSync = false;            // pKeySlotUsedForSync
    std::uint32_t latestTx = 0;                 // pLatestTx
    std::uint32_t listenTimeout = 0;            // pdListenTimeout
    std::uint32_t macroInitialOffsetA = 0;      // pMacroInitialOffset[A]
    std::uint32_t macroInitialOffsetB = 0;      // pMacroInitialOffset[B]
    std::uint32_t maxDrift = 0;                 // pdMaxDrift
    std::uint32_t maxDynamicPayloadLength = 0;  // pPayloadLengthDynMax
    std::uint32_t microInitialOffsetA = 0;      // pMicroInitialOffset[A]
    std::uint32_t microInitialOffsetB = 0;      // pMicroInitialOffset[B]
    std::uint32_t microPerCycle = 0;            // pMicroPerCycle
    double microtickDuration = 0.0;             // pdMicrotick, seconds
    bool nmVectorEarlyUpdate = false;
    std::uint32_t offsetCorrectionOut = 0;  // pOffsetCorrectionOut
    std::uint32_t rateCorrectionOut = 0;    // pRateCorrectionOut
    std::uint32_t samplesPerMicrotick = 0;  // pSamplesPerMicrotick
    std::uint32_t secondKeySlotId = 0;
    bool twoKeySlotMode = false;
    std::uint32_t wakeUpPattern = 0;  // pWakeupPattern
    // From the connectors that use this controller: pChannels (1 = A, 2 = B) and
    // pWakeupChannel (the channel bit of the connector marked WAKE-UP-CHANNEL, 0 when none).
    std::uint16_t channelMask = 0;
    std::uint16_t wakeUpChannel = 0;
};

enum class tAutoSarPortKind : std::uint8_t { Frame, IPdu, ISignal };

// One FRAME-PORT, I-PDU-PORT or I-SIGNAL-PORT of a connector.
struct tAutoSarPortInfo {
    std::string key;  // "ECU/CONNECTOR/PORT"
    std::string name;
    std::string ecuName;
    std::string connectorName;
    tAutoSarPortKind kind = tAutoSarPortKind::Frame;
    std::string direction;  // "IN" or "OUT" as written
    bool isInput = false;   // direction "IN"
};

struct tAutoSarConnector {
    std::string key;  // "ECU/CONNECTOR"
    std::string name;
    std::string description;
    std::string ecuName;
    tAutoSarController* controller = nullptr;
    bool wakeUpChannel = false;
    std::vector<tAutoSarPortInfo*> ports;  // document order
    // Set by the cluster step from the physical channels that list this connector.
    std::vector<std::string> channelKeys;  // "CLUSTER/CHANNEL"
    std::uint16_t channelMask = 0;
};

struct tAutoSarECUInfo {
    std::string name;
    std::string description;
    std::vector<tAutoSarController*> controllers;  // document order
    std::vector<tAutoSarConnector*> connectors;    // document order
    // Frames the ECU sends and receives (ascending names), set by the cluster step.
    std::vector<std::string> sentFrames;
    std::vector<std::string> receivedFrames;
};

struct tAutoSarFrameTriggering {
    std::string key;  // "CLUSTER/CHANNEL/TRIGGERING"
    std::string name;
    std::string channelKey;
    std::uint16_t channelMask = 0;
    tAutoSarFrameInfo* frame = nullptr;
    std::uint16_t slotId = 0;
    std::uint8_t baseCycle = 0;
    std::uint8_t cycleRepetition = 0;  // 1 when the timing gives none
    // Every absolutely scheduled timing of the triggering, in file order (the fields above are
    // the first).
    std::vector<xml::SlotTiming> timings;
    std::vector<tAutoSarPortInfo*> ports;
    std::vector<std::string> pduTriggeringKeys;
};

struct tAutoSarPDUTriggering {
    std::string key;
    std::string name;
    std::string channelKey;
    tAutoSarPDUInfo* pdu = nullptr;
    std::vector<tAutoSarPortInfo*> ports;
    std::vector<std::string> signalTriggeringKeys;
};

struct tAutoSarSignalTriggering {
    std::string key;
    std::string name;
    std::string channelKey;
    tAutoSarSignalInfo* signal = nullptr;
    std::vector<tAutoSarPortInfo*> ports;
};

struct tAutoSarChannel {
    std::string key;  // "CLUSTER/CHANNEL"
    std::string name;
    std::string channelName;        // "CHANNEL-A" / "CHANNEL-B" as written
    std::uint16_t channelMask = 0;  // 1 = A, 2 = B, 0 for anything else
    std::vector<tAutoSarConnector*> connectors;
    std::vector<tAutoSarFrameTriggering*> frameTriggerings;
    std::vector<tAutoSarPDUTriggering*> pduTriggerings;
    std::vector<tAutoSarSignalTriggering*> signalTriggerings;
};

// FlexRay cluster parameters (0 when absent from the file). Durations the file gives in seconds
// are kept in seconds.
struct tAutoSarClusterConfig {
    std::string name;
    std::string description;
    std::uint32_t baudrate = 0;
    std::string protocolName;
    std::string protocolVersion;
    std::uint32_t actionPointOffset = 0;  // gdActionPointOffset
    std::uint32_t casRxLowMax = 0;        // gdCASRxLowMax
    std::uint32_t coldStartAttempts = 0;  // gColdStartAttempts
    double cycle = 0.0;                   // gdCycle, seconds
    std::uint32_t cycleCountMax = 0;      // cCycleCountMax
    bool detectNitError = false;
    std::uint32_t dynamicSlotIdlePhase = 0;  // gdDynamicSlotIdlePhase
    std::uint32_t ignoreAfterTx = 0;
    std::uint32_t listenNoise = 0;                       // gListenNoise
    std::uint32_t macroPerCycle = 0;                     // gMacroPerCycle
    double macrotickDuration = 0.0;                      // gdMacrotick, seconds
    std::uint32_t maxInitializationError = 0;            // gdMaxInitializationError
    std::uint32_t maxWithoutClockCorrectionFatal = 0;    // gMaxWithoutClockCorrectionFatal
    std::uint32_t maxWithoutClockCorrectionPassive = 0;  // gMaxWithoutClockCorrectionPassive
    std::uint32_t minislotActionPointOffset = 0;         // gdMinislotActionPointOffset
    std::uint32_t minislotDuration = 0;                  // gdMinislot
    std::uint32_t networkIdleTime = 0;                   // gdNIT
    std::uint32_t networkManagementVectorLength = 0;     // gNetworkManagementVectorLength
    std::uint32_t numberOfMinislots = 0;                 // gNumberOfMinislots
    std::uint32_t numberOfStaticSlots = 0;               // gNumberOfStaticSlots
    std::uint32_t offsetCorrectionStart = 0;             // gOffsetCorrectionStart
    std::uint32_t payloadLengthStatic = 0;               // gPayloadLengthStatic
    std::uint32_t safetyMargin = 0;
    double sampleClockPeriod = 0.0;        // gdSampleClockPeriod, seconds
    std::uint32_t staticSlotDuration = 0;  // gdStaticSlot
    std::uint32_t symbolWindow = 0;        // gdSymbolWindow
    std::uint32_t symbolWindowActionPointOffset = 0;
    std::uint32_t syncFrameIdCountMax = 0;                // gSyncNodeMax
    std::uint32_t transmissionStartSequenceDuration = 0;  // gdTSSTransmitter
    std::uint32_t wakeupRxIdle = 0;                       // gdWakeupSymbolRxIdle
    std::uint32_t wakeupRxLow = 0;                        // gdWakeupSymbolRxLow
    std::uint32_t wakeupRxWindow = 0;                     // gdWakeupSymbolRxWindow
    std::uint32_t wakeupTxActive = 0;                     // gdWakeupSymbolTxLow
    std::uint32_t wakeupTxIdle = 0;                       // gdWakeupSymbolTxIdle
    std::vector<tAutoSarChannel*> channels;               // document order
    std::vector<std::string> frameNames;                  // frames triggered here, ascending
};

template <typename T>
using tAutoSarMap = std::map<std::string, T>;

class tAutoSarDatabase {
  public:
    // 0 release 4.1, 1 release 4.2, 255 not supported.
    std::uint32_t releaseCode = 0;
    // Read with the read-all rules (docs/databases.md, "Reading whole files"); the codec then
    // also scales SCALE_LINEAR methods.
    bool readAll = false;
    // What a read-all load skipped or read in its own way, one diagnostic line each.
    std::vector<std::string> notes;

    tAutoSarMap<tAutoSarUnitInfo> units;
    tAutoSarMap<tAutoSarCompuMethodInfo> compuMethods;
    tAutoSarMap<tAutoSarRPort> ports;
    tAutoSarMap<tAutoSarSystemSignal> systemSignals;
    tAutoSarMap<tAutoSarSignalInfo> signals;
    tAutoSarMap<tAutoSarPDUInfo> pdus;
    tAutoSarMap<tAutoSarFrameInfo> frames;
    tAutoSarMap<tAutoSarECUInfo> ecus;
    tAutoSarMap<tAutoSarController> controllers;  // "ECU/CONTROLLER"
    tAutoSarMap<tAutoSarConnector> connectors;    // "ECU/CONNECTOR"
    tAutoSarMap<tAutoSarPortInfo> ecuPorts;       // "ECU/CONNECTOR/PORT"
    tAutoSarMap<tAutoSarClusterConfig> clusters;
    tAutoSarMap<tAutoSarChannel> channels;                    // "CLUSTER/CHANNEL"
    tAutoSarMap<tAutoSarFrameTriggering> frameTriggerings;    // "CLUSTER/CHANNEL/NAME"
    tAutoSarMap<tAutoSarPDUTriggering> pduTriggerings;        // "CLUSTER/CHANNEL/NAME"
    tAutoSarMap<tAutoSarSignalTriggering> signalTriggerings;  // "CLUSTER/CHANNEL/NAME"
    // Slot identifier -> frame name per cycle, from the frame triggerings in document order
    // (the first triggering that claims a slot and cycle keeps it).
    xml::FrameNameTable frameNamesBySlot;

    // Empties every collection (the release code stays until the next load sets it).
    void Clear();
    // The frame name at this slot and cycle; "" when none.
    const std::string& frameNameAt(std::uint16_t slot, std::uint8_t cycle) const {
        return xml::frameNameAt(frameNamesBySlot, slot, cycle);
    }
};

}  // namespace autosar
}  // namespace kelo
