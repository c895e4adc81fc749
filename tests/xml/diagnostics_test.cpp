// Numbered diagnostics: the line format, the 1,024-byte formatter, and the build-time switch.
#include <gtest/gtest.h>

#include <string>

#include "xml/diagnostics.h"

namespace {

using kelo::xml::diagnosticLine;
using kelo::xml::emitDiagnostic;
using kelo::xml::formatMessage;
using kelo::xml::Level;

TEST(DiagnosticLine, ErrorAndInfoForms) {
    EXPECT_EQ(diagnosticLine(Level::Error, 33, "ParseFrames",
                             "Database file parse error: BIT-POSITIONs that are not a multiple "
                             "of 8 are not supported!"),
              "error #33 in ParseFrames: Database file parse error: BIT-POSITIONs that are not a "
              "multiple of 8 are not supported!");
    EXPECT_EQ(diagnosticLine(Level::Info, 0, "ReadFIBEXData",
                             "Parsing database file: '/data/a.xml' started"),
              "info #0 in ReadFIBEXData: Parsing database file: '/data/a.xml' started");
    EXPECT_EQ(diagnosticLine(Level::Error, 40, "LoadFile", ""), "error #40 in LoadFile: ");
}

TEST(DiagnosticLine, EmitWritesOneLineToStandardOutput) {
    ::testing::internal::CaptureStdout();
    emitDiagnostic(Level::Error, 40, "LoadFile",
                   "Version '9.9' of the Database file file is not supported!");
    emitDiagnostic(Level::Info, 2, "ReadFIBEXData", "Parsing succeeded.");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "error #40 in LoadFile: Version '9.9' of the Database file file is not supported!\n"
              "info #2 in ReadFIBEXData: Parsing succeeded.\n");
}

TEST(FormatMessage, PrintfRules) {
    EXPECT_EQ(formatMessage("Invalid bitlength %d found!", 65), "Invalid bitlength 65 found!");
    EXPECT_EQ(formatMessage("method %s of coding %s", "Table", "Gear"),
              "method Table of coding Gear");
    EXPECT_EQ(formatMessage("%s", ""), "");
}

TEST(FormatMessage, CutToTheBuffer) {
    const std::string fits(1023, 'a');
    EXPECT_EQ(formatMessage("%s", fits.c_str()), fits);
    const std::string longer = std::string(1500, 'b') + "tail";
    const std::string cut = formatMessage("%s", longer.c_str());
    EXPECT_EQ(cut.size(), 1023u);
    EXPECT_EQ(cut, std::string(1023, 'b'));
    // The cut counts the formatted result, not the arguments.
    const std::string prefixed = formatMessage("xyz%s", std::string(1021, 'c').c_str());
    EXPECT_EQ(prefixed.size(), 1023u);
    EXPECT_EQ(prefixed.substr(0, 4), "xyzc");
}

TEST(DiagnosticSwitch, OffByDefaultPrintsAndEvaluatesNothing) {
    int evaluated = 0;
    auto argument = [&evaluated]() {
        ++evaluated;
        return 7;
    };
    ::testing::internal::CaptureStdout();
    KELO_ERROR(33, "ParseFrames", "value %d", argument());
    KELO_INFO(2, "ReadFIBEXData", "Parsing succeeded.");
    const std::string out = ::testing::internal::GetCapturedStdout();
    if (kelo::xml::kDiagnosticsOn) {
        EXPECT_EQ(out,
                  "error #33 in ParseFrames: value 7\ninfo #2 in ReadFIBEXData: Parsing "
                  "succeeded.\n");
        EXPECT_EQ(evaluated, 1);
    } else {
        EXPECT_EQ(out, "");
        EXPECT_EQ(evaluated, 0);
    }
}

}  // namespace
