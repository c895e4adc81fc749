// Loading files: result codes, encodings, and inputs built to break a parser or a walk (deep
// nesting, a gigantic attribute, truncated and binary files).
#include <gtest/gtest.h>

#include <QString>
#include <QVector>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "xml/xml_access.h"
#include "xml/xml_test_support.h"

namespace {

using namespace kelo::xml;
using kelo_test::dataFile;
using kelo_test::readWholeFile;
using kelo_test::ScratchDir;

int load(Document& doc, const std::string& path) {
    return doc.loadFile(QString::fromStdString(path));
}

std::string unitText(Document& doc, const char* item) {
    std::string text = "<missing>";
    readTextInto(doc.root(),
                 std::string("fx:PROCESSING-INFORMATION/ho:UNIT-SPEC/ho:UNITS/ho:UNIT/") + item,
                 text, true);
    return text;
}

// ---- result codes --------------------------------------------------------------------------

TEST(DocumentLoad, WellFormedFileKeepsPrefixesAsWritten) {
    Document doc;
    ASSERT_EQ(load(doc, dataFile("fibex/small-flexray-cluster.xml")), 0);
    EXPECT_STREQ(doc.root().name(), "fx:FIBEX");
    EXPECT_STREQ(doc.root().attribute("VERSION").value(), "3.1.0");
    Element e;
    EXPECT_EQ(findElement(doc.root(), "fx:ELEMENTS/fx:CLUSTERS/fx:CLUSTER/flexray:WAKE-UP", e), 0);
}

TEST(DocumentLoad, MissingFileAndDirectoryCannotBeOpened) {
    ScratchDir dir;
    Document doc;
    EXPECT_EQ(load(doc, dir.path() + "/does-not-exist.xml"), 2);
    EXPECT_EQ(load(doc, dir.path()), 2);
    EXPECT_EQ(load(doc, KELO_TEST_DATA_DIR), 2);
    EXPECT_EQ(load(doc, ""), 2);
    EXPECT_FALSE(doc.root());
}

TEST(DocumentLoad, FailedLoadDropsThePreviousDocument) {
    Document doc;
    ASSERT_EQ(load(doc, dataFile("fibex/small-flexray-cluster.xml")), 0);
    EXPECT_EQ(load(doc, dataFile("fibex/malformed.xml")), 3);
    EXPECT_FALSE(doc.root());
}

TEST(DocumentLoad, MalformedFiles) {
    struct Case {
        const char* what;
        std::string bytes;
    };
    const std::vector<Case> cases = {
        {"empty file", ""},
        {"white space only", "  \n\t\n"},
        {"declaration only", "<?xml version=\"1.0\"?>\n"},
        {"text without element", "just text"},
        {"unclosed root", "<fx:FIBEX VERSION=\"3.1.0\"><fx:ELEMENTS/>"},
        {"mismatched end tag", "<a><b></a></b>"},
        {"unquoted attribute", "<a x=1/>"},
        {"unterminated comment", "<a><!-- </a>"},
    };
    ScratchDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Document doc;
        EXPECT_EQ(load(doc, dir.write("case.xml", c.bytes)), 3);
        EXPECT_FALSE(doc.root());
        EXPECT_EQ(doc.loadText(c.bytes), 3);
    }
    Document doc;
    EXPECT_EQ(load(doc, dataFile("fibex/malformed.xml")), 3);
}

// Well-formedness faults outside the element tree: a file holding two documents back to back, or
// a stray entity, is no well-formed XML and must not load as if it were.
TEST(DocumentLoad, NotWellFormedOutsideTheTree) {
    struct Case {
        const char* what;
        std::string bytes;
    };
    const std::vector<Case> cases = {
        {"two root elements", "<a/><b/>"},
        {"text after the root", "<a/>trailing"},
        {"text before the root", "leading<a/>"},
        {"undefined entity", "<a>&nbsp;</a>"},
        {"attribute given twice", "<a x=\"1\" x=\"2\"/>"},
        {"bare ampersand", "<a>fish & chips</a>"},
        {"ampersand in an attribute", "<a x=\"R&D\"/>"},
        {"reference without semicolon", "<a>&lt</a>"},
        {"empty character reference", "<a>&#;</a>"},
        {"empty hex reference", "<a>&#x;</a>"},
        {"bad digit in a reference", "<a>&#12a;</a>"},
        {"entity declared in the DTD", "<!DOCTYPE a [<!ENTITY e \"x\">]><a>&e;</a>"},
        {"comment after a second root", "<a/><!-- c --><b/>"},
    };
    ScratchDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Document doc;
        EXPECT_EQ(load(doc, dir.write("case.xml", c.bytes)), 3);
        EXPECT_EQ(doc.loadText(c.bytes), 3);
    }
}

// What XML allows around the document element and where a bare '&' may stand.
TEST(DocumentLoad, WellFormedEdges) {
    const std::vector<std::string> cases = {
        "<?xml version=\"1.0\"?>\n<!-- before -->\n<a/>\n<!-- after -->\n<?pi after?>\n  \n",
        "<a><![CDATA[fish & chips]]></a>",
        "<a><!-- fish & chips --></a>",
        "<a><?pi fish & chips?></a>",
        "<!DOCTYPE a [<!-- & -->]><a/>",
        "<!DOCTYPE fx:FIBEX SYSTEM \"file:///C:/fibex/fibex.dtd\">\n<fx:FIBEX VERSION=\"3.1.0\"/>",
        "<!DOCTYPE a [<!ELEMENT a ANY><!ENTITY unused \"x\">]><a/>",
        "<a x=\"1 > 0\" y=\"'\" z='\"'/>",
        "<a><b x=\"1\"/><b x=\"2\"/></a>",
        "<a x=\"&amp;&lt;&gt;&quot;&apos;&#38;&#x26;&#x1F600;\">&amp;&#65;&#x42;</a>",
    };
    ScratchDir dir;
    for (const std::string& xml : cases) {
        SCOPED_TRACE(xml);
        Document doc;
        EXPECT_EQ(load(doc, dir.write("edge.xml", xml)), 0);
        EXPECT_EQ(doc.loadText(xml), 0);
        EXPECT_TRUE(doc.root());
    }
}

// ---- encodings -----------------------------------------------------------------------------

TEST(DocumentEncoding, DeclaredLatin1WithCrLfBecomesUtf8WithLf) {
    Document doc;
    ASSERT_EQ(load(doc, dataFile("fibex/latin1-declared-crlf.xml")), 0);
    EXPECT_EQ(unitText(doc, "ho:DESC"),
              "Temperatur in \xC2\xB0"
              "C\ngemessen am K\xC3\xBChler");
    EXPECT_EQ(unitText(doc, "ho:DISPLAY-NAME"),
              "\xC2\xB0"
              "C");
}

TEST(DocumentEncoding, Utf8ByteOrderMark) {
    Document doc;
    ASSERT_EQ(load(doc, dataFile("fibex/utf8-bom.xml")), 0);
    EXPECT_STREQ(doc.root().name(), "fx:FIBEX");
    EXPECT_EQ(unitText(doc, "ho:DESC"), "Drehzahl \xC2\xB5 / Widerstand \xCE\xA9");
}

TEST(DocumentEncoding, Utf16LittleEndianWithByteOrderMark) {
    Document doc;
    ASSERT_EQ(load(doc, dataFile("fibex/utf16.xml")), 0);
    EXPECT_STREQ(doc.root().name(), "fx:FIBEX");
    EXPECT_EQ(unitText(doc, "ho:DESC"), "Euro \xE2\x82\xAC, Clef \xF0\x9D\x84\x9E");
    EXPECT_EQ(unitText(doc, "ho:DISPLAY-NAME"), "\xE2\x82\xAC");
}

// The same document re-encoded: big endian with a mark, little endian without one.
TEST(DocumentEncoding, Utf16OtherForms) {
    const std::string le = readWholeFile(dataFile("fibex/utf16.xml"));
    ASSERT_GT(le.size(), 4u);
    ASSERT_EQ(le.substr(0, 2), "\xFF\xFE");
    std::string be = le;
    for (std::size_t i = 0; i + 1 < be.size(); i += 2)
        std::swap(be[i], be[i + 1]);
    ScratchDir dir;
    for (const auto& bytes : {be, le.substr(2)}) {
        Document doc;
        ASSERT_EQ(load(doc, dir.write("utf16.xml", bytes)), 0);
        EXPECT_EQ(unitText(doc, "ho:DESC"), "Euro \xE2\x82\xAC, Clef \xF0\x9D\x84\x9E");
    }
}

// UTF-32 in both byte orders, with a byte-order mark.
TEST(DocumentEncoding, Utf32) {
    const std::string le = readWholeFile(dataFile("fibex/utf16.xml"));
    ASSERT_GT(le.size(), 4u);
    const QString text = QString::fromUtf16(reinterpret_cast<const char16_t*>(le.data() + 2),
                                            static_cast<int>(le.size() / 2 - 1));
    const QVector<uint> units = text.toUcs4();
    for (bool little : {true, false}) {
        SCOPED_TRACE(little ? "little endian" : "big endian");
        std::string bytes;
        auto put = [&bytes, little](std::uint32_t u) {
            for (int k = 0; k < 4; ++k)
                bytes += static_cast<char>((u >> (little ? 8 * k : 8 * (3 - k))) & 0xFF);
        };
        put(0xFEFF);
        for (uint u : units)
            put(u);
        ScratchDir dir;
        Document doc;
        ASSERT_EQ(load(doc, dir.write("utf32.xml", bytes)), 0);
        EXPECT_EQ(unitText(doc, "ho:DESC"), "Euro \xE2\x82\xAC, Clef \xF0\x9D\x84\x9E");
    }
}

// ---- hostile inputs ------------------------------------------------------------------------

// Elements may nest 1,000 levels deep (the limit keeps every walk's stack small); deeper
// documents are refused as malformed, from a file or from text.
TEST(DocumentHostile, NestingUpToTheLimit) {
    auto nested = [](int depth) {
        std::string xml;
        for (int i = 0; i < depth; ++i)
            xml += "<d>";
        xml += "<leaf k=\"v\">bottom</leaf>";
        for (int i = 0; i < depth; ++i)
            xml += "</d>";
        return xml;
    };
    const int kDepth = static_cast<int>(kMaxElementDepth) - 1;  // the leaf is the last level
    const std::string xml = nested(kDepth);
    ScratchDir dir;
    Document doc;
    ASSERT_EQ(load(doc, dir.write("deep.xml", xml)), 0);

    std::vector<Element> list;
    ASSERT_EQ(listElements(doc.root(), "d", list), 0);
    EXPECT_EQ(list.size(), static_cast<std::size_t>(kDepth - 1));
    ASSERT_EQ(listElements(doc.root(), "leaf", list), 0);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(textContent(doc.root()), "bottom");
    Element leaf;
    ASSERT_EQ(findElement(doc.root(), "leaf[k=v]", leaf), 0);
    EXPECT_STREQ(leaf.name(), "leaf");
    EXPECT_EQ(findElement(doc.root(), "leaf[k=w]", leaf), 5);
    std::string text;
    EXPECT_TRUE(readTextInto(doc.root(), "d/d/d/d", text, true));
    EXPECT_EQ(text, "bottom");
    EXPECT_EQ(doc.loadText(xml), 0);

    for (int depth : {kDepth + 1, 100000}) {
        SCOPED_TRACE(depth);
        EXPECT_EQ(load(doc, dir.write("deeper.xml", nested(depth))), 3);
        EXPECT_FALSE(doc.root());
        EXPECT_EQ(doc.loadText(nested(depth)), 3);
    }
    // Cut off before the end tags.
    EXPECT_EQ(load(doc, dir.write("deep-cut.xml", xml.substr(0, xml.size() / 2))), 3);
}

// A file above the size limit is refused before it is read (a sparse file costs no disk), and
// so is anything that is not a regular file: a FIFO would block the read for ever.
TEST(DocumentHostile, OversizedFileAndFifo) {
    ScratchDir dir;
    const std::string big = dir.write("big.xml", "<a/>");
    ASSERT_EQ(::truncate(big.c_str(), static_cast<off_t>(kMaxFileBytes) + 1), 0);
    Document doc;
    EXPECT_EQ(load(doc, big), 3);
    const std::string fifo = dir.path() + "/fifo.xml";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(load(doc, fifo), 2);
}

TEST(DocumentHostile, GiganticAttribute) {
    const std::string value(4u << 20, 'x');
    const std::string xml = "<fx:FIBEX VERSION=\"3.1.0\"><fx:ITEM ID=\"" + value +
                            "\">after</fx:ITEM><fx:NEXT>9</fx:NEXT></fx:FIBEX>";
    ScratchDir dir;
    Document doc;
    ASSERT_EQ(load(doc, dir.write("wide.xml", xml)), 0);
    std::string id;
    ASSERT_TRUE(readAttributeInto(doc.root(), "fx:ITEM", "ID", id, true));
    EXPECT_EQ(id.size(), value.size());
    EXPECT_EQ(id, value);
    EXPECT_EQ(readUnsigned(doc.root(), "fx:NEXT", 0), 9u);
    Element e;
    EXPECT_EQ(findElement(doc.root(), "fx:ITEM[ID=" + value + "]", e), 0);
}

TEST(DocumentHostile, TruncatedFiles) {
    const std::string whole = readWholeFile(dataFile("fibex/small-flexray-cluster.xml"));
    const std::size_t end = whole.rfind("</fx:FIBEX>");
    ASSERT_NE(end, std::string::npos);
    ScratchDir dir;
    Document doc;
    // Every cut before the root's end tag is complete leaves the document unfinished.
    for (std::size_t cut = 0; cut < end + 10; cut += (cut < 200 ? 7 : 331)) {
        SCOPED_TRACE("cut at byte " + std::to_string(cut));
        EXPECT_EQ(load(doc, dir.write("cut.xml", whole.substr(0, cut))), 3);
    }
    EXPECT_EQ(load(doc, dir.write("cut.xml", whole.substr(0, end + 10))), 3);
    EXPECT_EQ(load(doc, dir.write("cut.xml", whole.substr(0, end + 11))), 0);
}

TEST(DocumentHostile, BinaryFiles) {
    const unsigned seed = 77031u;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    ScratchDir dir;
    Document doc;
    for (int round = 0; round < 40; ++round) {
        std::string bytes(1 + rng() % 65536, '\0');
        for (char& c : bytes)
            c = static_cast<char>(rng() & 0xFF);
        if (round % 4 == 1) bytes.replace(0, 2, "\xFF\xFE");      // looks like UTF-16
        if (round % 4 == 2) bytes.replace(0, 3, "\xEF\xBB\xBF");  // looks like UTF-8
        if (round % 4 == 3) bytes.replace(0, 10, "<fx:FIBEX ");   // looks like a start
        SCOPED_TRACE("round " + std::to_string(round));
        EXPECT_EQ(load(doc, dir.write("binary.bin", bytes)), 3);
    }
    // NUL bytes inside an otherwise fine document.
    EXPECT_NE(load(doc, dir.write("nul.xml", std::string("<a>x\0y</a", 10))), 0);
}

}  // namespace
