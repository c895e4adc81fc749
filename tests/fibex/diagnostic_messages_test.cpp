// The exact numbered messages of FIBEX reads. Reader code prints them only when built with
// diagnostics switched on (the kelo_diagnostics_tests suite builds the readers that way); in an
// ordinary build the same reads, faults and all, print nothing.
#include <gtest/gtest.h>

#include <string>

#include "xml/diagnostics.h"
#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;

const std::string kParse = "Database file parse error: ";
std::string in(const char* step, const std::string& text) {
    return std::string(" in ") + step + ": " + kParse + text;
}

TEST(DiagnosticMessages, EachReadPrintsItsLines) {
    const std::string coding = "error #13" + in("ParseCodings",
                                                "Expected two <COMPU-NUMERATOR>"
                                                "<V> items");
    const std::string denominator =
        "error #14" + in("ParseCodings", "No or only one <COMPU-DENOMINATOR><V> is supported!");
    const std::string notByte =
        "error #33" + in("ParseFrames",
                         "BIT-POSITIONs that are not a multiple of 8 are not "
                         "supported!");
    const std::string noChannels = "error #36" + in("ParseChannels", "No CLUSTER item found!");
    const std::string noEcu = "error #20" + in("ParseECUs", "SHORT-NAME of ECU item not found!");
    const std::string port = "fx:FRAME-TRIGGERING-REF of fx:INPUT-PORT item not found!";
    const struct {
        const char* file;
        Lines between;  // the lines between "started" and the outcome
        bool ok;
    } rows[] = {
        {"small-flexray-cluster.xml", {}, true},
        {"codings-linear-identical-texttable.xml",
         {"error #3 in ParseUnits: FIBEX parse error: DISPLAY-NAME for unit item not found!"},
         true},
        {"coding-errors.xml",
         {"error #4" + in("ParseCodings", "CODED-TYPE not found!"),
          "error #5" + in("ParseCodings", "Invalid CATEGORY found!"),
          "error #6" + in("ParseCodings", "BIT-LENGTH of coded type not found!"),
          "error #5" + in("ParseCodings", "Invalid CATEGORY found!"),
          "error #6" + in("ParseCodings", "BIT-LENGTH of coded type not found!"),
          "error #7" +
              in("ParseCodings", "Invalid ENCODING=IEEE-FLOATING-TYPE with bitlength 16 found!"),
          "error #8" + in("ParseCodings", "Invalid bitlength 65 found!"),
          "error #9" + in("ParseCodings", "Invalid bitlength 72 found!"),
          "error #10" + in("ParseCodings", "Invalid BASE-DATA-TYPE item 'a_int8' found!"),
          "error #11" + in("ParseCodings", "CATEGORY of compu-method not found!"),
          "error #12" + in("ParseCodings", "only one COMPU-METHOD SCALE supported"), coding, coding,
          coding, denominator, denominator,
          "error #15" + in("ParseCodings", "Denominator different from 1 is not supported!"),
          "error #16" + in("ParseCodings", "only one COMPU-METHOD TEXTTABLE is supported!"),
          "error #17" + in("ParseCodings",
                           "Expected a <COMPU-CONST><VT> item, while parsing texttable from "
                           "method HoleyTable of coding EntryWithoutVt, will ignore this "
                           "texttable entry.")},
         true},
        {"signal-errors.xml",
         {"error #18" + in("ParseSignals", "SHORT-NAME of signal item not found!"),
          "error #19" + in("ParseSignals", "CODING-REF of signal item not found!")},
         true},
        {"pdu-errors.xml",
         {"error #26" + in("ParsePDUs", "SHORT-NAME of signal item not found!"),
          "error #27" + in("ParsePDUs", "BYTE-LENGTH of frame item not found!"),
          "error #28" + in("ParsePDUs", "BIT-POSITION of signal item not found!"),
          "error #29" + in("ParsePDUs", "IS-HIGH-LOW-BYTE-ORDER of signal item not found!")},
         true},
        {"frame-errors.xml",
         {"error #30" + in("ParseFrames", "SHORT-NAME of signal item not found!"),
          "error #31" + in("ParseFrames", "BYTE-LENGTH of frame item not found!"),
          "error #32" + in("ParseFrames", "fx:BIT-POSITION of fx:PDU-INSTANCE item not found!"),
          "error #34" + in("ParseFrames", "fx:PDU-REF of fx:PDU-INSTANCE item not found!")},
         true},
        {"pdu-instances-byte-and-non-byte.xml", {notByte, notByte}, true},
        {"channel-errors.xml",
         {"error #37" + in("ParseChannels", "SHORT-NAME of signal item not found!"),
          "error #38" + in("ParseChannels", "fx:PDU-REF of fx:PDU-TRIGGERING item not found!"),
          "error #39" + in("ParseChannels", "fx:FRAME-REF of fx:FRAME-TRIGGERING item not found!")},
         true},
        {"ecu-errors.xml",
         {"error #21" + in("ParseECUs", "SHORT-NAME of controller item not found!"),
          "error #22" + in("ParseECUs", "fx:CHANNEL-REF of fx:CONNECTOR item not found!"),
          "error #23" + in("ParseECUs", "fx:CONTROLLER-REF of fx:CONNECTOR item not found!"),
          "error #24" + in("ParseECUs", port), "error #25" + in("ParseECUs", port)},
         true},
        {"cluster-without-number-of-static-slots.xml",
         {"error #35" + in("ParseClusters", "Item flexray:NUMBER-OF-STATIC-SLOTS not found!")},
         true},
        // A failing step runs twice and says so twice.
        {"no-channel-list.xml", {noChannels, noChannels}, false},
        {"ecu-without-short-name.xml", {noEcu, noEcu}, false},
        {"unit-without-short-name.xml", {}, false},
        {"version-3.1-unsupported.xml",
         {"error #40 in LoadFile: Version '3.1' of the Database file file is not supported!"},
         false},
    };
    const bool on = kelo::xml::kDiagnosticsOn;
    for (const auto& row : rows) {
        BusDatabase db;
        FibexReader reader(db);
        Lines expected;
        if (on) {
            expected = {"info #0 in ReadFIBEXData: Parsing database file: '" + fibexFile(row.file) +
                        "' started"};
            expected.insert(expected.end(), row.between.begin(), row.between.end());
            expected.push_back(row.ok ? "info #2 in ReadFIBEXData: Parsing succeeded."
                                      : "error #1 in ReadFIBEXData: Parsing failed.");
        }
        EXPECT_EQ(printedLines([&] { reader.ReadFIBEXData(fibexFile(row.file)); }), expected)
            << row.file;
        EXPECT_EQ(printedLines([&] { reader.LoadFile(fibexFile(row.file)); }).size(),
                  on ? row.between.size() : 0u)
            << "LoadFile alone frames nothing: " << row.file;
    }
    BusDatabase db;
    FibexReader reader(db);
    EXPECT_EQ(printedLines([&] { reader.ReadFIBEXData(""); }), Lines{}) << "an empty path";
}

}  // namespace
