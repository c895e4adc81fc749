// FibexReader: reads one FIBEX file (versions 1.2.0a, 2.0.x, 3.0.x, 3.1.x) into a BusDatabase.
//
// ReadFIBEXData clears the database, parses the file and runs the element steps in a fixed order
// (units, codings, signals, PDUs, frames, channels, ECUs, clusters) so that every ID-REF meets a
// record that is already there. The parsed document stays with the reader after loading. Each
// step returns xml::kOk or a reader code (kMissing: a required item is missing, kMalformed: an
// ECU without SHORT-NAME); LoadFile runs a failing step a second time and returns that run's
// code. Every numbered report
// goes through KELO_INFO / KELO_ERROR (silent unless the build switches diagnostics on).
//
// Besides the records, the load fills what the codec and the slot queries need: each signal's
// coding, its frame links (frame, secondFrame) and the slot-by-cycle frame-name table. The rules
// are in docs/databases.md.
//
// With readAll set, the reader takes files as authoring tools write them (docs/databases.md,
// "Reading whole files"): every absolutely scheduled timing of a frame triggering enters the slot
// table, a later triggering without timing no longer clears a frame's schedule, an unknown
// version is read as the closest known one, and what cannot be read is skipped with a note
// (database.notes) instead of ending the load.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fibex/bus_database.h"
#include "xml/xml_access.h"

namespace kelo {
namespace fibex {

class FibexReader {
  public:
    explicit FibexReader(BusDatabase& database);
    ~FibexReader();
    FibexReader(const FibexReader&) = delete;
    FibexReader& operator=(const FibexReader&) = delete;

    // Clears the database and reads the file; the outcome is `loaded` (also copied to the
    // database). An empty path changes nothing.
    void ReadFIBEXData(const std::string& path);
    // xml::kOk, kMissing (cannot open; or a step's code), kMalformed (or a step's code),
    // kUnsupported (version).
    int LoadFile(const std::string& path);
    // LoadFile's work on a document given as text (filePath is left as it is); for tests and
    // tools. Does not clear the database.
    int LoadText(std::string_view text);

    // The element steps, in the order LoadFile runs them. Each reads the kept document.
    int ParseUnits();
    int ParseCodings();
    int ParseSignals();
    int ParsePDUs();
    int ParseFrames();
    int ParseChannels();
    int ParseECUs();
    int ParseClusters();

    BusDatabase& database;
    std::string filePath;
    xml::Document document;
    bool loaded = false;
    // Read with the read-all rules (set before loading).
    bool readAll = false;

  private:
    // Version check and the steps over the parsed document.
    int ReadDocument();
    int RunSteps();
    // After the frame step: each signal's frame and secondFrame.
    void LinkSignalsToFrames();
    // After the channel step: frameNamesBySlot from each frame's slot and cycles.
    void BuildSlotTable();

    // Bookkeeping of one load (pointers into the database's maps, whose nodes never move).
    std::vector<std::pair<Signal*, const Pdu*>> placements_;     // signal instance order
    std::vector<std::pair<Signal*, Signal*>> updateBitSignals_;  // ("_UB" signal, its parent)
    std::vector<const Frame*> frameOrder_;                       // frames in document order
    // Read-all: every timing of every frame triggering, in document order.
    std::vector<std::pair<const Frame*, xml::SlotTiming>> timings_;
    // With readAll: notes the skip and returns true (the step goes on); strict: false.
    bool SkipsMissing(int number, const char* operation, const char* what);
    // The version code of a VERSION no strict load accepts; -1 when the root is no FIBEX.
    std::int32_t ClosestVersion(std::string_view version);
    // The database's maps as the steps of one load use them (stores in key order, lookups
    // through hash indexes); they exist only while LoadFile runs its steps. A step called on its
    // own makes a set for its own run.
    struct LoadMaps;
    LoadMaps& mapsForStep(std::unique_ptr<LoadMaps>& own);
    std::unique_ptr<LoadMaps> maps_;
};

}  // namespace fibex
}  // namespace kelo
