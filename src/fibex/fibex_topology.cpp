#include <QString>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "fibex/fibex_steps.h"

namespace kelo {
namespace fibex {

namespace {

// Channel mask from FLEXRAY-CHANNEL-NAME: "A" 1, "B" 2 (any case), else 0.
std::uint16_t channelMaskOf(const std::string& name) {
    if (name.size() != 1) return 0;
    if (name[0] == 'A' || name[0] == 'a') return 1;
    if (name[0] == 'B' || name[0] == 'b') return 2;
    return 0;
}

// Seconds from an ISO 8601 duration such as "PT0.05S": every "PT" and then every "S" removed,
// the rest read as a decimal number.
double durationSeconds(const std::string& text) {
    QString value = QString::fromUtf8(text.data(), static_cast<int>(text.size()));
    value.remove(QStringLiteral("PT"));
    value.remove(QLatin1Char('S'));
    bool ok = false;
    const double seconds = value.toDouble(&ok);
    return ok ? seconds : 0.0;  // not a number, or out of range: 0
}

}  // namespace

// ---- channels, ECUs, clusters ----------------------------------------------------------------

int FibexReader::ParseChannels() {
    static const char kOp[] = "ParseChannels";
    static const char* const kChannelItems[] = {"ho:SHORT-NAME", "ho:DESC", "fx:PDU-TRIGGERINGS",
                                                "flexray:FLEXRAY-CHANNEL-NAME",
                                                "fx:FRAME-TRIGGERINGS"};
    enum { kShortName, kDesc, kPduTriggerings, kChannelName, kFrameTriggerings };
    static const char* const kTriggeringItems[] = {"ho:DESC",       "fx:TIMINGS",
                                                   "fx:PDU-REF",    "fx:FRAME-REF",
                                                   "fx:IDENTIFIER", "fx:MANUFACTURER-EXTENSION"};
    enum { kTriggeringDesc, kTimings, kPduRef, kFrameRef, kIdentifier, kExtension };

    std::vector<Element> channels, triggerings;
    if (!listBelow(at(document.root(), {"fx:ELEMENTS", "fx:CHANNELS"}), "fx:CHANNEL", channels)) {
        KELO_ERROR(36, kOp, "Database file parse error: No CLUSTER item found!");
        if (!readAll) return xml::kMissing;
        xml::note(database.notes, 43, kOp, "No fx:CHANNELS: the file has no schedule");
    }
    // Read-all: the frames whose schedule a triggering with a timing has set.
    std::unordered_set<const Frame*> scheduled;
    std::unique_ptr<LoadMaps> own;
    LoadMaps& maps = mapsForStep(own);
    // The triggerings in document order, stored in their maps together at the end.
    std::vector<std::string_view> pduTriggeringIds, frameTriggeringIds;
    std::vector<PduTriggering> pduTriggerings;
    std::vector<FrameTriggering> frameTriggerings;
    TextStore texts;
    std::string text;
    for (const Element e : channels) {
        Element items[5];
        findChildren(e, kChannelItems, items);
        Channel channel;
        if (!readText(items[kShortName], channel.shortName)) {
            KELO_ERROR(37, kOp, "Database file parse error: SHORT-NAME of signal item not found!");
            continue;
        }
        readText(items[kDesc], channel.desc);

        // PDU triggerings: the PDU takes the triggering's timing kind.
        listBelow(items[kPduTriggerings], "fx:PDU-TRIGGERING", triggerings);
        channel.pduTriggerings.reserve(triggerings.size());
        for (const Element t : triggerings) {
            Element fields[6];
            findChildren(t, kTriggeringItems, fields);
            PduTriggering triggering;
            triggering.id.assign(attribute(t, "ID"));
            readText(fields[kTriggeringDesc], triggering.desc);
            const Element debounce = at(fields[kTimings], {"fx:EVENT-CONTROLLED-TIMING",
                                                           "fx:DEBOUNCE-TIME-RANGE", "fx:VALUE"});
            triggering.timingKind = debounce ? 2 : 1;
            if (readText(debounce, text)) triggering.debounceTime = durationSeconds(text);
            if (!fields[kPduRef]) {
                KELO_ERROR(38, kOp,
                           "Database file parse error: fx:PDU-REF of fx:PDU-TRIGGERING item not "
                           "found!");
                continue;
            }
            triggering.pduId.assign(attribute(fields[kPduRef], "ID-REF"));
            triggering.pdu = &maps.pdus[triggering.pduId];
            triggering.pdu->timingKind = triggering.timingKind;
            pduTriggeringIds.push_back(texts.keep(triggering.id));
            pduTriggerings.push_back(triggering);
            channel.pduTriggerings.push_back(std::move(triggering));
        }

        readText(items[kChannelName], channel.flexrayChannelName);
        channel.channelMask = channelMaskOf(channel.flexrayChannelName);

        // Frame triggerings: the frame takes the channel's bit and the triggering's schedule.
        listBelow(items[kFrameTriggerings], "fx:FRAME-TRIGGERING", triggerings);
        channel.frameTriggerings.reserve(triggerings.size());
        for (const Element t : triggerings) {
            Element fields[6];
            findChildren(t, kTriggeringItems, fields);
            FrameTriggering triggering;
            triggering.id.assign(attribute(t, "ID"));
            readText(fields[kTriggeringDesc], triggering.desc);
            if (!fields[kFrameRef]) {
                KELO_ERROR(39, kOp,
                           "Database file parse error: fx:FRAME-REF of fx:FRAME-TRIGGERING item "
                           "not found!");
                continue;
            }
            triggering.frameId.assign(attribute(fields[kFrameRef], "ID-REF"));
            Frame& frame = maps.frames[triggering.frameId];
            triggering.frame = &frame;
            frame.channelMask = static_cast<std::uint16_t>(frame.channelMask | channel.channelMask);

            const Element identifier = child(fields[kIdentifier], "fx:IDENTIFIER-VALUE");
            if (identifier) {
                triggering.identifierType = trimmedAttribute(identifier, "xsi:type");
                triggering.extendedAddressing =
                    xml::toBool(attribute(identifier, "EXTENDED-ADDRESSING"));
                triggering.identifier = readUnsigned(identifier, 0);
            }
            readText(at(fields[kExtension], {"ni:NI-XNET-EXTENSION", "ni:APPLICATION-PROTOCOL"}),
                     triggering.applicationProtocol);

            static const char* const kTimingItems[] = {"fx:SLOT-ID", "fx:BASE-CYCLE",
                                                       "fx:CYCLE-REPETITION"};
            for (Element timing = child(fields[kTimings], "fx:ABSOLUTELY-SCHEDULED-TIMING"); timing;
                 timing = timing.next_sibling("fx:ABSOLUTELY-SCHEDULED-TIMING")) {
                Element values[3];
                findChildren(timing, kTimingItems, values);
                std::uint16_t slot = 0, base = 0, repetition = 0;
                readUnsigned16Into(values[0], slot);
                readUnsigned16Into(values[1], base);
                readUnsigned16Into(values[2], repetition);
                if (triggering.timings.empty()) {
                    triggering.slotId = slot;
                    triggering.baseCycle = base;
                    triggering.cycleRepetition = repetition;
                }
                triggering.timings.push_back(
                    {slot, static_cast<std::uint8_t>(base), static_cast<std::uint8_t>(repetition)});
                if (readAll) timings_.emplace_back(&frame, triggering.timings.back());
            }
            // Without an absolutely scheduled timing all three are 0, in the frame as well: the
            // last triggering of a frame decides its schedule. Read-all: the first triggering
            // with a timing decides it.
            if (!readAll || (!triggering.timings.empty() && scheduled.insert(&frame).second)) {
                frame.slotId = triggering.slotId;
                frame.baseCycle = static_cast<std::uint8_t>(triggering.baseCycle);
                frame.cycleRepetition = static_cast<std::uint8_t>(triggering.cycleRepetition);
            }

            frameTriggeringIds.push_back(texts.keep(triggering.id));
            frameTriggerings.push_back(triggering);
            channel.frameTriggerings.push_back(std::move(triggering));
        }
        maps.channels.store(attribute(e, "ID"), std::move(channel));
    }
    maps.pduTriggerings.storeAll(pduTriggeringIds,
                                 [&pduTriggerings](std::size_t i) -> PduTriggering&& {
                                     return std::move(pduTriggerings[i]);
                                 });
    maps.frameTriggerings.indexAhead(frameTriggeringIds.size());
    maps.frameTriggerings.storeAll(frameTriggeringIds,
                                   [&frameTriggerings](std::size_t i) -> FrameTriggering&& {
                                       return std::move(frameTriggerings[i]);
                                   });
    return xml::kOk;
}

namespace {

// The ports of one list of a connector. Each is appended to `ports` and, with its ID, to
// `ids` and `stored` for the port map, which takes them at the end of the step.
template <typename FrameTriggerings>
void readPorts(FrameTriggerings& frameTriggerings, Element list, const char* name, bool input,
               std::vector<Port>& ports, std::uint32_t& count, std::vector<Element>& scratch,
               std::vector<std::string_view>& ids, std::vector<Port>& stored, TextStore& texts) {
    listBelow(list, name, scratch);
    count = static_cast<std::uint32_t>(scratch.size());
    ports.reserve(scratch.size());
    for (const Element p : scratch) {
        Port port;
        const Element ref = child(p, "fx:FRAME-TRIGGERING-REF");
        if (!ref) {
            // Both kinds of port report the input-port text.
            if (input)
                KELO_ERROR(24, "ParseECUs",
                           "Database file parse error: fx:FRAME-TRIGGERING-REF of fx:INPUT-PORT "
                           "item not found!");
            else
                KELO_ERROR(25, "ParseECUs",
                           "Database file parse error: fx:FRAME-TRIGGERING-REF of fx:INPUT-PORT "
                           "item not found!");
            continue;
        }
        port.frameTriggeringId.assign(attribute(ref, "ID-REF"));
        port.frameTriggering = &frameTriggerings[port.frameTriggeringId];
        readText(child(p, "fx:COMPLETE-FRAME"), port.completeFrame);
        ids.push_back(texts.keep(attribute(p, "ID")));
        stored.push_back(port);
        ports.push_back(std::move(port));
    }
}

// An NI-XNET item of a controller: the child itself, or the same item inside the controller's
// manufacturer extension.
Element niItem(Element controller, const char* name) {
    const Element direct = child(controller, name);
    if (direct) return direct;
    return child(at(controller, {"fx:MANUFACTURER-EXTENSION", "ni:NI-XNET-EXTENSION"}), name);
}

void readController(Element c, Controller& controller) {
    readText(child(c, "ho:DESC"), controller.desc);
    controller.type = trimmedAttribute(c, "xsi:type");
    controller.j1939NodeAddress = readUnsigned(niItem(c, "ni:J1939-NODE-ADDRESS"), 0);
    controller.j1939NodeName = readHex64(niItem(c, "ni:J1939-NODE-NAME"), 0);
    const auto u = [c](const char* name) { return readUnsigned(child(c, name), 0); };
    controller.keySlotUsageStartupSync =
        readUnsigned(at(c, {"flexray:KEY-SLOT-USAGE", "flexray:STARTUP-SYNC"}), 0);
    controller.maxDynamicPayloadLength = u("flexray:MAX-DYNAMIC-PAYLOAD-LENGTH");
    controller.clusterDriftDamping = u("flexray:CLUSTER-DRIFT-DAMPING");
    controller.decodingCorrection = u("flexray:DECODING-CORRECTION");
    controller.maxDrift = u("flexray:MAX-DRIFT");
    controller.latestTx = u("flexray:LATEST-TX");
    controller.microPerCycle = u("flexray:MICRO-PER-CYCLE");
    controller.microPerMacroNom = u("flexray:MICRO-PER-MACRO-NOM");
    controller.offsetCorrectionOut = u("flexray:OFFSET-CORRECTION-OUT");
    controller.rateCorrectionOut = u("flexray:RATE-CORRECTION-OUT");
    controller.delayCompensationA = u("flexray:DELAY-COMPENSATION-A");
    controller.delayCompensationB = u("flexray:DELAY-COMPENSATION-B");
    controller.listenTimeout = u("flexray:LISTEN-TIMEOUT");
    controller.externOffsetCorrection = u("flexray:EXTERN-OFFSET-CORRECTION");
    controller.externRateCorrection = u("flexray:EXTERN-RATE-CORRECTION");
    controller.wakeUpPattern = u("flexray:WAKE-UP-PATTERN");
    controller.allowHaltDueToClock = readBool(child(c, "flexray:ALLOW-HALT-DUE-TO-CLOCK"), false);
    controller.allowPassiveToActive = u("flexray:ALLOW-PASSIVE-TO-ACTIVE");
    controller.acceptedStartupRange = u("flexray:ACCEPTED-STARTUP-RANGE");
    controller.macroInitialOffsetA = u("flexray:MACRO-INITIAL-OFFSET-A");
    controller.macroInitialOffsetB = u("flexray:MACRO-INITIAL-OFFSET-B");
    controller.microInitialOffsetA = u("flexray:MICRO-INITIAL-OFFSET-A");
    controller.microInitialOffsetB = u("flexray:MICRO-INITIAL-OFFSET-B");
    controller.singleSlotEnabled = u("flexray:SINGLE-SLOT-ENABLED");
    controller.microtick = readFloat(child(c, "flexray:MICROTICK"), 0.0f);
}

}  // namespace

int FibexReader::ParseECUs() {
    static const char kOp[] = "ParseECUs";
    std::unique_ptr<LoadMaps> own;
    LoadMaps& maps = mapsForStep(own);
    // Connectors and ports in document order, stored in their maps together at the end (also
    // when the step stops early).
    std::vector<std::string_view> connectorIds, inputIds, outputIds;
    std::vector<Connector> connectorsRead;
    std::vector<Port> inputsRead, outputsRead;
    TextStore texts;
    std::vector<Element> ecus, controllers, connectors, ports;
    listBelow(at(document.root(), {"fx:ELEMENTS", "fx:ECUS"}), "fx:ECU", ecus);
    int code = xml::kOk;
    for (const Element e : ecus) {
        Ecu ecu;
        if (!readText(child(e, "ho:SHORT-NAME"), ecu.shortName)) {
            KELO_ERROR(20, kOp, "Database file parse error: SHORT-NAME of ECU item not found!");
            if (SkipsMissing(42, kOp, "fx:ECU")) continue;
            code = xml::kMalformed;
            break;
        }
        readText(child(e, "ho:DESC"), ecu.desc);

        listBelow(child(e, "fx:CONTROLLERS"), "fx:CONTROLLER", controllers);
        ecu.controllerCount = static_cast<std::uint32_t>(controllers.size());
        ecu.controllers.reserve(controllers.size());
        for (const Element c : controllers) {
            Controller controller;
            if (!readText(child(c, "ho:SHORT-NAME"), controller.shortName)) {
                KELO_ERROR(21, kOp,
                           "Database file parse error: SHORT-NAME of controller item not found!");
                continue;
            }
            readController(c, controller);
            maps.controllers.store(attribute(c, "ID"), controller);
            ecu.controllers.push_back(std::move(controller));
        }

        listBelow(child(e, "fx:CONNECTORS"), "fx:CONNECTOR", connectors);
        ecu.connectorCount = static_cast<std::uint32_t>(connectors.size());
        ecu.connectors.reserve(connectors.size());
        for (const Element c : connectors) {
            Connector connector;
            readText(child(c, "ho:DESC"), connector.desc);
            const Element channelRef = child(c, "fx:CHANNEL-REF");
            if (!channelRef) {
                KELO_ERROR(22, kOp,
                           "Database file parse error: fx:CHANNEL-REF of fx:CONNECTOR item not "
                           "found!");
                continue;
            }
            const Element controllerRef = child(c, "fx:CONTROLLER-REF");
            if (!controllerRef) {
                KELO_ERROR(23, kOp,
                           "Database file parse error: fx:CONTROLLER-REF of fx:CONNECTOR item not "
                           "found!");
                continue;
            }
            connector.channelId.assign(attribute(channelRef, "ID-REF"));
            connector.controllerId.assign(attribute(controllerRef, "ID-REF"));
            connector.channel = &maps.channels[connector.channelId];
            connector.controller = &maps.controllers[connector.controllerId];
            readPorts(maps.frameTriggerings, child(c, "fx:INPUTS"), "fx:INPUT-PORT", true,
                      connector.inputPorts, connector.inputPortCount, ports, inputIds, inputsRead,
                      texts);
            readPorts(maps.frameTriggerings, child(c, "fx:OUTPUTS"), "fx:OUTPUT-PORT", false,
                      connector.outputPorts, connector.outputPortCount, ports, outputIds,
                      outputsRead, texts);
            connector.wakeUpChannel = readBool(child(c, "flexray:WAKE-UP-CHANNEL"), false);
            connectorIds.push_back(keepAttribute(c, "ID", texts));
            connectorsRead.push_back(connector);
            ecu.connectors.push_back(std::move(connector));
        }

        // Three independent copies.
        const char* id = attribute(e, "ID");
        maps.ecusByName.store(ecu.shortName, ecu);
        maps.ecus.store(id, ecu);
        database.ecuList.emplace_back(id, std::move(ecu));
    }
    maps.inputPorts.storeAll(
        inputIds, [&inputsRead](std::size_t i) -> Port&& { return std::move(inputsRead[i]); });
    maps.outputPorts.storeAll(
        outputIds, [&outputsRead](std::size_t i) -> Port&& { return std::move(outputsRead[i]); });
    maps.connectors.storeAll(connectorIds, [&connectorsRead](std::size_t i) -> Connector&& {
        return std::move(connectorsRead[i]);
    });
    return code;
}

int FibexReader::ParseClusters() {
    std::unique_ptr<LoadMaps> own;
    LoadMaps& maps = mapsForStep(own);
    std::vector<Element> clusters, refs;
    listBelow(at(document.root(), {"fx:ELEMENTS", "fx:CLUSTERS"}), "fx:CLUSTER", clusters);
    for (const Element c : clusters) {
        Cluster cluster;
        const auto u = [c](const char* name) { return readUnsigned(child(c, name), 0); };
        const auto wakeUp = [c](const char* name) {
            return readUnsigned(at(c, {"flexray:WAKE-UP", name}), 0);
        };
        readText(child(c, "ho:SHORT-NAME"), cluster.shortName);
        readText(child(c, "ho:DESC"), cluster.desc);
        cluster.speed = u("fx:SPEED");
        cluster.isHighLowBitOrder = readBool(child(c, "fx:IS-HIGH-LOW-BIT-ORDER"), true);
        readText(child(c, "fx:BIT-COUNTING-POLICY"), cluster.bitCountingPolicy);
        readText(child(c, "fx:PROTOCOL"), cluster.protocol);
        listBelow(child(c, "fx:CHANNEL-REFS"), "fx:CHANNEL-REF", refs);
        cluster.channels.reserve(refs.size());
        for (const Element r : refs)
            cluster.channels.push_back(&maps.channels[attribute(r, "ID-REF")]);
        readText(child(c, "fx:MEDIUM"), cluster.medium);
        cluster.maxFrameLength = u("fx:MAX-FRAME-LENGTH");
        cluster.coldStartAttempts = u("flexray:COLD-START-ATTEMPTS");
        cluster.actionPointOffset = u("flexray:ACTION-POINT-OFFSET");
        cluster.dynamicSlotIdlePhase = u("flexray:DYNAMIC-SLOT-IDLE-PHASE");
        cluster.minislot = u("flexray:MINISLOT");
        cluster.minislotActionPointOffset = u("flexray:MINISLOT-ACTION-POINT-OFFSET");
        cluster.nit = u("flexray:N-I-T");
        cluster.staticSlot = u("flexray:STATIC-SLOT");
        cluster.symbolWindow = u("flexray:SYMBOL-WINDOW");
        cluster.tssTransmitter = u("flexray:T-S-S-TRANSMITTER");
        cluster.wakeUpSymbolRxIdle = wakeUp("flexray:WAKE-UP-SYMBOL-RX-IDLE");
        cluster.wakeUpSymbolRxLow = wakeUp("flexray:WAKE-UP-SYMBOL-RX-LOW");
        cluster.wakeUpSymbolRxWindow = wakeUp("flexray:WAKE-UP-SYMBOL-RX-WINDOW");
        cluster.wakeUpSymbolTxIdle = wakeUp("flexray:WAKE-UP-SYMBOL-TX-IDLE");
        cluster.wakeUpSymbolTxLow = wakeUp("flexray:WAKE-UP-SYMBOL-TX-LOW");
        cluster.listenNoise = u("flexray:LISTEN-NOISE");
        cluster.macroPerCycle = u("flexray:MACRO-PER-CYCLE");
        cluster.macrotick = u("flexray:MACROTICK");
        cluster.maxInitializationError = u("flexray:MAX-INITIALIZATION-ERROR");
        cluster.maxWithoutClockCorrectionFatal = u("flexray:MAX-WITHOUT-CLOCK-CORRECTION-FATAL");
        cluster.maxWithoutClockCorrectionPassive =
            u("flexray:MAX-WITHOUT-CLOCK-CORRECTION-PASSIVE");
        cluster.networkManagementVectorLength = u("flexray:NETWORK-MANAGEMENT-VECTOR-LENGTH");
        cluster.numberOfMinislots = u("flexray:NUMBER-OF-MINISLOTS");
        // Required, but a cluster without it is reported and kept.
        if (!readUnsignedInto(child(c, "flexray:NUMBER-OF-STATIC-SLOTS"),
                              cluster.numberOfStaticSlots))
            KELO_ERROR(35, "ParseClusters",
                       "Database file parse error: Item flexray:NUMBER-OF-STATIC-SLOTS not found!");
        cluster.offsetCorrectionStart = u("flexray:OFFSET-CORRECTION-START");
        cluster.payloadLengthStatic = u("flexray:PAYLOAD-LENGTH-STATIC");
        cluster.syncNodeMax = u("flexray:SYNC-NODE-MAX");
        cluster.casRxLowMax = u("flexray:CAS-RX-LOW-MAX");
        cluster.cycle = u("flexray:CYCLE");
        cluster.clusterDriftDamping = readFloat(child(c, "flexray:CLUSTER-DRIFT-DAMPING"), 0.0f);
        readText(
            at(c, {"fx:MANUFACTURER-EXTENSION", "ni:NI-XNET-EXTENSION", "ni:APPLICATION-PROTOCOL"}),
            cluster.applicationProtocol);
        maps.clusters.store(attribute(c, "ID"), std::move(cluster));
    }
    return xml::kOk;
}

}  // namespace fibex
}  // namespace kelo
