// The element finder, the lister and the typed readers on one document, in both selector
// syntaxes: "name[attr=value]" (FIBEX) and "NAME[@ATTR='VALUE']" (AUTOSAR); whole-text reading
// and the conversions with Qt's rules (text that is no number of the required form, or does not
// fit, is 0; surrounding white space is ignored).
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "xml/reader_test_support.h"
#include "xml/xml_access.h"

namespace {

using namespace kelo::xml;
using kelo_test::expectAll;

// IDs repeat and nest on purpose: a selector takes the first match in document order among all
// descendants, not only children.
const char* const kDocument = R"(<?xml version="1.0"?>
<fx:FIBEX xmlns:fx="http://www.asam.net/xml/fbx" xmlns:ho="http://www.asam.net/xml" VERSION="3.1.0">
  <fx:ELEMENTS>
    <fx:CHANNELS>
      <fx:CHANNEL ID="CH_A"><ho:SHORT-NAME>ChannelA</ho:SHORT-NAME></fx:CHANNEL>
      <fx:CHANNEL ID="CH_B">
        <ho:SHORT-NAME>ChannelB</ho:SHORT-NAME>
        <fx:NESTED><fx:CHANNEL ID="CH_DEEP"><ho:SHORT-NAME>Deep</ho:SHORT-NAME></fx:CHANNEL></fx:NESTED>
      </fx:CHANNEL>
      <fx:CHANNEL ID="CH_B"><ho:SHORT-NAME>SecondB</ho:SHORT-NAME></fx:CHANNEL>
      <fx:CHANNEL ID="a=b"><ho:SHORT-NAME>WithEquals</ho:SHORT-NAME></fx:CHANNEL>
    </fx:CHANNELS>
    <fx:CHANNELS>
      <fx:CHANNEL ID="CH_OTHER"><ho:SHORT-NAME>OtherList</ho:SHORT-NAME></fx:CHANNEL>
    </fx:CHANNELS>
    <fx:SIGNALS>
      <fx:SIGNAL ID="S1"/>
      <fx:GROUP><fx:SIGNAL ID="S2"><fx:SIGNAL ID="S3"/></fx:SIGNAL></fx:GROUP>
      <fx:signal ID="lower-case"/>
      <ho:SIGNAL ID="other-prefix"/>
      <fx:SIGNAL ID="S4"/>
    </fx:SIGNALS>
    <fx:SIGNALS><fx:SIGNAL ID="S5"/></fx:SIGNALS>
    <fx:FRAMES/>
  </fx:ELEMENTS>
  <AR-PACKAGES>
    <AR-PACKAGE UUID="p-1"><SHORT-NAME>Signals</SHORT-NAME>
      <ELEMENTS><I-SIGNAL UUID="1"/></ELEMENTS>
      <AR-PACKAGES><AR-PACKAGE><ELEMENTS><I-SIGNAL UUID="2"/></ELEMENTS></AR-PACKAGE></AR-PACKAGES>
    </AR-PACKAGE>
    <AR-PACKAGE UUID="p-2"><SHORT-NAME>Frames</SHORT-NAME>
      <ELEMENTS><FLEXRAY-FRAME UUID="f-9"><SHORT-NAME>Frame9</SHORT-NAME></FLEXRAY-FRAME></ELEMENTS>
    </AR-PACKAGE>
  </AR-PACKAGES>
  <F>2.5</F><D>0.1</D><U> 12 </U><EXP>1e3</EXP><BIG>70000</BIG><SMALL>65535</SMALL>
  <H>1A2B3C4D5E6F7081</H><B1>TRUE</B1><B3>yes</B3>
  <T>  padded text  </T>
  <A flag="TRUE" off="no" name="  padded  " empty=""/>
  <NEST><V>9</V><ITEM ID="b"><V>22</V></ITEM></NEST>
</fx:FIBEX>
)";

// An element as "ID=short name": the ID (or UUID) if it has one, else its name; then the text of
// its SHORT-NAME child, or its own text, if any.
std::string label(Element e) {
    std::string id = attribute(e, "ID");
    if (id.empty()) id = attribute(e, "UUID");
    std::string text = textContent(e.child("ho:SHORT-NAME") ? e.child("ho:SHORT-NAME")
                                   : e.child("SHORT-NAME")  ? e.child("SHORT-NAME")
                                                            : e);
    return (id.empty() ? std::string(e.name()) : id) + (text.empty() ? "" : "=" + text);
}

class ElementPaths : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(doc.loadText(kDocument), 0); }
    Document doc;
};

constexpr Syntax Fx = Syntax::Fibex;
constexpr Syntax Ar = Syntax::Autosar;

// Every name but the last moves to the first child of that name (the walk starts below the root,
// names match case and prefix exactly); a selector searches all descendants and ends the walk.
// A failed search leaves the output alone.
TEST_F(ElementPaths, FinderRows) {
    // "code found" of a search from the root.
    const auto find = [this](const char* path, Syntax syntax = Fx) {
        Element out = doc.root();
        const int code = findElement(doc.root(), path, out, syntax);
        return std::to_string(code) + " " + (out == doc.root() ? "" : label(out));
    };
    expectAll(
        {EQ(find("fx:ELEMENTS/fx:CHANNELS/fx:CHANNEL/ho:SHORT-NAME"), "0 ho:SHORT-NAME=ChannelA"),
         EQ(find("fx:ELEMENTS/fx:CHANNEL[ID=CH_B]"), "0 CH_B=ChannelB"),  // first of the two
         EQ(find("fx:ELEMENTS/fx:CHANNEL[ID=CH_DEEP]"), "0 CH_DEEP=Deep"),
         EQ(find("fx:ELEMENTS/fx:CHANNEL[ID=CH_OTHER]"), "0 CH_OTHER=OtherList"),
         EQ(find("fx:ELEMENTS/fx:CHANNEL[ID=a=b]"), "0 a=b=WithEquals"),  // value to the last ']'
         EQ(find("fx:CHANNEL[ID=CH_A]/no/such/thing"), "0 CH_A=ChannelA"),
         EQ(find("AR-PACKAGES/AR-PACKAGE[@UUID='p-2']/SHORT-NAME", Ar), "0 p-2=Frames"),
         EQ(find("AR-PACKAGES/FLEXRAY-FRAME[@UUID='f-9']", Ar), "0 f-9=Frame9"),
         EQ(find("fx:CHANNELS"), "5 "),  // a grandchild
         EQ(find("fx:ELEMENTS/fx:CHANNELS/ho:SHORT-NAME"), "5 "),
         EQ(find("fx:FIBEX"), "5 "),                                      // the root is no step
         EQ(find("fx:ELEMENTS/fx:CHANNELS/fx:CHANNEL/fx:NESTED"), "5 "),  // first sibling only
         EQ(find(""), "4 "), EQ(find("fx:ELEMENTS/"), "5 "), EQ(find("fx:elements"), "5 "),
         EQ(find("fx:ELEMENTS/fx:CHANNEL[ID=ch_b]"), "5 "),
         EQ(find("fx:ELEMENTS/fx:CHANNEL[@ID='CH_B']"), "5 "),  // the other syntax's form
         EQ(find("fx:ELEMENTS/fx:CHANNEL[ID=CH_A"), "5 "),      // no ']': a plain name
         EQ(find("AR-PACKAGES/AR-PACKAGE[@UUID='p-3']", Ar), "5 ")});
}

// Every element named like the last name anywhere below the element the other names lead to
// (children by first match), in document order, nested ones right after their parent.
TEST_F(ElementPaths, ListerRows) {
    // "code: labels" of a listing from the root.
    const auto list = [this](const char* path, Syntax syntax = Fx) {
        std::vector<Element> found;
        std::string listed = std::to_string(listElements(doc.root(), path, found, syntax)) + ":";
        for (const Element& e : found)
            listed += " " + label(e);
        return listed;
    };
    expectAll({EQ(list("fx:ELEMENTS/fx:SIGNALS/fx:SIGNAL"), "0: S1 S2 S3 S4"),  // the first list
               EQ(list("fx:SIGNAL"), "0: S1 S2 S3 S4 S5"),
               EQ(list("fx:ELEMENTS/fx:FRAMES/fx:FRAME"), "0:"),  // an empty list is no failure
               EQ(list("fx:FIBEX"), "0:"),  // the start is not its own descendant
               EQ(list("AR-PACKAGES/I-SIGNAL", Ar), "0: 1 2"),
               EQ(list("fx:ELEMENTS/fx:PDUS/fx:PDU"), "5:"), EQ(list("fx:SIGNALS/fx:SIGNAL"), "5:"),
               EQ(list(""), "4:")});
}

// The typed readers: the fallback (or an untouched field and false) without an element; the
// conversions' rules otherwise; doubles keep single precision, defaults are not narrowed.
TEST_F(ElementPaths, TypedReaderRows) {
    const Element r = doc.root();
    std::uint32_t u = 4242;
    std::uint16_t s = 4242;
    bool b = true;
    std::string text = "sentinel";
    expectAll({EQ(readFloat(r, "F", -7.0f), 2.5f), EQ(readFloat(r, "MISSING", -7.0f), -7.0f),
               EQ(readUnsigned(r, "U", 99), 12u), EQ(readUnsigned(r, "MISSING", 99), 99u),
               EQ(readUnsigned(r, "NEST/V", 99), 9u),
               EQ(readHex64(r, "H", 5), 0x1A2B3C4D5E6F7081ull), EQ(readHex64(r, "MISSING", 5), 5u),
               EQ(readBool(r, "B1", false), true), EQ(readBool(r, "B3", true), false),
               EQ(readBool(r, "MISSING", true), true), EQ(readBool(r, "MISSING", false), false),
               EQ(readDouble(r, "D", -1.0), static_cast<double>(0.1f)),
               EQ(readDouble(r, "MISSING", 0.1), 0.1)});
    // The "into" forms: whether an element was found, then the field (rows run in order).
    expectAll({EQ(readUnsignedInto(r, "MISSING", u), false), EQ(u, 4242u),
               EQ(readUnsignedInto(r, "EXP", u), true), EQ(u, 0u),
               EQ(readUnsigned16Into(r, "MISSING", s), false), EQ(s, 4242)});
    expectAll({EQ(readUnsigned16Into(r, "SMALL", s), true), EQ(s, 65535),
               EQ(readUnsigned16Into(r, "BIG", s), true), EQ(s, 0),
               EQ(readBoolInto(r, "MISSING", b), false), EQ(b, true)});
    expectAll({EQ(readBoolInto(r, "B3", b), true), EQ(b, false),
               EQ(readBoolAttributeInto(r, "A", "flag", b), true), EQ(b, true),
               EQ(readBoolAttributeInto(r, "MISSING", "flag", b), false), EQ(b, true)});
    expectAll({EQ(readBoolAttributeInto(r, "A", "off", b), true), EQ(b, false),
               EQ(readBoolAttributeInto(r, "A", "flag", b), true),
               EQ(readBoolAttributeInto(r, "A", "absent", b), true), EQ(b, false)});
    expectAll({EQ(readTextInto(r, "MISSING", text, true), false), EQ(text, "sentinel"),
               EQ(readTextInto(r, "T", text, true), true), EQ(text, "padded text"),
               EQ(readTextInto(r, "T", text, false), true), EQ(text, "  padded text  "),
               EQ(readTextInto(r, "NEST", text, true), true), EQ(text, "922"),
               EQ(readAttributeInto(r, "MISSING", "name", text, true), false), EQ(text, "922"),
               EQ(readAttributeInto(r, "A", "name", text, true), true), EQ(text, "padded"),
               EQ(readAttributeInto(r, "A", "name", text, false), true), EQ(text, "  padded  "),
               EQ(readAttributeInto(r, "A", "absent", text, false), true), EQ(text, "")});
}

// Descendants and CDATA concatenated, comments and processing instructions skipped, references
// decoded, surrounding white space kept; trimSpaces removes blanks only.
TEST(TextContent, WholeTextOfAnElement) {
    const auto text = [](const char* xml) {
        Document doc;
        EXPECT_EQ(doc.loadText(xml), 0) << xml;
        return textContent(doc.root());
    };
    expectAll({EQ(text("<V>1<b>2<![CDATA[<3>&]]></b>4<c><d>5</d></c>6</V>"), "12<3>&456"),
               EQ(text("<V>a<!-- not text -->b<?pi not text?>c</V>"), "abc"),
               EQ(text("<V>&lt;&amp;&gt;&quot;&apos;&#65;&#x42;&#xE9;</V>"), "<&>\"'AB\xC3\xA9"),
               EQ(text("<V>  a\tb  </V>"), "  a\tb  ")});
    expectAll({EQ(textContent(Element()), ""), EQ(trimSpaces("  x y  "), "x y"),
               EQ(trimSpaces(" \t x \n "), "\t x \n"), EQ(trimSpaces("     "), "")});
}

TEST(Conversion, NumbersAndBools) {
    expectAll({EQ(toUnsigned(" 12 "), 12u), EQ(toUnsigned("\t12\n"), 12u),
               EQ(toUnsigned("4294967295"), 4294967295u), EQ(toUnsigned("4294967296"), 0u),
               EQ(toUnsigned("1e3"), 0u), EQ(toUnsigned("-1"), 0u), EQ(toUnsigned("1.5"), 0u),
               EQ(toUnsigned("12abc"), 0u), EQ(toUnsigned(""), 0u), EQ(toUnsigned("0x10"), 0u)});
    expectAll({EQ(toUnsigned16("65535"), 65535), EQ(toUnsigned16(" 300 "), 300),
               EQ(toUnsigned16("65536"), 0), EQ(toUnsigned16("-1"), 0), EQ(toUnsigned16("16.0"), 0),
               EQ(toFloat(" 2.5 "), 2.5f), EQ(toFloat("1e3"), 1000.0f), EQ(toFloat("0.1"), 0.1f),
               EQ(toFloat("1,5"), 0.0f), EQ(toFloat("1e39"), 0.0f)});
    expectAll({EQ(toHex64("1A2B3C4D5E6F7081"), 0x1A2B3C4D5E6F7081ull), EQ(toHex64("ff"), 0xFFull),
               EQ(toHex64(" 10 "), 0x10ull), EQ(toHex64("FFFFFFFFFFFFFFFF"), ~0ull),
               EQ(toHex64("10000000000000000"), 0u), EQ(toHex64("xyz"), 0u)});
    expectAll({EQ(toBool("TRUE"), true), EQ(toBool("tRuE"), true), EQ(toBool("false"), false),
               EQ(toBool("1"), false), EQ(toBool("yes"), false), EQ(toBool("truex"), false),
               EQ(toBool(" true"), false)});
}

}  // namespace
