// Numbered diagnostics: the 1,024-byte formatter, the build-time switch, and the exact lines of
// FIBEX and AUTOSAR reads. Reader code prints them only when built with diagnostics switched on
// (the kelo_diagnostics_tests suite builds the readers that way and runs this file); in an
// ordinary build the same reads, faults and all, print nothing.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "xml/diagnostics.h"
#include "xml/reader_test_support.h"

namespace {

using namespace kelo::xml;
using namespace kelo_test;

// printf rules into a 1,024-byte buffer: the formatted result, not the arguments, is cut.
TEST(FormatMessage, PrintfRulesCutToTheBuffer) {
    EXPECT_EQ(formatMessage("Invalid bitlength %d found!", 65), "Invalid bitlength 65 found!");
    const std::string fits(1023, 'a');
    EXPECT_EQ(formatMessage("%s", fits.c_str()), fits);
    EXPECT_EQ(formatMessage("%s", (std::string(1500, 'b') + "tail").c_str()),
              std::string(1023, 'b'));
    const std::string prefixed = formatMessage("xyz%s", std::string(1021, 'c').c_str());
    EXPECT_EQ(prefixed.size(), 1023u);
    EXPECT_EQ(prefixed.substr(0, 4), "xyzc");
}

// Off by default: nothing printed and no argument evaluated; on in the diagnostics build.
TEST(DiagnosticSwitch, OffByDefaultPrintsAndEvaluatesNothing) {
    int evaluated = 0;
    auto argument = [&evaluated]() { return ++evaluated, 7; };
    ::testing::internal::CaptureStdout();
    KELO_ERROR(33, "ParseFrames", "value %d", argument());
    KELO_INFO(2, "ReadFIBEXData", "Parsing succeeded.");
    const std::string out = ::testing::internal::GetCapturedStdout();
    const bool on = kDiagnosticsOn;
    EXPECT_EQ(out, on ? "error #33 in ParseFrames: value 7\ninfo #2 in ReadFIBEXData: Parsing "
                        "succeeded.\n"
                      : "");
    EXPECT_EQ(evaluated, on ? 1 : 0);
}

// ---- the messages of FIBEX and AUTOSAR reads ---------------------------------------------------

std::string line(int number, const char* step, const std::string& text) {
    return "error #" + std::to_string(number) + " in " + step + ": " + text;
}
std::string parseError(int number, const char* step, const std::string& text) {
    return line(number, step, "Database file parse error: " + text);
}

// A file, what LoadFile answers for it and the lines it prints (none in an ordinary build).
struct Read {
    bool fibex;
    const char* file;
    int code;
    Lines lines;
};
Read fibex(const char* file, int code, Lines lines = {}) {
    return {true, file, code, std::move(lines)};
}
Read autosar(const char* file, int code, Lines lines = {}) {
    return {false, file, code, std::move(lines)};
}

// ReadFIBEXData and ReadAUTOSARData print LoadFile's lines between "started" and the outcome; a
// failing step runs twice and says so twice; an empty path prints nothing.
TEST(ReaderMessages, EachReadPrintsItsLines) {
    const auto cod = [](int number, const char* text) {
        return parseError(number, "ParseCodings", text);
    };
    const std::string coding = cod(13, "Expected two <COMPU-NUMERATOR><V> items");
    const std::string denominator = cod(14, "No or only one <COMPU-DENOMINATOR><V> is supported!");
    const std::string noChannels = parseError(36, "ParseChannels", "No CLUSTER item found!");
    const std::string port = "fx:FRAME-TRIGGERING-REF of fx:INPUT-PORT item not found!";
    const std::string noName = "SHORT-NAME of signal item not found!";
    const std::string noCategory = line(
        4, "ParseCompuMethods", "AUTOSAR parse error: CATEGORY for compumethod item not found!");
    const auto version = [](const char* v) {
        return line(11, "LoadFile",
                    std::string("Version '") + v + "' of the Database file file is not supported!");
    };
    const Read reads[] = {
        fibex("small-flexray-cluster.xml", 0),
        fibex("codings-linear-identical-texttable.xml", 0,
              {line(3, "ParseUnits", "FIBEX parse error: DISPLAY-NAME for unit item not found!")}),
        fibex("coding-errors.xml", 0,
              {cod(4, "CODED-TYPE not found!"), cod(5, "Invalid CATEGORY found!"),
               cod(6, "BIT-LENGTH of coded type not found!"), cod(5, "Invalid CATEGORY found!"),
               cod(6, "BIT-LENGTH of coded type not found!"),
               cod(7, "Invalid ENCODING=IEEE-FLOATING-TYPE with bitlength 16 found!"),
               cod(8, "Invalid bitlength 65 found!"), cod(9, "Invalid bitlength 72 found!"),
               cod(10, "Invalid BASE-DATA-TYPE item 'a_int8' found!"),
               cod(11, "CATEGORY of compu-method not found!"),
               cod(12, "only one COMPU-METHOD SCALE supported"), coding, coding, coding,
               denominator, denominator, cod(15, "Denominator different from 1 is not supported!"),
               cod(16, "only one COMPU-METHOD TEXTTABLE is supported!"),
               cod(17,
                   "Expected a <COMPU-CONST><VT> item, while parsing texttable from method "
                   "HoleyTable of coding EntryWithoutVt, will ignore this texttable entry.")}),
        fibex("signal-errors.xml", 0,
              {parseError(18, "ParseSignals", noName),
               parseError(19, "ParseSignals", "CODING-REF of signal item not found!")}),
        fibex("pdu-errors.xml", 0,
              {parseError(26, "ParsePDUs", noName),
               parseError(27, "ParsePDUs", "BYTE-LENGTH of frame item not found!"),
               parseError(28, "ParsePDUs", "BIT-POSITION of signal item not found!"),
               parseError(29, "ParsePDUs", "IS-HIGH-LOW-BYTE-ORDER of signal item not found!")}),
        fibex("frame-errors.xml", 0,
              {parseError(30, "ParseFrames", noName),
               parseError(31, "ParseFrames", "BYTE-LENGTH of frame item not found!"),
               parseError(32, "ParseFrames", "fx:BIT-POSITION of fx:PDU-INSTANCE item not found!"),
               parseError(34, "ParseFrames", "fx:PDU-REF of fx:PDU-INSTANCE item not found!")}),
        fibex("channel-errors.xml", 0,
              {parseError(37, "ParseChannels", noName),
               parseError(38, "ParseChannels", "fx:PDU-REF of fx:PDU-TRIGGERING item not found!"),
               parseError(39, "ParseChannels",
                          "fx:FRAME-REF of fx:FRAME-TRIGGERING item not found!")}),
        fibex("ecu-errors.xml", 0,
              {parseError(21, "ParseECUs", "SHORT-NAME of controller item not found!"),
               parseError(22, "ParseECUs", "fx:CHANNEL-REF of fx:CONNECTOR item not found!"),
               parseError(23, "ParseECUs", "fx:CONTROLLER-REF of fx:CONNECTOR item not found!"),
               parseError(24, "ParseECUs", port), parseError(25, "ParseECUs", port)}),
        fibex("cluster-without-number-of-static-slots.xml", 0,
              {parseError(35, "ParseClusters", "Item flexray:NUMBER-OF-STATIC-SLOTS not found!")}),
        fibex("no-channel-list.xml", 2, {noChannels, noChannels}),
        fibex("version-3.1-unsupported.xml", 7,
              {line(40, "LoadFile", "Version '3.1' of the Database file file is not supported!")}),
        autosar(kExampleSystem, 0),
        autosar(
            "units-in-second-package-4.1.arxml", 0,
            {line(3, "ParseUnits", "AUTOSAR parse error: DISPLAY-NAME for unit item not found!")}),
        autosar("compu-method-without-category-4.2.arxml", 2, {noCategory, noCategory}),
        autosar(
            "signals-data-type-policies-4.2.arxml", 0,
            {parseError(5, "ParseCompuMethods", "Denominator different from 1 is not supported!"),
             parseError(6, "ParseSignals", noName)}),
        autosar("pdus-kinds-update-bits-timing-4.2.arxml", 0,
                {parseError(7, "ParsePDUs", noName), parseError(8, "ParsePDUs", noName),
                 parseError(9, "ParsePDUs", noName)}),
        autosar("frames-carrying-pdus-4.2.arxml", 0, {parseError(10, "ParseFrames", noName)}),
        autosar("schema-4.3-refused.arxml", 7, {version("AUTOSAR_4-3-0.xsd")}),
        autosar("schema-location-one-part-4.2.arxml", 7, {version("")}),
        autosar("malformed-unclosed-element-4.2.arxml", 3),
        autosar("no-such-file.arxml", 2)};
    for (const Read& r : reads) {
        const std::string path = r.fibex ? fibexFile(r.file) : autosarFile(r.file);
        const std::string read = r.fibex ? "ReadFIBEXData" : "ReadAUTOSARData";
        SCOPED_TRACE(path);
        BusDatabase db;
        FibexReader fibexReader(db);
        AutoSarReader autosarReader;
        Lines framed;
        if (kDiagnosticsOn) {
            framed = {"info #0 in " + read + ": Parsing database file: '" + path + "' started"};
            framed.insert(framed.end(), r.lines.begin(), r.lines.end());
            framed.push_back(r.code == 0 ? "info #2 in " + read + ": Parsing succeeded."
                                         : "error #1 in " + read + ": Parsing failed.");
        }
        EXPECT_EQ(printedLines([&] {
                      r.fibex ? fibexReader.ReadFIBEXData(path)
                              : autosarReader.ReadAUTOSARData(path);
                  }),
                  framed);
        int code = -1;
        EXPECT_EQ(printedLines([&] {
                      code = r.fibex ? fibexReader.LoadFile(path) : autosarReader.LoadFile(path);
                  }),
                  kDiagnosticsOn ? r.lines : Lines{});
        EXPECT_EQ(code, r.code);
    }
    BusDatabase db;
    FibexReader fibexReader(db);
    AutoSarReader autosarReader;
    EXPECT_EQ(printedLines([&] {
                  fibexReader.ReadFIBEXData("");
                  autosarReader.ReadAUTOSARData("");
              }),
              Lines{});
}

}  // namespace
