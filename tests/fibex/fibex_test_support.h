// Shared pieces of the FIBEX reader suites: a database with its reader, lookups that fail the
// test instead of inserting, and the key lists of the maps.
#pragma once

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <string>
#include <vector>

#include "fibex/bus_database.h"
#include "fibex/fibex_reader.h"
#include "support/map_lookup.h"
#include "xml/xml_test_support.h"

namespace kelo_test {

using kelo::fibex::BusDatabase;
using kelo::fibex::FibexReader;

inline constexpr float kFltMax = std::numeric_limits<float>::max();

inline std::string fibexFile(const std::string& name) {
    return dataFile("fibex/" + name);
}

using Keys = std::vector<std::string>;

// Every container of the database, to compare one state with another.
inline std::vector<std::size_t> containerSizes(const BusDatabase& db) {
    return {db.ecusByName.size(),   db.units.size(),          db.codings.size(),
            db.signals.size(),      db.signalsByName.size(),  db.signalInstances.size(),
            db.pdus.size(),         db.pduInstances.size(),   db.frames.size(),
            db.framesByName.size(), db.pduTriggerings.size(), db.frameTriggerings.size(),
            db.channels.size(),     db.controllers.size(),    db.inputPorts.size(),
            db.outputPorts.size(),  db.connectors.size(),     db.ecus.size(),
            db.ecuList.size(),      db.clusters.size(),       db.frameNamesBySlot.size()};
}

inline bool isEmpty(const BusDatabase& db) {
    for (std::size_t n : containerSizes(db))
        if (n != 0) return false;
    return true;
}

// One database with its reader, loading files from tests/data/fibex.
class FibexTest : public ::testing::Test {
  protected:
    int load(const std::string& name) { return reader.LoadFile(fibexFile(name)); }
    void loadOk(const std::string& name) { ASSERT_EQ(load(name), 0) << name; }

    BusDatabase db;
    FibexReader reader{db};
};

}  // namespace kelo_test
