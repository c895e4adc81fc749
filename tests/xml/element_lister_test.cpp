// The element lister: every descendant named like the last name, in document order, below the
// element that the other names lead to.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "xml/xml_access.h"

namespace {

using kelo::xml::Document;
using kelo::xml::Element;
using kelo::xml::listElements;
using kelo::xml::Syntax;

const char* const kSignals = R"(<?xml version="1.0"?>
<fx:FIBEX xmlns:fx="http://www.asam.net/xml/fbx" xmlns:ho="http://www.asam.net/xml" VERSION="3.0.0">
  <fx:ELEMENTS>
    <fx:SIGNALS>
      <fx:SIGNAL ID="S1"/>
      <fx:GROUP>
        <fx:SIGNAL ID="S2">
          <fx:SIGNAL ID="S3"/>
        </fx:SIGNAL>
      </fx:GROUP>
      <fx:signal ID="lower-case"/>
      <ho:SIGNAL ID="other-prefix"/>
      <fx:SIGNAL ID="S4"/>
    </fx:SIGNALS>
    <fx:SIGNALS>
      <fx:SIGNAL ID="S5"/>
    </fx:SIGNALS>
    <fx:FRAMES/>
  </fx:ELEMENTS>
</fx:FIBEX>
)";

std::vector<std::string> ids(const std::vector<Element>& list) {
    std::vector<std::string> out;
    for (const Element& e : list)
        out.push_back(e.attribute("ID").value());
    return out;
}

class ElementLister : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(doc.loadText(kSignals), 0); }
    Document doc;
    std::vector<Element> list;
};

TEST_F(ElementLister, AllDescendantsInDocumentOrder) {
    ASSERT_EQ(listElements(doc.root(), "fx:ELEMENTS/fx:SIGNALS/fx:SIGNAL", list), 0);
    // Nested ones too (a signal inside a signal comes right after its parent), only the first
    // fx:SIGNALS is entered, and names match exactly with their prefix.
    EXPECT_EQ(ids(list), (std::vector<std::string>{"S1", "S2", "S3", "S4"}));
}

TEST_F(ElementLister, LastNameFoundOnlyDeeperInTheTree) {
    // fx:SIGNAL is no child of fx:ELEMENTS, yet every one below it is listed, from both lists.
    ASSERT_EQ(listElements(doc.root(), "fx:ELEMENTS/fx:SIGNAL", list), 0);
    EXPECT_EQ(ids(list), (std::vector<std::string>{"S1", "S2", "S3", "S4", "S5"}));
    ASSERT_EQ(listElements(doc.root(), "fx:SIGNAL", list), 0);
    EXPECT_EQ(ids(list), (std::vector<std::string>{"S1", "S2", "S3", "S4", "S5"}));
}

TEST_F(ElementLister, EmptyListIsNoFailure) {
    ASSERT_EQ(listElements(doc.root(), "fx:ELEMENTS/fx:FRAMES/fx:FRAME", list), 0);
    EXPECT_TRUE(list.empty());
    // The element the walk starts from is not its own descendant.
    ASSERT_EQ(listElements(doc.root(), "fx:FIBEX", list), 0);
    EXPECT_TRUE(list.empty());
}

TEST_F(ElementLister, MissingParentAndEmptyPath) {
    EXPECT_EQ(listElements(doc.root(), "fx:ELEMENTS/fx:PDUS/fx:PDU", list), 5);
    EXPECT_EQ(listElements(doc.root(), "fx:PROCESSING-INFORMATION/fx:CODINGS/fx:CODING", list), 5);
    // Parents are children by first match, like in the finder.
    EXPECT_EQ(listElements(doc.root(), "fx:SIGNALS/fx:SIGNAL", list), 5);
    EXPECT_EQ(listElements(doc.root(), "", list), 4);
}

TEST(ElementListerAutosar, SameRulesInTheOtherSyntax) {
    Document doc;
    ASSERT_EQ(doc.loadText("<AUTOSAR><AR-PACKAGES><AR-PACKAGE><ELEMENTS><I-SIGNAL UUID=\"1\"/>"
                           "</ELEMENTS><AR-PACKAGES><AR-PACKAGE><ELEMENTS><I-SIGNAL UUID=\"2\"/>"
                           "</ELEMENTS></AR-PACKAGE></AR-PACKAGES></AR-PACKAGE></AR-PACKAGES>"
                           "</AUTOSAR>"),
              0);
    std::vector<Element> list;
    ASSERT_EQ(listElements(doc.root(), "AR-PACKAGES/I-SIGNAL", list, Syntax::Autosar), 0);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_STREQ(list[0].attribute("UUID").value(), "1");
    EXPECT_STREQ(list[1].attribute("UUID").value(), "2");
}

}  // namespace
