// The exact numbered messages of AUTOSAR reads. They are printed only by reader code built with
// diagnostics switched on: the kelo_diagnostics_tests suite builds the readers that way and runs
// these tests.
#include <gtest/gtest.h>

#include <string>

#include "xml/diagnostics.h"
#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;

const std::string kNoName = "Database file parse error: SHORT-NAME of signal item not found!";
const std::string kRefused =
    "error #11 in LoadFile: Version 'AUTOSAR_4-3-0.xsd' of the Database "
    "file file is not supported!";
const std::string kNoCategory =
    "error #4 in ParseCompuMethods: AUTOSAR parse error: CATEGORY for compumethod item not found!";

TEST(AutosarDiagnostics, EachMessageOfARead) {
    if (!kelo::xml::kDiagnosticsOn) GTEST_SKIP() << "the readers were built without diagnostics";
    const struct {
        const char* file;
        Lines between;  // the lines between "started" and the outcome
        bool ok;
    } cases[] = {
        {kExampleSystem, {}, true},
        {"units-in-second-package-4.1.arxml",
         {"error #3 in ParseUnits: AUTOSAR parse error: DISPLAY-NAME for unit item not found!"},
         true},
        // the failing step runs twice and says so twice
        {"compu-method-without-category-4.2.arxml", {kNoCategory, kNoCategory}, false},
        {"signals-data-type-policies-4.2.arxml",
         {"error #5 in ParseCompuMethods: Database file parse error: Denominator different from 1 "
          "is not supported!",
          "error #6 in ParseSignals: " + kNoName},
         true},
        {"pdus-kinds-update-bits-timing-4.2.arxml",
         {"error #7 in ParsePDUs: " + kNoName, "error #8 in ParsePDUs: " + kNoName,
          "error #9 in ParsePDUs: " + kNoName},
         true},
        {"frames-carrying-pdus-4.2.arxml", {"error #10 in ParseFrames: " + kNoName}, true},
        {"schema-4.3-refused.arxml", {kRefused}, false},
        {"schema-location-one-part-4.2.arxml",
         {"error #11 in LoadFile: Version '' of the Database file file is not supported!"},
         false},
        {"malformed-unclosed-element-4.2.arxml", {}, false},
        {"no-such-file.arxml", {}, false},
    };
    AutoSarReader reader;
    for (const auto& c : cases) {
        Lines expected{"info #0 in ReadAUTOSARData: Parsing database file: '" +
                       autosarFile(c.file) + "' started"};
        expected.insert(expected.end(), c.between.begin(), c.between.end());
        expected.push_back(c.ok ? "info #2 in ReadAUTOSARData: Parsing succeeded."
                                : "error #1 in ReadAUTOSARData: Parsing failed.");
        EXPECT_EQ(printedLines([&] { reader.ReadAUTOSARData(autosarFile(c.file)); }), expected)
            << c.file;
    }
    // Only ReadAUTOSARData frames the load; an empty name prints nothing.
    EXPECT_EQ(printedLines([&] {
                  AutoSarReader direct(autosarFile("schema-4.3-refused.arxml"));
                  reader.ReadAUTOSARData("");
              }),
              Lines{kRefused});
}

}  // namespace
