#include <algorithm>
#include <string>
#include <vector>

#include "autosar/autosar_reader.h"
#include "xml/diagnostics.h"

namespace kelo {
namespace autosar {

namespace {

// Inserts `name` into an ascending list of unique names.
void insertSorted(std::vector<std::string>& names, const std::string& name) {
    const auto it = std::lower_bound(names.begin(), names.end(), name);
    if (it == names.end() || *it != name) names.insert(it, name);
}

template <typename T>
void appendOnce(std::vector<T>& list, const T& item) {
    if (std::find(list.begin(), list.end(), item) == list.end()) list.push_back(item);
}

// FlexRay channel bit of a CHANNEL-NAME: 1 for channel A, 2 for channel B.
std::uint16_t channelBit(const std::string& channelName) {
    if (channelName == "CHANNEL-A") return 1;
    if (channelName == "CHANNEL-B") return 2;
    return 0;
}

// A cycle repetition written as a number ("4") or as the enumeration text "CYCLE-REPETITION-4".
std::uint32_t cycleRepetitionValue(const std::string& value) {
    static const std::string kPrefix = "CYCLE-REPETITION-";
    std::string number = xml::trimSpaces(value);
    if (number.compare(0, kPrefix.size(), kPrefix) == 0) number.erase(0, kPrefix.size());
    return xml::toUnsigned(number);
}

inline std::uint8_t toByte(std::uint32_t value) {
    return static_cast<std::uint8_t>(std::min<std::uint32_t>(value, 255u));
}

// One FLEXRAY-ABSOLUTELY-SCHEDULED-TIMING. The cycle is written either flat (BASE-CYCLE,
// CYCLE-REPETITION), nested as COMMUNICATION-CYCLE/CYCLE-REPETITION/{BASE-CYCLE,
// CYCLE-REPETITION}, or as a single cycle COMMUNICATION-CYCLE/CYCLE-COUNTER/CYCLE-COUNTER
// (repetition 64). Without a repetition it is 1.
xml::SlotTiming readTiming(Element timing) {
    xml::SlotTiming result;
    result.slot = static_cast<std::uint16_t>(xml::readUnsigned(timing, "SLOT-ID", 0u));
    result.repetition = 1;
    Element cycle = xml::firstChild(timing, "COMMUNICATION-CYCLE");
    if (!cycle) cycle = timing;
    Element holder = cycle;
    Element repetition = xml::firstChild(cycle, "CYCLE-REPETITION");
    if (repetition && xml::firstChild(repetition, "CYCLE-REPETITION")) {
        holder = repetition;
        repetition = xml::firstChild(repetition, "CYCLE-REPETITION");
    }
    Element counter = xml::firstChild(cycle, "CYCLE-COUNTER");
    if (repetition) {
        result.baseCycle = toByte(xml::readUnsigned(holder, "BASE-CYCLE", 0u));
        result.repetition = toByte(cycleRepetitionValue(xml::textContent(repetition)));
    } else if (counter) {
        if (Element inner = xml::firstChild(counter, "CYCLE-COUNTER")) counter = inner;
        result.baseCycle = toByte(xml::toUnsigned(xml::textContent(counter)));
        result.repetition = 64;
    } else {
        result.baseCycle = toByte(xml::readUnsigned(holder, "BASE-CYCLE", 0u));
    }
    return result;
}

}  // namespace

// ---- ECUs ---------------------------------------------------------------------------------------

int AutoSarReader::ParseECUs() {
    for (Element element : StepElements("ECU-INSTANCE")) {
        if (ReadEcu(element) != xml::kOk && StopsStep("ECU-INSTANCE", "ParseECUs"))
            return xml::kMissing;
    }
    return xml::kOk;
}

int AutoSarReader::ReadEcu(Element element) {
    tAutoSarECUInfo ecu;
    if (!xml::readTextInto(element, "SHORT-NAME", ecu.name, true)) return xml::kMissing;
    Rename(element, ecu.name);
    xml::readTextInto(element, "DESC/L-2", ecu.description, true);
    tAutoSarDatabase& db = *database;

    ElementList list;
    GetElements(element, "COMM-CONTROLLERS/FLEXRAY-COMMUNICATION-CONTROLLER", list);
    for (Element c : list) {
        tAutoSarController controller;
        if (!xml::readTextInto(c, "SHORT-NAME", controller.name, true)) continue;
        controller.key = ecu.name + "/" + controller.name;
        controller.ecuName = ecu.name;
        xml::readTextInto(c, "DESC/L-2", controller.description, true);
        Element p = c;
        GetElement(c,
                   "FLEXRAY-COMMUNICATION-CONTROLLER-VARIANTS/"
                   "FLEXRAY-COMMUNICATION-CONTROLLER-CONDITIONAL",
                   p);
        controller.acceptedStartupRange = xml::readUnsigned(p, "ACCEPTED-STARTUP-RANGE", 0u);
        controller.allowHaltDueToClock = xml::readBool(p, "ALLOW-HALT-DUE-TO-CLOCK", false);
        controller.allowPassiveToActive = xml::readUnsigned(p, "ALLOW-PASSIVE-TO-ACTIVE", 0u);
        controller.clusterDriftDamping = xml::readUnsigned(p, "CLUSTER-DRIFT-DAMPING", 0u);
        controller.decodingCorrection = xml::readUnsigned(p, "DECODING-CORRECTION", 0u);
        controller.delayCompensationA = xml::readUnsigned(p, "DELAY-COMPENSATION-A", 0u);
        controller.delayCompensationB = xml::readUnsigned(p, "DELAY-COMPENSATION-B", 0u);
        controller.externOffsetCorrection = xml::readUnsigned(p, "EXTERN-OFFSET-CORRECTION", 0u);
        controller.externRateCorrection = xml::readUnsigned(p, "EXTERN-RATE-CORRECTION", 0u);
        controller.externalSync = xml::readBool(p, "EXTERNAL-SYNC", false);
        controller.fallBackInternal = xml::readBool(p, "FALL-BACK-INTERNAL", false);
        controller.keySlotId = xml::readUnsigned(p, "KEY-SLOT-ID", 0u);
        controller.keySlotOnlyEnabled = xml::readBool(p, "KEY-SLOT-ONLY-ENABLED", false);
        controller.keySlotUsedForStartup = xml::readBool(p, "KEY-SLOT-USED-FOR-START-UP", false);
        controller.keySlotUsedForSync = xml::readBool(p, "KEY-SLOT-USED-FOR-SYNC", false);
        controller.latestTx = xml::readUnsigned(p, "LATEST-TX", 0u);
        controller.listenTimeout = xml::readUnsigned(p, "LISTEN-TIMEOUT", 0u);
        controller.macroInitialOffsetA = xml::readUnsigned(p, "MACRO-INITIAL-OFFSET-A", 0u);
        controller.macroInitialOffsetB = xml::readUnsigned(p, "MACRO-INITIAL-OFFSET-B", 0u);
        controller.maxDrift = xml::readUnsigned(p, "MAX-DRIFT", 0u);
        // Tools write the dynamic payload limit under either name.
        if (!xml::readUnsignedInto(p, "MAXIMUM-DYNAMIC-PAYLOAD-LENGTH",
                                   controller.maxDynamicPayloadLength))
            xml::readUnsignedInto(p, "MAX-DYNAMIC-PAYLOAD-LENGTH",
                                  controller.maxDynamicPayloadLength);
        controller.microInitialOffsetA = xml::readUnsigned(p, "MICRO-INITIAL-OFFSET-A", 0u);
        controller.microInitialOffsetB = xml::readUnsigned(p, "MICRO-INITIAL-OFFSET-B", 0u);
        controller.microPerCycle = xml::readUnsigned(p, "MICRO-PER-CYCLE", 0u);
        controller.microtickDuration = xml::readDouble(p, "MICROTICK-DURATION", 0.0);
        controller.nmVectorEarlyUpdate = xml::readBool(p, "NM-VECTOR-EARLY-UPDATE", false);
        controller.offsetCorrectionOut = xml::readUnsigned(p, "OFFSET-CORRECTION-OUT", 0u);
        controller.rateCorrectionOut = xml::readUnsigned(p, "RATE-CORRECTION-OUT", 0u);
        controller.samplesPerMicrotick = xml::readUnsigned(p, "SAMPLES-PER-MICROTICK", 0u);
        controller.secondKeySlotId = xml::readUnsigned(p, "SECOND-KEY-SLOT-ID", 0u);
        controller.twoKeySlotMode = xml::readBool(p, "TWO-KEY-SLOT-MODE", false);
        controller.wakeUpPattern = xml::readUnsigned(p, "WAKE-UP-PATTERN", 0u);
        const std::string key = controller.key;
        tAutoSarController& stored = db.controllers[key];
        stored = std::move(controller);
        appendOnce(ecu.controllers, &stored);
    }

    GetElements(element, "CONNECTORS/FLEXRAY-COMMUNICATION-CONNECTOR", list);
    for (Element c : list) {
        tAutoSarConnector connector;
        if (!xml::readTextInto(c, "SHORT-NAME", connector.name, true)) continue;
        connector.key = ecu.name + "/" + connector.name;
        connector.ecuName = ecu.name;
        xml::readTextInto(c, "DESC/L-2", connector.description, true);
        connector.controller =
            &db.controllers[Key(Kind::Ecu, xml::textAt(c, "COMM-CONTROLLER-REF"), 2)];
        connector.wakeUpChannel = xml::readBool(c, "WAKE-UP-CHANNEL", false);
        Element instances;
        if (GetElement(c, "ECU-COMM-PORT-INSTANCES", instances) == xml::kOk) {
            for (Element p = instances.first_child(); p; p = p.next_sibling()) {
                const std::string_view kindName = p.name();
                tAutoSarPortInfo port;
                if (kindName == "FRAME-PORT") {
                    port.kind = tAutoSarPortKind::Frame;
                } else if (kindName == "I-PDU-PORT") {
                    port.kind = tAutoSarPortKind::IPdu;
                } else if (kindName == "I-SIGNAL-PORT") {
                    port.kind = tAutoSarPortKind::ISignal;
                } else {
                    continue;
                }
                if (!xml::readTextInto(p, "SHORT-NAME", port.name, true)) continue;
                port.key = connector.key + "/" + port.name;
                port.ecuName = ecu.name;
                port.connectorName = connector.name;
                xml::readTextInto(p, "COMMUNICATION-DIRECTION", port.direction, true);
                port.isInput = port.direction == "IN";
                const std::string key = port.key;
                tAutoSarPortInfo& stored = db.ecuPorts[key];
                stored = std::move(port);
                appendOnce(connector.ports, &stored);
            }
        }
        const std::string key = connector.key;
        tAutoSarConnector& stored = db.connectors[key];
        stored = std::move(connector);
        appendOnce(ecu.connectors, &stored);
    }

    const std::string key = ecu.name;
    db.ecus[key] = std::move(ecu);
    return xml::kOk;
}

// ---- clusters -----------------------------------------------------------------------------------

int AutoSarReader::ParseClusters() {
    for (Element element : StepElements("FLEXRAY-CLUSTER")) {
        if (ReadCluster(element) != xml::kOk && StopsStep("FLEXRAY-CLUSTER", "ParseClusters"))
            return xml::kMissing;
    }
    return xml::kOk;
}

int AutoSarReader::ReadCluster(Element element) {
    tAutoSarClusterConfig cluster;
    if (!xml::readTextInto(element, "SHORT-NAME", cluster.name, true)) return xml::kMissing;
    Rename(element, cluster.name);
    xml::readTextInto(element, "DESC/L-2", cluster.description, true);
    Element p;
    if (GetElement(element, "FLEXRAY-CLUSTER-VARIANTS/FLEXRAY-CLUSTER-CONDITIONAL", p) ==
        xml::kOk) {
        cluster.baudrate = xml::readUnsigned(p, "BAUDRATE", 0u);
        xml::readTextInto(p, "PROTOCOL-NAME", cluster.protocolName, true);
        xml::readTextInto(p, "PROTOCOL-VERSION", cluster.protocolVersion, true);
        cluster.actionPointOffset = xml::readUnsigned(p, "ACTION-POINT-OFFSET", 0u);
        cluster.casRxLowMax = xml::readUnsigned(p, "CAS-RX-LOW-MAX", 0u);
        cluster.coldStartAttempts = xml::readUnsigned(p, "COLD-START-ATTEMPTS", 0u);
        cluster.cycle = xml::readDouble(p, "CYCLE", 0.0);
        cluster.cycleCountMax = xml::readUnsigned(p, "CYCLE-COUNT-MAX", 0u);
        cluster.detectNitError = xml::readBool(p, "DETECT-NIT-ERROR", false);
        cluster.dynamicSlotIdlePhase = xml::readUnsigned(p, "DYNAMIC-SLOT-IDLE-PHASE", 0u);
        cluster.ignoreAfterTx = xml::readUnsigned(p, "IGNORE-AFTER-TX", 0u);
        cluster.listenNoise = xml::readUnsigned(p, "LISTEN-NOISE", 0u);
        cluster.macroPerCycle = xml::readUnsigned(p, "MACRO-PER-CYCLE", 0u);
        cluster.macrotickDuration = xml::readDouble(p, "MACROTICK-DURATION", 0.0);
        cluster.maxInitializationError = xml::readUnsigned(p, "MAX-INITIALIZATION-ERROR", 0u);
        cluster.maxWithoutClockCorrectionFatal =
            xml::readUnsigned(p, "MAX-WITHOUT-CLOCK-CORRECTION-FATAL", 0u);
        cluster.maxWithoutClockCorrectionPassive =
            xml::readUnsigned(p, "MAX-WITHOUT-CLOCK-CORRECTION-PASSIVE", 0u);
        cluster.minislotActionPointOffset =
            xml::readUnsigned(p, "MINISLOT-ACTION-POINT-OFFSET", 0u);
        cluster.minislotDuration = xml::readUnsigned(p, "MINISLOT-DURATION", 0u);
        cluster.networkIdleTime = xml::readUnsigned(p, "NETWORK-IDLE-TIME", 0u);
        cluster.networkManagementVectorLength =
            xml::readUnsigned(p, "NETWORK-MANAGEMENT-VECTOR-LENGTH", 0u);
        cluster.numberOfMinislots = xml::readUnsigned(p, "NUMBER-OF-MINISLOTS", 0u);
        cluster.numberOfStaticSlots = xml::readUnsigned(p, "NUMBER-OF-STATIC-SLOTS", 0u);
        cluster.offsetCorrectionStart = xml::readUnsigned(p, "OFFSET-CORRECTION-START", 0u);
        cluster.payloadLengthStatic = xml::readUnsigned(p, "PAYLOAD-LENGTH-STATIC", 0u);
        cluster.safetyMargin = xml::readUnsigned(p, "SAFETY-MARGIN", 0u);
        cluster.sampleClockPeriod = xml::readDouble(p, "SAMPLE-CLOCK-PERIOD", 0.0);
        cluster.staticSlotDuration = xml::readUnsigned(p, "STATIC-SLOT-DURATION", 0u);
        cluster.symbolWindow = xml::readUnsigned(p, "SYMBOL-WINDOW", 0u);
        cluster.symbolWindowActionPointOffset =
            xml::readUnsigned(p, "SYMBOL-WINDOW-ACTION-POINT-OFFSET", 0u);
        cluster.syncFrameIdCountMax = xml::readUnsigned(p, "SYNC-FRAME-ID-COUNT-MAX", 0u);
        cluster.transmissionStartSequenceDuration =
            xml::readUnsigned(p, "TRANSMISSION-START-SEQUENCE-DURATION", 0u);
        cluster.wakeupRxIdle = xml::readUnsigned(p, "WAKEUP-RX-IDLE", 0u);
        cluster.wakeupRxLow = xml::readUnsigned(p, "WAKEUP-RX-LOW", 0u);
        cluster.wakeupRxWindow = xml::readUnsigned(p, "WAKEUP-RX-WINDOW", 0u);
        cluster.wakeupTxActive = xml::readUnsigned(p, "WAKEUP-TX-ACTIVE", 0u);
        cluster.wakeupTxIdle = xml::readUnsigned(p, "WAKEUP-TX-IDLE", 0u);
        ElementList channels;
        GetElements(p, "PHYSICAL-CHANNELS/FLEXRAY-PHYSICAL-CHANNEL", channels);
        for (Element channel : channels)
            ReadChannel(channel, cluster);
    }
    const std::string key = cluster.name;
    database->clusters[key] = std::move(cluster);
    return xml::kOk;
}

void AutoSarReader::ReadChannel(Element element, tAutoSarClusterConfig& cluster) {
    tAutoSarDatabase& db = *database;
    std::string name;
    if (!xml::readTextInto(element, "SHORT-NAME", name, true)) return;
    const std::string channelKey = cluster.name + "/" + name;
    tAutoSarChannel& channel = db.channels[channelKey];
    channel = tAutoSarChannel();
    channel.key = channelKey;
    channel.name = name;
    xml::readTextInto(element, "CHANNEL-NAME", channel.channelName, true);
    channel.channelMask = channelBit(channel.channelName);
    appendOnce(cluster.channels, &channel);

    ElementList list, refs;
    const auto portsOf = [&](Element item, std::string_view path) {
        std::vector<tAutoSarPortInfo*> ports;
        GetElements(item, path, refs);
        for (Element ref : refs)
            ports.push_back(
                &db.ecuPorts[Key(Kind::Ecu, xml::trimSpaces(xml::textContent(ref)), 3)]);
        return ports;
    };
    const auto keysOf = [&](Element item, std::string_view path) {
        std::vector<std::string> keys;
        GetElements(item, path, refs);
        for (Element ref : refs)
            keys.push_back(Key(Kind::Cluster, xml::trimSpaces(xml::textContent(ref)), 3));
        return keys;
    };

    // The ECUs attached to the channel, through their connectors.
    GetElements(element, "COMM-CONNECTORS/COMMUNICATION-CONNECTOR-REF", refs);
    for (Element ref : refs) {
        tAutoSarConnector& connector =
            db.connectors[Key(Kind::Ecu, xml::trimSpaces(xml::textContent(ref)), 2)];
        appendOnce(channel.connectors, &connector);
        appendOnce(connector.channelKeys, channelKey);
        connector.channelMask |= channel.channelMask;
        if (connector.controller) {
            connector.controller->channelMask |= channel.channelMask;
            if (connector.wakeUpChannel && connector.controller->wakeUpChannel == 0)
                connector.controller->wakeUpChannel = channel.channelMask;
        }
    }

    GetElements(element, "FRAME-TRIGGERINGS/FLEXRAY-FRAME-TRIGGERING", list);
    for (Element t : list) {
        tAutoSarFrameTriggering triggering;
        if (!xml::readTextInto(t, "SHORT-NAME", triggering.name, true)) continue;
        triggering.key = channelKey + "/" + triggering.name;
        triggering.channelKey = channelKey;
        triggering.channelMask = channel.channelMask;
        triggering.frame = &db.frames[Key(Kind::Frame, xml::textAt(t, "FRAME-REF"))];
        triggering.ports = portsOf(t, "FRAME-PORT-REFS/FRAME-PORT-REF");
        triggering.pduTriggeringKeys =
            keysOf(t, "PDU-TRIGGERINGS/PDU-TRIGGERING-REF-CONDITIONAL/PDU-TRIGGERING-REF");
        triggering.cycleRepetition = 1;
        if (Element timings = xml::firstChild(t, "ABSOLUTELY-SCHEDULED-TIMINGS")) {
            for (Element timing = xml::firstChild(timings, "FLEXRAY-ABSOLUTELY-SCHEDULED-TIMING");
                 timing; timing = timing.next_sibling("FLEXRAY-ABSOLUTELY-SCHEDULED-TIMING"))
                triggering.timings.push_back(readTiming(timing));
        }
        if (!triggering.timings.empty()) {
            triggering.slotId = triggering.timings[0].slot;
            triggering.baseCycle = triggering.timings[0].baseCycle;
            triggering.cycleRepetition = triggering.timings[0].repetition;
        }
        const std::string key = triggering.key;
        tAutoSarFrameTriggering& stored = db.frameTriggerings[key];
        stored = std::move(triggering);
        appendOnce(channel.frameTriggerings, &stored);

        tAutoSarFrameInfo& frame = *stored.frame;
        if (frame.slotId == 0 && stored.slotId != 0) {
            frame.slotId = stored.slotId;
            frame.baseCycle = stored.baseCycle;
            frame.cycleRepetition = stored.cycleRepetition;
        }
        frame.channelMask |= stored.channelMask;
        if (frame.clusterName.empty()) frame.clusterName = cluster.name;
        if (!frame.name.empty()) insertSorted(cluster.frameNames, frame.name);
        // Strict: the first timing of each triggering enters the slot table; read-all: every one.
        if (readAll) {
            for (const xml::SlotTiming& timing : stored.timings)
                xml::enterFrameName(db.frameNamesBySlot, timing.slot, timing.baseCycle,
                                    timing.repetition, frame.name);
        } else {
            xml::enterFrameName(db.frameNamesBySlot, stored.slotId, stored.baseCycle,
                                stored.cycleRepetition, frame.name);
        }
        for (const tAutoSarPortInfo* port : stored.ports) {
            if (port->ecuName.empty() || frame.name.empty()) continue;
            const auto ecu = db.ecus.find(port->ecuName);
            if (port->isInput) {
                insertSorted(frame.receiverEcus, port->ecuName);
                if (ecu != db.ecus.end()) insertSorted(ecu->second.receivedFrames, frame.name);
            } else {
                insertSorted(frame.senderEcus, port->ecuName);
                if (ecu != db.ecus.end()) insertSorted(ecu->second.sentFrames, frame.name);
            }
        }
    }

    GetElements(element, "PDU-TRIGGERINGS/PDU-TRIGGERING", list);
    for (Element t : list) {
        tAutoSarPDUTriggering triggering;
        if (!xml::readTextInto(t, "SHORT-NAME", triggering.name, true)) continue;
        triggering.key = channelKey + "/" + triggering.name;
        triggering.channelKey = channelKey;
        triggering.pdu = &db.pdus[Key(Kind::Pdu, xml::textAt(t, "I-PDU-REF"))];
        triggering.ports = portsOf(t, "I-PDU-PORT-REFS/I-PDU-PORT-REF");
        triggering.signalTriggeringKeys = keysOf(
            t, "I-SIGNAL-TRIGGERINGS/I-SIGNAL-TRIGGERING-REF-CONDITIONAL/I-SIGNAL-TRIGGERING-REF");
        const std::string key = triggering.key;
        tAutoSarPDUTriggering& stored = db.pduTriggerings[key];
        stored = std::move(triggering);
        appendOnce(channel.pduTriggerings, &stored);
    }

    GetElements(element, "I-SIGNAL-TRIGGERINGS/I-SIGNAL-TRIGGERING", list);
    for (Element t : list) {
        tAutoSarSignalTriggering triggering;
        if (!xml::readTextInto(t, "SHORT-NAME", triggering.name, true)) continue;
        triggering.key = channelKey + "/" + triggering.name;
        triggering.channelKey = channelKey;
        triggering.signal = &db.signals[Key(Kind::Signal, xml::textAt(t, "I-SIGNAL-REF"))];
        triggering.ports = portsOf(t, "I-SIGNAL-PORT-REFS/I-SIGNAL-PORT-REF");
        const std::string key = triggering.key;
        tAutoSarSignalTriggering& stored = db.signalTriggerings[key];
        stored = std::move(triggering);
        appendOnce(channel.signalTriggerings, &stored);
    }
}

}  // namespace autosar
}  // namespace kelo
