#include "xml/xml_access.h"

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cstring>

namespace kelo {
namespace xml {

namespace {

// A text that is an element's first content is kept in the element itself (no text node of its
// own): most FIBEX items are leaves with one text, so this saves a node per item.
// Fragment mode keeps text outside the document element as nodes, so that it can be refused.
constexpr unsigned kParseOptions =
    pugi::parse_default | pugi::parse_embed_pcdata | pugi::parse_fragment;

inline bool nameIs(Element e, std::string_view name) {
    const char* n = e.name();
    return std::strlen(n) == name.size() && std::memcmp(n, name.data(), name.size()) == 0;
}

// Splits at '/' (empty names are kept: "a//b" has an empty middle name, which finds nothing).
std::vector<std::string_view> splitPath(std::string_view path) {
    std::vector<std::string_view> names;
    std::size_t start = 0;
    for (;;) {
        std::size_t slash = path.find('/', start);
        names.push_back(
            path.substr(start, slash == std::string_view::npos ? slash : slash - start));
        if (slash == std::string_view::npos) break;
        start = slash + 1;
    }
    return names;
}

std::string_view stripQuotes(std::string_view v) {
    if (v.size() >= 2 && (v.front() == '\'' || v.front() == '"') && v.back() == v.front())
        return v.substr(1, v.size() - 2);
    return v;
}

// ---- well-formedness that pugixml does not check ---------------------------------------------

// The raw file as a sequence of code units, in the encoding pugixml will detect for it (byte-order
// mark or the zero bytes around the first '<'); 8-bit encodings are read byte by byte.
class RawText {
  public:
    RawText(const void* data, std::size_t size)
        : bytes_(static_cast<const unsigned char*>(data)), size_(size) {
        const unsigned char* b = bytes_;
        if (size >= 4 && b[0] == 0 && b[1] == 0 && (b[2] == 0xFE || b[2] == 0)) {
            width_ = 4;  // UTF-32 big endian
        } else if (size >= 4 && b[1] == 0 && b[2] == 0 && b[3] == 0) {
            width_ = 4, little_ = true;
        } else if (size >= 4 && b[0] == 0xFF && b[1] == 0xFE && b[2] == 0 && b[3] == 0) {
            width_ = 4, little_ = true;
        } else if (size >= 2 && ((b[0] == 0xFE && b[1] == 0xFF) || (b[0] == 0 && b[1] != 0))) {
            width_ = 2;
        } else if (size >= 2 && ((b[0] == 0xFF && b[1] == 0xFE) || (b[0] != 0 && b[1] == 0))) {
            width_ = 2, little_ = true;
        }
        count_ = size_ / width_;
    }
    std::size_t size() const { return count_; }
    std::uint32_t operator[](std::size_t i) const {
        if (i >= count_) return 0;
        const unsigned char* u = bytes_ + i * width_;
        std::uint32_t value = 0;
        for (std::size_t k = 0; k < width_; ++k)
            value = (value << 8) | u[little_ ? width_ - 1 - k : k];
        return value;
    }
    // Position of the next unit equal to c at or after i, or size().
    std::size_t find(std::uint32_t c, std::size_t i) const {
        if (width_ == 1) {
            if (i >= count_) return count_;
            const void* hit = std::memchr(bytes_ + i, static_cast<int>(c), count_ - i);
            return hit ? static_cast<const unsigned char*>(hit) - bytes_ : count_;
        }
        while (i < count_ && (*this)[i] != c)
            ++i;
        return i;
    }
    bool startsWith(std::size_t i, const char* ascii) const {
        for (; *ascii; ++ascii, ++i)
            if ((*this)[i] != static_cast<unsigned char>(*ascii)) return false;
        return true;
    }

  private:
    const unsigned char* bytes_;
    std::size_t size_;
    std::size_t width_ = 1;
    bool little_ = false;
    std::size_t count_ = 0;
};

// True when the reference at i ('&') is a predefined entity or a character reference.
bool knownReference(const RawText& text, std::size_t i) {
    static const char* const kNames[] = {"&lt;", "&gt;", "&amp;", "&apos;", "&quot;"};
    for (const char* name : kNames)
        if (text.startsWith(i, name)) return true;
    if (text[i + 1] != '#') return false;
    std::size_t k = i + 2;
    const bool hex = text[k] == 'x';
    if (hex) ++k;
    const std::size_t first = k;
    for (;; ++k) {
        const std::uint32_t c = text[k];
        const bool digit =
            (c >= '0' && c <= '9') || (hex && ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')));
        if (!digit) break;
    }
    return k > first && text[k] == ';';
}

// End (one past) of the comment, CDATA section, processing instruction or document type
// declaration that starts with the '<' at i; i itself when none starts there.
std::size_t markupEnd(const RawText& text, std::size_t i) {
    const auto endOf = [&text](std::size_t from, const char* close) {
        for (std::size_t k = text.find(static_cast<unsigned char>(close[0]), from); k < text.size();
             k = text.find(static_cast<unsigned char>(close[0]), k + 1))
            if (text.startsWith(k, close)) return k + std::strlen(close);
        return text.size();
    };
    if (text.startsWith(i, "<!--")) return endOf(i + 4, "-->");
    if (text.startsWith(i, "<![CDATA[")) return endOf(i + 9, "]]>");
    if (text.startsWith(i, "<?")) return endOf(i + 2, "?>");
    if (text.startsWith(i, "<!DOCTYPE")) {
        int depth = 0;  // an internal subset in brackets may hold '>'
        for (std::size_t k = i + 9; k < text.size(); ++k) {
            const std::uint32_t c = text[k];
            if (c == '[') ++depth;
            if (c == ']') --depth;
            if (c == '>' && depth <= 0) return k + 1;
        }
        return text.size();
    }
    return i;
}

// Every '&' in content and attribute values must start a predefined entity or a character
// reference (pugixml keeps an unknown one as text). The markup that may hold a bare '&' is
// located only when such an '&' is met, so a file without one is scanned once for '&'.
bool referencesDeclared(const void* data, std::size_t size) {
    const RawText text(data, size);
    std::size_t markup = 0;  // everything before this is sorted into markup and the rest
    for (std::size_t amp = text.find('&', 0); amp < text.size(); amp = text.find('&', amp + 1)) {
        if (knownReference(text, amp)) continue;
        bool inside = false;
        while (markup <= amp) {
            const std::size_t open = text.find('<', markup);
            if (open > amp) {
                markup = amp + 1;
                break;
            }
            const std::size_t end = markupEnd(text, open);
            markup = end > open ? end : open + 1;
            if (end > amp) inside = end > open;
        }
        if (!inside) return false;
        amp = markup > amp ? markup - 1 : amp;
    }
    return true;
}

// Exactly one element and no text at the top level.
bool topLevelWellFormed(const pugi::xml_document& doc) {
    int elements = 0;
    for (pugi::xml_node n = doc.first_child(); n; n = n.next_sibling()) {
        const pugi::xml_node_type type = n.type();
        if (type == pugi::node_pcdata || type == pugi::node_cdata) return false;
        if (type == pugi::node_element) ++elements;
    }
    return elements == 1;
}

// No element gives an attribute twice, and none nests deeper than the limit.
class RepeatedAttributeFinder : public pugi::xml_tree_walker {
  public:
    bool found = false;
    bool for_each(pugi::xml_node& node) override {
        if (node.type() == pugi::node_element &&
            static_cast<unsigned>(depth()) >= kMaxElementDepth) {
            found = true;
            return false;
        }
        const pugi::xml_attribute first = node.first_attribute();
        if (!first || !first.next_attribute()) return true;
        names_.clear();
        for (pugi::xml_attribute a = first; a; a = a.next_attribute())
            names_.emplace_back(a.name());
        std::sort(names_.begin(), names_.end());
        found = std::adjacent_find(names_.begin(), names_.end()) != names_.end();
        return !found;
    }

  private:
    std::vector<std::string_view> names_;
};

bool parsedWellFormed(pugi::xml_document& doc) {
    if (!topLevelWellFormed(doc)) return false;
    RepeatedAttributeFinder finder;
    doc.traverse(finder);
    return !finder.found;
}

}  // namespace

// ---- document ------------------------------------------------------------------------------

int Document::loadFile(const QString& path) {
    doc_.reset();
    // Only a regular file: a FIFO or a device would block the open or never end.
    if (path.isEmpty() || !QFileInfo(path).isFile()) return kMissing;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return kMissing;
    const qint64 size = file.size();
    if (size < 0) return kMissing;
    if (size > kMaxFileBytes) return kMalformed;
    // Read straight into a buffer the document then owns, so the file is held only once.
    void* buffer = pugi::get_memory_allocation_function()(static_cast<std::size_t>(size) + 1);
    if (!buffer) return kMissing;
    qint64 got = size == 0 ? 0 : file.read(static_cast<char*>(buffer), size);
    file.close();
    if (got != size) {
        pugi::get_memory_deallocation_function()(buffer);
        return kMissing;
    }
    if (!referencesDeclared(buffer, static_cast<std::size_t>(size))) {
        pugi::get_memory_deallocation_function()(buffer);
        return kMalformed;
    }
    pugi::xml_parse_result result = doc_.load_buffer_inplace_own(
        buffer, static_cast<std::size_t>(size), kParseOptions, pugi::encoding_auto);
    if (!result || !parsedWellFormed(doc_)) {
        doc_.reset();
        return kMalformed;
    }
    return kOk;
}

int Document::loadText(std::string_view text) {
    doc_.reset();
    if (text.size() > static_cast<unsigned long long>(kMaxFileBytes)) return kMalformed;
    if (!referencesDeclared(text.data(), text.size())) return kMalformed;
    pugi::xml_parse_result result =
        doc_.load_buffer(text.data(), text.size(), kParseOptions, pugi::encoding_auto);
    if (!result || !parsedWellFormed(doc_)) {
        doc_.reset();
        return kMalformed;
    }
    return kOk;
}

// ---- paths ---------------------------------------------------------------------------------

PathStep parseStep(std::string_view text, Syntax syntax) {
    PathStep step;
    step.name = text;
    const std::size_t open = text.find('[');
    const std::size_t close = text.rfind(']');
    if (open == std::string_view::npos || close == std::string_view::npos) return step;
    step.name = text.substr(0, open);
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos || equals < open || close < equals) return step;
    step.hasSelector = true;
    step.attribute = text.substr(open + 1, equals - open - 1);
    step.value = text.substr(equals + 1, close - equals - 1);
    if (syntax == Syntax::Autosar) {
        if (!step.attribute.empty() && step.attribute.front() == '@')
            step.attribute.remove_prefix(1);
        step.value = stripQuotes(step.value);
    }
    return step;
}

Element firstChild(Element element, std::string_view name) {
    for (Element child = element.first_child(); child; child = child.next_sibling())
        if (child.type() == pugi::node_element && nameIs(child, name)) return child;
    return Element();
}

void descendantsByName(Element element, std::string_view name, std::vector<Element>& out) {
    if (!element) return;
    for (pugi::xml_node n = element.first_child(); n; n = nextInSubtree(n, element))
        if (n.type() == pugi::node_element && nameIs(n, name)) out.push_back(n);
}

Element firstDescendantWith(Element element, std::string_view name, std::string_view attribute,
                            std::string_view value) {
    if (!element) return Element();
    const std::string attributeName(attribute);
    for (pugi::xml_node n = element.first_child(); n; n = nextInSubtree(n, element)) {
        if (n.type() != pugi::node_element || !nameIs(n, name)) continue;
        pugi::xml_attribute a = n.attribute(attributeName.c_str());
        if (a && std::string_view(a.value()) == value) return n;
    }
    return Element();
}

namespace {

// A path of plain names, the usual kind, is walked without splitting it into a list: each name is
// copied into a terminated buffer for pugixml's own child search. False when the path holds a
// selector or a name too long for the buffer.
bool findPlain(Element root, std::string_view path, Element& out, int& code) {
    char name[256];
    Element current = root;
    for (std::size_t begin = 0;;) {
        const std::size_t slash = path.find('/', begin);
        const std::size_t length = (slash == std::string_view::npos ? path.size() : slash) - begin;
        if (length >= sizeof name) return false;
        path.copy(name, length, begin);
        name[length] = '\0';
        current = length == 0 ? Element() : child(current, name);
        if (!current) {
            code = kNotFound;
            return true;
        }
        if (slash == std::string_view::npos) break;
        begin = slash + 1;
    }
    out = current;
    code = kOk;
    return true;
}

}  // namespace

int findElement(Element root, std::string_view path, Element& out, Syntax syntax) {
    if (path.empty()) return kEmptyPath;
    int code = kOk;
    if (path.find('[') == std::string_view::npos && findPlain(root, path, out, code)) return code;
    const std::vector<std::string_view> names = splitPath(path);
    Element current = root;
    for (std::size_t i = 0; i < names.size(); ++i) {
        const PathStep step = parseStep(names[i], syntax);
        if (step.hasSelector) {
            Element match = firstDescendantWith(current, step.name, step.attribute, step.value);
            if (!match) return kNotFound;
            out = match;
            return kOk;
        }
        current = firstChild(current, step.name);
        if (!current) return kNotFound;
    }
    out = current;
    return kOk;
}

int listElements(Element root, std::string_view path, std::vector<Element>& out, Syntax syntax) {
    out.clear();
    if (path.empty()) return kEmptyPath;
    const std::vector<std::string_view> names = splitPath(path);
    Element current = root;
    for (std::size_t i = 0; i + 1 < names.size(); ++i) {
        const PathStep step = parseStep(names[i], syntax);
        if (step.hasSelector) {
            current = firstDescendantWith(current, step.name, step.attribute, step.value);
        } else {
            current = firstChild(current, step.name);
        }
        if (!current) return kNotFound;
    }
    descendantsByName(current, parseStep(names.back(), syntax).name, out);
    return kOk;
}

// ---- typed readers -------------------------------------------------------------------------

namespace {
// The element at `path`, or null.
inline Element elementAt(Element root, std::string_view path, Syntax syntax) {
    Element e;
    return findElement(root, path, e, syntax) == kOk ? e : Element();
}
}  // namespace

float readFloat(Element root, std::string_view path, float fallback, Syntax syntax) {
    return readFloat(elementAt(root, path, syntax), fallback);
}

double readDouble(Element root, std::string_view path, double fallback, Syntax syntax) {
    return readDouble(elementAt(root, path, syntax), fallback);
}

std::uint32_t readUnsigned(Element root, std::string_view path, std::uint32_t fallback,
                           Syntax syntax) {
    return readUnsigned(elementAt(root, path, syntax), fallback);
}

std::uint64_t readHex64(Element root, std::string_view path, std::uint64_t fallback,
                        Syntax syntax) {
    return readHex64(elementAt(root, path, syntax), fallback);
}

bool readBool(Element root, std::string_view path, bool fallback, Syntax syntax) {
    return readBool(elementAt(root, path, syntax), fallback);
}

bool readUnsignedInto(Element root, std::string_view path, std::uint32_t& field, Syntax syntax) {
    return readUnsignedInto(elementAt(root, path, syntax), field);
}

bool readUnsigned16Into(Element root, std::string_view path, std::uint16_t& field, Syntax syntax) {
    return readUnsigned16Into(elementAt(root, path, syntax), field);
}

bool readBoolInto(Element root, std::string_view path, bool& field, Syntax syntax) {
    const Element e = elementAt(root, path, syntax);
    if (!e) return false;
    field = readBool(e, false);
    return true;
}

bool readTextInto(Element root, std::string_view path, std::string& field, bool trim,
                  Syntax syntax) {
    const Element e = elementAt(root, path, syntax);
    if (!e || trim) return readText(e, field);
    field = textContent(e);
    return true;
}

std::string textAt(Element root, std::string_view path, Syntax syntax) {
    std::string text;
    readText(elementAt(root, path, syntax), text);
    return text;
}

bool readAttributeInto(Element root, std::string_view path, const char* attribute,
                       std::string& field, bool trim, Syntax syntax) {
    const Element e = elementAt(root, path, syntax);
    if (!e) return false;
    const std::string_view value = e.attribute(attribute).value();
    field.assign(trim ? trimmed(value) : value);
    return true;
}

bool readBoolAttributeInto(Element root, std::string_view path, const char* attribute, bool& field,
                           Syntax syntax) {
    const Element e = elementAt(root, path, syntax);
    if (!e) return false;
    field = toBool(e.attribute(attribute).value());
    return true;
}

}  // namespace xml
}  // namespace kelo
