#include "fibex_generator.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace kelo {
namespace gen {

namespace {

// ---- randomness -------------------------------------------------------------------------------
// Seeds for the independent streams (splitmix64 finaliser over seed and stream number).

constexpr std::uint64_t mix(std::uint64_t a, std::uint64_t b) {
    std::uint64_t z = a ^ (b * 0x9E3779B97F4A7C15ull + 0x632BE59BD9B4E019ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

// Independent streams per purpose, so that a change in one part leaves the others alone.
enum Stream : std::uint64_t {
    kCodingStream = 1,
    kFrameStream = 2,
    kScheduleStream = 3,
    kEcuStream = 4,
    kNameStream = 5,
};

// ---- vocabulary -------------------------------------------------------------------------------

const char* const kDomains[] = {"Eng",  "Brk",  "Str",  "Trns", "Chas", "Body", "Drv",
                                "Bat",  "Hvac", "Adas", "Susp", "Whl",  "Door", "Seat",
                                "Lamp", "Pwr",  "Inv",  "Chg",  "Cool", "Eps"};
const char* const kQuantities[] = {"Speed", "Torque", "Temp", "Press", "Pos",  "Angle", "Curr",
                                   "Volt",  "Stat",   "Req",  "Cntr",  "Crc",  "Qual",  "Mode",
                                   "Lvl",   "Flow",   "Rate", "Err",   "Ack",  "Cmd",   "Lim",
                                   "Tgt",   "Act",    "Sts",  "Val",   "Slip", "Gear",  "Load"};
const char* const kFrameWords[] = {"Info", "Status", "Data",   "Ctrl",   "Diag",
                                   "Cmd",  "Fdbk",   "Meas",   "Limits", "State",
                                   "Req",  "Resp",   "Values", "Sync",   "Health"};
const char* const kEcuNames[] = {
    "Gateway",    "EngineCtrl",  "BrakeCtrl", "SteeringCtrl", "TransCtrl",   "ChassisCtrl",
    "BodyCtrl",   "BatteryMgmt", "Inverter",  "Charger",      "AdasCamera",  "AdasRadar",
    "Instrument", "ClimateCtrl", "SeatCtrl",  "DoorCtrl",     "LightCtrl",   "Suspension",
    "ParkAssist", "Telematics",  "Infotain",  "AirbagCtrl",   "TireMonitor", "PowerDist"};
constexpr std::uint32_t kMaxEcus = sizeof kEcuNames / sizeof kEcuNames[0];

// Descriptions as tools export them: already escaped, some with entities.
const char* const kDescriptions[] = {
    "Measured value, filtered",
    "Request from driver &amp; assistance systems",
    "Status of the actuator",
    "Value &lt; lower limit means &quot;not available&quot;",
    "Rolling counter, incremented per transmission",
    "Checksum over the PDU (profile 1)",
    "Qualifier of the measurement",
    "Target value of the control loop",
    "Raw sensor reading",
    "Substitute value set by the gateway on time-out",
    "Limit requested by the energy management",
    "Diagnostic state &amp; fault memory flag",
};
const char* const kTableTexts[] = {
    "Off",     "On",    "Error",   "NotAvailable", "Init", "Active", "Passive", "Fault",
    "Standby", "Ready", "Limited", "Reserved",     "Open", "Closed", "Locked",  "Unlocked"};

struct UnitDef {
    const char* id;
    const char* shortName;
    const char* displayName;
};
const UnitDef kUnits[] = {
    {"UNIT_NO", "NoUnit", ""},
    {"UNIT_KMH", "km_h", "km/h"},
    {"UNIT_RPM", "rpm", "1/min"},
    {"UNIT_NM", "Nm", "Nm"},
    {"UNIT_DEGC", "degC",
     "\xC2\xB0"
     "C"},
    {"UNIT_BAR", "bar", "bar"},
    {"UNIT_KPA", "kPa", "kPa"},
    {"UNIT_PCT", "percent", "%"},
    {"UNIT_V", "V", "V"},
    {"UNIT_A", "A", "A"},
    {"UNIT_MA", "mA", "mA"},
    {"UNIT_S", "s", "s"},
    {"UNIT_MS", "ms", "ms"},
    {"UNIT_US", "us", "\xC2\xB5s"},
    {"UNIT_M", "m", "m"},
    {"UNIT_MM", "mm", "mm"},
    {"UNIT_DEG", "deg", "\xC2\xB0"},
    {"UNIT_DEG_S", "deg_s", "\xC2\xB0/s"},
    {"UNIT_M_S2", "m_s2", "m/s\xC2\xB2"},
    {"UNIT_KW", "kW", "kW"},
    {"UNIT_WH", "Wh", "Wh"},
    {"UNIT_L_H", "l_h", "l/h"},
    {"UNIT_KG", "kg", "kg"},
    {"UNIT_HZ", "Hz", "Hz"},
    {"UNIT_LX", "lx", "lx"},
    {"UNIT_OHM", "Ohm", "\xCE\xA9"},
};
constexpr std::uint32_t kUnitCount = sizeof kUnits / sizeof kUnits[0];

const double kFactors[] = {1, 0.1, 0.01, 0.5, 0.25, 0.125, 0.0625, 0.001, 2, 0.05, 0.2, 0.03125};
const int kOffsets[] = {0, 0, 0, 0, -40, -50, -100, -273, -1000, -500};

// ---- the plan ---------------------------------------------------------------------------------
// Everything the sections share (codings, layout, schedule, senders) is planned first in a few
// compact arrays; names and IDs are derived from indices when they are written.

enum CodingKind : std::uint8_t { kLinear, kIdentical, kTextTable, kFloat };

struct CodingPlan {
    CodingKind kind;
    std::uint8_t bits;
    bool isSigned;
    std::uint8_t unit;
    std::uint8_t factor;   // index into kFactors
    std::uint8_t offset;   // index into kOffsets
    std::uint8_t entries;  // text-table entries
};

struct SignalPlan {
    std::uint32_t coding;
    std::uint16_t bitPosition;
    std::uint16_t updateBit;   // 65535: none
    std::uint8_t defaultKind;  // 0 none, 1 zero, 2 a small integer
    std::uint8_t defaultValue;
    std::uint8_t desc;  // 0 none, else 1 + index into kDescriptions
};

struct PduPlan {
    std::uint32_t firstSignal;
    std::uint32_t signalCount;
    std::uint16_t byteLength;
    std::uint16_t byteOffset;  // in its frame
    std::uint16_t updateBit;   // PDU update bit in the frame; 65535: none
    bool highLow;
    bool eventTriggered;
    std::uint8_t debounce;  // index into kDebounce
};

const char* const kFrameTypes[] = {"APPLICATION",   "NM",      "DIAG-REQUEST",
                                   "DIAG-RESPONSE", "SERVICE", "XCP_PRE_CONFIGURED"};
const char* const kDebounce[] = {"PT0.005S", "PT0.01S", "PT0.02S", "PT0.05S"};

struct FramePlan {
    std::uint32_t firstPdu;
    std::uint16_t pduCount;
    std::uint16_t byteLength;
    std::uint16_t slot;
    std::uint8_t baseCycle;
    std::uint8_t repetition;
    std::uint8_t channels;  // bit 0: A, bit 1: B
    std::uint8_t type;      // index into kFrameTypes
    std::uint8_t sender;
    std::uint8_t receivers[3];
    std::uint8_t receiverCount;
    std::uint8_t desc;
};

constexpr std::uint32_t kMaxSlot = 2047;
constexpr std::uint32_t kPayloadBytes = 254;
constexpr std::uint16_t kNone = 65535;

struct Plan {
    std::uint64_t seed = 0;
    std::vector<CodingPlan> codings;
    std::vector<SignalPlan> signals;
    std::vector<PduPlan> pdus;
    std::vector<FramePlan> frames;
    std::uint32_t ecuCount = 0;
    std::vector<std::vector<std::uint32_t>> sends, receives;  // frames per ECU
    std::uint32_t maxSlot = 0;
    std::uint32_t wraps = 0;
    std::uint32_t updateBits = 0;
};

void planCodings(Plan& plan, std::uint32_t count) {
    Rng rng(mix(plan.seed, kCodingStream));
    plan.codings.resize(count);
    // Coding 0 is a one-bit flag: the fallback for a signal that no longer fits its frame.
    plan.codings[0] = CodingPlan{kTextTable, 1, false, 0, 0, 0, 2};
    static const std::uint8_t kLinearBits[] = {8, 10, 12, 12, 16, 16, 16, 32};
    static const std::uint8_t kIdenticalBits[] = {1, 2, 4, 8, 8, 16, 32};
    static const std::uint8_t kTableBits[] = {1, 2, 2, 3, 4};
    for (std::uint32_t i = 1; i < count; ++i) {
        CodingPlan& c = plan.codings[i];
        const std::uint32_t roll = rng.below(100);
        c.kind = roll < 45 ? kLinear : roll < 70 ? kIdentical : roll < 95 ? kTextTable : kFloat;
        c.isSigned = false;
        c.unit = static_cast<std::uint8_t>(1 + rng.below(kUnitCount - 1));
        c.factor = static_cast<std::uint8_t>(rng.below(sizeof kFactors / sizeof kFactors[0]));
        c.offset = static_cast<std::uint8_t>(rng.below(sizeof kOffsets / sizeof kOffsets[0]));
        c.entries = 0;
        switch (c.kind) {
            case kLinear:
                c.bits = rng.pick(kLinearBits);
                c.isSigned = rng.percent(30);
                break;
            case kIdentical:
                c.bits = rng.pick(kIdenticalBits);
                break;
            case kTextTable: {
                c.bits = rng.pick(kTableBits);
                c.unit = 0;
                const std::uint32_t max = 1u << c.bits;
                c.entries =
                    static_cast<std::uint8_t>(std::min<std::uint32_t>(max, 2 + rng.below(7)));
                break;
            }
            case kFloat:
                c.bits = 32;
                c.isSigned = true;
                break;
        }
    }
}

// Frames, their PDUs and the signals in them, laid out bit by bit so that nothing overlaps.
void planLayout(Plan& plan, std::uint32_t frameCount, std::uint32_t perFrame) {
    const std::uint32_t lo = std::max<std::uint32_t>(1, perFrame - perFrame / 2);
    const std::uint32_t hi = std::max<std::uint32_t>(lo, perFrame + perFrame / 2);
    plan.frames.resize(frameCount);
    plan.signals.reserve(static_cast<std::size_t>(frameCount) * perFrame + 16);
    plan.pdus.reserve(static_cast<std::size_t>(frameCount) * 2);
    const std::uint32_t codingCount = static_cast<std::uint32_t>(plan.codings.size());
    for (std::uint32_t f = 0; f < frameCount; ++f) {
        Rng rng(mix(mix(plan.seed, kFrameStream), f));
        FramePlan& frame = plan.frames[f];
        const std::uint32_t want = lo + rng.below(hi - lo + 1);
        const std::uint32_t typeRoll = rng.below(100);
        frame.type = typeRoll < 88   ? 0
                     : typeRoll < 92 ? 1
                     : typeRoll < 94 ? 2
                     : typeRoll < 96 ? 3
                     : typeRoll < 98 ? 4
                                     : 5;
        frame.desc = rng.percent(20) ? static_cast<std::uint8_t>(1 + rng.below(12)) : 0;
        std::uint32_t pduCount = want >= 6 ? 1 + rng.below(3) : 1;
        frame.firstPdu = static_cast<std::uint32_t>(plan.pdus.size());
        frame.pduCount = static_cast<std::uint16_t>(pduCount);
        const bool pduUpdateBits = pduCount > 1 && rng.percent(50);
        // Two bytes stay free for the PDU update bits and the even payload length.
        const std::uint32_t capacityBytes = kPayloadBytes - 2;
        std::uint32_t frameBytes = 0;
        bool full = false;
        for (std::uint32_t p = 0; p < pduCount; ++p) {
            PduPlan pdu{};
            pdu.firstSignal = static_cast<std::uint32_t>(plan.signals.size());
            pdu.byteOffset = static_cast<std::uint16_t>(frameBytes);
            pdu.highLow = rng.percent(30);
            pdu.eventTriggered = rng.percent(10);
            pdu.debounce = static_cast<std::uint8_t>(rng.below(4));
            pdu.updateBit = kNone;
            const bool updateBits = rng.percent(30);
            const std::uint32_t share = want / pduCount + (p < want % pduCount ? 1 : 0);
            const std::uint32_t available =
                frameBytes < capacityBytes ? (capacityBytes - frameBytes) * 8 : 0;
            std::uint32_t cursor = 0;
            for (std::uint32_t s = 0; s < share && !full; ++s) {
                std::uint32_t coding = codingCount > 1 ? 1 + rng.below(codingCount - 1) : 0;
                std::uint32_t bits = plan.codings[coding].bits;
                std::uint32_t start = cursor;
                if (bits >= 8 && rng.percent(60)) start = (start + 7) & ~7u;  // byte aligned
                const std::uint32_t reserve = updateBits ? pdu.signalCount + 1 : 0;
                if (start + bits + reserve > available) {
                    coding = 0;
                    bits = plan.codings[0].bits;
                    start = cursor;
                    if (start + bits + reserve > available) {
                        full = true;
                        break;
                    }
                }
                SignalPlan signal{};
                signal.coding = coding;
                signal.bitPosition = static_cast<std::uint16_t>(start);
                signal.updateBit = updateBits ? 0 : kNone;
                const std::uint32_t defaultRoll = rng.below(10);
                signal.defaultKind = defaultRoll < 3 ? 0 : defaultRoll < 8 ? 1 : 2;
                signal.defaultValue = static_cast<std::uint8_t>(1 + rng.below(100));
                signal.desc = rng.percent(25) ? static_cast<std::uint8_t>(1 + rng.below(12)) : 0;
                plan.signals.push_back(signal);
                ++pdu.signalCount;
                cursor = start + bits;
            }
            if (updateBits) {
                for (std::uint32_t s = 0; s < pdu.signalCount; ++s) {
                    plan.signals[pdu.firstSignal + s].updateBit =
                        static_cast<std::uint16_t>(cursor++);
                    ++plan.updateBits;
                }
            }
            pdu.byteLength =
                static_cast<std::uint16_t>(std::max<std::uint32_t>(1, (cursor + 7) / 8));
            frameBytes += pdu.byteLength;
            plan.pdus.push_back(pdu);
        }
        std::uint32_t total = frameBytes;
        if (pduUpdateBits) {
            for (std::uint32_t p = 0; p < pduCount; ++p)
                plan.pdus[frame.firstPdu + p].updateBit =
                    static_cast<std::uint16_t>(frameBytes * 8 + p);
            total += 1;
        }
        total = std::max<std::uint32_t>(2, (total + 1) & ~1u);
        frame.byteLength = static_cast<std::uint16_t>(total);
    }
}

// Slot, base cycle and repetition for every frame, with no two frames on the same slot in the
// same cycle while the 2047 x 64 grid lasts. Repetitions are drawn from a realistic mix and made
// coarser for very large frame counts; frames are then packed largest share first, which fills
// each slot's 64 cycles without gaps.
void planSchedule(Plan& plan) {
    Rng rng(mix(plan.seed, kScheduleStream));
    static const std::uint32_t kReps[] = {1, 2, 4, 8, 16, 32, 64};
    static const std::uint32_t kWeights[] = {30, 15, 20, 15, 10, 5, 5};  // percent
    const double capacity = 0.9 * kMaxSlot * 64.0;
    const std::size_t frameCount = plan.frames.size();
    unsigned shift = 0;
    for (; shift < 6; ++shift) {
        double usage = 0;
        for (std::size_t k = 0; k < 7; ++k)
            usage += kWeights[k] / 100.0 * 64.0 / std::min<std::uint32_t>(64, kReps[k] << shift);
        if (usage * static_cast<double>(frameCount) <= capacity) break;
    }
    for (FramePlan& frame : plan.frames) {
        std::uint32_t roll = rng.below(100), k = 0;
        while (roll >= kWeights[k])
            roll -= kWeights[k++];
        frame.repetition =
            static_cast<std::uint8_t>(std::min<std::uint32_t>(64, kReps[k] << shift));
        const std::uint32_t channelRoll = rng.below(100);
        frame.channels = channelRoll < 50 ? 3 : channelRoll < 75 ? 1 : 2;
    }
    std::vector<std::uint32_t> order(frameCount);
    for (std::uint32_t i = 0; i < frameCount; ++i)
        order[i] = i;
    std::stable_sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
        return plan.frames[a].repetition < plan.frames[b].repetition;
    });
    std::uint32_t slot = 1;
    std::uint64_t used = 0;  // cycles taken in `slot`
    for (std::uint32_t index : order) {
        FramePlan& frame = plan.frames[index];
        const std::uint32_t rep = frame.repetition;
        std::uint64_t pattern = 0;
        for (std::uint32_t c = 0; c < 64; c += rep)
            pattern |= 1ull << c;
        std::uint32_t base = rep;
        for (std::uint32_t b = 0; b < rep; ++b)
            if ((used & (pattern << b)) == 0) {
                base = b;
                break;
            }
        if (base == rep) {
            if (++slot > kMaxSlot) {
                slot = 1;
                ++plan.wraps;
            }
            used = 0;
            base = 0;
        }
        used |= pattern << base;
        frame.slot = static_cast<std::uint16_t>(slot);
        frame.baseCycle = static_cast<std::uint8_t>(base);
        plan.maxSlot = std::max(plan.maxSlot, slot);
    }
}

// Who sends and who receives each frame.
void planEcus(Plan& plan) {
    Rng rng(mix(plan.seed, kEcuStream));
    const std::uint32_t frameCount = static_cast<std::uint32_t>(plan.frames.size());
    plan.ecuCount = std::clamp<std::uint32_t>(frameCount / 150, 4, kMaxEcus);
    plan.sends.assign(plan.ecuCount, {});
    plan.receives.assign(plan.ecuCount, {});
    for (std::uint32_t f = 0; f < frameCount; ++f) {
        FramePlan& frame = plan.frames[f];
        frame.sender = static_cast<std::uint8_t>(rng.below(plan.ecuCount));
        plan.sends[frame.sender].push_back(f);
        frame.receiverCount = static_cast<std::uint8_t>(1 + rng.below(3));
        for (std::uint32_t r = 0; r < frame.receiverCount; ++r) {
            // Distinct from the sender and from each other (there are at least four ECUs).
            std::uint32_t e;
            bool again;
            do {
                e = rng.below(plan.ecuCount);
                again = e == frame.sender;
                for (std::uint32_t q = 0; q < r; ++q)
                    again = again || frame.receivers[q] == e;
            } while (again);
            frame.receivers[r] = static_cast<std::uint8_t>(e);
            plan.receives[e].push_back(f);
        }
    }
}

// ---- names ------------------------------------------------------------------------------------

class Names {
  public:
    explicit Names(std::uint64_t seed) : seed_(mix(seed, kNameStream)) {}
    void signal(Out& out, std::uint32_t s) const {
        const std::uint64_t h = mix(seed_, s);
        out << kDomains[(h >> 8) % (sizeof kDomains / sizeof kDomains[0])]
            << kQuantities[(h >> 20) % (sizeof kQuantities / sizeof kQuantities[0])] << '_' << s;
    }
    void frame(Out& out, std::uint32_t f) const {
        const std::uint64_t h = mix(seed_ ^ 0xF00Dull, f);
        out << kDomains[(h >> 8) % (sizeof kDomains / sizeof kDomains[0])]
            << kFrameWords[(h >> 20) % (sizeof kFrameWords / sizeof kFrameWords[0])] << '_' << f;
    }
    void pdu(Out& out, const Plan& plan, std::uint32_t p, std::uint32_t f) const {
        frame(out, f);
        const FramePlan& fr = plan.frames[f];
        if (fr.pduCount == 1)
            out << "_Pdu";
        else
            out << "_Pdu" << (p - fr.firstPdu + 1);
    }

  private:
    std::uint64_t seed_;
};

// ---- sections ---------------------------------------------------------------------------------

const char kFlexrayNs[] = "http://www.asam.net/xml/fbx/flexray";

void writeCluster(Out& out, const Plan& plan) {
    const std::uint32_t staticSlots = std::min<std::uint32_t>(std::max(plan.maxSlot, 2u), 1023);
    out.at(2) << "<fx:CLUSTERS>";
    out.at(3) << "<fx:CLUSTER ID=\"CL_FlexRay\" xmlns:flexray=\"" << kFlexrayNs
              << "\" xsi:type=\"flexray:CLUSTER-TYPE\">";
    out.at(4) << "<ho:SHORT-NAME>FlexRay_Backbone</ho:SHORT-NAME>";
    out.at(4) << "<ho:DESC>Vehicle FlexRay backbone, channels A and B</ho:DESC>";
    out.at(4) << "<fx:SPEED>10000000</fx:SPEED>";
    out.at(4) << "<fx:IS-HIGH-LOW-BIT-ORDER>false</fx:IS-HIGH-LOW-BIT-ORDER>";
    out.at(4) << "<fx:BIT-COUNTING-POLICY>SAWTOOTH</fx:BIT-COUNTING-POLICY>";
    out.at(4) << "<fx:PROTOCOL xsi:type=\"flexray:PROTOCOL-TYPE\">FlexRay</fx:PROTOCOL>";
    out.at(4) << "<fx:PROTOCOL-VERSION>2.1</fx:PROTOCOL-VERSION>";
    out.at(4) << "<fx:CHANNEL-REFS>";
    out.at(5) << "<fx:CHANNEL-REF ID-REF=\"CH_A\"/>";
    out.at(5) << "<fx:CHANNEL-REF ID-REF=\"CH_B\"/>";
    out.at(4) << "</fx:CHANNEL-REFS>";
    out.at(4) << "<fx:MEDIUM>FlexRay</fx:MEDIUM>";
    out.at(4) << "<fx:MAX-FRAME-LENGTH>254</fx:MAX-FRAME-LENGTH>";
    struct Param {
        const char* name;
        std::uint32_t value;
    };
    const Param head[] = {{"COLD-START-ATTEMPTS", 8},
                          {"ACTION-POINT-OFFSET", 4},
                          {"DYNAMIC-SLOT-IDLE-PHASE", 1},
                          {"MINISLOT", 6},
                          {"MINISLOT-ACTION-POINT-OFFSET", 3},
                          {"N-I-T", 44},
                          {"STATIC-SLOT", 24},
                          {"SYMBOL-WINDOW", 13},
                          {"T-S-S-TRANSMITTER", 9}};
    for (const Param& p : head)
        out.at(4) << "<flexray:" << p.name << '>' << p.value << "</flexray:" << p.name << '>';
    out.at(4) << "<flexray:WAKE-UP>";
    const Param wake[] = {{"WAKE-UP-SYMBOL-RX-IDLE", 59},
                          {"WAKE-UP-SYMBOL-RX-LOW", 50},
                          {"WAKE-UP-SYMBOL-RX-WINDOW", 301},
                          {"WAKE-UP-SYMBOL-TX-IDLE", 180},
                          {"WAKE-UP-SYMBOL-TX-LOW", 60}};
    for (const Param& p : wake)
        out.at(5) << "<flexray:" << p.name << '>' << p.value << "</flexray:" << p.name << '>';
    out.at(4) << "</flexray:WAKE-UP>";
    const Param tail[] = {{"LISTEN-NOISE", 2},
                          {"MACRO-PER-CYCLE", 5000},
                          {"MACROTICK", 1},
                          {"MAX-INITIALIZATION-ERROR", 2},
                          {"MAX-WITHOUT-CLOCK-CORRECTION-FATAL", 14},
                          {"MAX-WITHOUT-CLOCK-CORRECTION-PASSIVE", 10},
                          {"NETWORK-MANAGEMENT-VECTOR-LENGTH", 8},
                          {"NUMBER-OF-MINISLOTS", 289},
                          {"NUMBER-OF-STATIC-SLOTS", staticSlots},
                          {"OFFSET-CORRECTION-START", 4981},
                          {"PAYLOAD-LENGTH-STATIC", 127},
                          {"SYNC-NODE-MAX", 15},
                          {"CAS-RX-LOW-MAX", 87},
                          {"CYCLE", 5000}};
    for (const Param& p : tail)
        out.at(4) << "<flexray:" << p.name << '>' << p.value << "</flexray:" << p.name << '>';
    out.at(4) << "<flexray:CLUSTER-DRIFT-DAMPING>1</flexray:CLUSTER-DRIFT-DAMPING>";
    out.at(4) << "<fx:MANUFACTURER-EXTENSION>";
    out.at(5) << "<ni:NI-XNET-EXTENSION>";
    out.at(6) << "<ni:APPLICATION-PROTOCOL>None</ni:APPLICATION-PROTOCOL>";
    out.at(5) << "</ni:NI-XNET-EXTENSION>";
    out.at(4) << "</fx:MANUFACTURER-EXTENSION>";
    out.at(3) << "</fx:CLUSTER>";
    out.at(2) << "</fx:CLUSTERS>";
}

// Cycle time 5 ms: a repetition of r cycles is a period of r * 5 ms.
const char* periodOf(std::uint32_t repetition) {
    switch (repetition) {
        case 1:
            return "PT0.005S";
        case 2:
            return "PT0.01S";
        case 4:
            return "PT0.02S";
        case 8:
            return "PT0.04S";
        case 16:
            return "PT0.08S";
        case 32:
            return "PT0.16S";
        default:
            return "PT0.32S";
    }
}

void writeChannels(Out& out, const Plan& plan, const Names& names, FibexStats& stats) {
    out.at(2) << "<fx:CHANNELS>";
    for (int c = 0; c < 2; ++c) {
        const char letter = c == 0 ? 'A' : 'B';
        const std::uint8_t bit = static_cast<std::uint8_t>(1u << c);
        out.at(3) << "<fx:CHANNEL ID=\"CH_" << letter << "\" xmlns:flexray=\"" << kFlexrayNs
                  << "\" xsi:type=\"flexray:CHANNEL-TYPE\">";
        out.at(4) << "<ho:SHORT-NAME>FlexRay_" << letter << "</ho:SHORT-NAME>";
        out.at(4) << "<ho:DESC>Channel " << letter << " of the backbone</ho:DESC>";
        out.at(4) << "<fx:PDU-TRIGGERINGS>";
        for (std::uint32_t f = 0; f < plan.frames.size(); ++f) {
            const FramePlan& frame = plan.frames[f];
            if (!(frame.channels & bit)) continue;
            for (std::uint32_t p = frame.firstPdu; p < frame.firstPdu + frame.pduCount; ++p) {
                const PduPlan& pdu = plan.pdus[p];
                out.at(5) << "<fx:PDU-TRIGGERING ID=\"PT_" << letter << '_';
                names.pdu(out, plan, p, f);
                out << "\">";
                out.at(6) << "<fx:TIMINGS>";
                if (pdu.eventTriggered) {
                    out.at(7) << "<fx:EVENT-CONTROLLED-TIMING>";
                    out.at(8) << "<fx:DEBOUNCE-TIME-RANGE>";
                    out.at(9) << "<fx:VALUE>" << kDebounce[pdu.debounce] << "</fx:VALUE>";
                    out.at(8) << "</fx:DEBOUNCE-TIME-RANGE>";
                    out.at(7) << "</fx:EVENT-CONTROLLED-TIMING>";
                } else {
                    out.at(7) << "<fx:CYCLIC-TIMING>";
                    out.at(8) << "<fx:REPEATING-TIME-RANGE>";
                    out.at(9) << "<fx:VALUE>" << periodOf(frame.repetition) << "</fx:VALUE>";
                    out.at(8) << "</fx:REPEATING-TIME-RANGE>";
                    out.at(7) << "</fx:CYCLIC-TIMING>";
                }
                out.at(6) << "</fx:TIMINGS>";
                out.at(6) << "<fx:PDU-REF ID-REF=\"PDU_";
                names.pdu(out, plan, p, f);
                out << "\"/>";
                out.at(5) << "</fx:PDU-TRIGGERING>";
                ++stats.pduTriggerings;
            }
            out.maybeFlush();
        }
        out.at(4) << "</fx:PDU-TRIGGERINGS>";
        out.at(4) << "<fx:FRAME-TRIGGERINGS>";
        for (std::uint32_t f = 0; f < plan.frames.size(); ++f) {
            const FramePlan& frame = plan.frames[f];
            if (!(frame.channels & bit)) continue;
            out.at(5) << "<fx:FRAME-TRIGGERING ID=\"FT_" << letter << '_';
            names.frame(out, f);
            out << "\">";
            out.at(6) << "<fx:TIMINGS>";
            out.at(7) << "<fx:ABSOLUTELY-SCHEDULED-TIMING>";
            out.at(8) << "<fx:SLOT-ID>" << frame.slot << "</fx:SLOT-ID>";
            out.at(8) << "<fx:BASE-CYCLE>" << frame.baseCycle << "</fx:BASE-CYCLE>";
            out.at(8) << "<fx:CYCLE-REPETITION>" << frame.repetition << "</fx:CYCLE-REPETITION>";
            out.at(7) << "</fx:ABSOLUTELY-SCHEDULED-TIMING>";
            out.at(6) << "</fx:TIMINGS>";
            out.at(6) << "<fx:FRAME-REF ID-REF=\"FR_";
            names.frame(out, f);
            out << "\"/>";
            out.at(5) << "</fx:FRAME-TRIGGERING>";
            ++stats.frameTriggerings;
            out.maybeFlush();
        }
        out.at(4) << "</fx:FRAME-TRIGGERINGS>";
        out.at(4) << "<flexray:FLEXRAY-CHANNEL-NAME>" << letter
                  << "</flexray:FLEXRAY-CHANNEL-NAME>";
        out.at(3) << "</fx:CHANNEL>";
    }
    out.at(2) << "</fx:CHANNELS>";
}

void writePorts(Out& out, const Plan& plan, const Names& names, const char* kind,
                const std::vector<std::uint32_t>& frames, std::uint8_t bit, char letter,
                std::uint32_t ecu, FibexStats& stats) {
    const bool input = kind[0] == 'I';
    out.at(6) << (input ? "<fx:INPUTS>" : "<fx:OUTPUTS>");
    for (std::uint32_t f : frames) {
        if (!(plan.frames[f].channels & bit)) continue;
        out.at(7) << "<fx:" << kind << " ID=\"" << (input ? "IP_" : "OP_") << kEcuNames[ecu] << '_'
                  << letter << '_';
        names.frame(out, f);
        out << "\">";
        out.at(8) << "<fx:FRAME-TRIGGERING-REF ID-REF=\"FT_" << letter << '_';
        names.frame(out, f);
        out << "\"/>";
        out.at(8) << "<fx:COMPLETE-FRAME>true</fx:COMPLETE-FRAME>";
        out.at(7) << "</fx:" << kind << '>';
        ++stats.ports;
        out.maybeFlush();
    }
    out.at(6) << (input ? "</fx:INPUTS>" : "</fx:OUTPUTS>");
}

void writeEcus(Out& out, const Plan& plan, const Names& names, FibexStats& stats) {
    out.at(2) << "<fx:ECUS>";
    for (std::uint32_t e = 0; e < plan.ecuCount; ++e) {
        const char* name = kEcuNames[e];
        out.at(3) << "<fx:ECU ID=\"ECU_" << name << "\">";
        out.at(4) << "<ho:SHORT-NAME>" << name << "</ho:SHORT-NAME>";
        out.at(4) << "<ho:DESC>" << name << " node</ho:DESC>";
        out.at(4) << "<fx:CONTROLLERS>";
        out.at(5) << "<fx:CONTROLLER ID=\"CTRL_" << name << "\" xmlns:flexray=\"" << kFlexrayNs
                  << "\" xsi:type=\"flexray:CONTROLLER-TYPE\">";
        out.at(6) << "<ho:SHORT-NAME>" << name << "_FrCtrl</ho:SHORT-NAME>";
        out.at(6) << "<flexray:KEY-SLOT-USAGE>";
        // The first three nodes are the cold-start nodes, each with a sync frame of its own.
        if (e < 3 && !plan.sends[e].empty())
            out.at(7) << "<flexray:STARTUP-SYNC>" << plan.frames[plan.sends[e].front()].slot
                      << "</flexray:STARTUP-SYNC>";
        else
            out.at(7) << "<flexray:NONE/>";
        out.at(6) << "</flexray:KEY-SLOT-USAGE>";
        struct Param {
            const char* name;
            const char* value;
        };
        static const Param kParams[] = {{"MAX-DYNAMIC-PAYLOAD-LENGTH", "127"},
                                        {"CLUSTER-DRIFT-DAMPING", "1"},
                                        {"DECODING-CORRECTION", "48"},
                                        {"MAX-DRIFT", "601"},
                                        {"LATEST-TX", "249"},
                                        {"MICRO-PER-CYCLE", "200000"},
                                        {"MICRO-PER-MACRO-NOM", "40"},
                                        {"OFFSET-CORRECTION-OUT", "378"},
                                        {"RATE-CORRECTION-OUT", "601"},
                                        {"DELAY-COMPENSATION-A", "1"},
                                        {"DELAY-COMPENSATION-B", "1"},
                                        {"LISTEN-TIMEOUT", "401202"},
                                        {"EXTERN-OFFSET-CORRECTION", "0"},
                                        {"EXTERN-RATE-CORRECTION", "0"},
                                        {"WAKE-UP-PATTERN", "33"},
                                        {"ALLOW-HALT-DUE-TO-CLOCK", "true"},
                                        {"ALLOW-PASSIVE-TO-ACTIVE", "0"},
                                        {"ACCEPTED-STARTUP-RANGE", "212"},
                                        {"MACRO-INITIAL-OFFSET-A", "4"},
                                        {"MACRO-INITIAL-OFFSET-B", "4"},
                                        {"MICRO-INITIAL-OFFSET-A", "36"},
                                        {"MICRO-INITIAL-OFFSET-B", "36"},
                                        {"SINGLE-SLOT-ENABLED", "false"},
                                        {"MICROTICK", "0.025"}};
        for (const Param& p : kParams)
            out.at(6) << "<flexray:" << p.name << '>' << p.value << "</flexray:" << p.name << '>';
        out.at(5) << "</fx:CONTROLLER>";
        out.at(4) << "</fx:CONTROLLERS>";
        out.at(4) << "<fx:CONNECTORS>";
        for (int c = 0; c < 2; ++c) {
            const char letter = c == 0 ? 'A' : 'B';
            const std::uint8_t bit = static_cast<std::uint8_t>(1u << c);
            out.at(5) << "<fx:CONNECTOR ID=\"CONN_" << name << '_' << letter
                      << "\" xmlns:flexray=\"" << kFlexrayNs
                      << "\" xsi:type=\"flexray:CONNECTOR-TYPE\">";
            out.at(6) << "<fx:CHANNEL-REF ID-REF=\"CH_" << letter << "\"/>";
            out.at(6) << "<fx:CONTROLLER-REF ID-REF=\"CTRL_" << name << "\"/>";
            writePorts(out, plan, names, "INPUT-PORT", plan.receives[e], bit, letter, e, stats);
            writePorts(out, plan, names, "OUTPUT-PORT", plan.sends[e], bit, letter, e, stats);
            out.at(6) << "<flexray:WAKE-UP-CHANNEL>" << (e < 2 ? "true" : "false")
                      << "</flexray:WAKE-UP-CHANNEL>";
            out.at(5) << "</fx:CONNECTOR>";
        }
        out.at(4) << "</fx:CONNECTORS>";
        out.at(3) << "</fx:ECU>";
        ++stats.ecus;
    }
    out.at(2) << "</fx:ECUS>";
}

void writePdus(Out& out, const Plan& plan, const Names& names, FibexStats& stats) {
    out.at(2) << "<fx:PDUS>";
    for (std::uint32_t f = 0; f < plan.frames.size(); ++f) {
        const FramePlan& frame = plan.frames[f];
        for (std::uint32_t p = frame.firstPdu; p < frame.firstPdu + frame.pduCount; ++p) {
            const PduPlan& pdu = plan.pdus[p];
            out.at(3) << "<fx:PDU ID=\"PDU_";
            names.pdu(out, plan, p, f);
            out << "\">";
            out.at(4) << "<ho:SHORT-NAME>";
            names.pdu(out, plan, p, f);
            out << "</ho:SHORT-NAME>";
            out.at(4) << "<fx:BYTE-LENGTH>" << pdu.byteLength << "</fx:BYTE-LENGTH>";
            out.at(4) << "<fx:PDU-TYPE>" << kFrameTypes[frame.type] << "</fx:PDU-TYPE>";
            if (pdu.signalCount == 0) {
                out.at(4) << "<fx:SIGNAL-INSTANCES/>";
            } else {
                out.at(4) << "<fx:SIGNAL-INSTANCES>";
                const char* order = pdu.highLow ? "true" : "false";
                for (std::uint32_t s = pdu.firstSignal; s < pdu.firstSignal + pdu.signalCount;
                     ++s) {
                    const SignalPlan& signal = plan.signals[s];
                    out.at(5) << "<fx:SIGNAL-INSTANCE ID=\"SI_";
                    names.signal(out, s);
                    out << "\">";
                    out.at(6) << "<fx:BIT-POSITION>" << signal.bitPosition << "</fx:BIT-POSITION>";
                    out.at(6) << "<fx:IS-HIGH-LOW-BYTE-ORDER>" << order
                              << "</fx:IS-HIGH-LOW-BYTE-ORDER>";
                    if (signal.updateBit != kNone)
                        out.at(6) << "<fx:SIGNAL-UPDATE-BIT-POSITION>" << signal.updateBit
                                  << "</fx:SIGNAL-UPDATE-BIT-POSITION>";
                    out.at(6) << "<fx:SIGNAL-REF ID-REF=\"SIG_";
                    names.signal(out, s);
                    out << "\"/>";
                    out.at(5) << "</fx:SIGNAL-INSTANCE>";
                }
                out.at(4) << "</fx:SIGNAL-INSTANCES>";
            }
            out.at(3) << "</fx:PDU>";
            ++stats.pdus;
        }
        out.maybeFlush();
    }
    out.at(2) << "</fx:PDUS>";
}

void writeFrames(Out& out, const Plan& plan, const Names& names, FibexStats& stats) {
    out.at(2) << "<fx:FRAMES>";
    for (std::uint32_t f = 0; f < plan.frames.size(); ++f) {
        const FramePlan& frame = plan.frames[f];
        out.at(3) << "<fx:FRAME ID=\"FR_";
        names.frame(out, f);
        out << "\">";
        out.at(4) << "<ho:SHORT-NAME>";
        names.frame(out, f);
        out << "</ho:SHORT-NAME>";
        if (frame.desc) out.at(4) << "<ho:DESC>" << kDescriptions[frame.desc - 1] << "</ho:DESC>";
        out.at(4) << "<fx:BYTE-LENGTH>" << frame.byteLength << "</fx:BYTE-LENGTH>";
        out.at(4) << "<fx:FRAME-TYPE>" << kFrameTypes[frame.type] << "</fx:FRAME-TYPE>";
        out.at(4) << "<fx:PDU-INSTANCES>";
        for (std::uint32_t p = frame.firstPdu; p < frame.firstPdu + frame.pduCount; ++p) {
            const PduPlan& pdu = plan.pdus[p];
            out.at(5) << "<fx:PDU-INSTANCE ID=\"PI_";
            names.pdu(out, plan, p, f);
            out << "\">";
            out.at(6) << "<fx:PDU-REF ID-REF=\"PDU_";
            names.pdu(out, plan, p, f);
            out << "\"/>";
            out.at(6) << "<fx:BIT-POSITION>" << pdu.byteOffset * 8u << "</fx:BIT-POSITION>";
            out.at(6) << "<fx:IS-HIGH-LOW-BYTE-ORDER>" << (pdu.highLow ? "true" : "false")
                      << "</fx:IS-HIGH-LOW-BYTE-ORDER>";
            if (pdu.updateBit != kNone)
                out.at(6) << "<fx:PDU-UPDATE-BIT-POSITION>" << pdu.updateBit
                          << "</fx:PDU-UPDATE-BIT-POSITION>";
            out.at(5) << "</fx:PDU-INSTANCE>";
        }
        out.at(4) << "</fx:PDU-INSTANCES>";
        out.at(3) << "</fx:FRAME>";
        ++stats.frames;
        out.maybeFlush();
    }
    out.at(2) << "</fx:FRAMES>";
}

void writeSignals(Out& out, const Plan& plan, const Names& names, FibexStats& stats) {
    out.at(2) << "<fx:SIGNALS>";
    for (std::uint32_t s = 0; s < plan.signals.size(); ++s) {
        const SignalPlan& signal = plan.signals[s];
        out.at(3) << "<fx:SIGNAL ID=\"SIG_";
        names.signal(out, s);
        out << "\">";
        out.at(4) << "<ho:SHORT-NAME>";
        names.signal(out, s);
        out << "</ho:SHORT-NAME>";
        if (signal.desc) out.at(4) << "<ho:DESC>" << kDescriptions[signal.desc - 1] << "</ho:DESC>";
        if (signal.defaultKind == 1)
            out.at(4) << "<fx:DEFAULT-VALUE>0</fx:DEFAULT-VALUE>";
        else if (signal.defaultKind == 2)
            out.at(4) << "<fx:DEFAULT-VALUE>"
                      << (signal.defaultValue %
                          (1u << std::min<std::uint32_t>(plan.codings[signal.coding].bits, 8)))
                      << "</fx:DEFAULT-VALUE>";
        out.at(4) << "<fx:CODING-REF ID-REF=\"COD_" << signal.coding << "\"/>";
        out.at(3) << "</fx:SIGNAL>";
        ++stats.signals;
        out.maybeFlush();
    }
    out.at(2) << "</fx:SIGNALS>";
}

void writeLimits(Out& out, int depth, const char* element, double lower, double upper) {
    out.at(depth) << "<ho:" << element << '>';
    out.at(depth + 1) << "<ho:SCALE-CONSTR VALIDITY=\"VALID\">";
    out.at(depth + 2) << "<ho:LOWER-LIMIT INTERVAL-TYPE=\"CLOSED\">";
    out.number(lower) << "</ho:LOWER-LIMIT>";
    out.at(depth + 2) << "<ho:UPPER-LIMIT INTERVAL-TYPE=\"CLOSED\">";
    out.number(upper) << "</ho:UPPER-LIMIT>";
    out.at(depth + 1) << "</ho:SCALE-CONSTR>";
    out.at(depth) << "</ho:" << element << '>';
}

const char* baseDataType(const CodingPlan& c) {
    if (c.kind == kFloat) return "A_FLOAT32";
    if (c.bits <= 8) return c.isSigned ? "A_INT8" : "A_UINT8";
    if (c.bits <= 16) return c.isSigned ? "A_INT16" : "A_UINT16";
    return c.isSigned ? "A_INT32" : "A_UINT32";
}

void writeCodings(Out& out, const Plan& plan, FibexStats& stats) {
    out.at(2) << "<fx:CODINGS>";
    for (std::uint32_t k = 0; k < plan.codings.size(); ++k) {
        const CodingPlan& c = plan.codings[k];
        static const char* const kKindNames[] = {"Lin", "Ident", "Enum", "Float"};
        out.at(3) << "<fx:CODING ID=\"COD_" << k << "\">";
        out.at(4) << "<ho:SHORT-NAME>" << kKindNames[c.kind] << (c.isSigned ? "_S" : "_U")
                  << static_cast<unsigned>(c.bits) << '_' << k << "</ho:SHORT-NAME>";
        out.at(4) << "<ho:CODED-TYPE ho:BASE-DATA-TYPE=\"" << baseDataType(c)
                  << "\" CATEGORY=\"STANDARD-LENGTH-TYPE\" ENCODING=\""
                  << (c.kind == kFloat ? "IEEE-FLOATING-TYPE"
                      : c.isSigned     ? "SIGNED"
                                       : "UNSIGNED")
                  << "\">";
        out.at(5) << "<ho:BIT-LENGTH>" << static_cast<unsigned>(c.bits) << "</ho:BIT-LENGTH>";
        out.at(4) << "</ho:CODED-TYPE>";
        out.at(4) << "<ho:COMPU-METHODS>";
        out.at(5) << "<ho:COMPU-METHOD>";
        out.at(6) << "<ho:SHORT-NAME>CM_" << k << "</ho:SHORT-NAME>";
        const double rawMin = c.isSigned ? -std::ldexp(1.0, c.bits - 1) : 0.0;
        const double rawMax =
            c.isSigned ? std::ldexp(1.0, c.bits - 1) - 1 : std::ldexp(1.0, c.bits) - 1;
        if (c.kind == kTextTable) {
            out.at(6) << "<ho:CATEGORY>TEXTTABLE</ho:CATEGORY>";
            out.at(6) << "<ho:UNIT-REF ID-REF=\"" << kUnits[0].id << "\"/>";
            out.at(6) << "<ho:COMPU-INTERNAL-TO-PHYS>";
            out.at(7) << "<ho:COMPU-SCALES>";
            for (std::uint32_t v = 0; v < c.entries; ++v) {
                out.at(8) << "<ho:COMPU-SCALE>";
                out.at(9) << "<ho:LOWER-LIMIT>" << v << "</ho:LOWER-LIMIT>";
                out.at(9) << "<ho:UPPER-LIMIT>" << v << "</ho:UPPER-LIMIT>";
                out.at(9) << "<ho:COMPU-CONST>";
                out.at(10)
                    << "<ho:VT>"
                    << kTableTexts[(k + v * 5) % (sizeof kTableTexts / sizeof kTableTexts[0])]
                    << "</ho:VT>";
                out.at(9) << "</ho:COMPU-CONST>";
                out.at(8) << "</ho:COMPU-SCALE>";
            }
            out.at(7) << "</ho:COMPU-SCALES>";
            out.at(6) << "</ho:COMPU-INTERNAL-TO-PHYS>";
        } else if (c.kind == kLinear) {
            const double factor = kFactors[c.factor];
            const double offset = kOffsets[c.offset];
            out.at(6) << "<ho:CATEGORY>LINEAR</ho:CATEGORY>";
            out.at(6) << "<ho:UNIT-REF ID-REF=\"" << kUnits[c.unit].id << "\"/>";
            // Limits rounded to six decimals, as tools print them.
            const auto round6 = [](double v) { return std::round(v * 1e6) / 1e6; };
            writeLimits(out, 6, "PHYS-CONSTRS", round6(offset + factor * rawMin),
                        round6(offset + factor * rawMax));
            writeLimits(out, 6, "INTERNAL-CONSTRS", rawMin, rawMax);
            out.at(6) << "<ho:COMPU-INTERNAL-TO-PHYS>";
            out.at(7) << "<ho:COMPU-SCALES>";
            out.at(8) << "<ho:COMPU-SCALE>";
            out.at(9) << "<ho:COMPU-RATIONAL-COEFFS>";
            out.at(10) << "<ho:COMPU-NUMERATOR>";
            out.at(11) << "<ho:V>";
            out.number(offset) << "</ho:V>";
            out.at(11) << "<ho:V>";
            out.number(factor) << "</ho:V>";
            out.at(10) << "</ho:COMPU-NUMERATOR>";
            out.at(10) << "<ho:COMPU-DENOMINATOR>";
            out.at(11) << "<ho:V>1</ho:V>";
            out.at(10) << "</ho:COMPU-DENOMINATOR>";
            out.at(9) << "</ho:COMPU-RATIONAL-COEFFS>";
            out.at(8) << "</ho:COMPU-SCALE>";
            out.at(7) << "</ho:COMPU-SCALES>";
            out.at(6) << "</ho:COMPU-INTERNAL-TO-PHYS>";
        } else {
            out.at(6) << "<ho:CATEGORY>IDENTICAL</ho:CATEGORY>";
            out.at(6) << "<ho:UNIT-REF ID-REF=\"" << kUnits[c.unit].id << "\"/>";
            if (c.kind == kFloat) {
                writeLimits(out, 6, "PHYS-CONSTRS", -1e6, 1e6);
            } else {
                writeLimits(out, 6, "PHYS-CONSTRS", rawMin, rawMax);
                writeLimits(out, 6, "INTERNAL-CONSTRS", rawMin, rawMax);
            }
        }
        out.at(5) << "</ho:COMPU-METHOD>";
        out.at(4) << "</ho:COMPU-METHODS>";
        out.at(3) << "</fx:CODING>";
        ++stats.codings;
        out.maybeFlush();
    }
    out.at(2) << "</fx:CODINGS>";
}

void writeUnits(Out& out, FibexStats& stats) {
    out.at(2) << "<ho:UNIT-SPEC>";
    out.at(3) << "<ho:UNITS>";
    for (const UnitDef& u : kUnits) {
        out.at(4) << "<ho:UNIT ID=\"" << u.id << "\">";
        out.at(5) << "<ho:SHORT-NAME>" << u.shortName << "</ho:SHORT-NAME>";
        out.at(5) << "<ho:DISPLAY-NAME>" << u.displayName << "</ho:DISPLAY-NAME>";
        out.at(4) << "</ho:UNIT>";
        ++stats.units;
    }
    out.at(3) << "</ho:UNITS>";
    out.at(2) << "</ho:UNIT-SPEC>";
}

}  // namespace

bool generateFibex(const FibexOptions& options, const Sink& sink, FibexStats* statsOut) {
    const std::uint32_t frameCount = std::max<std::uint32_t>(1, options.frames);
    const std::uint32_t perFrame = std::max<std::uint32_t>(1, options.signalsPerFrame);
    Plan plan;
    plan.seed = options.seed;
    const std::uint64_t expectedSignals = static_cast<std::uint64_t>(frameCount) * perFrame;
    planCodings(plan, static_cast<std::uint32_t>(
                          std::clamp<std::uint64_t>(expectedSignals / 4, 16, 1u << 24)));
    planLayout(plan, frameCount, perFrame);
    planSchedule(plan);
    planEcus(plan);
    const Names names(options.seed);

    FibexStats stats;
    Out out(sink);
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
    out.at(0) << "<!-- Synthetic FlexRay database written by kelo-gen-fibex: " << frameCount
              << " frames, " << perFrame << " signals per frame, seed " << options.seed << " -->";
    out.at(0) << "<fx:FIBEX xmlns:fx=\"http://www.asam.net/xml/fbx\" "
                 "xmlns:ho=\"http://www.asam.net/xml\" "
                 "xmlns:can=\"http://www.asam.net/xml/fbx/can\" "
                 "xmlns:flexray=\"http://www.asam.net/xml/fbx/flexray\" "
                 "xmlns:ni=\"http://www.ni.com/xnet\" "
                 "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
                 "xsi:schemaLocation=\"http://www.asam.net/xml/fbx/all "
                 "http://www.asam.net/xml/fbx/3_1_0/xsd/fibex4multiplatform.xsd\" "
                 "VERSION=\"3.1.0\">";
    out.at(1) << "<fx:PROJECT ID=\"PRJ_Vehicle\">";
    out.at(2) << "<ho:SHORT-NAME>Vehicle</ho:SHORT-NAME>";
    out.at(1) << "</fx:PROJECT>";
    out.at(1) << "<fx:ELEMENTS>";
    writeCluster(out, plan);
    writeChannels(out, plan, names, stats);
    writeEcus(out, plan, names, stats);
    writePdus(out, plan, names, stats);
    writeFrames(out, plan, names, stats);
    writeSignals(out, plan, names, stats);
    out.at(1) << "</fx:ELEMENTS>";
    out.at(1) << "<fx:PROCESSING-INFORMATION>";
    writeUnits(out, stats);
    writeCodings(out, plan, stats);
    out.at(1) << "</fx:PROCESSING-INFORMATION>";
    out.at(0) << "</fx:FIBEX>\n";
    out.flush();

    stats.bytes = out.bytes();
    stats.updateBitSignals = plan.updateBits;
    stats.scheduleWraps = plan.wraps;
    if (statsOut) *statsOut = stats;
    return out.ok();
}

bool writeFibexFile(const FibexOptions& options, const std::string& path, FibexStats* stats,
                    std::string* error) {
    return writeDocumentFile(
        path, [&](const Sink& sink) { return generateFibex(options, sink, stats); }, error);
}

FibexOptions optionsForSize(double megabytes, std::uint32_t signalsPerFrame, std::uint64_t seed) {
    FibexOptions options;
    options.signalsPerFrame = std::max<std::uint32_t>(1, signalsPerFrame);
    options.seed = seed;
    options.frames = framesForSize(megabytes, [&](std::uint32_t frames) {
        FibexOptions probe = options;
        probe.frames = frames;
        FibexStats stats;
        generateFibex(
            probe, [](const char*, std::size_t) { return true; }, &stats);
        return stats.bytes;
    });
    return options;
}

}  // namespace gen
}  // namespace kelo
