// KeLo_DatabaseStatusText: a sentence for every status a database export returns, the number for
// any other.
#include <cstring>
#include <string>

#include "dbapi_test_support.h"

namespace {

TEST(DatabaseStatusText, EveryCodeHasASentenceAndAnUnknownOneNamesItsNumber) {
    for (int code : {0, 1, 2, 3, 4, 5, 6, 7, 9, 14, 15, 16, 17, 18, 21, 22}) {
        const char* text = KeLo_DatabaseStatusText(static_cast<unsigned char>(code));
        ASSERT_NE(text, nullptr) << code;
        EXPECT_GT(std::strlen(text), 5u) << code;
        EXPECT_EQ(std::string(text).find("unknown database status"), std::string::npos) << code;
        EXPECT_EQ(text, KeLo_DatabaseStatusText(static_cast<unsigned char>(code))) << "one text";
    }
    EXPECT_STREQ(KeLo_DatabaseStatusText(8), "unknown database status 8");
    EXPECT_STREQ(KeLo_DatabaseStatusText(255), "unknown database status 255");
}

}  // namespace
