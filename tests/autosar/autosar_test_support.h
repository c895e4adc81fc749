// Shared pieces of the AUTOSAR reader suites: the reader, the map lookups, and a small ARXML
// builder for documents given as text.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "autosar/autosar_reader.h"
#include "support/map_lookup.h"
#include "xml/xml_test_support.h"

namespace kelo_test {

using kelo::autosar::AutoSarReader;
using kelo::autosar::tAutoSarDatabase;

inline std::string autosarFile(const std::string& name) {
    return dataFile("autosar/" + name);
}

// The complete FlexRay system the AUTOSAR example program reads (examples/), named relative to
// tests/data/autosar: it doubles as the suites' realistic whole-system file.
inline constexpr const char* kExampleSystem = "../../../examples/chassis-flexray-4.2.arxml";

using Names = std::vector<std::string>;

// The names of the records a list of links points at ("<null>" for a null link).
template <class Record>
Names namesOf(const std::vector<Record*>& links) {
    Names out;
    for (const Record* link : links)
        out.push_back(link ? link->name : "<null>");
    return out;
}

// An ARXML document: the root with a schema location and the given package text.
inline std::string arxml(const std::string& packages,
                         const std::string& schema = "AUTOSAR_4-2-2.xsd") {
    return "<?xml version=\"1.0\"?><AUTOSAR xmlns=\"http://autosar.org/schema/r4.0\" "
           "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
           "xsi:schemaLocation=\"http://autosar.org/schema/r4.0 " +
           schema + "\"><AR-PACKAGES>" + packages + "</AR-PACKAGES></AUTOSAR>";
}

inline std::string package(const std::string& name, const std::string& elements,
                           const std::string& nested = "") {
    std::string text = "<AR-PACKAGE><SHORT-NAME>" + name + "</SHORT-NAME>";
    if (!elements.empty()) text += "<ELEMENTS>" + elements + "</ELEMENTS>";
    if (!nested.empty()) text += "<AR-PACKAGES>" + nested + "</AR-PACKAGES>";
    return text + "</AR-PACKAGE>";
}

// A reader loading files from tests/data/autosar.
class AutosarTest : public ::testing::Test {
  protected:
    int load(const std::string& name) { return reader.LoadFile(autosarFile(name)); }
    void loadOk(const std::string& name) { ASSERT_EQ(load(name), 0) << name; }
    int loadText(const std::string& text) { return reader.LoadText(text); }

    AutoSarReader reader;
    tAutoSarDatabase& db = reader.Database();
};

}  // namespace kelo_test
