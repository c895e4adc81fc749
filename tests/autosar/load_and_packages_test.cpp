// Opening files, the release taken from xsi:schemaLocation, the step order with the second run
// of a failing step, which packages each step reads, LastSegment, and generated documents read
// back.
#include <gtest/gtest.h>

#include <string>

#include "autosar_generator.h"
#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;
using kelo::autosar::LastSegment;

// Only the second part of the schema location counts; parts are split at each single blank.
// The result and the release code; no step runs for a refused release.
TEST_F(AutosarTest, ReleaseFromTheSchemaLocation) {
    const auto release = [](const std::string& location) {
        AutoSarReader fresh;
        const int result = fresh.LoadText(
            arxml(package("P", "<UNIT><SHORT-NAME>km</SHORT-NAME></UNIT>"), location));
        EXPECT_EQ(fresh.Database().units.size(), result == 0 ? 1u : 0u) << location;
        return std::to_string(result) + " " + std::to_string(fresh.Database().releaseCode);
    };
    const std::string r40 = "http://autosar.org/schema/r4.0 ";
    expectAll({EQ(release(r40 + "AUTOSAR_4-1-3.xsd"), "0 0"),
               EQ(release(r40 + "AUTOSAR_4-2-2.xsd"), "0 1"),
               EQ(release(r40 + "AUTOSAR_4-2-1.xsd extra"), "0 1"),
               EQ(release(r40 + "AUTOSAR_4-3-0.xsd"), "7 255"),
               EQ(release(r40 + "AUTOSAR_4-0-3.xsd"), "7 255"),
               EQ(release("http://autosar.org/4-2-x AUTOSAR_4-3-0.xsd"), "7 255"),
               EQ(release(r40 + " AUTOSAR_4-2-2.xsd"), "7 255"),
               EQ(release("AUTOSAR_4-2-2.xsd"), "7 255"),
               EQ(release("ns AUTOSAR_4_2_2.xsd"), "7 255")});
    // A document without the AUTOSAR root is read as one without packages.
    EXPECT_EQ(reader.LoadText("<OTHER xmlns:xsi=\"x\" xsi:schemaLocation=\"a AUTOSAR_4-2-2.xsd\">"
                              "<AR-PACKAGES>" +
                              package("P", "<UNIT><SHORT-NAME>km</SHORT-NAME></UNIT>") +
                              "</AR-PACKAGES></OTHER>"),
              0);
    EXPECT_TRUE(db.units.empty());
}

// The result codes of the test files are rows of the reader message table
// (xml/diagnostics_test.cpp); an empty name and a directory cannot be read. The constructor loads.
TEST_F(AutosarTest, UnreadablePathsAndTheLoadingConstructor) {
    expectAll({EQ(reader.LoadFile(""), 2), EQ(reader.LoadFile(dataFile("autosar")), 2)});
    AutoSarReader loaded(autosarFile(kExampleSystem));
    expectAll({EQ(loaded.IsLoaded(), true), EQ(loaded.GetFileName(), autosarFile(kExampleSystem)),
               EQ(loaded.Database().releaseCode, 1u)});
    AutoSarReader unnamed("");
    expectAll({EQ(unnamed.IsLoaded(), false), EQ(unnamed.GetFileName(), "")});
}

TEST_F(AutosarTest, ReadAutosarDataReplacesTheDatabaseAndIgnoresAnEmptyName) {
    reader.ReadAUTOSARData(autosarFile(kExampleSystem));
    ASSERT_TRUE(reader.IsLoaded());
    reader.ReadAUTOSARData("");  // nothing at all changes
    expectAll({EQ(reader.IsLoaded(), true), EQ(reader.GetFileName(), autosarFile(kExampleSystem)),
               EQ(db.frames.size(), 12u)});
    reader.ReadAUTOSARData(autosarFile("units-in-second-package-4.1.arxml"));
    expectAll({EQ(reader.IsLoaded(), true), EQ(db.releaseCode, 0u), EQ(db.frames.size(), 0u),
               EQ(db.frameNamesBySlot.size(), 0u)});
    reader.ReadAUTOSARData(autosarFile("no-such-file.arxml"));
    EXPECT_FALSE(reader.IsLoaded());
    EXPECT_TRUE(db.units.empty()) << "emptied before the failed load";
}

// A failing step runs twice and its code is returned; earlier steps' records stay, later steps
// do not run.
TEST_F(AutosarTest, StepsRunInOrder) {
    EXPECT_EQ(load("compu-method-without-category-4.2.arxml"), 2);
    EXPECT_EQ(keys(db.units), (Keys{"", "km"})) << "CM_Before has no UNIT-REF";
    EXPECT_EQ(keys(db.compuMethods), (Keys{"CM_Before"})) << "later elements are not read";
    EXPECT_TRUE(db.signals.empty());
    AutoSarReader ecuFailure;
    EXPECT_EQ(ecuFailure.LoadFile(autosarFile("ecu-without-name-4.2.arxml")), 2);
    EXPECT_EQ(keys(ecuFailure.Database().frames), (Keys{"F"}));
    EXPECT_EQ(keys(ecuFailure.Database().ecus), (Keys{"First"}));
    EXPECT_TRUE(ecuFailure.Database().clusters.empty());
}

// Units, compu-methods, ports, system signals, ECUs and clusters come from the first package
// holding any; signals, PDUs and frames from the packages nested in a package with five or more.
TEST_F(AutosarTest, PackageSelection) {
    for (int n = 4; n <= 5; ++n) {
        std::string nested;
        for (int i = 1; i < n; ++i)
            nested += package("E" + std::to_string(i), "<UNIT><SHORT-NAME>u</SHORT-NAME></UNIT>");
        nested += package("Signals", "<I-SIGNAL><SHORT-NAME>S</SHORT-NAME></I-SIGNAL>");
        AutoSarReader fresh;
        ASSERT_EQ(fresh.LoadText(arxml(package("Top", "", nested))), 0);
        EXPECT_EQ(fresh.Database().signals.size(), n >= 5 ? 1u : 0u) << n << " nested packages";
    }
    reader.ReadAUTOSARData(autosarFile("packages-five-subpackages-4.2.arxml"));
    EXPECT_EQ(keys(db.signals), (Keys{"Speed", "Temp"})) << "MoreSignals, later trees unread";
    EXPECT_EQ(keys(db.frames), (Keys{"LaterFrameSamePackage", "SpeedFrame"}));
    // Vehicle holds Group1 {Signals, Frames} and Group2 {PDUs}: five packages in all.
    reader.ReadAUTOSARData(autosarFile("packages-five-nested-at-depth-4.1.arxml"));
    EXPECT_EQ(keys(db.pdus), (Keys{"SpeedPdu"}));
    reader.ReadAUTOSARData(autosarFile("units-in-second-package-4.1.arxml"));
    EXPECT_EQ(keys(db.units), (Keys{"NoDisplay", "km", "kmh", "padded"})) << "not MoreUnits";
    expectAll({EQ(entry(db.units, "km").displayName, "kilometres"),   // the later of a name
               EQ(entry(db.units, "padded").displayName, "\tTab")});  // only blanks trimmed
    reader.ReadAUTOSARData(autosarFile("ports-r-and-p-4.2.arxml"));
    EXPECT_EQ(keys(db.ports), (Keys{"R_In", "R_Other"})) << "R-ports win over P-ports";
    EXPECT_EQ(entry(db.ports, "R_Other").compuMethod, addressOf(db.compuMethods, "CM_Unknown"));
    AutoSarReader pOnly;
    ASSERT_EQ(pOnly.LoadFile(autosarFile("ports-p-only-4.2.arxml")), 0);
    EXPECT_EQ(keys(pOnly.Database().ports), (Keys{"P_Only"}));
    reader.ReadAUTOSARData(autosarFile("ecus-and-cluster-cycle-forms-4.1.arxml"));
    EXPECT_EQ(keys(db.ecus), (Keys{"Bare", "NodeA", "NodeB"})) << "MoreECUs is not read";
}

TEST(LastSegment, CountsSeparatorsFromTheEnd) {
    const char* path = "/Vehicle/Signals/Speed";
    expectAll({EQ(LastSegment("/Vehicle/ECUs/Engine/Engine_CC", '/', 2), "Engine/Engine_CC"),
               EQ(LastSegment(path, '/', 3), "Vehicle/Signals/Speed"),
               EQ(LastSegment(path, '/', 4), path), EQ(LastSegment(path, '/', 0), path),
               EQ(LastSegment("Speed", '/', 1), "Speed"), EQ(LastSegment("/Vehicle/", '/', 1), ""),
               EQ(LastSegment("a.b.c", '.', 1), "c"), EQ(LastSegment("a/b/c", '.', 1), "a/b/c")});
}

// Every item the generator reports is in the database; frames beyond the 2000 slots share slots
// in other base cycles.
TEST_F(AutosarTest, GeneratedDocumentReadsBackCompletely) {
    kelo::gen::AutosarOptions options;
    options.frames = 2010;
    options.signalsPerFrame = 2;
    options.ecus = 5;
    options.seed = 7;
    kelo::gen::AutosarStats stats;
    std::string text;
    ASSERT_TRUE(kelo::gen::generateAutosar(
        options,
        [&text](const char* data, std::size_t size) { return text.append(data, size), true; },
        &stats));
    EXPECT_EQ(stats.bytes, text.size());
    ASSERT_EQ(reader.LoadText(text), 0);
    expectAll({EQ(db.frames.size(), stats.frames), EQ(db.pdus.size(), stats.pdus),
               EQ(db.signals.size(), stats.signals + stats.updateBitSignals),
               EQ(db.units.size(), stats.units + 1),  // text tables: the empty-name unit
               EQ(db.compuMethods.size(), stats.compuMethods), EQ(db.ecus.size(), stats.ecus),
               EQ(db.frameTriggerings.size(), stats.frameTriggerings),
               EQ(db.ecuPorts.size() + db.ports.size(), stats.ports)});
    for (const auto& [name, frame] : db.frames)
        EXPECT_TRUE(frame.slotId != 0 && frame.senderEcus.size() == 1) << name;
    // Frame 2000 shares slot 1 with frame 0, one cycle later; both repeat every 64 cycles.
    expectAll({EQ(db.frameNameAt(1, 0), "Frame0"), EQ(db.frameNameAt(1, 1), "Frame2000"),
               EQ(db.frameNameAt(1, 2), ""),
               EQ(entry(db.frames, "Frame2000").cycleRepetition, 64)});
}

}  // namespace
