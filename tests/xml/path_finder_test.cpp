// The element finder: children by first match, the two selector syntaxes, and the selector that
// ends the walk.
#include <gtest/gtest.h>

#include <string>

#include "xml/xml_access.h"

namespace {

using kelo::xml::Document;
using kelo::xml::Element;
using kelo::xml::findElement;
using kelo::xml::parseStep;
using kelo::xml::Syntax;

// Channel IDs repeat and nest on purpose: the selector must take the first in document order
// among all descendants, not only children.
const char* const kChannels = R"(<?xml version="1.0"?>
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
  </fx:ELEMENTS>
</fx:FIBEX>
)";

const char* const kAutosar = R"(<?xml version="1.0"?>
<AUTOSAR xmlns="http://autosar.org/schema/r4.0">
  <AR-PACKAGES>
    <AR-PACKAGE UUID="p-1"><SHORT-NAME>Signals</SHORT-NAME></AR-PACKAGE>
    <AR-PACKAGE UUID="p-2"><SHORT-NAME>Frames</SHORT-NAME>
      <ELEMENTS><FLEXRAY-FRAME UUID="f-9"><SHORT-NAME>Frame9</SHORT-NAME></FLEXRAY-FRAME></ELEMENTS>
    </AR-PACKAGE>
  </AR-PACKAGES>
</AUTOSAR>
)";

std::string shortNameOf(Element e) {
    Element name;
    if (findElement(e, "ho:SHORT-NAME", name) != 0) return "<none>";
    return name.text().get();
}

class PathFinder : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(doc.loadText(kChannels), 0); }
    Document doc;
};

TEST_F(PathFinder, EachNameMovesToTheFirstChildOfThatName) {
    Element out;
    ASSERT_EQ(findElement(doc.root(), "fx:ELEMENTS/fx:CHANNELS/fx:CHANNEL/ho:SHORT-NAME", out), 0);
    EXPECT_STREQ(out.text().get(), "ChannelA");
}

TEST_F(PathFinder, NamesWithoutSelectorOnlyLookAtChildren) {
    Element out;
    // fx:CHANNELS is a grandchild of the root, ho:SHORT-NAME a great-grandchild of fx:ELEMENTS.
    EXPECT_EQ(findElement(doc.root(), "fx:CHANNELS", out), 5);
    EXPECT_EQ(findElement(doc.root(), "fx:ELEMENTS/fx:CHANNEL", out), 5);
    EXPECT_EQ(findElement(doc.root(), "fx:ELEMENTS/fx:CHANNELS/ho:SHORT-NAME", out), 5);
    // The walk starts below the root: the root's own name is not a step.
    EXPECT_EQ(findElement(doc.root(), "fx:FIBEX", out), 5);
}

TEST_F(PathFinder, OnlyTheFirstSiblingOfAName) {
    Element out;
    // The second fx:CHANNELS list is never entered.
    ASSERT_EQ(findElement(doc.root(), "fx:ELEMENTS/fx:CHANNELS", out), 0);
    EXPECT_EQ(findElement(out, "fx:CHANNEL/fx:NESTED", out), 5);
}

TEST_F(PathFinder, EmptyAndMissingPathsLeaveTheOutputAlone) {
    Element sentinel = doc.root();
    Element out = sentinel;
    EXPECT_EQ(findElement(doc.root(), "", out), 4);
    EXPECT_EQ(out, sentinel);
    EXPECT_EQ(findElement(doc.root(), "fx:ELEMENTS/fx:NOTHING", out), 5);
    EXPECT_EQ(out, sentinel);
    EXPECT_EQ(findElement(doc.root(), "fx:ELEMENTS/", out), 5);
    EXPECT_EQ(out, sentinel);
    EXPECT_EQ(findElement(doc.root(), "fx:NOTHING/fx:CHANNEL[ID=CH_A]", out), 5);
    EXPECT_EQ(out, sentinel);
}

TEST_F(PathFinder, MatchingIsCaseSensitiveAndPrefixesCount) {
    Element out;
    EXPECT_EQ(findElement(doc.root(), "fx:elements", out), 5);
    EXPECT_EQ(findElement(doc.root(), "ELEMENTS", out), 5);
    EXPECT_EQ(findElement(doc.root(), "ho:ELEMENTS", out), 5);
}

TEST_F(PathFinder, FibexSelectorSearchesAllDescendantsInDocumentOrder) {
    struct Case {
        const char* path;
        const char* shortName;
    };
    const Case cases[] = {
        {"fx:ELEMENTS/fx:CHANNEL[ID=CH_B]", "ChannelB"},       // first of the two CH_B
        {"fx:ELEMENTS/fx:CHANNEL[ID=CH_DEEP]", "Deep"},        // nested inside another channel
        {"fx:ELEMENTS/fx:CHANNEL[ID=CH_OTHER]", "OtherList"},  // in the second list
        {"fx:CHANNEL[ID=CH_A]", "ChannelA"},                   // straight from the root
        {"fx:ELEMENTS/fx:CHANNEL[ID=a=b]", "WithEquals"},      // value runs to the last ']'
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        Element out;
        ASSERT_EQ(findElement(doc.root(), c.path, out), 0);
        EXPECT_STREQ(out.name(), "fx:CHANNEL");
        EXPECT_EQ(shortNameOf(out), c.shortName);
    }
}

TEST_F(PathFinder, SelectorEndsTheWalk) {
    Element out;
    // Names after the selector are ignored, even ones that do not exist.
    ASSERT_EQ(findElement(doc.root(), "fx:ELEMENTS/fx:CHANNEL[ID=CH_B]/ho:SHORT-NAME", out), 0);
    EXPECT_STREQ(out.name(), "fx:CHANNEL");
    EXPECT_STREQ(out.attribute("ID").value(), "CH_B");
    ASSERT_EQ(findElement(doc.root(), "fx:CHANNEL[ID=CH_A]/no/such/thing", out), 0);
    EXPECT_EQ(shortNameOf(out), "ChannelA");
}

TEST_F(PathFinder, SelectorWithoutMatchIsNotFound) {
    Element out;
    EXPECT_EQ(findElement(doc.root(), "fx:ELEMENTS/fx:CHANNEL[ID=CH_C]", out), 5);
    EXPECT_EQ(findElement(doc.root(), "fx:ELEMENTS/fx:CHANNEL[ID=ch_b]", out), 5);  // value case
    EXPECT_EQ(findElement(doc.root(), "fx:ELEMENTS/fx:CHANNEL[id=CH_B]", out), 5);  // attr case
    EXPECT_EQ(findElement(doc.root(), "fx:ELEMENTS/fx:SIGNAL[ID=CH_B]", out), 5);   // name
    // The AUTOSAR form is not understood in FIBEX syntax.
    EXPECT_EQ(findElement(doc.root(), "fx:ELEMENTS/fx:CHANNEL[@ID='CH_B']", out), 5);
}

TEST_F(PathFinder, NameWithoutClosingBracketIsAPlainName) {
    Element out;
    EXPECT_EQ(findElement(doc.root(), "fx:ELEMENTS/fx:CHANNEL[ID=CH_A", out), 5);
}

TEST(PathStepParse, FibexForm) {
    auto s = parseStep("fx:CHANNEL[ID=CH_B]", Syntax::Fibex);
    EXPECT_TRUE(s.hasSelector);
    EXPECT_EQ(s.name, "fx:CHANNEL");
    EXPECT_EQ(s.attribute, "ID");
    EXPECT_EQ(s.value, "CH_B");

    // Attribute up to the first '=', value from there to the last ']'.
    s = parseStep("x[ATTR=a=b]", Syntax::Fibex);
    EXPECT_TRUE(s.hasSelector);
    EXPECT_EQ(s.name, "x");
    EXPECT_EQ(s.attribute, "ATTR");
    EXPECT_EQ(s.value, "a=b");
    s = parseStep("x[ATTR=v]w]", Syntax::Fibex);
    EXPECT_EQ(s.value, "v]w");

    s = parseStep("fx:CHANNEL", Syntax::Fibex);
    EXPECT_FALSE(s.hasSelector);
    EXPECT_EQ(s.name, "fx:CHANNEL");
    s = parseStep("x[ATTR=v", Syntax::Fibex);
    EXPECT_FALSE(s.hasSelector);
    EXPECT_EQ(s.name, "x[ATTR=v");
}

TEST(PathStepParse, AutosarForm) {
    auto s = parseStep("AR-PACKAGE[@UUID='p-2']", Syntax::Autosar);
    EXPECT_TRUE(s.hasSelector);
    EXPECT_EQ(s.name, "AR-PACKAGE");
    EXPECT_EQ(s.attribute, "UUID");
    EXPECT_EQ(s.value, "p-2");
}

TEST(AutosarSelector, FindsByAttributeAndEndsTheWalk) {
    Document doc;
    ASSERT_EQ(doc.loadText(kAutosar), 0);
    Element out;
    ASSERT_EQ(findElement(doc.root(), "AR-PACKAGES/AR-PACKAGE[@UUID='p-2']/SHORT-NAME", out,
                          Syntax::Autosar),
              0);
    EXPECT_STREQ(out.name(), "AR-PACKAGE");
    EXPECT_STREQ(out.attribute("UUID").value(), "p-2");

    ASSERT_EQ(
        findElement(doc.root(), "AR-PACKAGES/FLEXRAY-FRAME[@UUID='f-9']", out, Syntax::Autosar), 0);
    EXPECT_STREQ(out.child("SHORT-NAME").text().get(), "Frame9");

    EXPECT_EQ(findElement(doc.root(), "AR-PACKAGES/AR-PACKAGE[@UUID='p-3']", out, Syntax::Autosar),
              5);
    // Plain names work the same in both syntaxes.
    ASSERT_EQ(findElement(doc.root(), "AR-PACKAGES/AR-PACKAGE/SHORT-NAME", out, Syntax::Autosar),
              0);
    EXPECT_STREQ(out.text().get(), "Signals");
}

}  // namespace
