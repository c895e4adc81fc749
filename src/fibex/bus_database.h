// BusDatabase: the in-memory model of one FIBEX file. Records are plain value types in ordered
// maps keyed by XML ID (or SHORT-NAME for the name maps); links are non-owning pointers into the
// maps of the same database (a mapped value keeps its address while the map lives). References
// resolve through the maps' subscript, so a dangling ID-REF inserts an empty record under that
// ID. The FIBEX reader fills it; everything else only reads it.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <memory_resource>
#include <string>
#include <utility>
#include <vector>

#include "xml/slot_table.h"

namespace kelo {
namespace fibex {

inline constexpr float kFloatMax = 3.4028235e38f;

struct Unit {
    std::string shortName;
    std::string desc;
    std::string displayName;
};

// One COMPU-SCALE: a linear scale or a text-table entry.
struct CompuScale {
    float factor = 0.0f;       // LINEAR: second numerator V
    float offset = 0.0f;       // LINEAR: first numerator V
    float denominator = 0.0f;  // LINEAR: the denominator V (1 in an accepted file)
    std::uint32_t lowerLimit = 0;
    std::uint32_t upperLimit = 0;
    float lowerLimitValue = -kFloatMax;
    float upperLimitValue = kFloatMax;
    std::string text;  // TEXTTABLE: COMPU-CONST/VT
};

struct CompuMethod {
    std::string shortName;
    std::string category;  // "LINEAR", "IDENTICAL", "TEXTTABLE", ...
    const Unit* unit = nullptr;
    // Linear/identical methods read these (defaults ∓ largest float); text tables leave them 0.
    float physLowerLimit = 0.0f;
    float physUpperLimit = 0.0f;
    float internalLowerLimit = 0.0f;
    float internalUpperLimit = 0.0f;
    std::vector<CompuScale> scales;
};

// Numeric data-type codes; 9 is deliberately unused.
enum DataType : std::uint16_t {
    kTypeNone = 0,
    kInt8 = 1,
    kInt16 = 2,
    kInt32 = 3,
    kInt64 = 4,
    kUInt8 = 5,
    kUInt16 = 6,
    kUInt32 = 7,
    kUInt64 = 8,
    kFloat32 = 10,
    kFloat64 = 11,
    kAsciiString = 12,
    kUnicode2String = 13,
    kByteField = 14,
    kBitField = 15,
};

struct Coding {
    std::string shortName;
    std::string desc;
    std::string baseDataType;
    std::string category;
    std::string encoding;
    std::uint16_t dataType = 0;
    std::uint16_t bitLength = 0;
    bool isSigned = false;
    std::vector<CompuMethod> compuMethods;
    std::uint32_t compuMethodCount = 0;
};

struct Frame;

struct Signal {
    std::string shortName;
    std::string desc;
    double defaultValue = 0.0;
    // Reserved block, kept at its reset values by the FIBEX reader.
    std::uint64_t reservedWords[5] = {0, 0, 0, 0, 0};
    std::uint16_t reserved16 = 0;
    std::uint32_t reserved32 = 0;
    std::uint64_t reserved64 = 0;
    std::string reservedText[2];
    std::uint64_t reservedWords2[2] = {0, 0};
    // Placement, from the PDU's signal instance (the last PDU read wins).
    std::string pduId;
    std::uint16_t bitPosition = 0;
    bool isHighLowByteOrder = false;

    // What the codec needs, kept beside the record (the record itself keeps no coding link):
    // the coding named by CODING-REF, resolved through the codings map (null when the signal
    // had none, e.g. a synthetic update-bit signal).
    const Coding* coding = nullptr;
    // The frames that carry the signal, set by the reader after the frame step. frame = the
    // first frame (document order) with a PDU instance of the signal's PDU (the one pduId
    // names); secondFrame = the next such frame when that PDU is carried by more than one. An
    // update-bit ("_UB") signal has no PDU of its own: both point at its parent's frame. Null
    // when unknown, e.g. for every signal of a file read without a PDU step (before 3.0).
    const Frame* frame = nullptr;
    const Frame* secondFrame = nullptr;
};

struct SignalInstance {
    std::string desc;
    std::uint16_t bitPosition = 0;
    std::uint16_t updateBitPosition = 65535;
    bool isHighLowByteOrder = false;
    Signal* signal = nullptr;
    Signal* updateBitSignal = nullptr;
};

// PDU-TYPE / FRAME-TYPE codes.
std::uint16_t typeCode(const std::string& text);

struct Pdu {
    std::string shortName;
    std::string desc;
    std::uint16_t byteLength = 0;
    std::string pduType;
    std::uint16_t pduTypeCode = 0;
    std::vector<SignalInstance> signalInstances;
    std::uint32_t signalInstanceCount = 0;  // elements listed, dropped ones included
    std::string reservedText;
    std::uint16_t timingKind = 0;  // 2: event-controlled debounce time, 1: otherwise
};

struct PduInstance {
    std::string desc;
    std::uint16_t bitPosition = 0;
    std::uint16_t updateBitPosition = 65535;
    bool isHighLowByteOrder = false;
    std::string pduId;
    Pdu* pdu = nullptr;
};

struct Frame {
    std::uint8_t flag = 0;
    std::uint16_t slotId = 0;
    std::string shortName;
    std::uint64_t reservedWord = 0;
    std::string desc;
    std::uint16_t byteLength = 0;
    std::string frameType;
    std::uint16_t frameTypeCode = 0;
    std::vector<PduInstance> pduInstances;
    std::uint32_t pduInstanceCount = 0;  // elements listed, dropped ones included
    std::string reservedText[2];
    std::uint8_t reservedFlag = 0;
    std::uint8_t baseCycle = 0;
    std::uint8_t cycleRepetition = 0;
    std::uint32_t reserved32 = 0;
    std::uint64_t link = 0;         // 64-bit link field, copied with the record
    std::uint16_t channelMask = 0;  // bit 0 channel A, bit 1 channel B
};

struct PduTriggering {
    std::string id;
    std::string desc;
    std::uint16_t timingKind = 1;
    double debounceTime = 0.0;  // seconds
    std::string pduId;
    Pdu* pdu = nullptr;
};

struct FrameTriggering {
    std::string id;
    std::string desc;
    std::string frameId;
    Frame* frame = nullptr;
    std::string identifierType;
    bool extendedAddressing = false;
    std::uint32_t identifier = 0;
    std::string applicationProtocol;
    std::uint16_t slotId = 0;
    std::uint16_t baseCycle = 0;
    std::uint16_t cycleRepetition = 0;
    // Every fx:ABSOLUTELY-SCHEDULED-TIMING of the triggering, in file order (the three fields
    // above are the first).
    std::vector<xml::SlotTiming> timings;
};

struct Channel {
    std::string shortName;
    std::string desc;
    std::string flexrayChannelName;
    std::uint16_t channelMask = 0;  // 1 "A", 2 "B"
    std::vector<PduTriggering> pduTriggerings;
    std::vector<FrameTriggering> frameTriggerings;
};

struct Controller {
    std::string shortName;
    std::string desc;
    std::string type;
    std::uint32_t j1939NodeAddress = 0;
    std::uint64_t j1939NodeName = 0;
    // FlexRay controller parameters (0 when absent from the file).
    std::uint32_t keySlotUsageStartupSync = 0;
    std::uint32_t maxDynamicPayloadLength = 0;
    std::uint32_t clusterDriftDamping = 0;
    std::uint32_t decodingCorrection = 0;
    std::uint32_t maxDrift = 0;
    std::uint32_t latestTx = 0;
    std::uint32_t microPerCycle = 0;
    std::uint32_t microPerMacroNom = 0;
    std::uint32_t offsetCorrectionOut = 0;
    std::uint32_t rateCorrectionOut = 0;
    std::uint32_t delayCompensationA = 0;
    std::uint32_t delayCompensationB = 0;
    std::uint32_t listenTimeout = 0;
    std::uint32_t externOffsetCorrection = 0;
    std::uint32_t externRateCorrection = 0;
    std::uint32_t wakeUpPattern = 0;
    bool allowHaltDueToClock = false;
    std::uint32_t allowPassiveToActive = 0;
    std::uint32_t acceptedStartupRange = 0;
    std::uint32_t macroInitialOffsetA = 0;
    std::uint32_t macroInitialOffsetB = 0;
    std::uint32_t microInitialOffsetA = 0;
    std::uint32_t microInitialOffsetB = 0;
    std::uint32_t singleSlotEnabled = 0;
    float microtick = 0.0f;
};

struct Channel;
struct Port {
    std::string frameTriggeringId;
    FrameTriggering* frameTriggering = nullptr;
    std::string completeFrame;
};

struct Connector {
    std::string desc;
    std::string channelId;
    std::string controllerId;
    Channel* channel = nullptr;
    Controller* controller = nullptr;
    std::vector<Port> inputPorts;
    std::uint32_t inputPortCount = 0;
    std::vector<Port> outputPorts;
    std::uint32_t outputPortCount = 0;
    bool wakeUpChannel = false;
};

struct Ecu {
    std::string shortName;
    std::string desc;
    std::vector<Controller> controllers;
    std::uint32_t controllerCount = 0;
    std::vector<Connector> connectors;
    std::uint32_t connectorCount = 0;
};

struct Cluster {
    std::string shortName;
    std::string desc;
    std::uint32_t speed = 0;
    bool isHighLowBitOrder = true;
    std::string bitCountingPolicy;
    std::string protocol;
    std::vector<Channel*> channels;
    std::string medium;
    // FlexRay cluster parameters (0 when absent from the file).
    std::uint32_t maxFrameLength = 0;
    std::uint32_t coldStartAttempts = 0;
    std::uint32_t actionPointOffset = 0;
    std::uint32_t dynamicSlotIdlePhase = 0;
    std::uint32_t minislot = 0;
    std::uint32_t minislotActionPointOffset = 0;
    std::uint32_t nit = 0;
    std::uint32_t staticSlot = 0;
    std::uint32_t symbolWindow = 0;
    std::uint32_t tssTransmitter = 0;
    std::uint32_t wakeUpSymbolRxIdle = 0;
    std::uint32_t wakeUpSymbolRxLow = 0;
    std::uint32_t wakeUpSymbolRxWindow = 0;
    std::uint32_t wakeUpSymbolTxIdle = 0;
    std::uint32_t wakeUpSymbolTxLow = 0;
    std::uint32_t listenNoise = 0;
    std::uint32_t macroPerCycle = 0;
    std::uint32_t macrotick = 0;
    std::uint32_t maxInitializationError = 0;
    std::uint32_t maxWithoutClockCorrectionFatal = 0;
    std::uint32_t maxWithoutClockCorrectionPassive = 0;
    std::uint32_t networkManagementVectorLength = 0;
    std::uint32_t numberOfMinislots = 0;
    std::uint32_t numberOfStaticSlots = 0;
    std::uint32_t offsetCorrectionStart = 0;
    std::uint32_t payloadLengthStatic = 0;
    std::uint32_t syncNodeMax = 0;
    std::uint32_t casRxLowMax = 0;
    std::uint32_t cycle = 0;
    float clusterDriftDamping = 0.0f;
    std::string applicationProtocol;
};

// Frame names by slot and cycle: 64 cycle columns per slot identifier (shared with the AUTOSAR
// reader).
using CycleNames = xml::CycleNames;

// An ordered map from a text key (compared bytewise) to a record. The entries of a database's
// maps are allocated from the database's own memory pool (see BusDatabase); the keys and the
// records' own texts and lists use the ordinary heap.
template <typename T>
using RecordMap = std::pmr::map<std::string, T>;

class BusDatabase {
    // The pool the entries of the record maps come from: a database is filled once and then
    // only read, so entries are taken one after the other from large blocks and given back all
    // at once by Clear (or with the database). An entry erased on its own is given back then
    // too. Declared first: it outlives the maps.
    std::unique_ptr<std::pmr::monotonic_buffer_resource> pool_;

  public:
    BusDatabase();
    // A copy has a pool of its own; copying or moving between databases copies or moves the
    // records into the target's pool.
    BusDatabase(const BusDatabase& other);
    BusDatabase(BusDatabase&& other);
    BusDatabase& operator=(const BusDatabase& other);
    BusDatabase& operator=(BusDatabase&& other);
    ~BusDatabase();

    RecordMap<Ecu> ecusByName;
    RecordMap<Unit> units;
    RecordMap<Coding> codings;
    RecordMap<Signal> signals;
    RecordMap<Signal*> signalsByName;
    RecordMap<SignalInstance> signalInstances;
    RecordMap<Pdu> pdus;
    RecordMap<PduInstance> pduInstances;
    RecordMap<Frame> frames;
    RecordMap<Frame*> framesByName;
    RecordMap<PduTriggering> pduTriggerings;
    RecordMap<FrameTriggering> frameTriggerings;
    RecordMap<Channel> channels;
    RecordMap<Controller> controllers;
    RecordMap<Port> inputPorts;
    RecordMap<Port> outputPorts;
    RecordMap<Connector> connectors;
    RecordMap<Ecu> ecus;
    std::vector<std::pair<std::string, Ecu>> ecuList;
    RecordMap<Cluster> clusters;
    // Slot identifier -> frame name per cycle, filled after the channel step: a frame with a
    // slot other than 0 occupies cycles baseCycle, baseCycle + r, ... below 64, r being its
    // cycleRepetition (0 counts as 1, every cycle); the first frame in document order keeps a
    // cell that two frames claim.
    xml::FrameNameTable frameNamesBySlot;

    bool loaded = false;
    std::int32_t versionCode = -1;
    // What a read-all load skipped or read in its own way, one diagnostic line each.
    std::vector<std::string> notes;

    void Clear();
    // The frame name at this slot and cycle; "" when none (also for a cycle of 64 or more).
    const std::string& frameNameAt(std::uint16_t slot, std::uint8_t cycle) const;
};

}  // namespace fibex
}  // namespace kelo
