// Whole-text reading and the conversions with Qt's rules: text that is no number of the required
// form, or does not fit, is 0; surrounding white space is ignored.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "xml/reader_test_support.h"
#include "xml/xml_access.h"

namespace {

using namespace kelo::xml;
using kelo_test::expectAll;

// Descendants and CDATA concatenated, comments and processing instructions skipped, references
// decoded, surrounding white space kept.
TEST(TextContent, WholeTextOfAnElement) {
    const struct {
        const char* xml;
        const char* text;
    } rows[] = {
        {"<V>1<b>2<![CDATA[<3>&]]></b>4<c><d>5</d></c>6</V>", "12<3>&456"},
        {"<V>a<!-- not text -->b<?pi not text?>c</V>", "abc"},
        {"<V>&lt;&amp;&gt;&quot;&apos;&#65;&#x42;&#xE9;</V>", "<&>\"'AB\xC3\xA9"},
        {"<V>  a\tb  </V>", "  a\tb  "},
    };
    for (const auto& row : rows) {
        Document doc;
        ASSERT_EQ(doc.loadText(row.xml), 0) << row.xml;
        EXPECT_EQ(textContent(doc.root()), row.text) << row.xml;
    }
    EXPECT_EQ(textContent(Element()), "");
}

TEST(TrimSpaces, RemovesSpacesOnly) {
    expectAll({EQ(trimSpaces("  x y  "), "x y"), EQ(trimSpaces("\tx\n"), "\tx\n"),
               EQ(trimSpaces(" \t x \n "), "\t x \n"), EQ(trimSpaces(""), ""),
               EQ(trimSpaces("     "), ""), EQ(trimSpaces("x"), "x"),
               EQ(trimSpaces("\r\n5\r\n"), "\r\n5\r\n")});
}

TEST(Conversion, NumbersAndBools) {
    expectAll({EQ(toUnsigned("12"), 12u),
               EQ(toUnsigned(" 12 "), 12u),
               EQ(toUnsigned("\t12\n"), 12u),
               EQ(toUnsigned("0"), 0u),
               EQ(toUnsigned("4294967295"), 4294967295u),
               EQ(toUnsigned("4294967296"), 0u),
               EQ(toUnsigned("1e3"), 0u),
               EQ(toUnsigned("-1"), 0u),
               EQ(toUnsigned("1.5"), 0u),
               EQ(toUnsigned("12abc"), 0u),
               EQ(toUnsigned("abc"), 0u),
               EQ(toUnsigned(""), 0u),
               EQ(toUnsigned("0x10"), 0u),
               EQ(toUnsigned16("65535"), 65535),
               EQ(toUnsigned16(" 300 "), 300),
               EQ(toUnsigned16("65536"), 0),
               EQ(toUnsigned16("70000"), 0),
               EQ(toUnsigned16("-1"), 0),
               EQ(toUnsigned16("16.0"), 0),
               EQ(toFloat("0.5"), 0.5f),
               EQ(toFloat(" 2.5 "), 2.5f),
               EQ(toFloat("-12.5"), -12.5f),
               EQ(toFloat("1e3"), 1000.0f),
               EQ(toFloat("0.1"), 0.1f),
               EQ(toFloat("abc"), 0.0f),
               EQ(toFloat("1,5"), 0.0f),
               EQ(toFloat(""), 0.0f),
               EQ(toFloat("1e39"), 0.0f),
               EQ(toFloat("-1e39"), 0.0f),
               EQ(toHex64("1A2B3C4D5E6F7081"), 0x1A2B3C4D5E6F7081ull),
               EQ(toHex64("ff"), 0xFFull),
               EQ(toHex64(" 10 "), 0x10ull),
               EQ(toHex64("FFFFFFFFFFFFFFFF"), std::numeric_limits<std::uint64_t>::max()),
               EQ(toHex64("10000000000000000"), 0u),
               EQ(toHex64("xyz"), 0u),
               EQ(toHex64(""), 0u),
               EQ(toBool("true"), true),
               EQ(toBool("TRUE"), true),
               EQ(toBool("True"), true),
               EQ(toBool("tRuE"), true),
               EQ(toBool("false"), false),
               EQ(toBool("1"), false),
               EQ(toBool("yes"), false),
               EQ(toBool(""), false),
               EQ(toBool("truex"), false),
               EQ(toBool(" true"), false)});
}

}  // namespace
