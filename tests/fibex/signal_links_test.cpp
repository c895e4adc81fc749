// What the load adds for the codec beside the records: each signal's coding.
#include <gtest/gtest.h>

#include <string>

#include "fibex/fibex_test_support.h"

namespace {

using namespace kelo_test;

TEST_F(FibexTest, SignalsLinkTheirCoding) {
    loadOk("small-flexray-cluster.xml");
    struct Case {
        const char* signal;
        const char* coding;  // null: no coding
    };
    const Case cases[] = {
        {"SIG_SPEED", "COD_SPEED"}, {"SIG_RPM", "COD_SPEED"},  {"SIG_GEAR", "COD_GEAR"},
        {"SIG_TEMP", "COD_TEMP"},   {"SIG_SPEED_UB", nullptr}, {"SIG_TEMP_UB", nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.signal);
        const auto* expected = c.coding ? addressOf(db.codings, c.coding) : nullptr;
        if (c.coding) {
            ASSERT_NE(expected, nullptr);
        }
        EXPECT_EQ(entry(db.signals, c.signal).coding, expected);
    }
    EXPECT_EQ(entry(db.signals, "SIG_SPEED").coding->bitLength, 13);
}

TEST_F(FibexTest, DanglingCodingReferenceLinksTheEmptyCoding) {
    loadOk("dangling-references.xml");
    const auto* ghost = addressOf(db.codings, "COD_GHOST");
    ASSERT_NE(ghost, nullptr);
    EXPECT_EQ(entry(db.signals, "SIG_REAL").coding, ghost);
    // A signal created by a dangling SIGNAL-REF was never read as a signal.
    EXPECT_EQ(entry(db.signals, "SIG_GHOST").coding, nullptr);
}

TEST_F(FibexTest, SameShortNameTwiceKeepsEachCoding) {
    loadOk("signal-errors.xml");
    EXPECT_EQ(entry(db.signals, "SIG_FIRST").coding, addressOf(db.codings, "COD_U8"));
    EXPECT_EQ(entry(db.signals, "SIG_SECOND").coding, addressOf(db.codings, "COD_U8"));
}

}  // namespace
