// Element access for the database readers' per-element loops: children by name, walks over all
// descendants of a name, text content and typed values of an element already found. Nothing here
// splits path texts or allocates for a plain element, so a step's loop costs no allocation for
// it. Names are compared with their prefixes exactly as written ("fx:SIGNAL").
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <pugixml.hpp>

namespace kelo {
namespace xml {

using Element = pugi::xml_node;

// Equal C strings. Element names are short and mostly differ right after their common prefix
// ("fx:", "ho:"), where this inlined loop stops sooner than a library call.
inline bool sameName(const char* a, const char* b) {
    while (*a == *b) {
        if (*a == '\0') return true;
        ++a;
        ++b;
    }
    return false;
}

// First child element with this name, or null (also for a null parent). pugixml's own search
// matches any named node; in the documents of this layer (no processing instructions or
// declarations kept) only elements carry names.
inline Element child(Element element, const char* name) {
    return element.child(name);
}

// Follows first children by name, e.g. at(e, {"fx:TIMINGS", "fx:ABSOLUTELY-SCHEDULED-TIMING"}).
inline Element at(Element element, std::initializer_list<const char*> names) {
    for (const char* name : names) {
        element = child(element, name);
        if (!element) break;
    }
    return element;
}

// Next node of a pre-order walk of `scope`'s subtree, or null after the last one.
inline pugi::xml_node nextInSubtree(pugi::xml_node node, pugi::xml_node scope) {
    if (pugi::xml_node first = node.first_child()) return first;
    while (node && node != scope) {
        if (pugi::xml_node sibling = node.next_sibling()) return sibling;
        node = node.parent();
    }
    return pugi::xml_node();
}

template <typename Visit>
class NameWalker : public pugi::xml_tree_walker {
  public:
    NameWalker(const char* name, Visit& visit) : name_(name), visit_(visit) {}
    bool for_each(pugi::xml_node& node) override {
        // Names first: text nodes have none, so the type is asked only on a match.
        if (!sameName(node.name(), name_) || node.type() != pugi::node_element) return true;
        if constexpr (std::is_same_v<decltype(visit_(node)), bool>) {
            return visit_(node);
        } else {
            visit_(node);
            return true;
        }
    }

  private:
    const char* name_;
    Visit& visit_;
};

// Calls visit(element) for every element named `name` anywhere below `scope`, in document order
// (nested matches too); a visitor that returns bool ends the walk by returning false. False when
// the scope is missing. Uses pugixml's own pre-order traversal, much cheaper than stepping
// through the node accessors.
template <typename Visit>
bool forEachBelow(Element scope, const char* name, Visit&& visit) {
    if (!scope) return false;
    NameWalker<std::remove_reference_t<Visit>> walker(name, visit);
    scope.traverse(walker);
    return true;
}

// Every element named `name` anywhere below `scope`, in document order. False, with an empty
// list, when the scope is missing.
bool listBelow(Element scope, const char* name, std::vector<Element>& out);

// The first child element of each of `names`, found in one pass over the children; missing
// ones stay null. Files give items in their schema's order, so the search starts after the name
// matched last.
template <std::size_t N>
void findChildren(Element parent, const char* const (&names)[N], Element (&out)[N]) {
    bool found[N] = {};
    std::size_t left = N;
    std::size_t start = 0;
    for (pugi::xml_node c = parent.first_child(); c && left != 0; c = c.next_sibling()) {
        const char* name = c.name();
        for (std::size_t k = 0; k < N; ++k) {
            const std::size_t i = start + k < N ? start + k : start + k - N;
            if (found[i] || !sameName(name, names[i])) continue;
            if (c.type() == pugi::node_element) {
                out[i] = c;
                found[i] = true;
                --left;
                start = i + 1 < N ? i + 1 : 0;
            }
            break;
        }
    }
}

// Concatenated text of the element and all its descendants, CDATA included.
std::string textContent(Element element);
// The same text without a copy for the usual single text; other content is gathered into
// `scratch`.
std::string_view textOf(Element element, std::string& scratch);
// Leading and trailing space characters removed (only ' ', not tabs or line ends).
std::string_view trimmed(std::string_view text);
std::string trimSpaces(std::string_view text);

inline const char* attribute(Element element, const char* name) {
    return element.attribute(name).value();
}
inline std::string trimmedAttribute(Element element, const char* name) {
    return std::string(trimmed(attribute(element, name)));
}

// Number conversions with Qt's rules: no error reporting; text that is not a number of the
// required form, or does not fit the width, is 0; surrounding white space is ignored. Plain
// decimals, the usual form, are converted without Qt, to the same value.
float toFloat(std::string_view text);
double toDouble(std::string_view text);
std::uint32_t toUnsigned(std::string_view text);
std::uint16_t toUnsigned16(std::string_view text);
std::uint64_t toHex64(std::string_view text);
bool toBool(std::string_view text);  // lower-cased text equals "true"

inline constexpr float kFloatMax = std::numeric_limits<float>::max();

// Typed values of a found element; a null element gives the fallback, or leaves the field
// untouched and returns false for the "into" forms.
bool readText(Element element, std::string& field);  // trimmed
std::uint32_t readUnsigned(Element element, std::uint32_t fallback);
bool readUnsignedInto(Element element, std::uint32_t& field);
bool readUnsigned16Into(Element element, std::uint16_t& field);
float readFloat(Element element, float fallback);
// Read as a 32-bit float and widened: a value written as 0.1 keeps single precision.
double readDouble(Element element, double fallback);
bool readBool(Element element, bool fallback);
std::uint64_t readHex64(Element element, std::uint64_t fallback);

}  // namespace xml
}  // namespace kelo
