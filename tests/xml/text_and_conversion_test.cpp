// Text content, trimming, the number and bool conversions, and the typed readers on top of them.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "xml/xml_access.h"

namespace {

using namespace kelo::xml;

Element elementOf(Document& doc, const std::string& xml) {
    EXPECT_EQ(doc.loadText(xml), 0) << xml;
    return doc.root();
}

// ---- text content --------------------------------------------------------------------------

TEST(TextContent, ConcatenatesDescendantsAndCdata) {
    Document doc;
    Element e = elementOf(doc, "<V>1<b>2<![CDATA[<3>&]]></b>4<c><d>5</d></c>6</V>");
    EXPECT_EQ(textContent(e), "12<3>&456");
}

TEST(TextContent, SkipsCommentsAndProcessingInstructions) {
    Document doc;
    Element e = elementOf(doc, "<V>a<!-- not text -->b<?pi not text?>c</V>");
    EXPECT_EQ(textContent(e), "abc");
}

TEST(TextContent, DecodesReferences) {
    Document doc;
    Element e = elementOf(doc, "<V>&lt;&amp;&gt;&quot;&apos;&#65;&#x42;&#xE9;</V>");
    EXPECT_EQ(textContent(e), "<&>\"'AB\xC3\xA9");
}

TEST(TextContent, KeepsSurroundingWhiteSpaceAndNullIsEmpty) {
    Document doc;
    Element e = elementOf(doc, "<V>  a\tb  </V>");
    EXPECT_EQ(textContent(e), "  a\tb  ");
    EXPECT_EQ(textContent(Element()), "");
}

TEST(TrimSpaces, RemovesSpacesOnly) {
    struct Case {
        const char* in;
        const char* out;
    };
    const Case cases[] = {
        {"  x y  ", "x y"}, {"\tx\n", "\tx\n"}, {" \t x \n ", "\t x \n"},   {"", ""},
        {"     ", ""},      {"x", "x"},         {"\r\n5\r\n", "\r\n5\r\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(std::string(c.in)));
        EXPECT_EQ(trimSpaces(c.in), c.out);
    }
}

// ---- conversions ---------------------------------------------------------------------------

TEST(Conversion, Unsigned32) {
    struct Case {
        const char* text;
        std::uint32_t value;
    };
    const Case cases[] = {
        {"12", 12},        {" 12 ", 12}, {"\t12\n", 12}, {"0", 0},   {"4294967295", 4294967295u},
        {"4294967296", 0}, {"1e3", 0},   {"-1", 0},      {"1.5", 0}, {"12abc", 0},
        {"abc", 0},        {"", 0},      {"0x10", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(std::string(c.text)));
        EXPECT_EQ(toUnsigned(c.text), c.value);
    }
}

TEST(Conversion, Unsigned16) {
    EXPECT_EQ(toUnsigned16("65535"), 65535);
    EXPECT_EQ(toUnsigned16(" 300 "), 300);
    EXPECT_EQ(toUnsigned16("65536"), 0);
    EXPECT_EQ(toUnsigned16("70000"), 0);
    EXPECT_EQ(toUnsigned16("-1"), 0);
    EXPECT_EQ(toUnsigned16("16.0"), 0);
}

TEST(Conversion, Float) {
    EXPECT_EQ(toFloat("0.5"), 0.5f);
    EXPECT_EQ(toFloat(" 2.5 "), 2.5f);
    EXPECT_EQ(toFloat("-12.5"), -12.5f);
    EXPECT_EQ(toFloat("1e3"), 1000.0f);
    EXPECT_EQ(toFloat("0.1"), 0.1f);
    EXPECT_EQ(toFloat("abc"), 0.0f);
    EXPECT_EQ(toFloat("1,5"), 0.0f);
    EXPECT_EQ(toFloat(""), 0.0f);
}

TEST(Conversion, FloatTooLargeForItsWidthIsZero) {
    EXPECT_EQ(toFloat("1e39"), 0.0f);
    EXPECT_EQ(toFloat("-1e39"), 0.0f);
}

TEST(Conversion, Hex64NeedsNoPrefix) {
    EXPECT_EQ(toHex64("1A2B3C4D5E6F7081"), 0x1A2B3C4D5E6F7081ull);
    EXPECT_EQ(toHex64("ff"), 0xFFull);
    EXPECT_EQ(toHex64(" 10 "), 0x10ull);
    EXPECT_EQ(toHex64("FFFFFFFFFFFFFFFF"), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(toHex64("10000000000000000"), 0u);  // 65 bits
    EXPECT_EQ(toHex64("xyz"), 0u);
    EXPECT_EQ(toHex64(""), 0u);
}

TEST(Conversion, BoolIsLowerCasedTextEqualToTrue) {
    EXPECT_TRUE(toBool("true"));
    EXPECT_TRUE(toBool("TRUE"));
    EXPECT_TRUE(toBool("True"));
    EXPECT_TRUE(toBool("tRuE"));
    EXPECT_FALSE(toBool("false"));
    EXPECT_FALSE(toBool("1"));
    EXPECT_FALSE(toBool("yes"));
    EXPECT_FALSE(toBool(""));
    EXPECT_FALSE(toBool("truex"));
    EXPECT_FALSE(toBool(" true"));  // no trimming
}

// ---- typed readers -------------------------------------------------------------------------

const char* const kValues = R"(<R>
  <F>2.5</F>
  <D>0.1</D>
  <U> 12 </U>
  <EXP>1e3</EXP>
  <BIG>70000</BIG>
  <SMALL>65535</SMALL>
  <H>1A2B3C4D5E6F7081</H>
  <B1>TRUE</B1><B2>True</B2><B3>yes</B3><B4>false</B4>
  <T>  padded text  </T>
  <TAB>&#9;7&#10;</TAB>
  <A flag="TRUE" off="no" name="  padded  " empty=""/>
  <NEST><V>9</V><ITEM ID="b"><V>22</V></ITEM></NEST>
</R>)";

class TypedReaders : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(doc.loadText(kValues), 0); }
    Document doc;
};

TEST_F(TypedReaders, WithDefault) {
    Element r = doc.root();
    EXPECT_EQ(readFloat(r, "F", -7.0f), 2.5f);
    EXPECT_EQ(readFloat(r, "MISSING", -7.0f), -7.0f);
    EXPECT_EQ(readUnsigned(r, "U", 99), 12u);
    EXPECT_EQ(readUnsigned(r, "EXP", 99), 0u);
    EXPECT_EQ(readUnsigned(r, "MISSING", 99), 99u);
    EXPECT_EQ(readUnsigned(r, "NEST/V", 99), 9u);
    EXPECT_EQ(readUnsigned(r, "NEST/ITEM[ID=b]", 99), 22u);
    EXPECT_EQ(readHex64(r, "H", 5), 0x1A2B3C4D5E6F7081ull);
    EXPECT_EQ(readHex64(r, "MISSING", 5), 5u);
    EXPECT_TRUE(readBool(r, "B1", false));
    EXPECT_TRUE(readBool(r, "B2", false));
    EXPECT_FALSE(readBool(r, "B3", true));
    EXPECT_FALSE(readBool(r, "B4", true));
    EXPECT_TRUE(readBool(r, "MISSING", true));
    EXPECT_FALSE(readBool(r, "MISSING", false));
}

TEST_F(TypedReaders, DoubleKeepsSinglePrecision) {
    const double d = readDouble(doc.root(), "D", -1.0);
    EXPECT_EQ(d, static_cast<double>(0.1f));
    EXPECT_NE(d, 0.1);
    EXPECT_EQ(readDouble(doc.root(), "MISSING", 0.1), 0.1);  // the default is not narrowed
}

TEST_F(TypedReaders, IntoFieldReportsFoundAndLeavesMissingFieldsAlone) {
    Element r = doc.root();
    std::uint32_t u = 4242;
    EXPECT_FALSE(readUnsignedInto(r, "MISSING", u));
    EXPECT_EQ(u, 4242u);
    EXPECT_TRUE(readUnsignedInto(r, "U", u));
    EXPECT_EQ(u, 12u);
    EXPECT_TRUE(readUnsignedInto(r, "EXP", u));
    EXPECT_EQ(u, 0u);

    std::uint16_t s = 4242;
    EXPECT_FALSE(readUnsigned16Into(r, "MISSING", s));
    EXPECT_EQ(s, 4242);
    EXPECT_TRUE(readUnsigned16Into(r, "SMALL", s));
    EXPECT_EQ(s, 65535);
    EXPECT_TRUE(readUnsigned16Into(r, "BIG", s));
    EXPECT_EQ(s, 0);

    bool b = true;
    EXPECT_FALSE(readBoolInto(r, "MISSING", b));
    EXPECT_TRUE(b);
    EXPECT_TRUE(readBoolInto(r, "B3", b));
    EXPECT_FALSE(b);
    EXPECT_TRUE(readBoolInto(r, "B2", b));
    EXPECT_TRUE(b);
}

TEST_F(TypedReaders, TextIntoFieldTrimsSpacesWhenAsked) {
    Element r = doc.root();
    std::string text = "sentinel";
    EXPECT_FALSE(readTextInto(r, "MISSING", text, true));
    EXPECT_EQ(text, "sentinel");
    EXPECT_TRUE(readTextInto(r, "T", text, true));
    EXPECT_EQ(text, "padded text");
    EXPECT_TRUE(readTextInto(r, "T", text, false));
    EXPECT_EQ(text, "  padded text  ");
    EXPECT_TRUE(readTextInto(r, "TAB", text, true));
    EXPECT_EQ(text, "\t7\n");
    EXPECT_TRUE(readTextInto(r, "NEST", text, true));
    EXPECT_EQ(text, "922");
}

TEST_F(TypedReaders, AttributesIntoField) {
    Element r = doc.root();
    std::string text = "sentinel";
    EXPECT_FALSE(readAttributeInto(r, "MISSING", "name", text, true));
    EXPECT_EQ(text, "sentinel");
    EXPECT_TRUE(readAttributeInto(r, "A", "name", text, true));
    EXPECT_EQ(text, "padded");
    EXPECT_TRUE(readAttributeInto(r, "A", "name", text, false));
    EXPECT_EQ(text, "  padded  ");
    EXPECT_TRUE(readAttributeInto(r, "A", "absent", text, false));
    EXPECT_EQ(text, "");

    bool b = false;
    EXPECT_TRUE(readBoolAttributeInto(r, "A", "flag", b));
    EXPECT_TRUE(b);
    EXPECT_TRUE(readBoolAttributeInto(r, "A", "off", b));
    EXPECT_FALSE(b);
    b = true;
    EXPECT_TRUE(readBoolAttributeInto(r, "A", "absent", b));
    EXPECT_FALSE(b);
    b = true;
    EXPECT_FALSE(readBoolAttributeInto(r, "MISSING", "flag", b));
    EXPECT_TRUE(b);
}

}  // namespace
