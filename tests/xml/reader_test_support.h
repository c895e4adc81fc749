// Shared pieces of the XML, FIBEX and AUTOSAR reader suites: paths into tests/data, a scratch
// directory, field tables, captured diagnostic lines, and a reader fixture per format.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <limits>
#include <random>
#include <string>
#include <system_error>
#include <type_traits>
#include <vector>

#include "autosar/autosar_reader.h"
#include "fibex/bus_database.h"
#include "fibex/fibex_reader.h"
#include "support/map_lookup.h"

namespace kelo_test {

using kelo::autosar::AutoSarReader;
using kelo::autosar::tAutoSarDatabase;
using kelo::fibex::BusDatabase;
using kelo::fibex::FibexReader;
using Keys = std::vector<std::string>;
using Lines = std::vector<std::string>;
inline constexpr float kFltMax = std::numeric_limits<float>::max();

inline std::string dataFile(const std::string& name) {
    return KELO_TEST_DATA_DIR "/" + name;
}
inline std::string fibexFile(const std::string& name) {
    return dataFile("fibex/" + name);
}
inline std::string autosarFile(const std::string& name) {
    return dataFile("autosar/" + name);
}
// The complete FlexRay system of the AUTOSAR example program, relative to tests/data/autosar.
inline constexpr const char* kExampleSystem = "../../../examples/chassis-flexray-4.2.arxml";

inline std::string readWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A fresh directory under the system temp directory, removed with everything in it.
class ScratchDir {
  public:
    ScratchDir() {
        static std::atomic<int> counter{0};
        path_ = std::filesystem::temp_directory_path() /
                ("kelo-xml-" + std::to_string(std::random_device{}()) + "-" +
                 std::to_string(counter++));
        EXPECT_TRUE(std::filesystem::create_directory(path_)) << path_;
    }
    ~ScratchDir() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    std::string path() const { return path_.string(); }
    // Writes the bytes as they are and returns the file's path.
    std::string write(const std::string& name, const std::string& bytes) const {
        const std::string file = (path_ / name).string();
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        out.close();
        EXPECT_TRUE(out.good()) << "cannot write " << file;
        return file;
    }

  private:
    std::filesystem::path path_;
};

// A value of a field table: numbers compare exactly (a long double holds every float and 64-bit
// integer), texts as texts.
struct Value {
    template <class T, class = std::enable_if_t<std::is_arithmetic_v<T>>>
    Value(T n) : number(static_cast<long double>(n)) {}
    Value(std::string t) : text(std::move(t)), isText(true) {}
    Value(const char* t) : text(t), isText(true) {}
    template <class T>
    Value(T* link) : number(static_cast<long double>(reinterpret_cast<std::uintptr_t>(link))) {}
    Value(std::nullptr_t) {}
    bool operator==(const Value& o) const {
        return isText == o.isText && (isText ? text == o.text : number == o.number);
    }
    long double number = 0;
    std::string text;
    bool isText = false;
};
inline void PrintTo(const Value& v, std::ostream* os) {
    if (v.isText)
        *os << '"' << v.text << '"';
    else
        *os << v.number;
}

struct Field {
    const char* what;
    Value actual, expected;
};
// A row of a field table: EQ(r.maxDrift, 601u) compares the expression with its expected value.
// The rows of one braced list are evaluated in order, so a row may read what the one before set.
inline Field field(const char* what, Value actual, Value expected) {
    return {what, std::move(actual), std::move(expected)};
}
#define EQ(actual, expected) ::kelo_test::field(#actual, actual, expected)
inline void expectAll(std::initializer_list<Field> rows) {
    for (const Field& f : rows)
        EXPECT_EQ(f.actual, f.expected) << f.what;
}

// What run() prints on standard output, split into lines.
template <class Run>
Lines printedLines(Run&& run) {
    ::testing::internal::CaptureStdout();
    run();
    const std::string out = ::testing::internal::GetCapturedStdout();
    Lines lines;
    std::size_t start = 0;
    for (std::size_t end; (end = out.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(out.substr(start, end - start));
    EXPECT_EQ(start, out.size()) << "output does not end with a line end";
    return lines;
}

// Every container of a FIBEX database, to compare one state with another.
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
    return containerSizes(db) == std::vector<std::size_t>(containerSizes(db).size(), 0);
}

// One FIBEX database with its reader, loading files from tests/data/fibex.
class FibexTest : public ::testing::Test {
  protected:
    int load(const std::string& name) { return reader.LoadFile(fibexFile(name)); }
    void loadOk(const std::string& name) { ASSERT_EQ(load(name), 0) << name; }

    BusDatabase db;
    FibexReader reader{db};
};

// A frame's schedule as "slot base/repetition channel mask", FIBEX and AUTOSAR alike.
template <class Frame>
std::string schedule(const Frame& f) {
    return std::to_string(f.slotId) + " " + std::to_string(f.baseCycle) + "/" +
           std::to_string(f.cycleRepetition) + " " + std::to_string(f.channelMask);
}

// The names of the AUTOSAR records a list of links points at ("<null>" for a null link).
template <class Record>
Keys namesOf(const std::vector<Record*>& links) {
    Keys out;
    for (const Record* link : links)
        out.push_back(link ? link->name : "<null>");
    return out;
}

// An ARXML document: the root with a schema location and the given package text.
inline std::string arxml(const std::string& packages, const std::string& schema =
                                                          "http://autosar.org/schema/r4.0 "
                                                          "AUTOSAR_4-2-2.xsd") {
    return "<AUTOSAR xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
           "xsi:schemaLocation=\"" +
           schema + "\"><AR-PACKAGES>" + packages + "</AR-PACKAGES></AUTOSAR>";
}
inline std::string package(const std::string& name, const std::string& elements,
                           const std::string& nested = "") {
    std::string text = "<AR-PACKAGE><SHORT-NAME>" + name + "</SHORT-NAME>";
    if (!elements.empty()) text += "<ELEMENTS>" + elements + "</ELEMENTS>";
    if (!nested.empty()) text += "<AR-PACKAGES>" + nested + "</AR-PACKAGES>";
    return text + "</AR-PACKAGE>";
}

// An AUTOSAR reader loading files from tests/data/autosar.
class AutosarTest : public ::testing::Test {
  protected:
    int load(const std::string& name) { return reader.LoadFile(autosarFile(name)); }
    void loadOk(const std::string& name) { ASSERT_EQ(load(name), 0) << name; }

    AutoSarReader reader;
    tAutoSarDatabase& db = reader.Database();
};

}  // namespace kelo_test
