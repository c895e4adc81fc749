// What the FIBEX reader's steps share: the load's keyed maps, the XML layer's element access
// they read with, and the keeping of keys and names in a step's text store. Only the reader's
// own source files include this.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "fibex/fibex_reader.h"
#include "xml/diagnostics.h"
#include "xml/element_access.h"
#include "xml/keyed_store.h"
#include "xml/reader_status.h"

namespace kelo {
namespace fibex {

using xml::at;
using xml::attribute;
using xml::child;
using xml::Element;
using xml::findChildren;
using xml::forEachBelow;
using xml::listBelow;
using xml::readBool;
using xml::readDouble;
using xml::readFloat;
using xml::readHex64;
using xml::readText;
using xml::readUnsigned;
using xml::readUnsigned16Into;
using xml::readUnsignedInto;
using xml::TextStore;
using xml::trimmedAttribute;

// The trimmed text of an element that is known to exist, kept in `store`. Steps keep the keys
// and names of their records this way while they walk the document, so that storing the records
// in key order later reads them from a compact store instead of all over the document.
inline std::string_view keepText(Element element, TextStore& store) {
    std::string scratch;
    return store.keep(xml::trimmed(xml::textOf(element, scratch)));
}

inline std::string_view keepAttribute(Element element, const char* name, TextStore& store) {
    return store.keep(attribute(element, name));
}

// The maps of the database as the steps of one load use them (see xml::KeyedMap).
struct FibexReader::LoadMaps {
    explicit LoadMaps(BusDatabase& db)
        : units(db.units),
          codings(db.codings),
          signals(db.signals),
          signalsByName(db.signalsByName),
          signalInstances(db.signalInstances),
          pdus(db.pdus),
          pduInstances(db.pduInstances),
          frames(db.frames),
          framesByName(db.framesByName),
          pduTriggerings(db.pduTriggerings),
          frameTriggerings(db.frameTriggerings),
          channels(db.channels),
          controllers(db.controllers),
          inputPorts(db.inputPorts),
          outputPorts(db.outputPorts),
          connectors(db.connectors),
          ecusByName(db.ecusByName),
          ecus(db.ecus),
          clusters(db.clusters) {}

    xml::KeyedMap<decltype(BusDatabase::units)> units;
    xml::KeyedMap<decltype(BusDatabase::codings)> codings;
    xml::KeyedMap<decltype(BusDatabase::signals)> signals;
    xml::KeyedMap<decltype(BusDatabase::signalsByName)> signalsByName;
    xml::KeyedMap<decltype(BusDatabase::signalInstances)> signalInstances;
    xml::KeyedMap<decltype(BusDatabase::pdus)> pdus;
    xml::KeyedMap<decltype(BusDatabase::pduInstances)> pduInstances;
    xml::KeyedMap<decltype(BusDatabase::frames)> frames;
    xml::KeyedMap<decltype(BusDatabase::framesByName)> framesByName;
    xml::KeyedMap<decltype(BusDatabase::pduTriggerings)> pduTriggerings;
    xml::KeyedMap<decltype(BusDatabase::frameTriggerings)> frameTriggerings;
    xml::KeyedMap<decltype(BusDatabase::channels)> channels;
    xml::KeyedMap<decltype(BusDatabase::controllers)> controllers;
    xml::KeyedMap<decltype(BusDatabase::inputPorts)> inputPorts;
    xml::KeyedMap<decltype(BusDatabase::outputPorts)> outputPorts;
    xml::KeyedMap<decltype(BusDatabase::connectors)> connectors;
    xml::KeyedMap<decltype(BusDatabase::ecusByName)> ecusByName;
    xml::KeyedMap<decltype(BusDatabase::ecus)> ecus;
    xml::KeyedMap<decltype(BusDatabase::clusters)> clusters;

    // The signals of the signal step in document order, with their IDs. Files usually place
    // signals in their PDUs in the order in which they list them, so the PDU step looks for the
    // signal of an instance here first, next to the previous one, before it hashes the ID.
    struct ListedSignal {
        std::string_view id;
        decltype(BusDatabase::signals)::iterator entry;
    };
    std::vector<ListedSignal> signalOrder;
    xml::TextStore signalIds;
};

}  // namespace fibex
}  // namespace kelo
