// LastSegment, the path functions with the NAME[@ATTR='VALUE'] predicate, and the typed readers.
#include <gtest/gtest.h>

#include <string>

#include "autosar/autosar_test_support.h"
#include "xml/xml_access.h"

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

class PathAccess : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(
            document.loadText("<R><A><B DEST=\"X\">one</B><B DEST=\"Y\">two</B></A>"
                              "<A><B DEST=\"Z\">three</B></A>"
                              "<C><D><B DEST=\"Y\">deep</B></D></C>"
                              "<V>  padded </V><T>\t tab </T><E>1e3</E><F>0.1</F><N>-5</N><H>ff</H>"
                              "<U>70000</U><L>TRUE</L><S><I>in<![CDATA[ner]]></I>text</S></R>"),
            0);
        root = document.root();
    }
    kelo::xml::Document document;
    Element root;
};

TEST_F(PathAccess, FirstChildStepsAndPredicates) {
    const struct {
        const char* path;
        int result;
        const char* text;
    } cases[] = {
        {"A/B", 0, "one"},
        {"C/D/B", 0, "deep"},
        {"B[@DEST='Y']", 0, "two"},  // all descendants, document order
        {"C/B[@DEST='Y']", 0, "deep"},
        {"A/B[@DEST='Z']", 5, ""},  // only below the first A
        {"B[@DEST='Z']/ignored/parts", 0, "three"},
        {"B[@DEST='y']", 5, ""},  // case-sensitive
        {"X/B", 5, ""},
        {"A//B", 5, ""},
        {"", 4, ""},
    };
    for (const auto& c : cases) {
        Element e;
        EXPECT_EQ(GetElement(root, c.path, e), c.result) << c.path;
        if (c.result == 0) {
            EXPECT_EQ(kelo::xml::textContent(e), c.text) << c.path;
        }
    }
}

TEST_F(PathAccess, ListsCollectDescendantsOfTheLastName) {
    ElementList list;
    EXPECT_EQ(GetElements(root, "B", list), 0);
    EXPECT_EQ(list.size(), 4u);
    EXPECT_EQ(GetElements(root, "A/B", list), 0);
    EXPECT_EQ(list.size(), 2u) << "below the first A only";
    EXPECT_EQ(GetElements(root, "C/B", list), 0);
    EXPECT_EQ(list.size(), 1u) << "at any depth below C";
    EXPECT_EQ(GetElements(root, "C/Q", list), 0);
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(GetElements(root, "Q/B", list), 5);
    EXPECT_EQ(GetElements(root, "", list), 4);
}

TEST_F(PathAccess, TypedReadersConvertLikeQt) {
    EXPECT_EQ(GetUIntValue(root, "E", 9u), 0u) << "1e3 is not a decimal integer";
    EXPECT_EQ(GetFloatValue(root, "E", 9.0f), 1000.0f);
    EXPECT_EQ(GetDoubleValue(root, "F", 9.0), static_cast<double>(0.1f));
    EXPECT_NE(GetDoubleValue(root, "F", 9.0), 0.1);
    EXPECT_EQ(GetUIntValue(root, "N", 9u), 0u) << "negative";
    EXPECT_EQ(GetUIntValue(root, "missing", 9u), 9u);
    EXPECT_EQ(GetHexValue(root, "H", 0), 0xffu);
    EXPECT_TRUE(GetBoolValue(root, "L", false));
    EXPECT_TRUE(GetBoolValue(root, "missing", true));

    std::uint16_t u16 = 7;
    EXPECT_TRUE(GetUShortValue(root, "U", u16));
    EXPECT_EQ(u16, 0) << "70000 does not fit 16 bits";
    u16 = 7;
    EXPECT_FALSE(GetUShortValue(root, "missing", u16));
    EXPECT_EQ(u16, 7);
    std::uint32_t u32 = 7;
    EXPECT_TRUE(GetUIntValue(root, "U", u32));
    EXPECT_EQ(u32, 70000u);

    std::string s = "untouched";
    EXPECT_TRUE(GetStringValue(root, "V", s, true));
    EXPECT_EQ(s, "padded");
    EXPECT_TRUE(GetStringValue(root, "V", s, false));
    EXPECT_EQ(s, "  padded ");
    EXPECT_TRUE(GetStringValue(root, "T", s, true));
    EXPECT_EQ(s, "\t tab") << "only blanks are trimmed";
    EXPECT_TRUE(GetStringValue(root, "S", s, true));
    EXPECT_EQ(s, "innertext") << "text of the element and its descendants, CDATA included";
    s = "untouched";
    EXPECT_FALSE(GetStringValue(root, "missing", s, true));
    EXPECT_EQ(s, "untouched");

    EXPECT_TRUE(GetAttributeValue(root, "A/B", "DEST", s, true));
    EXPECT_EQ(s, "X");
    EXPECT_TRUE(GetAttributeValue(root, "A/B", "NONE", s, true));
    EXPECT_EQ(s, "") << "found element without the attribute";
    bool flag = true;
    EXPECT_TRUE(GetBoolAttributeValue(root, "A/B", "DEST", flag));
    EXPECT_FALSE(flag);
}

}  // namespace
