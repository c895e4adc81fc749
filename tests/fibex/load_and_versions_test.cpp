// LoadFile and ReadFIBEXData: each file's result code, version code and what is left of the
// database (the steps run in order, a failing step runs twice and stops the load), and the version
// table.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;
using Sizes = std::vector<std::size_t>;

// Units, codings, signals, PDUs, signal instances, frames, channels, ECUs, the ECU list, clusters.
Sizes left(const BusDatabase& db) {
    return {db.units.size(),           db.codings.size(), db.signals.size(),  db.pdus.size(),
            db.signalInstances.size(), db.frames.size(),  db.channels.size(), db.ecus.size(),
            db.ecuList.size(),         db.clusters.size()};
}

TEST(FibexLoad, EachFileGivesItsCodeVersionAndRecords) {
    ScratchDir dir;
    const Sizes none(10, 0);
    const struct {
        std::string path;
        int code, versionCode;
        Sizes left;
    } rows[] = {
        // The PDU step runs from 3.0 on; the frame's PDU-REF creates PDU_V in 2.0 all the same.
        {fibexFile("version-2.0.1-no-pdus.xml"), 0, 1, {1, 1, 1, 1, 0, 1, 1, 1, 1, 1}},
        {fibexFile("version-3.0.0.xml"), 0, 2, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1}},
        {fibexFile("version-3.1.2.xml"), 0, 3, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1}},
        {fibexFile("version-1.2.0a.xml"), 0, 0, {0, 1, 1, 0, 0, 1, 1, 1, 1, 1}},
        {fibexFile("version-3.1-unsupported.xml"), 7, -1, none},
        {fibexFile("malformed.xml"), 3, -1, none},
        {dir.write("empty.xml", ""), 3, -1, none},
        {dir.path() + "/missing.xml", 2, -1, none},
        // Records of the steps before the failing one stay; later steps do not run.
        {fibexFile("unit-without-short-name.xml"), 2, 3, {1, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {fibexFile("coding-without-short-name.xml"), 2, 3, {1, 1, 0, 0, 0, 0, 0, 0, 0, 0}},
        {fibexFile("no-channel-list.xml"), 2, 3, {0, 0, 0, 0, 0, 1, 0, 0, 0, 0}},
        // The ECU step ran twice: the list, unlike the maps, holds both runs.
        {fibexFile("ecu-without-short-name.xml"), 3, 3, {0, 0, 0, 0, 0, 0, 1, 1, 2, 0}},
        {dir.write("bare.xml",
                   "<fx:FIBEX xmlns:fx=\"http://www.asam.net/xml/fbx\" VERSION=\"3.1.0\"/>"),
         2, 3, none},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        BusDatabase db;
        FibexReader reader(db);
        EXPECT_EQ(reader.LoadFile(row.path), row.code);
        expectAll({EQ(reader.filePath, row.path), EQ(db.versionCode, row.versionCode)});
        EXPECT_EQ(left(db), row.left);
        EXPECT_TRUE(row.left != none || isEmpty(db));
        // Only where the PDU step ran does a signal know the frame of its PDU.
        if (row.code == 0) {
            EXPECT_EQ(db.signals.begin()->second.frame,
                      row.left[4] ? &db.frames.begin()->second : nullptr);
        }
    }
}

TEST(FibexLoad, VersionTable) {
    const struct {
        const char* version;  // null: no VERSION attribute
        int code, versionCode;
    } rows[] = {{"1.2.0a", 0, 0}, {"1.2.0", 7, -1},  {"1.2.0A", 7, -1}, {"1.2.0a1", 7, -1},
                {"2.0.", 0, 1},   {"2.0.1", 0, 1},   {"2.0", 7, -1},    {"2.1.0", 7, -1},
                {"3.0.9b", 0, 2}, {"3.0", 7, -1},    {"3.1.0", 0, 3},   {"3.1.x", 0, 3},
                {"3.1", 7, -1},   {"3.10.0", 7, -1}, {"3.2.0", 7, -1},  {"", 7, -1},
                {nullptr, 7, -1}, {"v3.1.0", 7, -1}};
    ScratchDir dir;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.version ? row.version : "(no VERSION)");
        std::string xml = "<fx:FIBEX xmlns:fx=\"http://www.asam.net/xml/fbx\"";
        if (row.version) xml += std::string(" VERSION=\"") + row.version + "\"";
        BusDatabase db;
        FibexReader reader(db);
        EXPECT_EQ(reader.LoadFile(dir.write("v.xml", xml + "><fx:ELEMENTS><fx:CHANNELS/>"
                                                           "</fx:ELEMENTS></fx:FIBEX>")),
                  row.code);
        EXPECT_EQ(db.versionCode, row.versionCode);
    }
}

// A failed LoadFile leaves a loaded database alone; ReadFIBEXData replaces the database, clears
// it on a failure, and ignores an empty path.
TEST_F(FibexTest, ReadFibexDataReplacesClearsOrIgnores) {
    loadOk("small-flexray-cluster.xml");
    const auto loaded = containerSizes(db);
    expectAll({EQ(load("no-such-file.xml"), 2), EQ(load("malformed.xml"), 3),
               EQ(load("version-1.2.0-unsupported.xml"), 7)});
    EXPECT_EQ(containerSizes(db), loaded);
    db.Clear();
    reader.ReadFIBEXData("");
    EXPECT_FALSE(reader.loaded);
    reader.ReadFIBEXData(fibexFile("small-flexray-cluster.xml"));
    expectAll({EQ(reader.loaded, true), EQ(db.loaded, true), EQ(db.versionCode, 3)});
    for (std::size_t n : containerSizes(db))
        EXPECT_NE(n, 0u) << "the realistic file fills every container";
    const auto sizes = containerSizes(db);
    reader.ReadFIBEXData("");
    expectAll(
        {EQ(reader.loaded, true), EQ(reader.filePath, fibexFile("small-flexray-cluster.xml"))});
    EXPECT_EQ(containerSizes(db), sizes);

    reader.ReadFIBEXData(fibexFile("update-bits.xml"));
    EXPECT_TRUE(reader.loaded);
    EXPECT_EQ(keys(db.frames), Keys{"FR_BODY"});
    EXPECT_TRUE(db.clusters.empty());
    for (const char* failing :
         {"malformed.xml", "no-such-file.xml", "ecu-without-short-name.xml"}) {
        reader.ReadFIBEXData(fibexFile(failing));
        expectAll({EQ(reader.loaded, false), EQ(db.loaded, false)});
    }
    EXPECT_EQ(db.ecuList.size(), 2u) << "the records a failing load left";
    reader.ReadFIBEXData(fibexFile("malformed.xml"));
    EXPECT_TRUE(isEmpty(db));
}

}  // namespace
