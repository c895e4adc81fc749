// Opening files, the release taken from xsi:schemaLocation, the step order with the second run
// of a failing step, and input that must never crash the reader.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "xml/diagnostics.h"
#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;

struct ReleaseCase {
    const char* schemaLocation;
    int result;
    std::uint32_t releaseCode;
};

class ReleaseDetection : public AutosarTest, public ::testing::WithParamInterface<ReleaseCase> {};

TEST_P(ReleaseDetection, SecondPartOfSchemaLocationDecides) {
    const ReleaseCase& c = GetParam();
    const std::string text = std::string(
                                 "<AUTOSAR xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
                                 "xsi:schemaLocation=\"") +
                             c.schemaLocation + "\"><AR-PACKAGES>" +
                             package("P", "<UNIT><SHORT-NAME>km</SHORT-NAME></UNIT>") +
                             "</AR-PACKAGES></AUTOSAR>";
    EXPECT_EQ(reader.LoadText(text), c.result);
    EXPECT_EQ(db.releaseCode, c.releaseCode);
    EXPECT_EQ(db.units.size(), c.result == 0 ? 1u : 0u);  // no step runs for a refused release
}

INSTANTIATE_TEST_SUITE_P(
    SchemaLocations, ReleaseDetection,
    ::testing::Values(ReleaseCase{"http://autosar.org/schema/r4.0 AUTOSAR_4-1-3.xsd", 0, 0},
                      ReleaseCase{"http://autosar.org/schema/r4.0 AUTOSAR_4-2-2.xsd", 0, 1},
                      ReleaseCase{"http://autosar.org/schema/r4.0 AUTOSAR_4-2-1.xsd extra", 0, 1},
                      ReleaseCase{"http://autosar.org/schema/r4.0 AUTOSAR_4-3-0.xsd", 7, 255},
                      ReleaseCase{"http://autosar.org/schema/r4.0 AUTOSAR_4-0-3.xsd", 7, 255},
                      // only the second part counts, not the namespace
                      ReleaseCase{"http://autosar.org/4-2-x AUTOSAR_4-3-0.xsd", 7, 255},
                      // parts are split at each single blank: a double blank leaves an empty part
                      ReleaseCase{"http://autosar.org/schema/r4.0  AUTOSAR_4-2-2.xsd", 7, 255},
                      ReleaseCase{"AUTOSAR_4-2-2.xsd", 7, 255}, ReleaseCase{"", 7, 255},
                      ReleaseCase{"ns AUTOSAR_4_2_2.xsd", 7, 255}));

TEST_F(AutosarTest, FilesOfEachOutcome) {
    const struct {
        const char* file;
        int result;
    } cases[] = {
        {kExampleSystem, 0},
        {"units-in-second-package-4.1.arxml", 0},
        {"schema-4.3-refused.arxml", 7},
        {"schema-location-one-part-4.2.arxml", 7},
        {"malformed-unclosed-element-4.2.arxml", 3},
        {"no-such-file.arxml", 2},
        {"", 2},
    };
    for (const auto& c : cases) {
        AutoSarReader fresh;
        EXPECT_EQ(fresh.LoadFile(c.file[0] ? autosarFile(c.file) : std::string()), c.result)
            << c.file;
    }
    EXPECT_EQ(reader.LoadFile(dataFile("autosar")), 2) << "a directory cannot be read";
}

TEST_F(AutosarTest, ConstructorLoadsAndKeepsTheName) {
    const std::string path = autosarFile(kExampleSystem);
    AutoSarReader loaded(path);
    EXPECT_TRUE(loaded.IsLoaded());
    EXPECT_EQ(std::string(loaded.GetFileName()), path);
    EXPECT_EQ(loaded.Database().releaseCode, 1u);

    AutoSarReader refused(autosarFile("schema-4.3-refused.arxml"));
    EXPECT_FALSE(refused.IsLoaded());
    EXPECT_EQ(refused.Database().releaseCode, 255u);

    AutoSarReader missing(autosarFile("no-such-file.arxml"));
    EXPECT_FALSE(missing.IsLoaded());
    EXPECT_EQ(std::string(missing.GetFileName()), autosarFile("no-such-file.arxml"));

    AutoSarReader unnamed("");
    EXPECT_FALSE(unnamed.IsLoaded());
    EXPECT_EQ(std::string(unnamed.GetFileName()), "");
}

TEST_F(AutosarTest, ReadAutosarDataReplacesTheDatabaseAndIgnoresAnEmptyName) {
    reader.ReadAUTOSARData(autosarFile(kExampleSystem));
    ASSERT_TRUE(reader.IsLoaded());
    ASSERT_FALSE(db.frames.empty());

    reader.ReadAUTOSARData("");  // nothing at all changes
    EXPECT_TRUE(reader.IsLoaded());
    EXPECT_EQ(std::string(reader.GetFileName()), autosarFile(kExampleSystem));
    EXPECT_FALSE(db.frames.empty());

    reader.ReadAUTOSARData(autosarFile("units-in-second-package-4.1.arxml"));
    EXPECT_TRUE(reader.IsLoaded());
    EXPECT_EQ(db.releaseCode, 0u);
    EXPECT_TRUE(db.frames.empty()) << "the earlier file's records are gone";
    EXPECT_TRUE(db.frameNamesBySlot.empty());
    EXPECT_EQ(keys(db.units), (Keys{"NoDisplay", "km", "kmh", "padded"}));  // bytewise order

    reader.ReadAUTOSARData(autosarFile("no-such-file.arxml"));
    EXPECT_FALSE(reader.IsLoaded());
    EXPECT_TRUE(db.units.empty()) << "emptied before the failed load";
}

// A failing step runs twice and its code is returned; earlier steps' records stay, later steps
// do not run.
TEST_F(AutosarTest, FailingStepRunsTwiceAndStopsTheLoad) {
    EXPECT_EQ(load("compu-method-without-category-4.2.arxml"), 2);
    EXPECT_EQ(keys(db.units), (Keys{"", "km"})) << "CM_Before has no UNIT-REF";
    EXPECT_EQ(keys(db.compuMethods), (Keys{"CM_Before"}))
        << "elements after the failure are not read";
    EXPECT_TRUE(db.signals.empty()) << "later steps do not run";

    AutoSarReader ecuFailure;
    EXPECT_EQ(ecuFailure.LoadFile(autosarFile("ecu-without-name-4.2.arxml")), 2);
    const tAutoSarDatabase& d = ecuFailure.Database();
    EXPECT_EQ(keys(d.frames), (Keys{"F"})) << "steps before the ECU step completed";
    EXPECT_EQ(keys(d.ecus), (Keys{"First"}));
    EXPECT_TRUE(d.clusters.empty()) << "the cluster step does not run";
}

TEST_F(AutosarTest, EachStepCanRunTwiceWithTheSameResult) {
    loadOk(kExampleSystem);
    const auto sizes = [this] {
        return std::vector<std::size_t>{db.units.size(),          db.compuMethods.size(),
                                        db.ports.size(),          db.systemSignals.size(),
                                        db.signals.size(),        db.pdus.size(),
                                        db.frames.size(),         db.ecus.size(),
                                        db.controllers.size(),    db.connectors.size(),
                                        db.ecuPorts.size(),       db.clusters.size(),
                                        db.channels.size(),       db.frameTriggerings.size(),
                                        db.pduTriggerings.size(), db.signalTriggerings.size()};
    };
    const auto before = sizes();
    const auto channelA = entry(db.channels, "FlexRayBackbone/ChannelA").frameTriggerings.size();
    const auto sent = entry(db.ecus, "EngineControl").sentFrames;
    EXPECT_EQ(reader.ParseECUs(), 0);
    EXPECT_EQ(reader.ParseClusters(), 0);
    EXPECT_EQ(sizes(), before);
    EXPECT_EQ(entry(db.channels, "FlexRayBackbone/ChannelA").frameTriggerings.size(), channelA);
    EXPECT_EQ(entry(db.ecus, "EngineControl").sentFrames, sent);
}

TEST_F(AutosarTest, DocumentWithoutAutosarRootReadsNothing) {
    EXPECT_EQ(reader.LoadText("<OTHER xmlns:xsi=\"x\" xsi:schemaLocation=\"a AUTOSAR_4-2-2.xsd\">"
                              "<AR-PACKAGES>" +
                              package("P", "<UNIT><SHORT-NAME>km</SHORT-NAME></UNIT>") +
                              "</AR-PACKAGES></OTHER>"),
              0);
    EXPECT_TRUE(db.units.empty());
}

}  // namespace

namespace {

TEST(AutosarQuietBuild, AReadWithFaultsPrintsNothing) {
    if (kelo::xml::kDiagnosticsOn) GTEST_SKIP() << "this build prints diagnostics";
    kelo_test::AutoSarReader reader;
    ::testing::internal::CaptureStdout();
    reader.ReadAUTOSARData(kelo_test::autosarFile("pdus-kinds-update-bits-timing-4.2.arxml"));
    reader.ReadAUTOSARData(kelo_test::autosarFile("schema-4.3-refused.arxml"));
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

}  // namespace
