// XML access shared by the database readers: the parsed document, the element finder and lister
// with their two selector syntaxes, and typed readers of the element at a path. The walks and
// conversions under them are in element_access.h.
//
// Names are matched with their namespace prefixes exactly as written ("fx:SIGNAL"); nothing is
// resolved. No walk recurses, so the nesting depth of a file costs no stack.
#pragma once

#include <QString>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <pugixml.hpp>

#include "xml/element_access.h"
#include "xml/reader_status.h"

namespace kelo {
namespace xml {

// The parsed file. Encodings follow the file: byte-order marks, UTF-8, UTF-16 and a declared
// ISO-8859-1 are converted to UTF-8.
class Document {
  public:
    // kOk, kMissing (missing, not a regular file, unreadable) or kMalformed (also beyond the
    // file limits).
    int loadFile(const QString& path);
    int loadText(std::string_view text);  // for tests and tools
    Element root() const { return doc_.document_element(); }
    void clear() { doc_.reset(); }

  private:
    pugi::xml_document doc_;
};

// The two selector syntaxes over one search: "name[attr=value]" (FIBEX) and
// "NAME[@ATTR='VALUE']" (AUTOSAR).
enum class Syntax { Fibex, Autosar };

struct PathStep {
    std::string_view name;
    bool hasSelector = false;
    std::string_view attribute;
    std::string_view value;
};
PathStep parseStep(std::string_view text, Syntax syntax);

// Finds an element: every name but the last moves to the first child of that name; a name with a
// selector searches all descendants for the first (document order) whose attribute equals the
// value, and ends the walk there. 0, kEmptyPath or kNotFound.
int findElement(Element root, std::string_view path, Element& out, Syntax syntax = Syntax::Fibex);
// Lists every element named like the last name anywhere below the element that the other names
// lead to (children by first match). 0 (also for an empty list), kEmptyPath or kNotFound.
int listElements(Element root, std::string_view path, std::vector<Element>& out,
                 Syntax syntax = Syntax::Fibex);

// All descendants (not the element itself) with this name, in document order.
void descendantsByName(Element element, std::string_view name, std::vector<Element>& out);
// The first descendant with this name whose attribute equals value, or a null element.
Element firstDescendantWith(Element element, std::string_view name, std::string_view attribute,
                            std::string_view value);
// The first child element with this name, or a null element.
Element firstChild(Element element, std::string_view name);

// Typed readers of the element at `path` below `root`, read like the element forms in
// element_access.h: the fallback, or an untouched field and false, when there is none.
float readFloat(Element root, std::string_view path, float fallback, Syntax syntax = Syntax::Fibex);
double readDouble(Element root, std::string_view path, double fallback,
                  Syntax syntax = Syntax::Fibex);
std::uint32_t readUnsigned(Element root, std::string_view path, std::uint32_t fallback,
                           Syntax syntax = Syntax::Fibex);
std::uint64_t readHex64(Element root, std::string_view path, std::uint64_t fallback,
                        Syntax syntax = Syntax::Fibex);
bool readBool(Element root, std::string_view path, bool fallback, Syntax syntax = Syntax::Fibex);
bool readUnsignedInto(Element root, std::string_view path, std::uint32_t& field,
                      Syntax syntax = Syntax::Fibex);
bool readUnsigned16Into(Element root, std::string_view path, std::uint16_t& field,
                        Syntax syntax = Syntax::Fibex);
bool readBoolInto(Element root, std::string_view path, bool& field, Syntax syntax = Syntax::Fibex);
bool readTextInto(Element root, std::string_view path, std::string& field, bool trim,
                  Syntax syntax = Syntax::Fibex);
// The trimmed text at `path`; empty when there is no element.
std::string textAt(Element root, std::string_view path, Syntax syntax = Syntax::Fibex);
bool readAttributeInto(Element root, std::string_view path, const char* attribute,
                       std::string& field, bool trim, Syntax syntax = Syntax::Fibex);
bool readBoolAttributeInto(Element root, std::string_view path, const char* attribute, bool& field,
                           Syntax syntax = Syntax::Fibex);

}  // namespace xml
}  // namespace kelo
