// LoadFile and ReadFIBEXData: the version table, result codes for bad input, the step order with
// the second run of a failing step, and inputs built to break the parser or a walk.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "xml/diagnostics.h"
#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;

// A document that passes every step, with the given VERSION attribute (none when null).
std::string minimalFibex(const char* version) {
    std::string xml = "<?xml version=\"1.0\"?>\n<fx:FIBEX xmlns:fx=\"http://www.asam.net/xml/fbx\"";
    if (version) xml += std::string(" VERSION=\"") + version + "\"";
    xml += "><fx:ELEMENTS><fx:CHANNELS/></fx:ELEMENTS></fx:FIBEX>\n";
    return xml;
}

// ---- versions ------------------------------------------------------------------------------

struct VersionFile {
    const char* file;
    int code;
    int versionCode;
    bool pduStepRuns;
};

class VersionFiles : public FibexTest, public ::testing::WithParamInterface<VersionFile> {};

TEST_P(VersionFiles, CodeVersionAndPduStep) {
    const VersionFile& v = GetParam();
    ASSERT_EQ(load(v.file), v.code);
    if (v.code != 0) {
        EXPECT_TRUE(isEmpty(db));
        return;
    }
    EXPECT_EQ(db.versionCode, v.versionCode);
    // Everything but the PDUs is read in every supported version.
    EXPECT_EQ(keys(db.frames), Keys{"FR_V"});
    EXPECT_EQ(entry(db.frames, "FR_V").slotId, 4);
    EXPECT_EQ(keys(db.signals), Keys{"SIG_V"});
    EXPECT_EQ(keys(db.ecus), Keys{"ECU_V"});
    EXPECT_EQ(entry(db.clusters, "CL_V").numberOfStaticSlots, 30u);
    EXPECT_EQ(entry(db.units, "U_V").displayName, "v");
    EXPECT_EQ(entry(db.codings, "COD_V").dataType, 5);

    // The frame's PDU-REF always resolves; only the PDU step fills the record behind it.
    ASSERT_EQ(keys(db.pdus), Keys{"PDU_V"});
    const auto& frame = entry(db.frames, "FR_V");
    ASSERT_EQ(frame.pduInstances.size(), 1u);
    EXPECT_EQ(frame.pduInstances[0].pdu, addressOf(db.pdus, "PDU_V"));
    const auto& pdu = entry(db.pdus, "PDU_V");
    const auto& signal = entry(db.signals, "SIG_V");
    if (v.pduStepRuns) {
        expectAll({EQ(pdu.shortName, "VersionPdu"), EQ(pdu.byteLength, 4),
                   EQ(pdu.signalInstanceCount, 1u)});
        EXPECT_EQ(keys(db.signalInstances), Keys{"SI_V"});
        expectAll({EQ(signal.pduId, "PDU_V"), EQ(signal.bitPosition, 11),
                   EQ(signal.isHighLowByteOrder, true)});
    } else {
        EXPECT_EQ(pdu.shortName, "");
        EXPECT_EQ(pdu.byteLength, 0);
        EXPECT_TRUE(pdu.signalInstances.empty());
        EXPECT_TRUE(db.signalInstances.empty());
        expectAll({EQ(signal.pduId, ""), EQ(signal.bitPosition, 0),
                   EQ(signal.isHighLowByteOrder, false)});
    }
}

INSTANTIATE_TEST_SUITE_P(Table, VersionFiles,
                         ::testing::Values(VersionFile{"version-2.0.1-no-pdus.xml", 0, 1, false},
                                           VersionFile{"version-3.0.0.xml", 0, 2, true},
                                           VersionFile{"version-3.1.2.xml", 0, 3, true},
                                           VersionFile{"version-3.1-unsupported.xml", 7, -1, false},
                                           VersionFile{"version-1.2.0-unsupported.xml", 7, -1,
                                                       false}));

TEST_F(FibexTest, Version120aReadsFramesWithoutPdus) {
    loadOk("version-1.2.0a.xml");
    EXPECT_EQ(db.versionCode, 0);
    EXPECT_TRUE(db.pdus.empty());
    EXPECT_TRUE(db.signalInstances.empty());
    const auto& frame = entry(db.frames, "FR_OLD");
    expectAll({EQ(frame.shortName, "OldFrame"), EQ(frame.byteLength, 6),
               EQ(frame.pduInstanceCount, 0u), EQ(frame.slotId, 9), EQ(frame.baseCycle, 1),
               EQ(frame.cycleRepetition, 2), EQ(frame.channelMask, 2)});
    const auto& signal = entry(db.signals, "SIG_OLD");
    expectAll({EQ(signal.defaultValue, 2.0), EQ(signal.pduId, ""), EQ(signal.bitPosition, 0)});
    EXPECT_EQ(entry(db.codings, "COD_OLD").bitLength, 10);
    EXPECT_EQ(entry(db.clusters, "CL_OLD").numberOfStaticSlots, 62u);
    EXPECT_EQ(entry(db.ecusByName, "OldEcu").shortName, "OldEcu");
}

TEST(VersionTable, PrefixesAndExactMatch) {
    struct Case {
        const char* version;  // null: no VERSION attribute
        int code;
        int versionCode;
    };
    const Case cases[] = {
        {"1.2.0a", 0, 0}, {"1.2.0", 7, -1},  {"1.2.0A", 7, -1}, {"1.2.0a1", 7, -1}, {"2.0.", 0, 1},
        {"2.0.0", 0, 1},  {"2.0.1", 0, 1},   {"2.0", 7, -1},    {"2.1.0", 7, -1},   {"3.0.0", 0, 2},
        {"3.0.9b", 0, 2}, {"3.0", 7, -1},    {"3.1.0", 0, 3},   {"3.1.2", 0, 3},    {"3.1.x", 0, 3},
        {"3.1", 7, -1},   {"3.10.0", 7, -1}, {"3.2.0", 7, -1},  {"4.0.0", 7, -1},   {"", 7, -1},
        {nullptr, 7, -1}, {"v3.1.0", 7, -1},
    };
    ScratchDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.version ? c.version : "(no VERSION)");
        BusDatabase db;
        FibexReader reader(db);
        EXPECT_EQ(reader.LoadFile(dir.write("version.xml", minimalFibex(c.version))), c.code);
        if (c.code == 0) {
            EXPECT_EQ(db.versionCode, c.versionCode);
        }
    }
}

// ---- bad input -----------------------------------------------------------------------------

TEST_F(FibexTest, BadInputCodesLeaveAFreshDatabaseEmpty) {
    ScratchDir dir;
    struct Case {
        std::string path;
        int code;
    };
    const std::vector<Case> cases = {
        {dir.path() + "/missing.xml", 2},
        {dir.path(), 2},
        {fibexFile("malformed.xml"), 3},
        {dir.write("empty.xml", ""), 3},
        {fibexFile("version-3.1-unsupported.xml"), 7},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(reader.LoadFile(c.path), c.code);
        EXPECT_EQ(reader.filePath, c.path);
        EXPECT_TRUE(isEmpty(db));
        EXPECT_EQ(db.versionCode, -1);
    }
}

TEST_F(FibexTest, FailedLoadFileLeavesALoadedDatabaseAlone) {
    loadOk("small-flexray-cluster.xml");
    const auto sizes = containerSizes(db);
    ScratchDir dir;
    EXPECT_EQ(reader.LoadFile(dir.path() + "/missing.xml"), 2);
    EXPECT_EQ(reader.LoadFile(dir.path()), 2);
    EXPECT_EQ(reader.LoadFile(fibexFile("malformed.xml")), 3);
    EXPECT_EQ(reader.LoadFile(fibexFile("version-1.2.0-unsupported.xml")), 7);
    EXPECT_EQ(containerSizes(db), sizes);
    EXPECT_EQ(entry(db.frames, "FR_DYN").slotId, 5);
}

TEST_F(FibexTest, ReadFibexDataSetsTheLoadedFlag) {
    reader.ReadFIBEXData(fibexFile("small-flexray-cluster.xml"));
    expectAll({EQ(reader.loaded, true), EQ(db.loaded, true), EQ(db.versionCode, 3)});
    EXPECT_EQ(reader.filePath, fibexFile("small-flexray-cluster.xml"));
    for (std::size_t n : containerSizes(db))
        EXPECT_NE(n, 0u) << "the realistic file fills every container";

    // A second file replaces the first.
    reader.ReadFIBEXData(fibexFile("update-bits.xml"));
    EXPECT_TRUE(reader.loaded);
    EXPECT_EQ(keys(db.frames), Keys{"FR_BODY"});
    EXPECT_TRUE(db.clusters.empty());
    EXPECT_TRUE(db.ecuList.empty());

    // A failed read clears the database and the flag.
    reader.ReadFIBEXData(fibexFile("malformed.xml"));
    EXPECT_FALSE(reader.loaded);
    EXPECT_FALSE(db.loaded);
    EXPECT_TRUE(isEmpty(db));
}

TEST_F(FibexTest, ReadFibexDataWithEmptyPathChangesNothing) {
    reader.ReadFIBEXData("");
    EXPECT_FALSE(reader.loaded);
    EXPECT_TRUE(isEmpty(db));

    reader.ReadFIBEXData(fibexFile("small-flexray-cluster.xml"));
    ASSERT_TRUE(reader.loaded);
    const auto sizes = containerSizes(db);
    reader.ReadFIBEXData("");
    expectAll({EQ(reader.loaded, true), EQ(db.loaded, true), EQ(db.versionCode, 3)});
    EXPECT_EQ(reader.filePath, fibexFile("small-flexray-cluster.xml"));
    EXPECT_EQ(containerSizes(db), sizes);
}

TEST_F(FibexTest, ReadFibexDataOfAMissingFileAfterASuccess) {
    reader.ReadFIBEXData(fibexFile("small-flexray-cluster.xml"));
    ASSERT_TRUE(reader.loaded);
    ScratchDir dir;
    reader.ReadFIBEXData(dir.path() + "/gone.xml");
    EXPECT_FALSE(reader.loaded);
    EXPECT_FALSE(db.loaded);
    EXPECT_TRUE(isEmpty(db));
}

// ---- step order and the second run of a failing step ---------------------------------------

TEST_F(FibexTest, UnitWithoutShortNameStopsAfterTheUnitStep) {
    EXPECT_EQ(load("unit-without-short-name.xml"), 2);
    // Units before the faulty one stay; no later step ran.
    EXPECT_EQ(keys(db.units), Keys{"U_FIRST"});
    EXPECT_EQ(entry(db.units, "U_FIRST").displayName, "1st");
    EXPECT_TRUE(db.codings.empty());
    EXPECT_TRUE(db.signals.empty());
    EXPECT_TRUE(db.channels.empty());

    reader.ReadFIBEXData(fibexFile("unit-without-short-name.xml"));
    EXPECT_FALSE(reader.loaded);
    EXPECT_EQ(keys(db.units), Keys{"U_FIRST"});
}

TEST_F(FibexTest, CodingWithoutShortNameStopsAfterTheCodingStep) {
    EXPECT_EQ(load("coding-without-short-name.xml"), 2);
    EXPECT_EQ(keys(db.units), Keys{"U_ONLY"});
    EXPECT_EQ(keys(db.codings), Keys{"COD_FIRST"});
    EXPECT_TRUE(db.signals.empty());
}

TEST_F(FibexTest, EcuWithoutShortNameReturns3AfterTwoRuns) {
    EXPECT_EQ(load("ecu-without-short-name.xml"), 3);
    EXPECT_EQ(keys(db.channels), Keys{"CH_A"});
    EXPECT_EQ(keys(db.ecus), Keys{"ECU_BEFORE"});
    EXPECT_EQ(keys(db.ecusByName), Keys{"BeforeTheFault"});
    EXPECT_EQ(keys(db.controllers), Keys{"CTRL_BEFORE"});
    // The ECU step ran twice: the list, unlike the maps, shows both runs.
    ASSERT_EQ(db.ecuList.size(), 2u);
    EXPECT_EQ(db.ecuList[0].first, "ECU_BEFORE");
    EXPECT_EQ(db.ecuList[1].first, "ECU_BEFORE");
    EXPECT_EQ(db.ecuList[1].second.controllers.size(), 1u);
    // The cluster step did not run.
    EXPECT_TRUE(db.clusters.empty());

    reader.ReadFIBEXData(fibexFile("ecu-without-short-name.xml"));
    EXPECT_FALSE(reader.loaded);
    EXPECT_EQ(db.ecuList.size(), 2u);
}

TEST_F(FibexTest, NoChannelListReturns2BeforeEcusAndClusters) {
    EXPECT_EQ(load("no-channel-list.xml"), 2);
    EXPECT_EQ(keys(db.frames), Keys{"FR_1"});
    EXPECT_TRUE(db.channels.empty());
    EXPECT_TRUE(db.ecus.empty());
    EXPECT_TRUE(db.ecuList.empty());
    EXPECT_TRUE(db.clusters.empty());

    ScratchDir dir;
    BusDatabase other;
    FibexReader otherReader(other);
    EXPECT_EQ(otherReader.LoadFile(dir.write("bare.xml",
                                             "<fx:FIBEX xmlns:fx=\"http://www.asam.net/xml/fbx\" "
                                             "VERSION=\"3.1.0\"/>")),
              2);
}

TEST_F(FibexTest, StepsCanRunAgainOnTheKeptDocument) {
    loadOk("small-flexray-cluster.xml");
    const auto sizes = containerSizes(db);
    EXPECT_EQ(reader.ParseUnits(), 0);
    EXPECT_EQ(reader.ParseCodings(), 0);
    EXPECT_EQ(reader.ParseSignals(), 0);
    EXPECT_EQ(reader.ParsePDUs(), 0);
    EXPECT_EQ(reader.ParseFrames(), 0);
    EXPECT_EQ(reader.ParseChannels(), 0);
    EXPECT_EQ(reader.ParseClusters(), 0);
    EXPECT_EQ(containerSizes(db), sizes);
    EXPECT_EQ(reader.ParseECUs(), 0);
    EXPECT_EQ(db.ecuList.size(), 6u);  // appended again; the maps stay as they were
    EXPECT_EQ(db.ecus.size(), 3u);
}

// ---- diagnostics stay silent ---------------------------------------------------------------

TEST_F(FibexTest, DiagnosticsAreSilentByDefault) {
    if (kelo::xml::kDiagnosticsOn) GTEST_SKIP() << "built with KELO_DIAGNOSTICS=ON";
    ::testing::internal::CaptureStdout();
    reader.ReadFIBEXData(fibexFile("coding-errors.xml"));
    reader.ReadFIBEXData(fibexFile("channel-errors.xml"));
    reader.ReadFIBEXData(fibexFile("ecu-without-short-name.xml"));
    reader.ReadFIBEXData(fibexFile("version-3.1-unsupported.xml"));
    reader.LoadFile(fibexFile("frame-errors.xml"));
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

}  // namespace
