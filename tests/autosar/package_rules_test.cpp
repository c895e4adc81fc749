// Which packages each step reads: the first package holding the kind (units, compu-methods,
// ports, system signals, ECUs, clusters), and the packages nested in a package with five or
// more nested packages (signals, PDUs, frames).
#include <gtest/gtest.h>

#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;

TEST_F(AutosarTest, FourSubPackagesHideSignalsPdusAndFrames) {
    loadOk("packages-four-subpackages-4.2.arxml");
    EXPECT_EQ(keys(db.units), (Keys{"kmh"})) << "units follow the first-package rule";
    EXPECT_TRUE(db.signals.empty());
    EXPECT_TRUE(db.pdus.empty());
    EXPECT_TRUE(db.frames.empty());
}

TEST_F(AutosarTest, FiveSubPackagesAreSearchedAndTheFirstHolderWins) {
    loadOk("packages-five-subpackages-4.2.arxml");
    EXPECT_EQ(keys(db.signals), (Keys{"Speed", "Temp"}))
        << "MoreSignals and the later tree are not read";
    EXPECT_EQ(keys(db.pdus), (Keys{"SpeedPdu"}));
    EXPECT_EQ(keys(db.frames), (Keys{"LaterFrameSamePackage", "SpeedFrame"}));
}

TEST_F(AutosarTest, NestedPackagesCountAtAnyDepth) {
    // Vehicle holds Group1 {Signals, Frames} and Group2 {PDUs}: five packages in all.
    loadOk("packages-five-nested-at-depth-4.1.arxml");
    EXPECT_EQ(keys(db.signals), (Keys{"Speed", "Temp"}));
    EXPECT_EQ(keys(db.pdus), (Keys{"SpeedPdu"}));
    EXPECT_EQ(keys(db.frames), (Keys{"SpeedFrame"}));
}

TEST_F(AutosarTest, ThresholdTable) {
    // n packages below the top one; the signal sits in the last of them.
    for (int n = 1; n <= 7; ++n) {
        std::string nested;
        for (int i = 1; i < n; ++i)
            nested +=
                package("Empty" + std::to_string(i), "<UNIT><SHORT-NAME>u</SHORT-NAME></UNIT>");
        nested += package("Signals", "<I-SIGNAL><SHORT-NAME>S</SHORT-NAME></I-SIGNAL>");
        AutoSarReader fresh;
        ASSERT_EQ(fresh.LoadText(arxml(package("Top", "", nested))), 0);
        EXPECT_EQ(fresh.Database().signals.size(), n >= 5 ? 1u : 0u) << n << " nested packages";
    }
}

TEST_F(AutosarTest, UnitsComeFromTheFirstPackageHoldingAny) {
    loadOk("units-in-second-package-4.1.arxml");
    EXPECT_EQ(keys(db.units), (Keys{"NoDisplay", "km", "kmh", "padded"}))
        << "Misc has ELEMENTS but no UNIT; MoreUnits is never read";
    EXPECT_EQ(entry(db.units, "km").displayName, "kilometres") << "the later unit of a name wins";
    EXPECT_EQ(entry(db.units, "km").description, "");
    EXPECT_EQ(entry(db.units, "kmh").displayName, "km/h");
    EXPECT_EQ(entry(db.units, "NoDisplay").displayName, "");
    EXPECT_EQ(entry(db.units, "padded").name, "padded");
    EXPECT_EQ(entry(db.units, "padded").displayName, "\tTab") << "only blanks are trimmed";
    EXPECT_EQ(keys(db.systemSignals), (Keys{"SysSigOnly"}));
}

TEST_F(AutosarTest, RPortsWinOverPPortsInTheFirstComposition) {
    loadOk("ports-r-and-p-4.2.arxml");
    EXPECT_EQ(keys(db.ports), (Keys{"R_In", "R_Other"}));
    EXPECT_EQ(entry(db.ports, "R_In").compuMethod, addressOf(db.compuMethods, "CM_A"));
    EXPECT_EQ(entry(db.ports, "R_Other").compuMethod, addressOf(db.compuMethods, "CM_Unknown"))
        << "an unknown compu-method is created empty";
    EXPECT_TRUE(entry(db.compuMethods, "CM_Unknown").category.empty());
}

TEST_F(AutosarTest, PPortsAreReadWithTheReceiverPath) {
    loadOk("ports-p-only-4.2.arxml");
    EXPECT_EQ(keys(db.ports), (Keys{"P_Only"}));
    EXPECT_EQ(entry(db.ports, "P_Only").compuMethod, addressOf(db.compuMethods, ""))
        << "a P-port has no required com-spec: the empty-name compu-method";
}

TEST_F(AutosarTest, FirstPackageWithEcusAndClustersIsRead) {
    loadOk("ecus-and-cluster-cycle-forms-4.1.arxml");
    EXPECT_EQ(keys(db.ecus), (Keys{"Bare", "NodeA", "NodeB"})) << "MoreECUs is not read";
    EXPECT_EQ(keys(db.clusters), (Keys{"Backbone", "EmptyCluster"}));
}

}  // namespace
