#include "fibex/fibex_reader.h"

#include <unordered_map>

#include "fibex/fibex_steps.h"

namespace kelo {
namespace fibex {

FibexReader::FibexReader(BusDatabase& database) : database(database) {}
FibexReader::~FibexReader() = default;

FibexReader::LoadMaps& FibexReader::mapsForStep(std::unique_ptr<LoadMaps>& own) {
    if (maps_) return *maps_;
    own = std::make_unique<LoadMaps>(database);
    return *own;
}

// ---- loading ---------------------------------------------------------------------------------

void FibexReader::ReadFIBEXData(const std::string& path) {
    if (path.empty()) return;
    KELO_INFO(0, "ReadFIBEXData", "Parsing database file: '%s' started", path.c_str());
    database.Clear();
    if (LoadFile(path) != xml::kOk) {
        KELO_ERROR(1, "ReadFIBEXData", "Parsing failed.");
        loaded = false;
    } else {
        KELO_INFO(2, "ReadFIBEXData", "Parsing succeeded.");
        loaded = true;
    }
    database.loaded = loaded;
}

int FibexReader::LoadFile(const std::string& path) {
    filePath = path;
    const int code = document.loadFile(QString::fromStdString(path));
    if (code != xml::kOk) return code;
    return ReadDocument();
}

int FibexReader::LoadText(std::string_view text) {
    const int code = document.loadText(text);
    if (code != xml::kOk) return code;
    return ReadDocument();
}

int FibexReader::ReadDocument() {
    placements_.clear();
    updateBitSignals_.clear();
    frameOrder_.clear();
    timings_.clear();
    database.notes.clear();
    maps_ = std::make_unique<LoadMaps>(database);
    const int code = RunSteps();
    maps_.reset();
    return code;
}

int FibexReader::RunSteps() {
    const char* version = attribute(document.root(), "VERSION");
    const std::string_view v(version);
    if (v == "1.2.0a") {
        database.versionCode = 0;
    } else if (v.substr(0, 4) == "2.0.") {
        database.versionCode = 1;
    } else if (v.substr(0, 4) == "3.0.") {
        database.versionCode = 2;
    } else if (v.substr(0, 4) == "3.1.") {
        database.versionCode = 3;
    } else if (readAll && (database.versionCode = ClosestVersion(v)) >= 0) {
        xml::note(database.notes, 41, "LoadFile",
                  xml::formatMessage("Version '%s' read as version code %d", version,
                                     static_cast<int>(database.versionCode)));
    } else {
        KELO_ERROR(40, "LoadFile", "Version '%s' of the Database file file is not supported!",
                   version);
        return xml::kUnsupported;
    }

    // A failing step ends the load (see xml::runStep); the links follow the steps they need.
    using Step = int (FibexReader::*)();
    const auto run = [this](Step step) {
        return xml::runStep([this, step] { return (this->*step)(); });
    };
    int code = xml::kOk;
    if ((code = run(&FibexReader::ParseUnits)) != xml::kOk) return code;
    if ((code = run(&FibexReader::ParseCodings)) != xml::kOk) return code;
    if ((code = run(&FibexReader::ParseSignals)) != xml::kOk) return code;
    if (database.versionCode >= 2 && (code = run(&FibexReader::ParsePDUs)) != xml::kOk) return code;
    if ((code = run(&FibexReader::ParseFrames)) != xml::kOk) return code;
    LinkSignalsToFrames();
    if ((code = run(&FibexReader::ParseChannels)) != xml::kOk) return code;
    BuildSlotTable();
    if ((code = run(&FibexReader::ParseECUs)) != xml::kOk) return code;
    return run(&FibexReader::ParseClusters);
}

// ---- links the codec and the slot queries need -------------------------------------------------

void FibexReader::LinkSignalsToFrames() {
    // The frames that carry each PDU: the first and the second distinct one, in document order.
    std::unordered_map<const Pdu*, std::pair<const Frame*, const Frame*>> carriers;
    carriers.reserve(database.pdus.size());
    for (const Frame* frame : frameOrder_) {
        for (const PduInstance& instance : frame->pduInstances) {
            if (!instance.pdu) continue;
            auto& carrier = carriers[instance.pdu];
            if (!carrier.first)
                carrier.first = frame;
            else if (!carrier.second && carrier.first != frame)
                carrier.second = frame;
        }
    }
    // A signal follows the PDU that placed it last (the one its pduId and bit position name).
    for (const auto& [signal, pdu] : placements_) {
        const auto it = carriers.find(pdu);
        signal->frame = it == carriers.end() ? nullptr : it->second.first;
        signal->secondFrame = it == carriers.end() ? nullptr : it->second.second;
    }
    // An update bit travels with its parent signal.
    for (const auto& [updateBit, parent] : updateBitSignals_) {
        updateBit->frame = parent->frame;
        updateBit->secondFrame = parent->frame;
    }
}

bool FibexReader::SkipsMissing(int number, const char* operation, const char* what) {
    if (!readAll) return false;
    xml::note(database.notes, number, operation,
              xml::formatMessage("%s without SHORT-NAME skipped", what));
    return true;
}

std::int32_t FibexReader::ClosestVersion(std::string_view version) {
    const std::string_view root = document.root().name();
    if (root != "FIBEX" && (root.size() < 6 || root.substr(root.size() - 6) != ":FIBEX")) return -1;
    if (version.substr(0, 2) == "1.") return 0;
    if (version.substr(0, 2) == "2.") return 1;
    // Later versions keep PDUs; so do files without a usable VERSION that have them.
    if (at(document.root(), {"fx:ELEMENTS", "fx:PDUS"})) return 3;
    return version.empty() || version[0] < '3' ? 1 : 3;
}

void FibexReader::BuildSlotTable() {
    database.frameNamesBySlot.clear();
    if (readAll) {
        // Every timing of every triggering, in document order; the first claim of a cell wins.
        for (const auto& [frame, timing] : timings_)
            xml::enterFrameName(database.frameNamesBySlot, timing.slot, timing.baseCycle,
                                timing.repetition, frame->shortName);
        return;
    }
    for (const Frame* frame : frameOrder_) {
        // The first frame (in document order) that claims a slot and cycle keeps it.
        xml::enterFrameName(database.frameNamesBySlot, frame->slotId, frame->baseCycle,
                            frame->cycleRepetition, frame->shortName);
    }
}

}  // namespace fibex
}  // namespace kelo
