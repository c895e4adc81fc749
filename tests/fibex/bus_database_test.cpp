// The database model on its own: the type-code table, the slot lookup's bounds, and Clear.
#include <gtest/gtest.h>

#include <string>

#include "fibex/fibex_test_support.h"

namespace {

using namespace kelo_test;
using kelo::fibex::typeCode;

TEST(TypeCode, TableIsExactAndCaseSensitive) {
    EXPECT_EQ(typeCode("APPLICATION"), 1);
    EXPECT_EQ(typeCode("BAP"), 2);
    EXPECT_EQ(typeCode("DIAG-REQUEST"), 3);
    EXPECT_EQ(typeCode("DIAG-RESPONSE"), 4);
    EXPECT_EQ(typeCode("DIAG-STATE"), 5);
    EXPECT_EQ(typeCode("NM"), 6);
    EXPECT_EQ(typeCode("SERVICE"), 7);
    EXPECT_EQ(typeCode("TPL"), 8);
    EXPECT_EQ(typeCode("XCP_PRE_CONFIGURED"), 9);
    EXPECT_EQ(typeCode("XCP_RUNTIME_CONFIGURED"), 10);
    EXPECT_EQ(typeCode("nm"), 0);
    EXPECT_EQ(typeCode("XCP-PRE-CONFIGURED"), 0);
    EXPECT_EQ(typeCode(" NM"), 0);
    EXPECT_EQ(typeCode(""), 0);
}

TEST(FrameNameAt, LooksUpSlotAndCycle) {
    BusDatabase db;
    db.frameNamesBySlot[5][3] = "Five";
    db.frameNamesBySlot[5][63] = "Last";
    EXPECT_EQ(db.frameNameAt(5, 3), "Five");
    EXPECT_EQ(db.frameNameAt(5, 63), "Last");
    EXPECT_EQ(db.frameNameAt(5, 4), "");
    EXPECT_EQ(db.frameNameAt(6, 3), "");
    EXPECT_EQ(db.frameNameAt(5, 64), "");
    EXPECT_EQ(db.frameNameAt(5, 255), "");
    EXPECT_EQ(db.frameNamesBySlot.size(), 1u);  // a lookup inserts nothing
}

TEST_F(FibexTest, ClearEmptiesEveryContainer) {
    reader.ReadFIBEXData(fibexFile("small-flexray-cluster.xml"));
    ASSERT_TRUE(db.loaded);
    for (std::size_t n : containerSizes(db))
        if (n == 0) ADD_FAILURE() << "the realistic file should fill every container";
    db.Clear();
    EXPECT_TRUE(isEmpty(db));
    EXPECT_FALSE(db.loaded);
}

}  // namespace
