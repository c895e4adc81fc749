#include "autosar_generator.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace kelo {
namespace gen {

namespace {

constexpr const char* kPackage = "/Generated";
constexpr std::uint32_t kUnits = 8;
constexpr std::uint32_t kSlots = 2000;  // static and dynamic slots used before cycles are shared

struct SignalPlan {
    std::uint32_t length = 0;
    std::uint32_t start = 0;
    std::uint32_t updateBit = 0;
    bool hasUpdateBit = false;
    bool viaPort = false;  // compu-method through system signal and R-port
};

struct FramePlan {
    std::uint32_t firstSignal = 0;
    std::uint32_t signalCount = 0;
    std::uint32_t sender = 0;
    std::uint32_t receiver = 0;
    bool eventControlled = false;
    bool onChannelB = false;
};

std::string signalName(std::uint32_t i) {
    return "Sig" + std::to_string(i);
}
std::string frameName(std::uint32_t i) {
    return "Frame" + std::to_string(i);
}
std::string pduName(std::uint32_t i) {
    return "Pdu" + std::to_string(i);
}
std::string ecuName(std::uint32_t i) {
    return "Ecu" + std::to_string(i);
}

void openPackage(Out& out, int depth, const char* name) {
    out.at(depth) << "<AR-PACKAGE>";
    out.at(depth + 1) << "<SHORT-NAME>" << name << "</SHORT-NAME>";
    out.at(depth + 1) << "<ELEMENTS>";
}
void closePackage(Out& out, int depth) {
    out.at(depth + 1) << "</ELEMENTS>";
    out.at(depth) << "</AR-PACKAGE>";
}

void leaf(Out& out, int depth, const char* tag, std::uint64_t value) {
    out.at(depth) << '<' << tag << '>' << value << "</" << tag << '>';
}

}  // namespace

bool generateAutosar(const AutosarOptions& options, const Sink& sink, AutosarStats* stats) {
    Out out(sink);
    Rng rng(options.seed);
    const std::uint32_t ecus = std::max<std::uint32_t>(2, options.ecus);
    const std::uint32_t perFrame = std::max<std::uint32_t>(1, options.signalsPerFrame);

    // Plan signals and frames first (small: a few words per item).
    std::vector<FramePlan> frames(options.frames);
    std::vector<SignalPlan> signals;
    std::uint32_t updateBits = 0;
    for (std::uint32_t f = 0; f < options.frames; ++f) {
        FramePlan& frame = frames[f];
        frame.firstSignal = static_cast<std::uint32_t>(signals.size());
        const std::uint32_t wanted = perFrame / 2 + rng.below(perFrame + 1);
        std::uint32_t bit = 0;
        for (std::uint32_t s = 0; s < wanted; ++s) {
            SignalPlan signal;
            static const std::uint32_t kLengths[] = {1, 2, 4, 8, 8, 12, 16, 16, 32};
            signal.length = kLengths[rng.below(9)];
            signal.hasUpdateBit = rng.percent(20);
            const std::uint32_t need = signal.length + (signal.hasUpdateBit ? 1 : 0);
            if (bit + need > 254 * 8) break;
            signal.start = bit;
            bit += signal.length;
            if (signal.hasUpdateBit) {
                signal.updateBit = bit++;
                ++updateBits;
            }
            signal.viaPort = rng.percent(10);
            signals.push_back(signal);
        }
        frame.signalCount = static_cast<std::uint32_t>(signals.size()) - frame.firstSignal;
        frame.sender = f % ecus;
        frame.receiver = (frame.sender + 1 + rng.below(ecus - 1)) % ecus;
        frame.eventControlled = rng.percent(10);
        frame.onChannelB = f % 2 == 0;
    }
    const std::uint32_t compuMethods =
        std::max<std::uint32_t>(16, static_cast<std::uint32_t>(signals.size() / 10));
    const std::uint32_t ports = compuMethods;  // one R-port per compu-method

    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
           "\n<AUTOSAR xmlns=\"http://autosar.org/schema/r4.0\" "
           "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
           "xsi:schemaLocation=\"http://autosar.org/schema/r4.0 AUTOSAR_4-2-2.xsd\">";
    out.at(1) << "<AR-PACKAGES>";
    out.at(2) << "<AR-PACKAGE>";
    out.at(3) << "<SHORT-NAME>Generated</SHORT-NAME>";
    out.at(3) << "<AR-PACKAGES>";
    constexpr int d = 4;  // depth of the sub-packages

    openPackage(out, d, "BaseTypes");
    for (const char* type : {"uint8:8:NONE", "uint16:16:NONE", "uint32:32:NONE", "sint16:16:2C"}) {
        const std::string_view t(type);
        const std::size_t a = t.find(':'), b = t.rfind(':');
        out.at(d + 2) << "<SW-BASE-TYPE><SHORT-NAME>" << t.substr(0, a)
                      << "</SHORT-NAME><CATEGORY>FIXED_LENGTH</CATEGORY><BASE-TYPE-SIZE>"
                      << t.substr(a + 1, b - a - 1) << "</BASE-TYPE-SIZE><BASE-TYPE-ENCODING>"
                      << t.substr(b + 1) << "</BASE-TYPE-ENCODING></SW-BASE-TYPE>";
    }
    closePackage(out, d);

    openPackage(out, d, "Units");
    for (std::uint32_t u = 0; u < kUnits; ++u)
        out.at(d + 2) << "<UNIT><SHORT-NAME>Unit" << u << "</SHORT-NAME><DISPLAY-NAME>u" << u
                      << "</DISPLAY-NAME></UNIT>";
    closePackage(out, d);

    openPackage(out, d, "CompuMethods");
    for (std::uint32_t c = 0; c < compuMethods; ++c) {
        out.at(d + 2) << "<COMPU-METHOD>";
        out.at(d + 3) << "<SHORT-NAME>CM" << c << "</SHORT-NAME>";
        if (c % 4 == 3) {
            out.at(d + 3) << "<CATEGORY>TEXTTABLE</CATEGORY>";
            out.at(d + 3) << "<COMPU-INTERNAL-TO-PHYS><COMPU-SCALES>";
            for (std::uint32_t v = 0; v < 4; ++v)
                out.at(d + 4) << "<COMPU-SCALE><LOWER-LIMIT INTERVAL-TYPE=\"CLOSED\">" << v
                              << "</LOWER-LIMIT><UPPER-LIMIT INTERVAL-TYPE=\"CLOSED\">" << v
                              << "</UPPER-LIMIT><COMPU-CONST><VT>State" << v
                              << "</VT></COMPU-CONST></COMPU-SCALE>";
            out.at(d + 3) << "</COMPU-SCALES></COMPU-INTERNAL-TO-PHYS>";
        } else {
            out.at(d + 3) << "<CATEGORY>LINEAR</CATEGORY>";
            out.at(d + 3) << "<UNIT-REF DEST=\"UNIT\">" << kPackage << "/Units/Unit" << c % kUnits
                          << "</UNIT-REF>";
            out.at(d + 3) << "<COMPU-INTERNAL-TO-PHYS><COMPU-SCALES><COMPU-SCALE>"
                             "<COMPU-RATIONAL-COEFFS><COMPU-NUMERATOR><V>";
            out.number(-static_cast<double>(c % 50)) << "</V><V>";
            out.number(static_cast<double>(1 + c % 20) / 100.0)
                << "</V></COMPU-NUMERATOR><COMPU-DENOMINATOR><V>1</V></COMPU-DENOMINATOR>"
                   "</COMPU-RATIONAL-COEFFS></COMPU-SCALE></COMPU-SCALES></COMPU-INTERNAL-TO-PHYS>";
        }
        out.at(d + 2) << "</COMPU-METHOD>";
        out.maybeFlush();
    }
    closePackage(out, d);

    openPackage(out, d, "Components");
    out.at(d + 2) << "<COMPOSITION-SW-COMPONENT-TYPE><SHORT-NAME>Composition</SHORT-NAME><PORTS>";
    for (std::uint32_t p = 0; p < ports; ++p) {
        out.at(d + 3) << "<R-PORT-PROTOTYPE><SHORT-NAME>RP" << p
                      << "</SHORT-NAME><REQUIRED-COM-SPECS><NONQUEUED-RECEIVER-COM-SPEC>"
                         "<NETWORK-REPRESENTATION><SW-DATA-DEF-PROPS-VARIANTS>"
                         "<SW-DATA-DEF-PROPS-CONDITIONAL><COMPU-METHOD-REF DEST=\"COMPU-METHOD\">"
                      << kPackage << "/CompuMethods/CM" << p
                      << "</COMPU-METHOD-REF></SW-DATA-DEF-PROPS-CONDITIONAL>"
                         "</SW-DATA-DEF-PROPS-VARIANTS></NETWORK-REPRESENTATION>"
                         "</NONQUEUED-RECEIVER-COM-SPEC></REQUIRED-COM-SPECS></R-PORT-PROTOTYPE>";
        out.maybeFlush();
    }
    out.at(d + 2) << "</PORTS></COMPOSITION-SW-COMPONENT-TYPE>";
    closePackage(out, d);

    openPackage(out, d, "SystemSignals");
    for (std::uint32_t s = 0; s < signals.size(); ++s) {
        out.at(d + 2) << "<SYSTEM-SIGNAL><SHORT-NAME>Sys" << signalName(s)
                      << "</SHORT-NAME></SYSTEM-SIGNAL>";
        out.maybeFlush();
    }
    closePackage(out, d);

    openPackage(out, d, "Signals");
    for (std::uint32_t s = 0; s < signals.size(); ++s) {
        const SignalPlan& signal = signals[s];
        const std::string name = signalName(s);
        out.at(d + 2) << "<I-SIGNAL>";
        out.at(d + 3) << "<SHORT-NAME>" << name << "</SHORT-NAME>";
        out.at(d + 3) << "<DATA-TYPE-POLICY>"
                      << (signal.viaPort ? "NETWORK-REPRESENTATION-FROM-COM-SPEC" : "LEGACY")
                      << "</DATA-TYPE-POLICY>";
        out.at(d + 3) << "<INIT-VALUE><NUMERICAL-VALUE-SPECIFICATION><VALUE>0</VALUE>"
                         "</NUMERICAL-VALUE-SPECIFICATION></INIT-VALUE>";
        leaf(out, d + 3, "LENGTH", signal.length);
        const char* type = signal.length <= 8    ? "uint8"
                           : signal.length == 16 ? (s % 3 == 0 ? "sint16" : "uint16")
                           : signal.length <= 16 ? "uint16"
                                                 : "uint32";
        out.at(d + 3) << "<NETWORK-REPRESENTATION-PROPS><SW-DATA-DEF-PROPS-VARIANTS>"
                         "<SW-DATA-DEF-PROPS-CONDITIONAL><BASE-TYPE-REF DEST=\"SW-BASE-TYPE\">"
                      << kPackage << "/BaseTypes/" << type
                      << "</BASE-TYPE-REF><COMPU-METHOD-REF DEST=\"COMPU-METHOD\">" << kPackage
                      << "/CompuMethods/CM" << s % compuMethods
                      << "</COMPU-METHOD-REF></SW-DATA-DEF-PROPS-CONDITIONAL>"
                         "</SW-DATA-DEF-PROPS-VARIANTS></NETWORK-REPRESENTATION-PROPS>";
        out.at(d + 3) << "<SYSTEM-SIGNAL-REF DEST=\"SYSTEM-SIGNAL\">" << kPackage
                      << "/SystemSignals/Sys" << name << "</SYSTEM-SIGNAL-REF>";
        out.at(d + 2) << "</I-SIGNAL>";
        out.maybeFlush();
    }
    closePackage(out, d);

    openPackage(out, d, "PDUs");
    for (std::uint32_t f = 0; f < frames.size(); ++f) {
        const FramePlan& frame = frames[f];
        out.at(d + 2) << "<I-SIGNAL-I-PDU>";
        out.at(d + 3) << "<SHORT-NAME>" << pduName(f) << "</SHORT-NAME>";
        leaf(out, d + 3, "LENGTH", 254);
        if (frame.eventControlled) {
            out.at(d + 3) << "<I-PDU-TIMING-SPECIFICATIONS><I-PDU-TIMING>"
                             "<MINIMUM-DELAY>0.01</MINIMUM-DELAY><TRANSMISSION-MODE-DECLARATION>"
                             "<TRANSMISSION-MODE-TRUE-TIMING><EVENT-CONTROLLED-TIMING>"
                             "<NUMBER-OF-REPETITIONS>0</NUMBER-OF-REPETITIONS>"
                             "</EVENT-CONTROLLED-TIMING></TRANSMISSION-MODE-TRUE-TIMING>"
                             "</TRANSMISSION-MODE-DECLARATION></I-PDU-TIMING>"
                             "</I-PDU-TIMING-SPECIFICATIONS>";
        }
        out.at(d + 3) << "<I-SIGNAL-TO-PDU-MAPPINGS>";
        for (std::uint32_t s = frame.firstSignal; s < frame.firstSignal + frame.signalCount; ++s) {
            const SignalPlan& signal = signals[s];
            const std::string name = signalName(s);
            out.at(d + 4) << "<I-SIGNAL-TO-I-PDU-MAPPING>";
            out.at(d + 5) << "<SHORT-NAME>" << name << "_Mapping</SHORT-NAME>";
            out.at(d + 5) << "<I-SIGNAL-REF DEST=\"I-SIGNAL\">" << kPackage << "/Signals/" << name
                          << "</I-SIGNAL-REF>";
            out.at(d + 5) << "<PACKING-BYTE-ORDER>"
                          << (s % 4 == 0 ? "MOST-SIGNIFICANT-BYTE-FIRST"
                                         : "MOST-SIGNIFICANT-BYTE-LAST")
                          << "</PACKING-BYTE-ORDER>";
            leaf(out, d + 5, "START-POSITION", signal.start);
            out.at(d + 5) << "<TRANSFER-PROPERTY>TRIGGERED</TRANSFER-PROPERTY>";
            if (signal.hasUpdateBit)
                leaf(out, d + 5, "UPDATE-INDICATION-BIT-POSITION", signal.updateBit);
            out.at(d + 4) << "</I-SIGNAL-TO-I-PDU-MAPPING>";
        }
        out.at(d + 3) << "</I-SIGNAL-TO-PDU-MAPPINGS>";
        out.at(d + 2) << "</I-SIGNAL-I-PDU>";
        out.maybeFlush();
    }
    for (std::uint32_t e = 0; e < ecus; ++e)
        out.at(d + 2) << "<NM-PDU><SHORT-NAME>NM_" << ecuName(e)
                      << "</SHORT-NAME><LENGTH>8</LENGTH></NM-PDU>";
    closePackage(out, d);

    openPackage(out, d, "Frames");
    for (std::uint32_t f = 0; f < frames.size(); ++f) {
        out.at(d + 2) << "<FLEXRAY-FRAME>";
        out.at(d + 3) << "<SHORT-NAME>" << frameName(f) << "</SHORT-NAME>";
        leaf(out, d + 3, "FRAME-LENGTH", 254);
        out.at(d + 3) << "<PDU-TO-FRAME-MAPPINGS><PDU-TO-FRAME-MAPPING><SHORT-NAME>" << pduName(f)
                      << "_In_Frame</SHORT-NAME><PACKING-BYTE-ORDER>MOST-SIGNIFICANT-BYTE-FIRST"
                         "</PACKING-BYTE-ORDER><PDU-REF DEST=\"I-SIGNAL-I-PDU\">"
                      << kPackage << "/PDUs/" << pduName(f)
                      << "</PDU-REF><START-POSITION>0</START-POSITION></PDU-TO-FRAME-MAPPING>"
                         "</PDU-TO-FRAME-MAPPINGS>";
        out.at(d + 2) << "</FLEXRAY-FRAME>";
        out.maybeFlush();
    }
    closePackage(out, d);

    // Each ECU has a frame port for every frame it sends or receives.
    std::vector<std::vector<std::uint32_t>> ecuFrames(ecus);
    for (std::uint32_t f = 0; f < frames.size(); ++f) {
        ecuFrames[frames[f].sender].push_back(f);
        ecuFrames[frames[f].receiver].push_back(f);
    }
    std::uint32_t portCount = 0;
    openPackage(out, d, "ECUs");
    for (std::uint32_t e = 0; e < ecus; ++e) {
        const std::string name = ecuName(e);
        out.at(d + 2) << "<ECU-INSTANCE>";
        out.at(d + 3) << "<SHORT-NAME>" << name << "</SHORT-NAME>";
        out.at(d + 3) << "<COMM-CONTROLLERS><FLEXRAY-COMMUNICATION-CONTROLLER><SHORT-NAME>" << name
                      << "_CC</SHORT-NAME><FLEXRAY-COMMUNICATION-CONTROLLER-VARIANTS>"
                         "<FLEXRAY-COMMUNICATION-CONTROLLER-CONDITIONAL>"
                         "<ACCEPTED-STARTUP-RANGE>212</ACCEPTED-STARTUP-RANGE>"
                         "<ALLOW-HALT-DUE-TO-CLOCK>true</ALLOW-HALT-DUE-TO-CLOCK>"
                         "<ALLOW-PASSIVE-TO-ACTIVE>10</ALLOW-PASSIVE-TO-ACTIVE>"
                         "<CLUSTER-DRIFT-DAMPING>2</CLUSTER-DRIFT-DAMPING>"
                         "<DECODING-CORRECTION>56</DECODING-CORRECTION>"
                         "<DELAY-COMPENSATION-A>3</DELAY-COMPENSATION-A>"
                         "<DELAY-COMPENSATION-B>3</DELAY-COMPENSATION-B>"
                         "<KEY-SLOT-ID>"
                      << 1 + e << "</KEY-SLOT-ID><KEY-SLOT-USED-FOR-START-UP>"
                      << (e < 3 ? "true" : "false")
                      << "</KEY-SLOT-USED-FOR-START-UP><KEY-SLOT-USED-FOR-SYNC>"
                      << (e < 3 ? "true" : "false")
                      << "</KEY-SLOT-USED-FOR-SYNC><LATEST-TX>249</LATEST-TX>"
                         "<LISTEN-TIMEOUT>401202</LISTEN-TIMEOUT><MAX-DRIFT>601</MAX-DRIFT>"
                         "<MICRO-PER-CYCLE>200000</MICRO-PER-CYCLE>"
                         "<MICROTICK-DURATION>2.5E-8</MICROTICK-DURATION>"
                         "<OFFSET-CORRECTION-OUT>127</OFFSET-CORRECTION-OUT>"
                         "<RATE-CORRECTION-OUT>601</RATE-CORRECTION-OUT>"
                         "<SAMPLES-PER-MICROTICK>2</SAMPLES-PER-MICROTICK>"
                         "<WAKE-UP-PATTERN>33</WAKE-UP-PATTERN>"
                         "</FLEXRAY-COMMUNICATION-CONTROLLER-CONDITIONAL>"
                         "</FLEXRAY-COMMUNICATION-CONTROLLER-VARIANTS>"
                         "</FLEXRAY-COMMUNICATION-CONTROLLER></COMM-CONTROLLERS>";
        out.at(d + 3) << "<CONNECTORS><FLEXRAY-COMMUNICATION-CONNECTOR><SHORT-NAME>" << name
                      << "_Conn</SHORT-NAME><COMM-CONTROLLER-REF "
                         "DEST=\"FLEXRAY-COMMUNICATION-CONTROLLER\">"
                      << kPackage << "/ECUs/" << name << '/' << name
                      << "_CC</COMM-CONTROLLER-REF><ECU-COMM-PORT-INSTANCES>";
        for (std::uint32_t f : ecuFrames[e]) {
            out.at(d + 4) << "<FRAME-PORT><SHORT-NAME>FP_" << frameName(f)
                          << "</SHORT-NAME><COMMUNICATION-DIRECTION>"
                          << (frames[f].sender == e ? "OUT" : "IN")
                          << "</COMMUNICATION-DIRECTION></FRAME-PORT>";
            ++portCount;
            out.maybeFlush();
        }
        out.at(d + 3) << "</ECU-COMM-PORT-INSTANCES></FLEXRAY-COMMUNICATION-CONNECTOR>"
                         "</CONNECTORS>";
        out.at(d + 2) << "</ECU-INSTANCE>";
    }
    closePackage(out, d);

    std::uint32_t triggerings = 0;
    openPackage(out, d, "Clusters");
    out.at(d + 2) << "<FLEXRAY-CLUSTER>";
    out.at(d + 3) << "<SHORT-NAME>Backbone</SHORT-NAME>";
    out.at(d + 3) << "<FLEXRAY-CLUSTER-VARIANTS><FLEXRAY-CLUSTER-CONDITIONAL>";
    out.at(d + 4) << "<BAUDRATE>10000000</BAUDRATE><PHYSICAL-CHANNELS>";
    for (const char* channel : {"A", "B"}) {
        const bool b = channel[0] == 'B';
        out.at(d + 5) << "<FLEXRAY-PHYSICAL-CHANNEL>";
        out.at(d + 6) << "<SHORT-NAME>Channel" << channel << "</SHORT-NAME><COMM-CONNECTORS>";
        for (std::uint32_t e = 0; e < ecus; ++e)
            out.at(d + 7) << "<COMMUNICATION-CONNECTOR-REF-CONDITIONAL>"
                             "<COMMUNICATION-CONNECTOR-REF "
                             "DEST=\"FLEXRAY-COMMUNICATION-CONNECTOR\">"
                          << kPackage << "/ECUs/" << ecuName(e) << '/' << ecuName(e)
                          << "_Conn</COMMUNICATION-CONNECTOR-REF>"
                             "</COMMUNICATION-CONNECTOR-REF-CONDITIONAL>";
        out.at(d + 6) << "</COMM-CONNECTORS><FRAME-TRIGGERINGS>";
        for (std::uint32_t f = 0; f < frames.size(); ++f) {
            const FramePlan& frame = frames[f];
            if (b && !frame.onChannelB) continue;
            const std::string name = frameName(f);
            // Slots 1..2000; once they are used up, frames share slots in different cycles.
            const std::uint32_t round = f / kSlots;
            const bool shared = frames.size() > kSlots;
            out.at(d + 7) << "<FLEXRAY-FRAME-TRIGGERING>";
            out.at(d + 8) << "<SHORT-NAME>FT_" << name << "_" << channel << "</SHORT-NAME>";
            out.at(d + 8) << "<FRAME-PORT-REFS><FRAME-PORT-REF DEST=\"FRAME-PORT\">" << kPackage
                          << "/ECUs/" << ecuName(frame.sender) << '/' << ecuName(frame.sender)
                          << "_Conn/FP_" << name
                          << "</FRAME-PORT-REF><FRAME-PORT-REF DEST=\"FRAME-PORT\">" << kPackage
                          << "/ECUs/" << ecuName(frame.receiver) << '/' << ecuName(frame.receiver)
                          << "_Conn/FP_" << name << "</FRAME-PORT-REF></FRAME-PORT-REFS>";
            out.at(d + 8) << "<FRAME-REF DEST=\"FLEXRAY-FRAME\">" << kPackage << "/Frames/" << name
                          << "</FRAME-REF>";
            out.at(d + 8) << "<PDU-TRIGGERINGS><PDU-TRIGGERING-REF-CONDITIONAL>"
                             "<PDU-TRIGGERING-REF DEST=\"PDU-TRIGGERING\">"
                          << kPackage << "/Clusters/Backbone/Channel" << channel << "/PT_"
                          << pduName(f)
                          << "</PDU-TRIGGERING-REF></PDU-TRIGGERING-REF-CONDITIONAL>"
                             "</PDU-TRIGGERINGS>";
            out.at(d + 8) << "<ABSOLUTELY-SCHEDULED-TIMINGS><FLEXRAY-ABSOLUTELY-SCHEDULED-TIMING>"
                             "<COMMUNICATION-CYCLE><CYCLE-REPETITION><BASE-CYCLE>"
                          << round % 64 << "</BASE-CYCLE><CYCLE-REPETITION>CYCLE-REPETITION-"
                          << (shared ? 64 : 1)
                          << "</CYCLE-REPETITION></CYCLE-REPETITION></COMMUNICATION-CYCLE>"
                             "<SLOT-ID>"
                          << 1 + f % kSlots
                          << "</SLOT-ID></FLEXRAY-ABSOLUTELY-SCHEDULED-TIMING>"
                             "</ABSOLUTELY-SCHEDULED-TIMINGS>";
            out.at(d + 7) << "</FLEXRAY-FRAME-TRIGGERING>";
            ++triggerings;
            out.maybeFlush();
        }
        out.at(d + 6) << "</FRAME-TRIGGERINGS><PDU-TRIGGERINGS>";
        for (std::uint32_t f = 0; f < frames.size(); ++f) {
            if (b && !frames[f].onChannelB) continue;
            out.at(d + 7) << "<PDU-TRIGGERING><SHORT-NAME>PT_" << pduName(f)
                          << "</SHORT-NAME><I-PDU-REF DEST=\"I-SIGNAL-I-PDU\">" << kPackage
                          << "/PDUs/" << pduName(f) << "</I-PDU-REF></PDU-TRIGGERING>";
            out.maybeFlush();
        }
        out.at(d + 6) << "</PDU-TRIGGERINGS><CHANNEL-NAME>CHANNEL-" << channel << "</CHANNEL-NAME>";
        out.at(d + 5) << "</FLEXRAY-PHYSICAL-CHANNEL>";
    }
    out.at(d + 4) << "</PHYSICAL-CHANNELS>";
    out.at(d + 4)
        << "<PROTOCOL-NAME>FlexRay</PROTOCOL-NAME>"
           "<PROTOCOL-VERSION>2.1</PROTOCOL-VERSION>"
           "<ACTION-POINT-OFFSET>3</ACTION-POINT-OFFSET><CAS-RX-LOW-MAX>87</CAS-RX-LOW-MAX>"
           "<COLD-START-ATTEMPTS>8</COLD-START-ATTEMPTS><CYCLE>0.005</CYCLE>"
           "<CYCLE-COUNT-MAX>63</CYCLE-COUNT-MAX>"
           "<DYNAMIC-SLOT-IDLE-PHASE>1</DYNAMIC-SLOT-IDLE-PHASE>"
           "<LISTEN-NOISE>2</LISTEN-NOISE><MACRO-PER-CYCLE>5000</MACRO-PER-CYCLE>"
           "<MACROTICK-DURATION>1.0E-6</MACROTICK-DURATION>"
           "<MAX-WITHOUT-CLOCK-CORRECTION-FATAL>14</MAX-WITHOUT-CLOCK-CORRECTION-FATAL>"
           "<MAX-WITHOUT-CLOCK-CORRECTION-PASSIVE>10"
           "</MAX-WITHOUT-CLOCK-CORRECTION-PASSIVE>"
           "<MINISLOT-ACTION-POINT-OFFSET>2</MINISLOT-ACTION-POINT-OFFSET>"
           "<MINISLOT-DURATION>6</MINISLOT-DURATION>"
           "<NETWORK-IDLE-TIME>103</NETWORK-IDLE-TIME>"
           "<NETWORK-MANAGEMENT-VECTOR-LENGTH>2</NETWORK-MANAGEMENT-VECTOR-LENGTH>"
           "<NUMBER-OF-MINISLOTS>289</NUMBER-OF-MINISLOTS>"
           "<NUMBER-OF-STATIC-SLOTS>60</NUMBER-OF-STATIC-SLOTS>"
           "<OFFSET-CORRECTION-START>4920</OFFSET-CORRECTION-START>"
           "<PAYLOAD-LENGTH-STATIC>16</PAYLOAD-LENGTH-STATIC>"
           "<STATIC-SLOT-DURATION>50</STATIC-SLOT-DURATION>"
           "<SYMBOL-WINDOW>13</SYMBOL-WINDOW>"
           "<SYNC-FRAME-ID-COUNT-MAX>15</SYNC-FRAME-ID-COUNT-MAX>"
           "<TRANSMISSION-START-SEQUENCE-DURATION>9"
           "</TRANSMISSION-START-SEQUENCE-DURATION>"
           "<WAKEUP-RX-IDLE>59</WAKEUP-RX-IDLE><WAKEUP-RX-LOW>55</WAKEUP-RX-LOW>"
           "<WAKEUP-RX-WINDOW>301</WAKEUP-RX-WINDOW>"
           "<WAKEUP-TX-ACTIVE>60</WAKEUP-TX-ACTIVE><WAKEUP-TX-IDLE>180</WAKEUP-TX-IDLE>";
    out.at(d + 3) << "</FLEXRAY-CLUSTER-CONDITIONAL></FLEXRAY-CLUSTER-VARIANTS>";
    out.at(d + 2) << "</FLEXRAY-CLUSTER>";
    closePackage(out, d);

    openPackage(out, d, "System");
    out.at(d + 2) << "<SYSTEM><SHORT-NAME>GeneratedSystem</SHORT-NAME><MAPPINGS><SYSTEM-MAPPING>"
                     "<SHORT-NAME>Mapping</SHORT-NAME><DATA-MAPPINGS>";
    for (std::uint32_t s = 0; s < signals.size(); ++s) {
        if (!signals[s].viaPort) continue;
        out.at(d + 3) << "<SENDER-RECEIVER-TO-SIGNAL-MAPPING><DATA-ELEMENT-IREF>"
                         "<CONTEXT-PORT-REF DEST=\"R-PORT-PROTOTYPE\">"
                      << kPackage << "/Components/Composition/RP" << s % ports
                      << "</CONTEXT-PORT-REF></DATA-ELEMENT-IREF>"
                         "<SYSTEM-SIGNAL-REF DEST=\"SYSTEM-SIGNAL\">"
                      << kPackage << "/SystemSignals/Sys" << signalName(s)
                      << "</SYSTEM-SIGNAL-REF></SENDER-RECEIVER-TO-SIGNAL-MAPPING>";
        out.maybeFlush();
    }
    out.at(d + 2) << "</DATA-MAPPINGS></SYSTEM-MAPPING></MAPPINGS></SYSTEM>";
    closePackage(out, d);

    out.at(3) << "</AR-PACKAGES>";
    out.at(2) << "</AR-PACKAGE>";
    out.at(1) << "</AR-PACKAGES>";
    out << "\n</AUTOSAR>\n";
    out.flush();

    if (stats) {
        stats->bytes = out.bytes();
        stats->units = kUnits;
        stats->compuMethods = compuMethods;
        stats->signals = static_cast<std::uint32_t>(signals.size());
        stats->updateBitSignals = updateBits;
        stats->pdus = static_cast<std::uint32_t>(frames.size()) + ecus;
        stats->frames = static_cast<std::uint32_t>(frames.size());
        stats->frameTriggerings = triggerings;
        stats->ecus = ecus;
        stats->ports = portCount + ports;
    }
    return out.ok();
}

bool writeAutosarFile(const AutosarOptions& options, const std::string& path, AutosarStats* stats,
                      std::string* error) {
    return writeDocumentFile(
        path, [&](const Sink& sink) { return generateAutosar(options, sink, stats); }, error);
}

AutosarOptions autosarOptionsForSize(double megabytes, std::uint32_t signalsPerFrame,
                                     std::uint64_t seed) {
    AutosarOptions options;
    options.signalsPerFrame = std::max<std::uint32_t>(1, signalsPerFrame);
    options.seed = seed;
    options.frames = framesForSize(megabytes, [&](std::uint32_t frames) {
        AutosarOptions probe = options;
        probe.frames = frames;
        AutosarStats stats;
        generateAutosar(
            probe, [](const char*, std::size_t) { return true; }, &stats);
        return stats.bytes;
    });
    return options;
}

}  // namespace gen
}  // namespace kelo
