// The exact numbered messages of a read. They are printed only by reader code built with
// diagnostics switched on: the kelo_diagnostics_tests suite builds the readers that way and runs
// these tests; in the other suites they are skipped, and the load suite checks that nothing is
// printed.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "xml/diagnostics.h"
#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;

const std::string kParse = "Database file parse error: ";

class DiagnosticMessages : public FibexTest {
  protected:
    void SetUp() override {
        if (!kelo::xml::kDiagnosticsOn)
            GTEST_SKIP() << "the readers were built with diagnostics switched off";
        ::testing::internal::CaptureStdout();
        reader.ReadFIBEXData(fibexFile("small-flexray-cluster.xml"));
        ASSERT_FALSE(::testing::internal::GetCapturedStdout().empty())
            << "diagnostics are switched on but a read printed nothing";
    }
    // The output of one ReadFIBEXData, split into lines.
    std::vector<std::string> read(const std::string& name) {
        ::testing::internal::CaptureStdout();
        reader.ReadFIBEXData(fibexFile(name));
        const std::string out = ::testing::internal::GetCapturedStdout();
        std::vector<std::string> lines;
        std::size_t start = 0;
        for (std::size_t end; (end = out.find('\n', start)) != std::string::npos; start = end + 1)
            lines.push_back(out.substr(start, end - start));
        EXPECT_EQ(start, out.size()) << "output does not end with a line end";
        return lines;
    }
    std::string started(const std::string& name) {
        return "info #0 in ReadFIBEXData: Parsing database file: '" + fibexFile(name) + "' started";
    }
    const std::string succeeded = "info #2 in ReadFIBEXData: Parsing succeeded.";
    const std::string failed = "error #1 in ReadFIBEXData: Parsing failed.";
};

using Lines = std::vector<std::string>;

TEST_F(DiagnosticMessages, RealisticFileReportsNothingButStartAndSuccess) {
    EXPECT_EQ(read("small-flexray-cluster.xml"),
              (Lines{started("small-flexray-cluster.xml"), succeeded}));
}

TEST_F(DiagnosticMessages, UnitWithoutDisplayName) {
    EXPECT_EQ(read("codings-linear-identical-texttable.xml"),
              (Lines{started("codings-linear-identical-texttable.xml"),
                     "error #3 in ParseUnits: FIBEX parse error: DISPLAY-NAME for unit item not "
                     "found!",
                     succeeded}));
}

TEST_F(DiagnosticMessages, OneCodingPerError) {
    const std::string e = "in ParseCodings: " + kParse;
    EXPECT_EQ(read("coding-errors.xml"),
              (Lines{
                  started("coding-errors.xml"),
                  "error #4 " + e + "CODED-TYPE not found!",
                  "error #5 " + e + "Invalid CATEGORY found!",
                  "error #6 " + e + "BIT-LENGTH of coded type not found!",
                  "error #5 " + e + "Invalid CATEGORY found!",
                  "error #6 " + e + "BIT-LENGTH of coded type not found!",
                  "error #7 " + e + "Invalid ENCODING=IEEE-FLOATING-TYPE with bitlength 16 found!",
                  "error #8 " + e + "Invalid bitlength 65 found!",
                  "error #9 " + e + "Invalid bitlength 72 found!",
                  "error #10 " + e + "Invalid BASE-DATA-TYPE item 'a_int8' found!",
                  "error #11 " + e + "CATEGORY of compu-method not found!",
                  "error #12 " + e + "only one COMPU-METHOD SCALE supported",
                  "error #13 " + e + "Expected two <COMPU-NUMERATOR><V> items",
                  "error #13 " + e + "Expected two <COMPU-NUMERATOR><V> items",
                  "error #13 " + e + "Expected two <COMPU-NUMERATOR><V> items",
                  "error #14 " + e + "No or only one <COMPU-DENOMINATOR><V> is supported!",
                  "error #14 " + e + "No or only one <COMPU-DENOMINATOR><V> is supported!",
                  "error #15 " + e + "Denominator different from 1 is not supported!",
                  "error #16 " + e + "only one COMPU-METHOD TEXTTABLE is supported!",
                  "error #17 " + e +
                      "Expected a <COMPU-CONST><VT> item, while parsing texttable from method "
                      "HoleyTable of coding EntryWithoutVt, will ignore this texttable entry.",
                  succeeded,
              }));
}

TEST_F(DiagnosticMessages, SignalPduAndFrameFaults) {
    EXPECT_EQ(
        read("signal-errors.xml"),
        (Lines{started("signal-errors.xml"),
               "error #18 in ParseSignals: " + kParse + "SHORT-NAME of signal item not found!",
               "error #19 in ParseSignals: " + kParse + "CODING-REF of signal item not found!",
               succeeded}));
    EXPECT_EQ(read("pdu-errors.xml"),
              (Lines{started("pdu-errors.xml"),
                     "error #26 in ParsePDUs: " + kParse + "SHORT-NAME of signal item not found!",
                     "error #27 in ParsePDUs: " + kParse + "BYTE-LENGTH of frame item not found!",
                     "error #28 in ParsePDUs: " + kParse + "BIT-POSITION of signal item not found!",
                     "error #29 in ParsePDUs: " + kParse +
                         "IS-HIGH-LOW-BYTE-ORDER of signal item not found!",
                     succeeded}));
    EXPECT_EQ(read("frame-errors.xml"),
              (Lines{started("frame-errors.xml"),
                     "error #30 in ParseFrames: " + kParse + "SHORT-NAME of signal item not found!",
                     "error #31 in ParseFrames: " + kParse + "BYTE-LENGTH of frame item not found!",
                     "error #32 in ParseFrames: " + kParse +
                         "fx:BIT-POSITION of fx:PDU-INSTANCE item not found!",
                     "error #34 in ParseFrames: " + kParse +
                         "fx:PDU-REF of fx:PDU-INSTANCE item not found!",
                     succeeded}));
    const std::string notByte = "error #33 in ParseFrames: " + kParse +
                                "BIT-POSITIONs that are not a multiple of 8 are not supported!";
    EXPECT_EQ(read("pdu-instances-byte-and-non-byte.xml"),
              (Lines{started("pdu-instances-byte-and-non-byte.xml"), notByte, notByte, succeeded}));
}

TEST_F(DiagnosticMessages, ChannelEcuAndClusterFaults) {
    EXPECT_EQ(
        read("channel-errors.xml"),
        (Lines{started("channel-errors.xml"),
               "error #37 in ParseChannels: " + kParse + "SHORT-NAME of signal item not found!",
               "error #38 in ParseChannels: " + kParse +
                   "fx:PDU-REF of fx:PDU-TRIGGERING item not found!",
               "error #39 in ParseChannels: " + kParse +
                   "fx:FRAME-REF of fx:FRAME-TRIGGERING item not found!",
               succeeded}));
    const std::string portText =
        kParse + "fx:FRAME-TRIGGERING-REF of fx:INPUT-PORT item not found!";
    EXPECT_EQ(
        read("ecu-errors.xml"),
        (Lines{
            started("ecu-errors.xml"),
            "error #21 in ParseECUs: " + kParse + "SHORT-NAME of controller item not found!",
            "error #22 in ParseECUs: " + kParse + "fx:CHANNEL-REF of fx:CONNECTOR item not found!",
            "error #23 in ParseECUs: " + kParse +
                "fx:CONTROLLER-REF of fx:CONNECTOR item not found!",
            "error #24 in ParseECUs: " + portText, "error #25 in ParseECUs: " + portText,
            succeeded}));
    EXPECT_EQ(read("cluster-without-number-of-static-slots.xml"),
              (Lines{started("cluster-without-number-of-static-slots.xml"),
                     "error #35 in ParseClusters: " + kParse +
                         "Item flexray:NUMBER-OF-STATIC-SLOTS not found!",
                     succeeded}));
}

TEST_F(DiagnosticMessages, FailingStepsReportTwice) {
    const std::string noChannels =
        "error #36 in ParseChannels: " + kParse + "No CLUSTER item found!";
    EXPECT_EQ(read("no-channel-list.xml"),
              (Lines{started("no-channel-list.xml"), noChannels, noChannels, failed}));
    const std::string noEcuName =
        "error #20 in ParseECUs: " + kParse + "SHORT-NAME of ECU item not found!";
    EXPECT_EQ(read("ecu-without-short-name.xml"),
              (Lines{started("ecu-without-short-name.xml"), noEcuName, noEcuName, failed}));
    EXPECT_EQ(read("unit-without-short-name.xml"),
              (Lines{started("unit-without-short-name.xml"), failed}));
}

TEST_F(DiagnosticMessages, UnsupportedVersion) {
    EXPECT_EQ(read("version-3.1-unsupported.xml"),
              (Lines{started("version-3.1-unsupported.xml"),
                     "error #40 in LoadFile: Version '3.1' of the Database file file is not "
                     "supported!",
                     failed}));
}

TEST_F(DiagnosticMessages, EmptyPathPrintsNothing) {
    ::testing::internal::CaptureStdout();
    reader.ReadFIBEXData("");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

}  // namespace
