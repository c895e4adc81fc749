// Numbered diagnostics: the line format, the 1,024-byte formatter, and the build-time switch.
#include <gtest/gtest.h>

#include <string>

#include "xml/diagnostics.h"

namespace {

using namespace kelo::xml;

TEST(DiagnosticLine, ErrorAndInfoFormsOneLineEach) {
    EXPECT_EQ(diagnosticLine(Level::Error, 40, "LoadFile", ""), "error #40 in LoadFile: ");
    ::testing::internal::CaptureStdout();
    emitDiagnostic(Level::Error, 33, "ParseFrames", "Database file parse error: x");
    emitDiagnostic(Level::Info, 2, "ReadFIBEXData", "Parsing succeeded.");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "error #33 in ParseFrames: Database file parse error: x\n"
              "info #2 in ReadFIBEXData: Parsing succeeded.\n");
}

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

}  // namespace
