// LastSegment: the AUTOSAR reference paths. The finder and lister in the AUTOSAR selector syntax
// and the typed readers are checked with the XML layer.
#include <gtest/gtest.h>

#include <string>

#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;
using namespace kelo::autosar;

TEST(LastSegment, CountsSeparatorsFromTheEnd) {
    const struct {
        const char* text;
        char separator;
        unsigned count;
        const char* expected;
    } cases[] = {
        {"/Vehicle/Signals/Speed", '/', 1, "Speed"},
        {"/Vehicle/ECUs/Engine/Engine_CC", '/', 2, "Engine/Engine_CC"},
        {"/Vehicle/ECUs/Engine/Conn/FP_Frame", '/', 3, "Engine/Conn/FP_Frame"},
        {"/Vehicle/Signals/Speed", '/', 3, "Vehicle/Signals/Speed"},
        {"/Vehicle/Signals/Speed", '/', 4, "/Vehicle/Signals/Speed"},  // fewer separators
        {"/Vehicle/Signals/Speed", '/', 0, "/Vehicle/Signals/Speed"},
        {"Speed", '/', 1, "Speed"},
        {"", '/', 1, ""},
        {"/Vehicle/", '/', 1, ""},
        {"a.b.c", '.', 1, "c"},
        {"a/b/c", '.', 1, "a/b/c"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(LastSegment(c.text, c.separator, c.count), c.expected)
            << c.text << " count " << c.count;
}

}  // namespace
