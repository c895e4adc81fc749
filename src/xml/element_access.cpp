#include "xml/element_access.h"

#include <QString>
#include <charconv>
#include <cstring>

namespace kelo {
namespace xml {

namespace {

inline QString qtText(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

// The value of up to maxDigits plain decimal digits; false for any other text.
bool plainDigits(std::string_view text, std::size_t maxDigits, std::uint32_t& value) {
    if (text.empty() || text.size() > maxDigits) return false;
    value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + static_cast<std::uint32_t>(c - '0');
    }
    return true;
}

inline bool isText(pugi::xml_node node) {
    const pugi::xml_node_type type = node.type();
    return type == pugi::node_pcdata || type == pugi::node_cdata;
}

}  // namespace

bool listBelow(Element scope, const char* name, std::vector<Element>& out) {
    out.clear();
    return forEachBelow(scope, name, [&out](Element e) { out.push_back(e); });
}

// ---- text ----------------------------------------------------------------------------------

std::string textContent(Element element) {
    std::string text;
    if (!element) return text;
    if (isText(element)) return element.value();
    // An element's value is the text that came first inside it (the document keeps it there), so
    // adding it before the element's children keeps document order.
    if (element.type() == pugi::node_element) text += element.value();
    for (pugi::xml_node n = element.first_child(); n; n = nextInSubtree(n, element))
        if (isText(n) || n.type() == pugi::node_element) text += n.value();
    return text;
}

std::string_view textOf(Element element, std::string& scratch) {
    const char* own = element.value();
    const pugi::xml_node first = element.first_child();
    if (!first) return own;
    if (*own == '\0' && !first.next_sibling() && isText(first)) return first.value();
    scratch = textContent(element);
    return scratch;
}

std::string_view trimmed(std::string_view text) {
    std::size_t begin = 0, end = text.size();
    while (begin < end && text[begin] == ' ')
        ++begin;
    while (end > begin && text[end - 1] == ' ')
        --end;
    return text.substr(begin, end - begin);
}

std::string trimSpaces(std::string_view text) {
    return std::string(trimmed(text));
}

// ---- conversions ---------------------------------------------------------------------------

// Plain decimals ("-12.5") of up to 16 characters are well inside the float range, where Qt's
// result is the correctly rounded double narrowed to float: the same is done here. Qt reports a
// value out of range with ok = false but still returns infinity: such text is 0.
float toFloat(std::string_view text) {
    if (!text.empty() && text.size() <= 16) {
        const std::size_t sign = text[0] == '-' ? 1 : 0;
        std::size_t digits = 0, points = 0;
        for (std::size_t k = sign; k < text.size(); ++k) {
            if (text[k] >= '0' && text[k] <= '9')
                ++digits;
            else if (text[k] == '.' && digits != 0 && points == 0)
                ++points;
            else
                digits = 0, k = text.size();
        }
        double value = 0.0;
        if (digits != 0 && text.back() != '.' && sign < text.size()) {
            const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
            if (result.ec == std::errc() && result.ptr == text.data() + text.size())
                return static_cast<float>(value);
        }
    }
    bool ok = false;
    const float value = qtText(text).toFloat(&ok);
    return ok ? value : 0.0f;
}

double toDouble(std::string_view text) {
    bool ok = false;
    const double value = qtText(text).toDouble(&ok);
    return ok ? value : 0.0;
}

std::uint32_t toUnsigned(std::string_view text) {
    std::uint32_t value = 0;
    if (plainDigits(text, 9, value)) return value;
    return qtText(text).toUInt();
}

std::uint16_t toUnsigned16(std::string_view text) {
    std::uint32_t value = 0;
    if (plainDigits(text, 5, value) && value <= 0xFFFF) return static_cast<std::uint16_t>(value);
    return qtText(text).toUShort();
}

std::uint64_t toHex64(std::string_view text) {
    return qtText(text).toULongLong(nullptr, 16);
}

bool toBool(std::string_view text) {
    for (char c : text)
        if (static_cast<unsigned char>(c) >= 0x80)
            return qtText(text).toLower() == QLatin1String("true");
    if (text.size() != 4) return false;
    static const char kTrue[] = "true";
    for (std::size_t i = 0; i < 4; ++i) {
        char c = text[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != kTrue[i]) return false;
    }
    return true;
}

// ---- typed values of a found element -------------------------------------------------------

bool readText(Element element, std::string& field) {
    if (!element) return false;
    std::string scratch;
    field.assign(trimmed(textOf(element, scratch)));
    return true;
}

std::uint32_t readUnsigned(Element element, std::uint32_t fallback) {
    std::string scratch;
    return element ? toUnsigned(textOf(element, scratch)) : fallback;
}

bool readUnsignedInto(Element element, std::uint32_t& field) {
    if (!element) return false;
    field = readUnsigned(element, 0);
    return true;
}

bool readUnsigned16Into(Element element, std::uint16_t& field) {
    if (!element) return false;
    std::string scratch;
    field = toUnsigned16(textOf(element, scratch));
    return true;
}

float readFloat(Element element, float fallback) {
    std::string scratch;
    return element ? toFloat(textOf(element, scratch)) : fallback;
}

double readDouble(Element element, double fallback) {
    return element ? static_cast<double>(readFloat(element, 0.0f)) : fallback;
}

bool readBool(Element element, bool fallback) {
    std::string scratch;
    return element ? toBool(textOf(element, scratch)) : fallback;
}

std::uint64_t readHex64(Element element, std::uint64_t fallback) {
    std::string scratch;
    return element ? toHex64(textOf(element, scratch)) : fallback;
}

}  // namespace xml
}  // namespace kelo
