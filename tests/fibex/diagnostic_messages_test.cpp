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
std::string err(int number, const char* step, const std::string& text) {
    return "error #" + std::to_string(number) + " in " + step + ": " + kParse + text;
}

TEST(DiagnosticMessages, EachReadPrintsItsLines) {
    const auto cod = [](int number, const char* text) { return err(number, "ParseCodings", text); };
    const std::string coding = cod(13, "Expected two <COMPU-NUMERATOR><V> items");
    const std::string denominator = cod(14, "No or only one <COMPU-DENOMINATOR><V> is supported!");
    const std::string noChannels = err(36, "ParseChannels", "No CLUSTER item found!");
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
         {cod(4, "CODED-TYPE not found!"), cod(5, "Invalid CATEGORY found!"),
          cod(6, "BIT-LENGTH of coded type not found!"), cod(5, "Invalid CATEGORY found!"),
          cod(6, "BIT-LENGTH of coded type not found!"),
          cod(7, "Invalid ENCODING=IEEE-FLOATING-TYPE with bitlength 16 found!"),
          cod(8, "Invalid bitlength 65 found!"), cod(9, "Invalid bitlength 72 found!"),
          cod(10, "Invalid BASE-DATA-TYPE item 'a_int8' found!"),
          cod(11, "CATEGORY of compu-method not found!"),
          cod(12, "only one COMPU-METHOD SCALE supported"), coding, coding, coding, denominator,
          denominator, cod(15, "Denominator different from 1 is not supported!"),
          cod(16, "only one COMPU-METHOD TEXTTABLE is supported!"),
          err(17, "ParseCodings",
              "Expected a <COMPU-CONST><VT> item, while parsing texttable from "
              "method HoleyTable of coding EntryWithoutVt, will ignore this "
              "texttable entry.")},
         true},
        {"signal-errors.xml",
         {err(18, "ParseSignals", "SHORT-NAME of signal item not found!"),
          err(19, "ParseSignals", "CODING-REF of signal item not found!")},
         true},
        {"pdu-errors.xml",
         {err(26, "ParsePDUs", "SHORT-NAME of signal item not found!"),
          err(27, "ParsePDUs", "BYTE-LENGTH of frame item not found!"),
          err(28, "ParsePDUs", "BIT-POSITION of signal item not found!"),
          err(29, "ParsePDUs", "IS-HIGH-LOW-BYTE-ORDER of signal item not found!")},
         true},
        {"frame-errors.xml",
         {err(30, "ParseFrames", "SHORT-NAME of signal item not found!"),
          err(31, "ParseFrames", "BYTE-LENGTH of frame item not found!"),
          err(32, "ParseFrames", "fx:BIT-POSITION of fx:PDU-INSTANCE item not found!"),
          err(34, "ParseFrames", "fx:PDU-REF of fx:PDU-INSTANCE item not found!")},
         true},
        {"channel-errors.xml",
         {err(37, "ParseChannels", "SHORT-NAME of signal item not found!"),
          err(38, "ParseChannels", "fx:PDU-REF of fx:PDU-TRIGGERING item not found!"),
          err(39, "ParseChannels", "fx:FRAME-REF of fx:FRAME-TRIGGERING item not found!")},
         true},
        {"ecu-errors.xml",
         {err(21, "ParseECUs", "SHORT-NAME of controller item not found!"),
          err(22, "ParseECUs", "fx:CHANNEL-REF of fx:CONNECTOR item not found!"),
          err(23, "ParseECUs", "fx:CONTROLLER-REF of fx:CONNECTOR item not found!"),
          err(24, "ParseECUs", port), err(25, "ParseECUs", port)},
         true},
        {"cluster-without-number-of-static-slots.xml",
         {err(35, "ParseClusters", "Item flexray:NUMBER-OF-STATIC-SLOTS not found!")},
         true},
        // A failing step runs twice and says so twice (one file per step above).
        {"no-channel-list.xml", {noChannels, noChannels}, false},
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
