#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fibex/fibex_steps.h"

namespace kelo {
namespace fibex {

// ---- signals, PDUs, frames -------------------------------------------------------------------

int FibexReader::ParseSignals() {
    static const char* const kItems[] = {"ho:SHORT-NAME", "ho:DESC", "fx:DEFAULT-VALUE",
                                         "fx:CODING-REF"};
    enum { kShortName, kDesc, kDefaultValue, kCodingRef };
    std::unique_ptr<LoadMaps> own;
    LoadMaps& maps = mapsForStep(own);

    // The signals that are kept, in document order, as read; the records are made when they are
    // stored.
    struct Read {
        std::string_view shortName;
        std::string_view desc;
        double defaultValue = 0.0;
        const Coding* coding = nullptr;
    };
    std::vector<Read> read;
    std::vector<std::string_view> ids;
    TextStore texts;
    const Element list = at(document.root(), {"fx:ELEMENTS", "fx:SIGNALS"});
    forEachBelow(list, "fx:SIGNAL", [&](Element e) {
        Element items[4];
        findChildren(e, kItems, items);
        if (!items[kShortName]) {
            KELO_ERROR(18, "ParseSignals",
                       "Database file parse error: SHORT-NAME of signal item not found!");
            return;
        }
        if (!items[kCodingRef]) {
            KELO_ERROR(19, "ParseSignals",
                       "Database file parse error: CODING-REF of signal item not found!");
            return;
        }
        Read r;
        r.shortName = keepText(items[kShortName], texts);
        if (items[kDesc]) r.desc = keepText(items[kDesc], texts);
        r.defaultValue = readDouble(items[kDefaultValue], 0.0);
        r.coding = &maps.codings[attribute(items[kCodingRef], "ID-REF")];
        read.push_back(r);
        ids.push_back(keepAttribute(e, "ID", texts));
    });

    std::vector<decltype(maps.signals)::Entry> entries;
    maps.signals.storeAll(
        ids,
        [&read](std::size_t i, Signal& signal) {
            signal.shortName.assign(read[i].shortName);
            signal.desc.assign(read[i].desc);
            signal.defaultValue = read[i].defaultValue;
            signal.coding = read[i].coding;
        },
        &entries);
    maps.signalOrder.resize(ids.size());
    for (std::size_t i = 0; i < ids.size(); ++i)
        maps.signalOrder[i] = LoadMaps::ListedSignal{ids[i], entries[i]};
    std::vector<std::string_view> names(read.size());
    for (std::size_t i = 0; i < read.size(); ++i)
        names[i] = read[i].shortName;
    maps.signalsByName.storeAll(names, [&entries](std::size_t i) { return &entries[i]->second; });
    maps.signalIds = std::move(texts);  // the IDs in signalOrder
    return xml::kOk;
}

int FibexReader::ParsePDUs() {
    static const char kOp[] = "ParsePDUs";
    static const char* const kPduItems[] = {"ho:SHORT-NAME", "ho:DESC", "fx:BYTE-LENGTH",
                                            "fx:PDU-TYPE", "fx:SIGNAL-INSTANCES"};
    enum { kShortName, kDesc, kByteLength, kPduType, kInstances };
    static const char* const kInstanceItems[] = {"ho:DESC", "fx:BIT-POSITION",
                                                 "fx:SIGNAL-UPDATE-BIT-POSITION",
                                                 "fx:IS-HIGH-LOW-BYTE-ORDER", "fx:SIGNAL-REF"};
    enum { kInstanceDesc, kBitPosition, kUpdateBit, kByteOrder, kSignalRef };

    placements_.clear();
    updateBitSignals_.clear();
    std::unique_ptr<LoadMaps> own;
    LoadMaps& maps = mapsForStep(own);
    auto& signals = maps.signals;
    using SignalEntry = decltype(maps.signals)::Entry;

    // The PDUs in document order, stored together at the end; the signal instances with their
    // IDs, likewise (the PDUs' lists hold copies); the names of the update-bit signals.
    std::vector<std::string_view> pduIds;
    std::vector<Pdu> pdus;
    std::vector<std::size_t> placedIn;  // per placement, the PDU in `pdus`
    std::vector<std::string_view> instanceIds;
    std::vector<SignalInstance> instancesRead;
    std::vector<std::string_view> updateBitNames;
    std::vector<Signal*> updateBitLinks;
    TextStore texts;

    // signals[ref], found next to the previous one in the signal step's order where possible.
    const std::vector<LoadMaps::ListedSignal>& order = maps.signalOrder;
    std::size_t next = 0;  // where in `order` the next reference probably is
    const auto signalFor = [&](std::string_view ref) -> SignalEntry {
        if (next < order.size() && order[next].id == ref) return order[next++].entry;
        const std::size_t hash = signals.hashOf(ref);
        const SignalEntry hit = signals.find(ref, hash);
        if (hit == signals.end()) return signals.insert(ref, hash, signals.end());
        // Pick the order up again if the signal is a little further on.
        for (std::size_t k = next; k < order.size() && k < next + 8; ++k) {
            if (order[k].entry == hit) {
                next = k + 1;
                break;
            }
        }
        return hit;
    };
    // signals[key] := a reset record, for the update bit of the signal at `parent`. The key
    // extends the signal's ID, so it sorts after it, usually within a few entries.
    std::string updateBitKey;
    const auto freshUpdateBit = [&](std::string_view key, SignalEntry parent) -> Signal& {
        const std::size_t hash = signals.hashOf(key);
        SignalEntry at = std::next(parent);  // the first entry not below the key, when near
        int steps = 0;
        while (at != signals.end() && std::string_view(at->first) < key && steps < 16) {
            ++at;
            ++steps;
        }
        if (steps == 16) {  // far off: look it up
            at = signals.find(key, hash);
            if (at != signals.end()) return at->second = Signal();
            return signals.insert(key, hash, signals.end())->second;
        }
        if (at != signals.end() && std::string_view(at->first) == key) return at->second = Signal();
        return signals.insert(key, hash, at)->second;
    };

    std::vector<Element> instances;
    const Element list = at(document.root(), {"fx:ELEMENTS", "fx:PDUS"});
    // Most signals are placed once: their number is a good guess for the number of instances.
    const std::size_t expected = database.signals.size();
    placements_.reserve(expected);
    placedIn.reserve(expected);
    instanceIds.reserve(expected);
    instancesRead.reserve(expected);
    forEachBelow(list, "fx:PDU", [&](Element e) {
        Element items[5];
        findChildren(e, kPduItems, items);
        if (!items[kShortName]) {
            KELO_ERROR(26, kOp, "Database file parse error: SHORT-NAME of signal item not found!");
            return;
        }
        if (!items[kByteLength]) {
            KELO_ERROR(27, kOp, "Database file parse error: BYTE-LENGTH of frame item not found!");
            return;
        }
        const char* pduId = attribute(e, "ID");
        const std::size_t pduIndex = pdus.size();
        pduIds.push_back(texts.keep(pduId));
        pdus.emplace_back();
        Pdu& pdu = pdus.back();
        readText(items[kShortName], pdu.shortName);
        readText(items[kDesc], pdu.desc);
        readUnsigned16Into(items[kByteLength], pdu.byteLength);
        if (readText(items[kPduType], pdu.pduType)) pdu.pduTypeCode = typeCode(pdu.pduType);

        listBelow(items[kInstances], "fx:SIGNAL-INSTANCE", instances);
        pdu.signalInstanceCount = static_cast<std::uint32_t>(instances.size());
        pdu.signalInstances.reserve(instances.size());
        for (const Element si : instances) {
            Element fields[5];
            findChildren(si, kInstanceItems, fields);
            SignalInstance instance;
            readText(fields[kInstanceDesc], instance.desc);
            if (!readUnsigned16Into(fields[kBitPosition], instance.bitPosition)) {
                KELO_ERROR(28, kOp,
                           "Database file parse error: BIT-POSITION of signal item not found!");
                instance.bitPosition = 0;
            }
            if (!readUnsigned16Into(fields[kUpdateBit], instance.updateBitPosition))
                instance.updateBitPosition = 65535;
            if (!fields[kByteOrder]) {
                KELO_ERROR(29, kOp,
                           "Database file parse error: IS-HIGH-LOW-BYTE-ORDER of signal item not "
                           "found!");
                instance.isHighLowByteOrder = false;
            } else {
                instance.isHighLowByteOrder = readBool(fields[kByteOrder], false);
            }

            // Place the referred signal in this PDU (the last PDU read wins).
            SignalEntry entry = signals.end();
            std::string_view ref;
            if (fields[kSignalRef]) {
                ref = attribute(fields[kSignalRef], "ID-REF");
                entry = signalFor(ref);
                Signal& signal = entry->second;
                signal.bitPosition = instance.bitPosition;
                signal.isHighLowByteOrder = instance.isHighLowByteOrder;
                signal.pduId.assign(pduId);
                instance.signal = &signal;
                placements_.emplace_back(&signal, nullptr);
                placedIn.push_back(pduIndex);
            }
            // signalInstances[ID] := the instance; the PDU's list takes a copy.
            instanceIds.push_back(keepAttribute(si, "ID", texts));
            instancesRead.push_back(instance);
            pdu.signalInstances.push_back(std::move(instance));

            // An update bit becomes a signal of its own, "<name>_UB" under "<ID>_UB". Only the
            // instance in the PDU's list links to it.
            SignalInstance& listed = pdu.signalInstances.back();
            if (entry != signals.end() && listed.updateBitPosition < 65535) {
                const Signal& signal = entry->second;
                updateBitKey.assign(ref).append("_UB");
                Signal& ub = freshUpdateBit(updateBitKey, entry);
                ub.shortName.reserve(signal.shortName.size() + 3);
                ub.shortName.append(signal.shortName).append("_UB");
                ub.bitPosition = listed.updateBitPosition;
                listed.updateBitSignal = &ub;
                updateBitSignals_.emplace_back(&ub, &entry->second);
                updateBitNames.push_back(texts.keep(ub.shortName));
                updateBitLinks.push_back(&ub);
            }
        }
    });

    maps.signalsByName.storeAll(
        updateBitNames, [&updateBitLinks](std::size_t i) -> Signal*& { return updateBitLinks[i]; });
    maps.signalInstances.storeAll(instanceIds, [&instancesRead](std::size_t i) -> SignalInstance&& {
        return std::move(instancesRead[i]);
    });
    std::vector<decltype(maps.pdus)::Entry> pduEntries;
    maps.pdus.indexAhead(pduIds.size());
    maps.pdus.storeAll(
        pduIds, [&pdus](std::size_t i) -> Pdu&& { return std::move(pdus[i]); }, &pduEntries);
    for (std::size_t i = 0; i < placements_.size(); ++i)
        placements_[i].second = &pduEntries[placedIn[i]]->second;
    return xml::kOk;
}

int FibexReader::ParseFrames() {
    static const char kOp[] = "ParseFrames";
    static const char* const kFrameItems[] = {"ho:SHORT-NAME", "ho:DESC", "fx:BYTE-LENGTH",
                                              "fx:FRAME-TYPE", "fx:PDU-INSTANCES"};
    enum { kShortName, kDesc, kByteLength, kFrameType, kInstances };
    static const char* const kInstanceItems[] = {"ho:DESC", "fx:BIT-POSITION",
                                                 "fx:IS-HIGH-LOW-BYTE-ORDER",
                                                 "fx:PDU-UPDATE-BIT-POSITION", "fx:PDU-REF"};
    enum { kInstanceDesc, kBitPosition, kByteOrder, kUpdateBit, kPduRef };

    frameOrder_.clear();
    std::unique_ptr<LoadMaps> own;
    LoadMaps& maps = mapsForStep(own);

    // The frames in document order with their names, stored together at the end; their PDU
    // instances by ID, with a pointer to the instance in its frame's list.
    std::vector<std::string_view> frameIds, names;
    std::vector<Frame> frames;
    std::vector<std::string_view> instanceIds;
    std::vector<const PduInstance*> instanceRecords;
    TextStore texts;
    std::vector<Element> instances;
    const Element list = at(document.root(), {"fx:ELEMENTS", "fx:FRAMES"});
    forEachBelow(list, "fx:FRAME", [&](Element e) {
        Element items[5];
        findChildren(e, kFrameItems, items);
        if (!items[kShortName]) {
            KELO_ERROR(30, kOp, "Database file parse error: SHORT-NAME of signal item not found!");
            return;
        }
        if (!items[kByteLength]) {
            KELO_ERROR(31, kOp, "Database file parse error: BYTE-LENGTH of frame item not found!");
            return;
        }
        frameIds.push_back(keepAttribute(e, "ID", texts));
        frames.emplace_back();
        Frame& frame = frames.back();
        names.push_back(keepText(items[kShortName], texts));
        frame.shortName.assign(names.back());
        readText(items[kDesc], frame.desc);
        readUnsigned16Into(items[kByteLength], frame.byteLength);
        readText(items[kFrameType], frame.frameType);
        frame.frameTypeCode = typeCode(frame.frameType);

        listBelow(items[kInstances], "fx:PDU-INSTANCE", instances);
        frame.pduInstanceCount = static_cast<std::uint32_t>(instances.size());
        frame.pduInstances.reserve(instances.size());  // no reallocation: pointers stay valid
        for (const Element pi : instances) {
            Element fields[5];
            findChildren(pi, kInstanceItems, fields);
            PduInstance instance;
            readText(fields[kInstanceDesc], instance.desc);
            if (!readUnsigned16Into(fields[kBitPosition], instance.bitPosition)) {
                KELO_ERROR(32, kOp,
                           "Database file parse error: fx:BIT-POSITION of fx:PDU-INSTANCE item not "
                           "found!");
                continue;
            }
            // PDUs sit on whole bytes only (signals inside a PDU may sit on any bit).
            if (instance.bitPosition % 8 != 0) {
                KELO_ERROR(33, kOp,
                           "Database file parse error: BIT-POSITIONs that are not a multiple of 8 "
                           "are not supported!");
                continue;
            }
            instance.isHighLowByteOrder = readBool(fields[kByteOrder], false);
            instance.updateBitPosition =
                static_cast<std::uint16_t>(readUnsigned(fields[kUpdateBit], 65535));
            if (!fields[kPduRef]) {
                KELO_ERROR(34, kOp,
                           "Database file parse error: fx:PDU-REF of fx:PDU-INSTANCE item not "
                           "found!");
                continue;
            }
            instance.pduId.assign(attribute(fields[kPduRef], "ID-REF"));
            instance.pdu = &maps.pdus[instance.pduId];
            frame.pduInstances.push_back(std::move(instance));
            instanceIds.push_back(keepAttribute(pi, "ID", texts));
            instanceRecords.push_back(&frame.pduInstances.back());
        }
    });

    maps.pduInstances.storeAll(
        instanceIds,
        [&instanceRecords](std::size_t i) -> const PduInstance& { return *instanceRecords[i]; });
    std::vector<decltype(maps.frames)::Entry> entries;
    maps.frames.indexAhead(frameIds.size());
    maps.frames.storeAll(
        frameIds, [&frames](std::size_t i) -> Frame&& { return std::move(frames[i]); }, &entries);
    frameOrder_.resize(entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i)
        frameOrder_[i] = &entries[i]->second;
    maps.framesByName.storeAll(names, [&entries](std::size_t i) { return &entries[i]->second; });
    return xml::kOk;
}

}  // namespace fibex
}  // namespace kelo
