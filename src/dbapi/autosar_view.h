// The AUTOSAR system description as the shared export steps see it (export_steps.h describes
// what a view provides), with the names the AUTOSAR-only list queries return. The functions on
// the codec path are inline here so the steps compile them into the exports without a call per
// signal.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "autosar/autosar_reader.h"
#include "dbapi/database_handles.h"
#include "dbapi/parameter_blocks.h"
#include "dbapi/signal_codec.h"

namespace kelo {
namespace dbapi {

struct AutosarView {
    using Handle = autosar::AutoSarReader;
    using Database = autosar::tAutoSarDatabase;
    using Signal = autosar::tAutoSarSignalInfo;
    using Frame = autosar::tAutoSarFrameInfo;
    using Cluster = autosar::tAutoSarClusterConfig;
    using Ecu = autosar::tAutoSarECUInfo;
    using Controller = autosar::tAutoSarController;
    using Names = std::vector<const std::string*>;

    static Handle*& handle() { return AutosarDb; }
    // Reads the file (with the read-all rules when asked); `loaded` tells whether it is usable.
    static std::unique_ptr<Handle> read(const char* path, bool readAll, bool& loaded);
    // The database of a loaded AUTOSAR file; null otherwise. Call with DatabaseLock held.
    static const Database* usable() {
        return AutosarDb != nullptr && AutosarDb->IsLoaded() ? &AutosarDb->Database() : nullptr;
    }
    // Frame name -> transmit buffer; no open or close empties it.
    static std::map<std::string, std::uint8_t>& bufferMap() { return AutosarFrameBufferIndexMap; }
    static unsigned int nameBufferSize(const Database& db);

    static const Signal* findSignal(const Database& db, const char* name) {
        const auto entry = db.signals.find(name);
        return entry == db.signals.end() ? nullptr : &entry->second;
    }
    // The frame the signal's PDU is mapped into; null when no frame carries it.
    static const std::string* carrierFrame(const Signal& s) {
        return s.frameName.empty() ? nullptr : &s.frameName;
    }
    static const std::string& nameOf(const Signal& s) { return s.name; }
    static bool msbFirstOf(const Signal& s) { return s.byteOrder != 0; }
    // Where a signal (or update bit) sits in the frame payload: the PDU's byte offset in the frame
    // plus the signal's start position in the PDU. PDUs start on byte boundaries; the PDU's start
    // position is a bit number (for most-significant-byte-first packing the bit 7 of the first
    // byte), so its byte is the start position divided by 8.
    static std::uint16_t positionOf(const Database& db, const Signal& s) {
        std::uint32_t pduByte = 0;
        if (!s.pduName.empty()) {
            const auto pdu = db.pdus.find(s.pduName);
            if (pdu != db.pdus.end()) pduByte = pdu->second.frameStartPosition / 8u;
        }
        return static_cast<std::uint16_t>(pduByte * 8u + s.startPosition);
    }
    // The scale is the compu-method's first COMPU-SCALE (offset V0, factor V1, both divided by
    // the denominator when it is neither 0 nor 1). An IDENTICAL method carries no scale in
    // AUTOSAR files; it reads as factor 1, offset 0. A database read with the read-all rules
    // also scales SCALE_LINEAR and SCALE_LINEAR_AND_TEXTTABLE methods, and takes the first scale
    // with an offset and a factor (text entries come first in many files).
    // The scale a linear method decodes with: its first; with read-all, its first scale that has
    // an offset and a factor (else its first). Null for a method without scales.
    static const autosar::tAutoSarCompuScale* scaleOf(const Database& db,
                                                      const autosar::tAutoSarCompuMethodInfo& m) {
        if (m.scales.empty()) return nullptr;
        if (db.readAll) {
            for (const autosar::tAutoSarCompuScale& candidate : m.scales)
                if (candidate.rational) return &candidate;
        }
        return &m.scales.front();
    }
    static SignalCoding codingOf(const Database& db, const Signal& s, bool msbFirst) {
        SignalCoding c;
        c.bitPosition = positionOf(db, s);
        c.bitLength = s.length;
        c.msbFirst = msbFirst;
        c.isSigned = s.isSigned;
        if (const autosar::tAutoSarCompuMethodInfo* method = s.compuMethod) {
            const std::string& category = method->category;
            if (category == "LINEAR" || category == "IDENTICAL" ||
                (db.readAll &&
                 (category == "SCALE_LINEAR" || category == "SCALE_LINEAR_AND_TEXTTABLE"))) {
                c.scaling = Scaling::Linear;
                if (const autosar::tAutoSarCompuScale* used = scaleOf(db, *method)) {
                    const autosar::tAutoSarCompuScale& scale = *used;
                    const float d = (scale.denominator != 0.0f && scale.denominator != 1.0f)
                                        ? scale.denominator
                                        : 1.0f;
                    c.hasScale = true;
                    c.factor = scale.factor / d;
                    c.offset = scale.offset / d;
                } else if (method->category == "IDENTICAL") {
                    c.hasScale = true;
                }
            } else {
                c.scaling = Scaling::Other;
            }
        }
        return c;
    }

    template <typename Key>
    static const Frame* findFrame(const Database& db, const Key& name) {
        const auto entry = db.frames.find(name);
        return entry == db.frames.end() ? nullptr : &entry->second;
    }
    // Calls visit(signal, updateBit, msbFirst) for each signal of the frame's PDUs in mapping
    // order (the signal is never null; its update bit may be; the byte order is the signal's)
    // until it returns true.
    template <typename Visit>
    static void walkSignals(const Database&, const Frame& frame, Visit&& visit) {
        for (const autosar::tAutoSarPDUInfo* pdu : frame.pdus) {
            if (pdu == nullptr) continue;
            for (const Signal* signal : pdu->signals)
                if (signal != nullptr &&
                    visit(signal, signal->updateBitSignal, msbFirstOf(*signal)))
                    return;
        }
    }
    static std::uint16_t byteLengthOf(const Frame& frame) { return frame.frameLength; }
    static bool firstPduCyclic(const Frame& frame) {
        const autosar::tAutoSarPDUInfo* first = frame.pdus.empty() ? nullptr : frame.pdus[0];
        return first == nullptr || first->transmissionMode == 1;
    }

    static const Cluster* findCluster(const Database& db, const char* name);
    static ClusterParameters clusterParameters(const Cluster& c);
    static const Ecu* findEcu(const Database& db, const char* name);
    static const Controller* firstController(const Ecu& ecu) {
        return ecu.controllers.empty() ? nullptr : ecu.controllers.front();
    }
    static ControllerParameters controllerParameters(const Database& db, const Ecu& ecu,
                                                     const Controller& c);

    // The names of the list queries. Clusters and ECUs ascending; a cluster's frames as the
    // record lists them; an ECU's sent and received frames ascending, each once; a frame's
    // signals PDU by PDU in mapping order ("_UB" companions included).
    static Names clusterNames(const Database& db);
    static Names ecuNames(const Database& db);
    static Names framesOfCluster(const Cluster& cluster);
    static Names framesOfEcu(const Ecu& ecu);
    static Names signalsOfFrame(const Frame& frame);
    static const auto& clusters(const Database& db) { return db.clusters; }
    static const auto& ecus(const Database& db) { return db.ecus; }
    static const auto& frames(const Database& db) { return db.frames; }
};

}  // namespace dbapi
}  // namespace kelo
