// Loading files: result codes, encodings converted to UTF-8, and inputs built to break a parser or
// a walk (deep nesting, a gigantic attribute, oversized, truncated and binary files).
#include <gtest/gtest.h>

#include <QString>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "xml/reader_test_support.h"
#include "xml/xml_access.h"

namespace {

using namespace kelo::xml;
using namespace kelo_test;

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

// Not well-formed, in the tree or outside it (two documents back to back, a stray entity), is 3
// from a file and from text; what XML allows around the document element and where a bare '&'
// may stand is 0.
TEST(DocumentLoad, WellFormedOrNot) {
    ScratchDir dir;
    // The code from a file, checked against the code from text.
    const auto code = [&dir](const char* xml) {
        Document doc;
        const int fromFile = load(doc, dir.write("case.xml", xml));
        EXPECT_EQ(bool(doc.root()), fromFile == 0) << xml;
        EXPECT_EQ(doc.loadText(xml), fromFile) << xml;
        return fromFile;
    };
    expectAll(
        {EQ(code(""), 3), EQ(code("<?xml version=\"1.0\"?>\n"), 3), EQ(code("<a><b></a></b>"), 3),
         EQ(code("<a x=1/>"), 3), EQ(code("<a/><b/>"), 3), EQ(code("<a/>trailing"), 3),
         EQ(code("<a x=\"1\" x=\"2\"/>"), 3), EQ(code("<a>fish & chips</a>"), 3),
         EQ(code("<a>&#12a;</a>"), 3), EQ(code("<!DOCTYPE a [<!ENTITY e \"x\">]><a>&e;</a>"), 3),
         EQ(code("<?xml version=\"1.0\"?>\n<!-- before -->\n<a/>\n<!-- after -->\n<?pi x?>\n"), 0),
         EQ(code("<a><![CDATA[fish & chips]]><!-- & --><?pi & ?></a>"), 0),
         EQ(code("<!DOCTYPE fx:FIBEX SYSTEM \"file:///C:/fibex.dtd\">\n<fx:FIBEX/>"), 0),
         EQ(code("<a x=\"1 > 0\" y=\"&amp;&#x26;&#x1F600;\" z='\"'>&amp;&#65;</a>"), 0)});
}

// Byte-order marks, UTF-16 in both byte orders, and a declared ISO-8859-1 with CR LF
// line ends all read as UTF-8 with LF.
TEST(DocumentLoad, EncodingsBecomeUtf8) {
    const std::string le = readWholeFile(fibexFile("utf16.xml"));
    ASSERT_EQ(le.substr(0, 2), "\xFF\xFE");
    std::string be = le;
    for (std::size_t i = 0; i + 1 < be.size(); i += 2)
        std::swap(be[i], be[i + 1]);
    const std::string euro = "fx:FIBEX Euro \xE2\x82\xAC, Clef \xF0\x9D\x84\x9E";
    ScratchDir dir;
    Document doc;
    // The root's name and the unit's description.
    const auto desc = [&](const std::string& bytes) {
        if (load(doc, dir.write("encoded.xml", bytes)) != 0) return std::string("<not loaded>");
        return std::string(doc.root().name()) + " " + unitText(doc, "ho:DESC");
    };
    expectAll({EQ(desc(readWholeFile(fibexFile("latin1-declared-crlf.xml"))),
                  "fx:FIBEX Temperatur in \xC2\xB0"
                  "C\ngemessen am K\xC3\xBChler"),
               EQ(desc(readWholeFile(fibexFile("utf8-bom.xml"))),
                  "fx:FIBEX Drehzahl \xC2\xB5 / Widerstand \xCE\xA9"),
               EQ(desc(le), euro), EQ(desc(be), euro),
               EQ(desc(le.substr(2)), euro)});  // no byte-order mark
}

// Elements may nest 1,000 levels deep (the limit keeps every walk's stack small); deeper
// documents are refused as malformed, from a file or from text, and the loaded one is dropped.
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
    Element leaf;
    EXPECT_EQ(findElement(doc.root(), "leaf[k=w]", leaf), 5);
    EXPECT_EQ(textAt(doc.root(), "d/d/d/d"), "bottom");
    EXPECT_EQ(doc.loadText(xml), 0);
    for (int depth : {kDepth + 1, 100000}) {
        EXPECT_EQ(load(doc, dir.write("deeper.xml", nested(depth))), 3) << depth;
        EXPECT_FALSE(doc.root());
        EXPECT_EQ(doc.loadText(nested(depth)), 3) << depth;
    }
    EXPECT_EQ(load(doc, dir.write("deep-cut.xml", xml.substr(0, xml.size() / 2))), 3);
}

// A file above the size limit is refused before it is read (a sparse file costs no disk), and
// so is anything that is not a regular file (a FIFO would block the read for ever) or no path.
TEST(DocumentHostile, OversizedFileAndFifo) {
    ScratchDir dir;
    const std::string big = dir.write("big.xml", "<a/>");
    ASSERT_EQ(::truncate(big.c_str(), static_cast<off_t>(kMaxFileBytes) + 1), 0);
    Document doc;
    EXPECT_EQ(load(doc, big), 3);
    const std::string fifo = dir.path() + "/fifo.xml";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(load(doc, fifo), 2);
    EXPECT_EQ(load(doc, std::string()), 2);
}

// Every cut before the root's end tag is complete leaves the document unfinished; random bytes,
// also behind a UTF-16 or UTF-8 mark or a start tag, are no document.
TEST(DocumentHostile, TruncatedAndBinaryFiles) {
    const std::string whole = readWholeFile(fibexFile("small-flexray-cluster.xml"));
    const std::size_t end = whole.rfind("</fx:FIBEX>");
    ASSERT_NE(end, std::string::npos);
    ScratchDir dir;
    Document doc;
    for (std::size_t cut = 0; cut < end + 11; cut += (cut < 200 ? 7 : 997))
        EXPECT_EQ(load(doc, dir.write("cut.xml", whole.substr(0, cut))), 3) << "cut at " << cut;
    EXPECT_EQ(load(doc, dir.write("cut.xml", whole.substr(0, end + 10))), 3);
    EXPECT_EQ(load(doc, dir.write("cut.xml", whole.substr(0, end + 11))), 0);

    std::mt19937 rng(77031u);
    for (int round = 0; round < 8; ++round) {
        std::string bytes(1 + rng() % 65536, '\0');
        for (char& c : bytes)
            c = static_cast<char>(rng() & 0xFF);
        if (round % 4 == 1) bytes.replace(0, 2, "\xFF\xFE");
        if (round % 4 == 2) bytes.replace(0, 3, "\xEF\xBB\xBF");
        if (round % 4 == 3) bytes.replace(0, 10, "<fx:FIBEX ");
        EXPECT_EQ(load(doc, dir.write("binary.bin", bytes)), 3) << "seed 77031, round " << round;
    }
}

}  // namespace
