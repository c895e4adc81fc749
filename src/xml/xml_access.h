// XML access shared by the database readers: the parsed document, the element finder and lister
// with their two selector syntaxes, the typed readers, and text content.
//
// Names are matched with their namespace prefixes exactly as written ("fx:SIGNAL"); nothing is
// resolved. No walk recurses, so the nesting depth of a file costs no stack.
#pragma once

#include <QString>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include <pugixml.hpp>

namespace kelo {
namespace xml {

using Element = pugi::xml_node;

// Result codes shared with the readers.
enum Code : int {
    kOk = 0,
    kCannotOpen = 2,
    kMalformed = 3,
    kEmptyPath = 4,
    kNotFound = 5,
};

// Resource limits of a database file: a larger file, or one whose elements nest deeper, is
// refused as malformed before it can exhaust memory or a recursive walk's stack. Real FIBEX and
// AUTOSAR files stay far below both (tens of megabytes, a few dozen levels).
inline constexpr long long kMaxFileBytes = 512ll * 1024 * 1024;
inline constexpr unsigned kMaxElementDepth = 1000;

// The parsed file. Encodings follow the file: byte-order marks, UTF-8, UTF-16 and a declared
// ISO-8859-1 are converted to UTF-8.
class Document {
  public:
    // 0, kCannotOpen (missing, not a regular file, unreadable) or kMalformed (also beyond the
    // resource limits).
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

// Concatenated text of the element and all its descendants, CDATA included.
std::string textContent(Element element);
// Leading and trailing space characters removed (only ' ', not tabs or line ends).
std::string trimSpaces(std::string_view text);

// Number conversions with Qt's rules: no error reporting; text that is not a number of the
// required form, or does not fit the width, is 0; surrounding white space is ignored.
float toFloat(const std::string& text);
std::uint32_t toUnsigned(const std::string& text);
std::uint16_t toUnsigned16(const std::string& text);
std::uint64_t toHex64(const std::string& text);
double toDouble(const std::string& text);
bool toBool(const std::string& text);  // lower-cased text equals "true"

inline constexpr float kFloatMax = std::numeric_limits<float>::max();

// Typed readers. Each finds the element at `path` below `root` (FIBEX syntax unless given); the
// "with default" forms return the default when it is missing, the "into" forms leave the field
// untouched and return false.
float readFloat(Element root, std::string_view path, float fallback);
// Read as a 32-bit float and widened: a value written as 0.1 keeps single precision.
double readDouble(Element root, std::string_view path, double fallback);
std::uint32_t readUnsigned(Element root, std::string_view path, std::uint32_t fallback);
std::uint64_t readHex64(Element root, std::string_view path, std::uint64_t fallback);
bool readBool(Element root, std::string_view path, bool fallback);
bool readUnsignedInto(Element root, std::string_view path, std::uint32_t& field);
bool readUnsigned16Into(Element root, std::string_view path, std::uint16_t& field);
bool readBoolInto(Element root, std::string_view path, bool& field);
bool readTextInto(Element root, std::string_view path, std::string& field, bool trim);
bool readAttributeInto(Element root, std::string_view path, const char* attribute,
                       std::string& field, bool trim);
bool readBoolAttributeInto(Element root, std::string_view path, const char* attribute, bool& field);

}  // namespace xml
}  // namespace kelo
