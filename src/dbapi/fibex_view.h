// The FIBEX database as the shared export steps see it (export_steps.h describes what a view
// provides). The functions on the codec path are inline here so the steps compile them into the
// exports without a call per signal.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "dbapi/database_handles.h"
#include "dbapi/parameter_blocks.h"
#include "dbapi/signal_codec.h"
#include "fibex/bus_database.h"

namespace kelo {
namespace dbapi {

struct FibexView {
    using Handle = fibex::BusDatabase;
    using Database = fibex::BusDatabase;
    using Signal = fibex::Signal;
    using Frame = fibex::Frame;
    using Cluster = fibex::Cluster;
    using Ecu = fibex::Ecu;
    using Controller = fibex::Controller;

    static Handle*& handle() { return FibexDb; }
    // Reads the file into a fresh database; `loaded` tells whether it is usable.
    static std::unique_ptr<Handle> read(const char* path, bool readAll, bool& loaded);
    static const Database* usable() { return usableFibex(); }
    // Frame name -> transmit buffer; emptied by every successful open of either format.
    static std::map<std::string, std::uint8_t>& bufferMap() { return FrameBufferIndexMap; }
    static unsigned int nameBufferSize(const Database& db);

    static const Signal* findSignal(const Database& db, const char* name) {
        const auto entry = db.signalsByName.find(name);
        return entry == db.signalsByName.end() ? nullptr : entry->second;
    }
    // The name of the frame that carries the signal (its first, else its second); null when none.
    static const std::string* carrierFrame(const Signal& s) {
        const Frame* frame = s.frame ? s.frame : s.secondFrame;
        return frame ? &frame->shortName : nullptr;
    }
    static const std::string& nameOf(const Signal& s) { return s.shortName; }
    // The byte order the encoder uses: the signal record's (the last PDU instance read).
    static bool msbFirstOf(const Signal& s) { return s.isHighLowByteOrder; }
    // Where a signal (or update bit) sits: its position counts from the start of its PDU,
    // whichever PDU of the frame holds it.
    static std::uint16_t positionOf(const Database&, const Signal& s) { return s.bitPosition; }
    // The coding's first compu method and its first factor/offset pair.
    static SignalCoding codingOf(const Database&, const Signal& signal, bool msbFirst) {
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

    template <typename Key>
    static const Frame* findFrame(const Database& db, const Key& name) {
        const auto entry = db.framesByName.find(name);
        return entry == db.framesByName.end() ? nullptr : entry->second;
    }
    // Calls visit(signal, updateBit, msbFirst) for each signal instance of the frame's PDUs in
    // mapping order (either pointer may be null; the byte order is the instance's) until it
    // returns true.
    template <typename Visit>
    static void walkSignals(const Database&, const Frame& frame, Visit&& visit) {
        for (const fibex::PduInstance& pi : frame.pduInstances) {
            if (pi.pdu == nullptr) continue;
            for (const fibex::SignalInstance& si : pi.pdu->signalInstances)
                if (visit(si.signal, si.updateBitSignal, si.isHighLowByteOrder)) return;
        }
    }
    static std::uint16_t byteLengthOf(const Frame& frame) { return frame.byteLength; }
    static bool firstPduCyclic(const Frame& frame) {
        const fibex::Pdu* first = frame.pduInstances.empty() ? nullptr : frame.pduInstances[0].pdu;
        return first == nullptr || first->timingKind == 1;
    }

    // By ID first, then by SHORT-NAME.
    static const Cluster* findCluster(const Database& db, const char* name);
    static ClusterParameters clusterParameters(const Cluster& c);
    static const Ecu* findEcu(const Database& db, const char* name);
    static const Controller* firstController(const Ecu& ecu) {
        return ecu.controllers.empty() ? nullptr : &ecu.controllers.front();
    }
    static ControllerParameters controllerParameters(const Database& db, const Ecu& ecu,
                                                     const Controller& c);

    // KFr_Fibex_GetPDUinfo's body (a FIBEX-only query): the layout of the frame's first PDU.
    static unsigned char pduInfo(const char* frameKey, int index, unsigned char* info);
};

}  // namespace dbapi
}  // namespace kelo
