#include "xml/xml_access.h"

#include <QFile>
#include <QFileInfo>
#include <cstring>

namespace kelo {
namespace xml {

namespace {

constexpr unsigned kParseOptions = pugi::parse_default;

inline bool nameIs(Element e, std::string_view name) {
    const char* n = e.name();
    return std::strlen(n) == name.size() && std::memcmp(n, name.data(), name.size()) == 0;
}

// Next node of a pre-order walk of `scope`'s subtree, or null after the last one.
inline pugi::xml_node nextInSubtree(pugi::xml_node node, pugi::xml_node scope) {
    if (pugi::xml_node child = node.first_child()) return child;
    while (node && node != scope) {
        if (pugi::xml_node sibling = node.next_sibling()) return sibling;
        node = node.parent();
    }
    return pugi::xml_node();
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

inline QString qtText(const std::string& text) {
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

}  // namespace

// ---- document ------------------------------------------------------------------------------

int Document::loadFile(const QString& path) {
    doc_.reset();
    if (path.isEmpty() || QFileInfo(path).isDir()) return kCannotOpen;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return kCannotOpen;
    const qint64 size = file.size();
    if (size < 0) return kCannotOpen;
    // Read straight into a buffer the document then owns, so the file is held only once.
    void* buffer = pugi::get_memory_allocation_function()(static_cast<std::size_t>(size) + 1);
    if (!buffer) return kCannotOpen;
    qint64 got = size == 0 ? 0 : file.read(static_cast<char*>(buffer), size);
    file.close();
    if (got != size) {
        pugi::get_memory_deallocation_function()(buffer);
        return kCannotOpen;
    }
    pugi::xml_parse_result result = doc_.load_buffer_inplace_own(
        buffer, static_cast<std::size_t>(size), kParseOptions, pugi::encoding_auto);
    if (!result || !doc_.document_element()) {
        doc_.reset();
        return kMalformed;
    }
    return kOk;
}

int Document::loadText(std::string_view text) {
    doc_.reset();
    pugi::xml_parse_result result =
        doc_.load_buffer(text.data(), text.size(), kParseOptions, pugi::encoding_auto);
    if (!result || !doc_.document_element()) {
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

int findElement(Element root, std::string_view path, Element& out, Syntax syntax) {
    if (path.empty()) return kEmptyPath;
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

// ---- text ----------------------------------------------------------------------------------

std::string textContent(Element element) {
    std::string text;
    if (!element) return text;
    if (element.type() == pugi::node_pcdata || element.type() == pugi::node_cdata)
        return element.value();
    for (pugi::xml_node n = element.first_child(); n; n = nextInSubtree(n, element))
        if (n.type() == pugi::node_pcdata || n.type() == pugi::node_cdata) text += n.value();
    return text;
}

std::string trimSpaces(std::string_view text) {
    std::size_t begin = 0, end = text.size();
    while (begin < end && text[begin] == ' ')
        ++begin;
    while (end > begin && text[end - 1] == ' ')
        --end;
    return std::string(text.substr(begin, end - begin));
}

float toFloat(const std::string& text) {
    return qtText(text).toFloat();
}
double toDouble(const std::string& text) {
    return qtText(text).toDouble();
}
std::uint32_t toUnsigned(const std::string& text) {
    return qtText(text).toUInt();
}
std::uint16_t toUnsigned16(const std::string& text) {
    return qtText(text).toUShort();
}
std::uint64_t toHex64(const std::string& text) {
    return qtText(text).toULongLong(nullptr, 16);
}
bool toBool(const std::string& text) {
    return qtText(text).toLower() == QLatin1String("true");
}

// ---- typed readers -------------------------------------------------------------------------

namespace {
inline bool found(Element root, std::string_view path, Element& e) {
    return findElement(root, path, e) == kOk;
}
}  // namespace

float readFloat(Element root, std::string_view path, float fallback) {
    Element e;
    return found(root, path, e) ? toFloat(textContent(e)) : fallback;
}

double readDouble(Element root, std::string_view path, double fallback) {
    Element e;
    return found(root, path, e) ? static_cast<double>(toFloat(textContent(e))) : fallback;
}

std::uint32_t readUnsigned(Element root, std::string_view path, std::uint32_t fallback) {
    Element e;
    return found(root, path, e) ? toUnsigned(textContent(e)) : fallback;
}

std::uint64_t readHex64(Element root, std::string_view path, std::uint64_t fallback) {
    Element e;
    return found(root, path, e) ? toHex64(textContent(e)) : fallback;
}

bool readBool(Element root, std::string_view path, bool fallback) {
    Element e;
    return found(root, path, e) ? toBool(textContent(e)) : fallback;
}

bool readUnsignedInto(Element root, std::string_view path, std::uint32_t& field) {
    Element e;
    if (!found(root, path, e)) return false;
    field = toUnsigned(textContent(e));
    return true;
}

bool readUnsigned16Into(Element root, std::string_view path, std::uint16_t& field) {
    Element e;
    if (!found(root, path, e)) return false;
    field = toUnsigned16(textContent(e));
    return true;
}

bool readBoolInto(Element root, std::string_view path, bool& field) {
    Element e;
    if (!found(root, path, e)) return false;
    field = toBool(textContent(e));
    return true;
}

bool readTextInto(Element root, std::string_view path, std::string& field, bool trim) {
    Element e;
    if (!found(root, path, e)) return false;
    field = trim ? trimSpaces(textContent(e)) : textContent(e);
    return true;
}

bool readAttributeInto(Element root, std::string_view path, const char* attribute,
                       std::string& field, bool trim) {
    Element e;
    if (!found(root, path, e)) return false;
    const char* value = e.attribute(attribute).value();
    field = trim ? trimSpaces(value) : std::string(value);
    return true;
}

bool readBoolAttributeInto(Element root, std::string_view path, const char* attribute,
                           bool& field) {
    Element e;
    if (!found(root, path, e)) return false;
    field = toBool(e.attribute(attribute).value());
    return true;
}

}  // namespace xml
}  // namespace kelo
