#include "fibex/fibex_reader.h"

#include <QString>
#include <algorithm>
#include <charconv>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <tuple>
#include <type_traits>
#include <unordered_map>

#include "xml/diagnostics.h"

namespace kelo {
namespace fibex {

namespace {

using xml::Element;

// ---- element access ------------------------------------------------------------------------
// The steps address items by fixed names below the element at hand. These helpers walk the
// tree the way the XML layer's finder and lister do (first child of each name; all descendants
// for a list), without splitting path texts, so the per-element loops allocate nothing for it.

// Equal C strings. Element names are short and mostly differ right after their common prefix
// ("fx:", "ho:"), where this inlined loop stops; the library call costs more than the compare.
inline bool sameName(const char* a, const char* b) {
    while (*a == *b) {
        if (*a == '\0') return true;
        ++a;
        ++b;
    }
    return false;
}

inline bool isText(pugi::xml_node node) {
    const pugi::xml_node_type type = node.type();
    return type == pugi::node_pcdata || type == pugi::node_cdata;
}

// First child element with this name (prefix as written), or null; a null parent gives null.
// This is pugixml's own search, a loop inside the library: stepping through the children with
// the node accessors costs a library call per step. It finds the first child node of that name
// of any type; in the documents of the XML layer, whose parse keeps no processing instructions
// or declarations, elements are the only named nodes.
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

// Calls visit(element) for every element named `name` anywhere below `scope`, in document order
// (all descendants, so nested matches are found too). A visitor that returns bool ends the walk
// by returning false. False when the scope is missing (the list's parent path does not exist).
// The walk is pugixml's own pre-order traversal, which is much cheaper than stepping node by
// node through the library's accessors. Visiting an element while the walk is there keeps its
// subtree in cache for the visitor, which reads the same nodes.
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

template <typename Visit>
bool forEachBelow(Element scope, const char* name, Visit&& visit) {
    if (!scope) return false;
    NameWalker<std::remove_reference_t<Visit>> walker(name, visit);
    scope.traverse(walker);
    return true;
}

// Every element named `name` anywhere below `scope`, in document order. False, with an empty
// list, when the scope is missing.
bool listBelow(Element scope, const char* name, std::vector<Element>& out) {
    out.clear();
    return forEachBelow(scope, name, [&out](Element e) { out.push_back(e); });
}

// The first child element of each of `names`, found in one pass over the children (the same
// elements as looking each name up on its own). Missing ones stay null. Files give the items
// in the order of their schema, so the names are tried starting after the one matched last:
// usually the first name tried is the one.
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

// The element's text content. The usual single text child is returned without a copy; any other
// content is gathered into `scratch` by the XML layer.
std::string_view textOf(Element element, std::string& scratch) {
    const char* own = element.value();  // text a parser may keep in the element itself
    const pugi::xml_node first = element.first_child();
    if (!first) return own;
    if (*own == '\0' && !first.next_sibling() && isText(first)) return first.value();
    scratch = xml::textContent(element);
    return scratch;
}

// Leading and trailing space characters removed (only ' ').
inline std::string_view trimmed(std::string_view text) {
    std::size_t begin = 0, end = text.size();
    while (begin < end && text[begin] == ' ')
        ++begin;
    while (end > begin && text[end - 1] == ' ')
        --end;
    return text.substr(begin, end - begin);
}

inline const char* attribute(Element element, const char* name) {
    return element.attribute(name).value();
}

// ---- conversions ---------------------------------------------------------------------------
// Plain decimal digits, by far the usual form, are converted here; any other text goes to the
// XML layer's Qt conversions, whose rules (white space, signs, too large -> 0) then apply. Both
// give the same value for plain digits.

std::uint32_t toU32(std::string_view text) {
    if (!text.empty() && text.size() <= 9) {
        std::uint32_t value = 0;
        bool digits = true;
        for (char c : text) {
            if (c < '0' || c > '9') {
                digits = false;
                break;
            }
            value = value * 10 + static_cast<std::uint32_t>(c - '0');
        }
        if (digits) return value;
    }
    return xml::toUnsigned(std::string(text));
}

std::uint16_t toU16(std::string_view text) {
    if (!text.empty() && text.size() <= 5) {
        std::uint32_t value = 0;
        bool digits = true;
        for (char c : text) {
            if (c < '0' || c > '9') {
                digits = false;
                break;
            }
            value = value * 10 + static_cast<std::uint32_t>(c - '0');
        }
        if (digits && value <= 0xFFFF) return static_cast<std::uint16_t>(value);
    }
    return xml::toUnsigned16(std::string(text));
}

// Plain decimals ("-12.5") of up to 16 characters are well inside the float range, where the Qt
// conversion is the correctly rounded double narrowed to float: the same is done here.
float toF32(std::string_view text) {
    if (!text.empty() && text.size() <= 16) {
        std::size_t i = text[0] == '-' ? 1 : 0;
        std::size_t digits = 0, points = 0;
        for (std::size_t k = i; k < text.size(); ++k) {
            if (text[k] >= '0' && text[k] <= '9')
                ++digits;
            else if (text[k] == '.' && digits != 0 && points == 0)
                ++points;
            else
                digits = 0, k = text.size();
        }
        const bool plain = digits != 0 && text.back() != '.' && i < text.size();
        double value = 0.0;
        if (plain) {
            const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
            if (result.ec == std::errc() && result.ptr == text.data() + text.size())
                return static_cast<float>(value);
        }
    }
    return xml::toFloat(std::string(text));
}

// True when the lower-cased text is "true".
bool toBoolean(std::string_view text) {
    bool ascii = true;
    for (char c : text)
        if (static_cast<unsigned char>(c) >= 0x80) ascii = false;
    if (!ascii) return xml::toBool(std::string(text));
    if (text.size() != 4) return false;
    static const char kTrue[] = "true";
    for (std::size_t i = 0; i < 4; ++i) {
        char c = text[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != kTrue[i]) return false;
    }
    return true;
}

// ---- typed readers over a found (or null) element --------------------------------------------

// Trimmed text into the field; false (field untouched) for a missing element.
bool readText(Element element, std::string& field) {
    if (!element) return false;
    std::string scratch;
    field.assign(trimmed(textOf(element, scratch)));
    return true;
}

std::uint32_t readU32(Element element, std::uint32_t fallback) {
    if (!element) return fallback;
    std::string scratch;
    return toU32(textOf(element, scratch));
}

bool readU32Into(Element element, std::uint32_t& field) {
    if (!element) return false;
    std::string scratch;
    field = toU32(textOf(element, scratch));
    return true;
}

bool readU16Into(Element element, std::uint16_t& field) {
    if (!element) return false;
    std::string scratch;
    field = toU16(textOf(element, scratch));
    return true;
}

float readF32(Element element, float fallback) {
    if (!element) return fallback;
    std::string scratch;
    return toF32(textOf(element, scratch));
}

// Read as a 32-bit float and widened: single precision on purpose.
double readF32Wide(Element element, double fallback) {
    if (!element) return fallback;
    std::string scratch;
    return static_cast<double>(toF32(textOf(element, scratch)));
}

bool readBool(Element element, bool fallback) {
    if (!element) return fallback;
    std::string scratch;
    return toBoolean(textOf(element, scratch));
}

std::uint64_t readHex64(Element element, std::uint64_t fallback) {
    if (!element) return fallback;
    std::string scratch;
    return xml::toHex64(std::string(textOf(element, scratch)));
}

// An attribute stored as a text field: trimmed.
inline std::string trimmedAttribute(Element element, const char* name) {
    return std::string(trimmed(attribute(element, name)));
}

// A hash index over the entries of one map, kept for the duration of one load: the steps that
// ---- keyed storage ---------------------------------------------------------------------------
// The maps of the database are ordered by key and the files list their elements in no
// particular key order. Inserting element by element would search a deep tree for every record
// and for every reference, touching a cold node at each level. Instead each step collects its
// records with their keys, sorts the keys and inserts in key order (each insertion next to the
// previous one, constant time); references are resolved through a hash index of the keys.

// Text a step makes up (a key such as "<ID>_UB") or gathers from several text nodes; views into
// it stay valid while the store lives.
class TextStore {
  public:
    std::string_view keep(std::string_view a, std::string_view b = {}) {
        const std::size_t size = a.size() + b.size();
        if (size > left_) {
            const std::size_t block = std::max<std::size_t>(size, kBlock);
            blocks_.emplace_back(new char[block]);
            next_ = blocks_.back().get();
            left_ = block;
        }
        char* out = next_;
        if (!a.empty()) std::memcpy(out, a.data(), a.size());
        if (!b.empty()) std::memcpy(out + a.size(), b.data(), b.size());
        next_ += size;
        left_ -= size;
        return std::string_view(out, size);
    }

  private:
    static constexpr std::size_t kBlock = 64 * 1024;
    std::vector<std::unique_ptr<char[]>> blocks_;
    char* next_ = nullptr;
    std::size_t left_ = 0;
};

// The trimmed text of an element that is known to exist, kept in `store`. Steps keep the keys
// and names of their records this way while they walk the document in order, so that storing
// the records in key order later reads them from a compact store instead of all over the
// document.
std::string_view keepText(Element element, TextStore& store) {
    std::string scratch;
    return store.keep(trimmed(textOf(element, scratch)));
}

std::string_view keepAttribute(Element element, const char* name, TextStore& store) {
    return store.keep(attribute(element, name));
}

// Open-addressing hash table from key text to a value. The table keeps its own copy of the keys,
// side by side: checking a hit then reads from that compact store rather than from wherever the
// key lives (a map node, the document), which would cost a cache miss per lookup.
template <typename T>
class KeyIndex {
  public:
    static std::size_t hashOf(std::string_view key) {
        const std::size_t hash = std::hash<std::string_view>()(key);
        return hash == 0 ? 1 : hash;  // 0 marks a free slot
    }

    T* find(std::string_view key, std::size_t hash) {
        if (slots_.empty()) return nullptr;
        const std::size_t mask = slots_.size() - 1;
        for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
            Slot& slot = slots_[i];
            if (slot.hash == 0) return nullptr;
            // An empty key may have no data pointer at all: memcmp must not see it.
            if (slot.hash == hash && slot.size == key.size() &&
                (key.empty() || std::memcmp(slot.data, key.data(), key.size()) == 0))
                return &slot.value;
        }
    }

    // Adds a key that find() does not know.
    void add(std::string_view key, std::size_t hash, T value) {
        if (2 * (count_ + 1) > slots_.size()) resize(2 * (count_ + 1));
        const std::string_view kept = keys_.keep(key);
        place(Slot{hash, kept.data(), kept.size(), value});
        ++count_;
    }

    void reserve(std::size_t count) {
        if (2 * count > slots_.size()) resize(2 * count);
    }

  private:
    struct Slot {
        std::size_t hash = 0;
        const char* data = nullptr;
        std::size_t size = 0;
        T value{};
    };

    void place(const Slot& entry) {
        const std::size_t mask = slots_.size() - 1;
        std::size_t i = entry.hash & mask;
        while (slots_[i].hash != 0)
            i = (i + 1) & mask;
        slots_[i] = entry;
    }
    void resize(std::size_t atLeast) {
        std::size_t size = 1024;
        while (size < atLeast)
            size *= 2;
        std::vector<Slot> old(size);
        old.swap(slots_);
        for (const Slot& entry : old)
            if (entry.hash != 0) place(entry);
    }

    std::vector<Slot> slots_;
    std::size_t count_ = 0;
    TextStore keys_;
};

// Eight bytes of a key from `at` on as a big-endian number, missing bytes as 0: numbers compare
// like the bytes.
inline std::uint64_t keyWord(std::string_view key, std::size_t at) {
    unsigned char bytes[8] = {};
    if (at + 8 <= key.size())
        std::memcpy(bytes, key.data() + at, 8);
    else if (at < key.size())
        std::memcpy(bytes, key.data() + at, key.size() - at);
    std::uint64_t word = 0;
    for (const unsigned char b : bytes)
        word = (word << 8) | b;
    return word;
}

// A key to sort: its first 16 bytes as two numbers, so that most comparisons end without
// touching the key's text; then the whole key, then the document position.
struct SortKey {
    std::uint64_t high = 0, low = 0;
    const char* data = nullptr;
    std::uint32_t size = 0;
    std::uint32_t position = 0;
    SortKey(std::string_view k, std::size_t p)
        : high(keyWord(k, 0)),
          low(keyWord(k, 8)),
          data(k.data()),
          size(static_cast<std::uint32_t>(k.size())),
          position(static_cast<std::uint32_t>(p)) {}
    std::string_view key() const { return std::string_view(data, size); }
    bool operator<(const SortKey& other) const {
        if (high != other.high) return high < other.high;
        if (low != other.low) return low < other.low;
        if (size > 16 || other.size > 16 || size != other.size) {
            const int c = key().compare(other.key());
            if (c != 0) return c < 0;
        }
        return position < other.position;
    }
    bool sameKey(const SortKey& other) const {
        return high == other.high && low == other.low && key() == other.key();
    }
};

// One map of the database as the steps use it. Every operation has the effect of the map's own:
// subscript inserts a reset record under a missing key, and a store is `map[key] := record`.
// The first lookups search the map; once there are many, a hash index of the map's keys is made
// and used from then on, kept up to date by every insertion made here. Nothing else may insert
// into the map while this object is in use.
template <typename Map>
class KeyedMap {
  public:
    using Value = typename Map::mapped_type;
    using Entry = typename Map::iterator;
    using Index = KeyIndex<Entry>;

    explicit KeyedMap(Map& map) : map_(map) {}

    static std::size_t hashOf(std::string_view key) { return Index::hashOf(key); }
    Entry end() { return map_.end(); }

    // The entry under key, or end().
    Entry find(std::string_view key, std::size_t hash) {
        if (!indexed_) {
            if (++searches_ <= kSearchesBeforeIndex) {
                search_.assign(key);
                return map_.find(search_);
            }
            buildIndex();
        }
        const Entry* hit = index_.find(key, hash);
        return hit ? *hit : map_.end();
    }

    // map[key]
    Value& operator[](std::string_view key) {
        const std::size_t hash = hashOf(key);
        const Entry hit = find(key, hash);
        if (hit != map_.end()) return hit->second;
        return insert(key, hash, map_.end())->second;
    }

    // map[key] for a key that find() has just missed: a reset record. `hint` is where the key
    // probably goes (as for the map's emplace_hint: the entry it will precede); a wrong hint
    // only costs a search.
    Entry insert(std::string_view key, std::size_t hash, Entry hint) {
        const Entry it = map_.emplace_hint(hint, std::piecewise_construct,
                                           std::forward_as_tuple(key), std::forward_as_tuple());
        if (indexed_) index_.add(it->first, hash, it);
        return it;
    }

    // map[key] := value
    template <typename V>
    Value& store(std::string_view key, V&& value) {
        Value& slot = (*this)[key];
        slot = std::forward<V>(value);
        return slot;
    }

    // map[keys[i]] := the record of i, for i in document order, done in key order: of several
    // equal keys only the last one's record is stored (the others would be overwritten). The
    // record comes from `make`: make(i) returns it (an rvalue reference moves it into the map),
    // or make(i, record) fills the reset record in the map. `entries`, when given, receives for
    // each i the entry that holds its record (the same entry for equal keys).
    template <typename Make>
    void storeAll(const std::vector<std::string_view>& keys, Make&& make,
                  std::vector<Entry>* entries = nullptr) {
        constexpr bool kFills = std::is_invocable_v<Make&, std::size_t, Value&>;
        if (entries) entries->assign(keys.size(), map_.end());
        if (keys.empty()) return;
        std::vector<SortKey> order;
        order.reserve(keys.size());
        for (std::size_t i = 0; i < keys.size(); ++i)
            order.emplace_back(keys[i], i);
        std::sort(order.begin(), order.end());

        // Walk the map alongside the sorted keys: `next` is the first entry not below the key.
        Entry next = map_.end();
        if (!map_.empty()) next = map_.lower_bound(std::string(order.front().key()));
        std::size_t first = 0;  // first of the run of equal keys
        for (std::size_t n = 0; n < order.size(); ++n) {
            if (n + 1 < order.size() && order[n + 1].sameKey(order[n])) continue;
            const std::string_view key = order[n].key();
            const std::size_t position = order[n].position;
            while (next != map_.end() && std::string_view(next->first) < key)
                ++next;
            Entry it;
            if (next != map_.end() && std::string_view(next->first) == key) {
                it = next++;
                if constexpr (kFills) {
                    it->second = Value();
                    make(position, it->second);
                } else {
                    it->second = make(position);
                }
            } else {
                if constexpr (kFills) {
                    it = map_.emplace_hint(next, std::piecewise_construct,
                                           std::forward_as_tuple(key), std::forward_as_tuple());
                    make(position, it->second);
                } else {
                    it = map_.emplace_hint(next, std::piecewise_construct,
                                           std::forward_as_tuple(key),
                                           std::forward_as_tuple(make(position)));
                }
                if (indexed_) index_.add(it->first, hashOf(key), it);
            }
            if (entries)
                for (std::size_t k = first; k <= n; ++k)
                    (*entries)[order[k].position] = it;
            first = n + 1;
        }
    }

    // Makes the index now, with room for `more` keys: for a map that later steps refer to, so
    // that the records stored next are indexed as they are stored (from the step's compact
    // copies of their keys) rather than found again in the map later.
    void indexAhead(std::size_t more) {
        if (!indexed_) buildIndex(more);
    }

  private:
    void buildIndex(std::size_t more = 0) {
        indexed_ = true;
        index_.reserve(map_.size() + more);
        for (Entry it = map_.begin(); it != map_.end(); ++it)
            index_.add(it->first, hashOf(it->first), it);
    }

    static constexpr std::size_t kSearchesBeforeIndex = 256;

    Map& map_;
    Index index_;
    bool indexed_ = false;
    std::size_t searches_ = 0;
    std::string search_;
};

// ---- code tables -----------------------------------------------------------------------------

// BASE-DATA-TYPE names by code (code = index + 1; 9 is not used).
const char* const kBaseDataTypes[] = {
    "A_INT8",    "A_INT16",       "A_INT32",          "A_INT64",     "A_UINT8",
    "A_UINT16",  "A_UINT32",      "A_UINT64",         nullptr,       "A_FLOAT32",
    "A_FLOAT64", "A_ASCIISTRING", "A_UNICODE2STRING", "A_BYTEFIELD", "A_BITFIELD",
};

std::uint16_t baseDataTypeCode(const std::string& name) {
    for (std::size_t i = 0; i < sizeof kBaseDataTypes / sizeof kBaseDataTypes[0]; ++i)
        if (kBaseDataTypes[i] && name == kBaseDataTypes[i])
            return static_cast<std::uint16_t>(i + 1);
    return 0;
}

// Channel mask from FLEXRAY-CHANNEL-NAME: "A" 1, "B" 2 (any case), else 0.
std::uint16_t channelMaskOf(const std::string& name) {
    if (name.size() != 1) return 0;
    if (name[0] == 'A' || name[0] == 'a') return 1;
    if (name[0] == 'B' || name[0] == 'b') return 2;
    return 0;
}

// Seconds from an ISO 8601 duration such as "PT0.05S": every "PT" and then every "S" removed,
// the rest read as a decimal number.
double durationSeconds(const std::string& text) {
    QString value = QString::fromUtf8(text.data(), static_cast<int>(text.size()));
    value.remove(QStringLiteral("PT"));
    value.remove(QLatin1Char('S'));
    bool ok = false;
    const double seconds = value.toDouble(&ok);
    return ok ? seconds : 0.0;  // not a number, or out of range: 0
}

}  // namespace

// The maps of the database as the steps of one load use them (see KeyedMap).
struct FibexReader::LoadMaps {
    explicit LoadMaps(BusDatabase& db)
        : units(db.units),
          codings(db.codings),
          signals(db.signals),
          signalsByName(db.signalsByName),
          signalInstances(db.signalInstances),
          pdus(db.pdus),
          pduInstances(db.pduInstances),
          frames(db.frames),
          framesByName(db.framesByName),
          pduTriggerings(db.pduTriggerings),
          frameTriggerings(db.frameTriggerings),
          channels(db.channels),
          controllers(db.controllers),
          inputPorts(db.inputPorts),
          outputPorts(db.outputPorts),
          connectors(db.connectors),
          ecusByName(db.ecusByName),
          ecus(db.ecus),
          clusters(db.clusters) {}

    KeyedMap<decltype(BusDatabase::units)> units;
    KeyedMap<decltype(BusDatabase::codings)> codings;
    KeyedMap<decltype(BusDatabase::signals)> signals;
    KeyedMap<decltype(BusDatabase::signalsByName)> signalsByName;
    KeyedMap<decltype(BusDatabase::signalInstances)> signalInstances;
    KeyedMap<decltype(BusDatabase::pdus)> pdus;
    KeyedMap<decltype(BusDatabase::pduInstances)> pduInstances;
    KeyedMap<decltype(BusDatabase::frames)> frames;
    KeyedMap<decltype(BusDatabase::framesByName)> framesByName;
    KeyedMap<decltype(BusDatabase::pduTriggerings)> pduTriggerings;
    KeyedMap<decltype(BusDatabase::frameTriggerings)> frameTriggerings;
    KeyedMap<decltype(BusDatabase::channels)> channels;
    KeyedMap<decltype(BusDatabase::controllers)> controllers;
    KeyedMap<decltype(BusDatabase::inputPorts)> inputPorts;
    KeyedMap<decltype(BusDatabase::outputPorts)> outputPorts;
    KeyedMap<decltype(BusDatabase::connectors)> connectors;
    KeyedMap<decltype(BusDatabase::ecusByName)> ecusByName;
    KeyedMap<decltype(BusDatabase::ecus)> ecus;
    KeyedMap<decltype(BusDatabase::clusters)> clusters;

    // The signals of the signal step in document order, with their IDs. Files usually place
    // signals in their PDUs in the order in which they list them, so the PDU step looks for the
    // signal of an instance here first, next to the previous one, before it hashes the ID.
    struct ListedSignal {
        std::string_view id;
        decltype(BusDatabase::signals)::iterator entry;
    };
    std::vector<ListedSignal> signalOrder;
    TextStore signalIds;
};

FibexReader::FibexReader(BusDatabase& database) : database(database) {}
FibexReader::~FibexReader() = default;

FibexReader::LoadMaps& FibexReader::mapsForStep(std::unique_ptr<LoadMaps>& own) {
    if (maps_) return *maps_;
    own = std::make_unique<LoadMaps>(database);
    return *own;
}

// ---- loading ---------------------------------------------------------------------------------

void FibexReader::ReadFIBEXData(const std::string& path) {
    if (path.empty()) return;
    KELO_INFO(0, "ReadFIBEXData", "Parsing database file: '%s' started", path.c_str());
    database.Clear();
    if (LoadFile(path) != 0) {
        KELO_ERROR(1, "ReadFIBEXData", "Parsing failed.");
        loaded = false;
    } else {
        KELO_INFO(2, "ReadFIBEXData", "Parsing succeeded.");
        loaded = true;
    }
    database.loaded = loaded;
}

int FibexReader::LoadFile(const std::string& path) {
    filePath = path;
    const int code = document.loadFile(QString::fromStdString(path));
    if (code != xml::kOk) return code;
    return ReadDocument();
}

int FibexReader::LoadText(std::string_view text) {
    const int code = document.loadText(text);
    if (code != xml::kOk) return code;
    return ReadDocument();
}

int FibexReader::ReadDocument() {
    placements_.clear();
    updateBitSignals_.clear();
    frameOrder_.clear();
    maps_ = std::make_unique<LoadMaps>(database);
    const int code = RunSteps();
    maps_.reset();
    return code;
}

int FibexReader::RunSteps() {
    const char* version = attribute(document.root(), "VERSION");
    const std::string_view v(version);
    if (v == "1.2.0a") {
        database.versionCode = 0;
    } else if (v.substr(0, 4) == "2.0.") {
        database.versionCode = 1;
    } else if (v.substr(0, 4) == "3.0.") {
        database.versionCode = 2;
    } else if (v.substr(0, 4) == "3.1.") {
        database.versionCode = 3;
    } else {
        KELO_ERROR(40, "LoadFile", "Version '%s' of the Database file file is not supported!",
                   version);
        return 7;
    }

    // A failing step runs once more on the same document; the second run's code is returned.
    using Step = int (FibexReader::*)();
    const auto run = [this](Step step) {
        const int code = (this->*step)();
        return code == 0 ? 0 : (this->*step)();
    };
    int code = 0;
    if ((code = run(&FibexReader::ParseUnits)) != 0) return code;
    if ((code = run(&FibexReader::ParseCodings)) != 0) return code;
    if ((code = run(&FibexReader::ParseSignals)) != 0) return code;
    if (database.versionCode >= 2 && (code = run(&FibexReader::ParsePDUs)) != 0) return code;
    if ((code = run(&FibexReader::ParseFrames)) != 0) return code;
    LinkSignalsToFrames();
    if ((code = run(&FibexReader::ParseChannels)) != 0) return code;
    BuildSlotTable();
    if ((code = run(&FibexReader::ParseECUs)) != 0) return code;
    if ((code = run(&FibexReader::ParseClusters)) != 0) return code;
    return 0;
}

// ---- units and codings -----------------------------------------------------------------------

int FibexReader::ParseUnits() {
    std::unique_ptr<LoadMaps> own;
    LoadMaps& maps = mapsForStep(own);
    int code = 0;
    forEachBelow(at(document.root(), {"fx:PROCESSING-INFORMATION", "ho:UNIT-SPEC", "ho:UNITS"}),
                 "ho:UNIT", [&](Element e) {
                     Unit unit;
                     if (!readText(child(e, "ho:SHORT-NAME"), unit.shortName)) {
                         code = 2;
                         return false;
                     }
                     readText(child(e, "ho:DESC"), unit.desc);
                     if (!readText(child(e, "ho:DISPLAY-NAME"), unit.displayName))
                         KELO_ERROR(3, "ParseUnits",
                                    "FIBEX parse error: DISPLAY-NAME for unit item not found!");
                     maps.units.store(attribute(e, "ID"), std::move(unit));
                     return true;
                 });
    return code;
}

int FibexReader::ParseCodings() {
    static const char kOp[] = "ParseCodings";
    static const char* const kCodingItems[] = {"ho:SHORT-NAME", "ho:DESC", "ho:CODED-TYPE",
                                               "ho:PHYSICAL-TYPE", "ho:COMPU-METHODS"};
    enum { kShortName, kDesc, kCodedType, kPhysicalType, kMethods };
    static const char* const kMethodItems[] = {"ho:SHORT-NAME",       "ho:CATEGORY",
                                               "ho:UNIT-REF",         "ho:PHYS-CONSTRS",
                                               "ho:INTERNAL-CONSTRS", "ho:COMPU-INTERNAL-TO-PHYS"};
    enum { kMethodName, kCategory, kUnitRef, kPhysConstrs, kInternalConstrs, kToPhys };

    std::unique_ptr<LoadMaps> own;
    LoadMaps& maps = mapsForStep(own);
    // The codings in document order, stored in the map together at the end (also when the step
    // stops early: the codings read until then stay).
    std::vector<std::string_view> ids;
    std::vector<Coding> read;
    std::vector<Element> methods, scales, values;
    TextStore texts;
    const Element list = at(document.root(), {"fx:PROCESSING-INFORMATION", "fx:CODINGS"});
    int code = 0;
    const auto readCoding = [&](Element e) {
        Element items[5];
        findChildren(e, kCodingItems, items);
        Coding coding;
        if (!readText(items[kShortName], coding.shortName)) {
            code = 2;
            return false;
        }
        readText(items[kDesc], coding.desc);

        // Coded type.
        const Element codedType = items[kCodedType];
        if (!codedType) KELO_ERROR(4, kOp, "Database file parse error: CODED-TYPE not found!");
        coding.baseDataType = trimmedAttribute(codedType, "ho:BASE-DATA-TYPE");
        if (coding.baseDataType.empty() && items[kPhysicalType])
            coding.baseDataType = trimmedAttribute(items[kPhysicalType], "ho:BASE-DATA-TYPE");
        coding.category = trimmedAttribute(codedType, "CATEGORY");
        if (coding.category != "STANDARD-LENGTH-TYPE")
            KELO_ERROR(5, kOp, "Database file parse error: Invalid CATEGORY found!");
        coding.bitLength =
            static_cast<std::uint16_t>(readU32(child(codedType, "ho:BIT-LENGTH"), 0));
        if (coding.bitLength == 0)
            KELO_ERROR(6, kOp, "Database file parse error: BIT-LENGTH of coded type not found!");
        coding.isSigned = false;
        coding.encoding = trimmedAttribute(codedType, "ENCODING");

        // Data type: the base data type alone decides when there is one; otherwise the encoding
        // and the bit length.
        const unsigned bits = coding.bitLength;
        if (!coding.baseDataType.empty()) {
            coding.dataType = baseDataTypeCode(coding.baseDataType);
            if (coding.dataType == 0)
                KELO_ERROR(10, kOp,
                           "Database file parse error: Invalid BASE-DATA-TYPE item '%s' found!",
                           coding.baseDataType.c_str());
            coding.isSigned = coding.dataType >= kInt8 && coding.dataType <= kInt64;
        } else if (coding.encoding == "IEEE-FLOATING-TYPE") {
            coding.isSigned = true;
            if (bits == 32)
                coding.dataType = kFloat32;
            else if (bits == 64)
                coding.dataType = kFloat64;
            else
                KELO_ERROR(7, kOp,
                           "Database file parse error: Invalid ENCODING=IEEE-FLOATING-TYPE with "
                           "bitlength %d found!",
                           static_cast<int>(bits));
        } else if (coding.encoding == "UNSIGNED" || coding.encoding.empty()) {
            coding.isSigned = false;
            if (bits <= 8)
                coding.dataType = kUInt8;
            else if (bits <= 16)
                coding.dataType = kUInt16;
            else if (bits <= 32)
                coding.dataType = kUInt32;
            else if (bits <= 64)
                coding.dataType = kUInt64;
            else
                KELO_ERROR(8, kOp, "Database file parse error: Invalid bitlength %d found!",
                           static_cast<int>(bits));
        } else if (coding.encoding == "SIGNED") {
            coding.isSigned = true;
            if (bits <= 8)
                coding.dataType = kInt8;
            else if (bits <= 16)
                coding.dataType = kInt16;
            else if (bits <= 32)
                coding.dataType = kInt32;
            else if (bits <= 64)
                coding.dataType = kInt64;
            else
                KELO_ERROR(9, kOp, "Database file parse error: Invalid bitlength %d found!",
                           static_cast<int>(bits));
        }

        // Compu methods.
        listBelow(items[kMethods], "ho:COMPU-METHOD", methods);
        coding.compuMethodCount = static_cast<std::uint32_t>(methods.size());
        coding.compuMethods.reserve(methods.size());
        bool rationalSeen = false;
        bool textTableSeen = false;
        for (const Element m : methods) {
            Element parts[6];
            findChildren(m, kMethodItems, parts);
            CompuMethod method;
            readText(parts[kMethodName], method.shortName);
            const bool hasCategory = readText(parts[kCategory], method.category);
            if (!hasCategory)
                KELO_ERROR(11, kOp,
                           "Database file parse error: CATEGORY of compu-method not found!");
            const bool rational =
                hasCategory && (method.category == "LINEAR" || method.category == "IDENTICAL");
            const bool textTable = hasCategory && method.category == "TEXTTABLE";
            if (rational || textTable) {
                if (parts[kUnitRef])
                    method.unit = &maps.units[attribute(parts[kUnitRef], "ID-REF")];
            }
            if (rational) {
                if (rationalSeen)
                    KELO_ERROR(12, kOp,
                               "Database file parse error: only one COMPU-METHOD SCALE supported");
                rationalSeen = true;
                const Element phys = child(parts[kPhysConstrs], "ho:SCALE-CONSTR");
                const Element internal = child(parts[kInternalConstrs], "ho:SCALE-CONSTR");
                method.physLowerLimit = readF32(child(phys, "ho:LOWER-LIMIT"), -kFloatMax);
                method.physUpperLimit = readF32(child(phys, "ho:UPPER-LIMIT"), kFloatMax);
                method.internalLowerLimit = readF32(child(internal, "ho:LOWER-LIMIT"), -kFloatMax);
                method.internalUpperLimit = readF32(child(internal, "ho:UPPER-LIMIT"), kFloatMax);
                listBelow(child(parts[kToPhys], "ho:COMPU-SCALES"), "ho:COMPU-SCALE", scales);
                method.scales.reserve(scales.size());
                for (const Element s : scales) {
                    CompuScale scale;
                    const Element coeffs = child(s, "ho:COMPU-RATIONAL-COEFFS");
                    listBelow(child(coeffs, "ho:COMPU-NUMERATOR"), "ho:V", values);
                    if (values.size() != 2)
                        KELO_ERROR(13, kOp,
                                   "Database file parse error: Expected two "
                                   "<COMPU-NUMERATOR><V> items");
                    scale.offset = values.size() > 0 ? readF32(values[0], 0.0f) : 0.0f;
                    scale.factor = values.size() > 1 ? readF32(values[1], 0.0f) : 0.0f;
                    if (listBelow(child(coeffs, "ho:COMPU-DENOMINATOR"), "ho:V", values)) {
                        if (values.size() != 1) {
                            KELO_ERROR(14, kOp,
                                       "Database file parse error: No or only one "
                                       "<COMPU-DENOMINATOR><V> is supported!");
                        } else {
                            scale.denominator = readF32(values[0], 0.0f);
                            if (scale.denominator != 1.0f)
                                KELO_ERROR(15, kOp,
                                           "Database file parse error: Denominator different from "
                                           "1 is not supported!");
                        }
                    }
                    method.scales.push_back(std::move(scale));
                }
            } else if (textTable) {
                if (textTableSeen)
                    KELO_ERROR(16, kOp,
                               "Database file parse error: only one COMPU-METHOD TEXTTABLE is "
                               "supported!");
                textTableSeen = true;
                listBelow(child(parts[kToPhys], "ho:COMPU-SCALES"), "ho:COMPU-SCALE", scales);
                method.scales.reserve(scales.size());
                for (const Element s : scales) {
                    CompuScale scale;
                    const Element lower = child(s, "ho:LOWER-LIMIT");
                    const Element upper = child(s, "ho:UPPER-LIMIT");
                    scale.lowerLimit = readU32(lower, 0);
                    scale.upperLimit = readU32(upper, 0);
                    if (readText(at(s, {"ho:COMPU-CONST", "ho:VT"}), scale.text)) {
                        scale.lowerLimitValue = readF32(lower, -kFloatMax);
                        scale.upperLimitValue = readF32(upper, kFloatMax);
                        method.scales.push_back(std::move(scale));
                    } else {
                        KELO_ERROR(17, kOp,
                                   "Database file parse error: Expected a <COMPU-CONST><VT> item, "
                                   "while parsing texttable from method %s of coding %s, will "
                                   "ignore this texttable entry.",
                                   method.shortName.c_str(), coding.shortName.c_str());
                    }
                }
            }
            coding.compuMethods.push_back(std::move(method));
        }
        ids.push_back(keepAttribute(e, "ID", texts));
        read.push_back(std::move(coding));
        return true;
    };
    forEachBelow(list, "fx:CODING", readCoding);
    maps.codings.indexAhead(ids.size());
    maps.codings.storeAll(ids, [&read](std::size_t i) -> Coding&& { return std::move(read[i]); });
    return code;
}

// ---- signals, PDUs, frames -------------------------------------------------------------------

int FibexReader::ParseSignals() {
    static const char* const kItems[] = {"ho:SHORT-NAME", "ho:DESC", "fx:DEFAULT-VALUE",
                                         "fx:CODING-REF"};
    enum { kShortName, kDesc, kDefaultValue, kCodingRef };
    std::unique_ptr<LoadMaps> own;
    LoadMaps& maps = mapsForStep(own);

    // The signals that are kept, in document order, as read; the records are made when they are
    // stored.
    struct Read {
        std::string_view shortName;
        std::string_view desc;
        double defaultValue = 0.0;
        const Coding* coding = nullptr;
    };
    std::vector<Read> read;
    std::vector<std::string_view> ids;
    TextStore texts;
    const Element list = at(document.root(), {"fx:ELEMENTS", "fx:SIGNALS"});
    forEachBelow(list, "fx:SIGNAL", [&](Element e) {
        Element items[4];
        findChildren(e, kItems, items);
        if (!items[kShortName]) {
            KELO_ERROR(18, "ParseSignals",
                       "Database file parse error: SHORT-NAME of signal item not found!");
            return;
        }
        if (!items[kCodingRef]) {
            KELO_ERROR(19, "ParseSignals",
                       "Database file parse error: CODING-REF of signal item not found!");
            return;
        }
        Read r;
        r.shortName = keepText(items[kShortName], texts);
        if (items[kDesc]) r.desc = keepText(items[kDesc], texts);
        r.defaultValue = readF32Wide(items[kDefaultValue], 0.0);
        r.coding = &maps.codings[attribute(items[kCodingRef], "ID-REF")];
        read.push_back(r);
        ids.push_back(keepAttribute(e, "ID", texts));
    });

    std::vector<decltype(maps.signals)::Entry> entries;
    maps.signals.storeAll(
        ids,
        [&read](std::size_t i, Signal& signal) {
            signal.shortName.assign(read[i].shortName);
            signal.desc.assign(read[i].desc);
            signal.defaultValue = read[i].defaultValue;
            signal.coding = read[i].coding;
        },
        &entries);
    maps.signalOrder.resize(ids.size());
    for (std::size_t i = 0; i < ids.size(); ++i)
        maps.signalOrder[i] = LoadMaps::ListedSignal{ids[i], entries[i]};
    std::vector<std::string_view> names(read.size());
    for (std::size_t i = 0; i < read.size(); ++i)
        names[i] = read[i].shortName;
    maps.signalsByName.storeAll(names, [&entries](std::size_t i) { return &entries[i]->second; });
    maps.signalIds = std::move(texts);  // the IDs in signalOrder
    return 0;
}

int FibexReader::ParsePDUs() {
    static const char kOp[] = "ParsePDUs";
    static const char* const kPduItems[] = {"ho:SHORT-NAME", "ho:DESC", "fx:BYTE-LENGTH",
                                            "fx:PDU-TYPE", "fx:SIGNAL-INSTANCES"};
    enum { kShortName, kDesc, kByteLength, kPduType, kInstances };
    static const char* const kInstanceItems[] = {"ho:DESC", "fx:BIT-POSITION",
                                                 "fx:SIGNAL-UPDATE-BIT-POSITION",
                                                 "fx:IS-HIGH-LOW-BYTE-ORDER", "fx:SIGNAL-REF"};
    enum { kInstanceDesc, kBitPosition, kUpdateBit, kByteOrder, kSignalRef };

    placements_.clear();
    updateBitSignals_.clear();
    std::unique_ptr<LoadMaps> own;
    LoadMaps& maps = mapsForStep(own);
    auto& signals = maps.signals;
    using SignalEntry = decltype(maps.signals)::Entry;

    // The PDUs in document order, stored together at the end; the signal instances with their
    // IDs, likewise (the PDUs' lists hold copies); the names of the update-bit signals.
    std::vector<std::string_view> pduIds;
    std::vector<Pdu> pdus;
    std::vector<std::size_t> placedIn;  // per placement, the PDU in `pdus`
    std::vector<std::string_view> instanceIds;
    std::vector<SignalInstance> instancesRead;
    std::vector<std::string_view> updateBitNames;
    std::vector<Signal*> updateBitLinks;
    TextStore texts;

    // signals[ref], found next to the previous one in the signal step's order where possible.
    const std::vector<LoadMaps::ListedSignal>& order = maps.signalOrder;
    std::size_t next = 0;  // where in `order` the next reference probably is
    const auto signalFor = [&](std::string_view ref) -> SignalEntry {
        if (next < order.size() && order[next].id == ref) return order[next++].entry;
        const std::size_t hash = signals.hashOf(ref);
        const SignalEntry hit = signals.find(ref, hash);
        if (hit == signals.end()) return signals.insert(ref, hash, signals.end());
        // Pick the order up again if the signal is a little further on.
        for (std::size_t k = next; k < order.size() && k < next + 8; ++k) {
            if (order[k].entry == hit) {
                next = k + 1;
                break;
            }
        }
        return hit;
    };
    // signals[key] := a reset record, for the update bit of the signal at `parent`. The key
    // extends the signal's ID, so it sorts after it, usually within a few entries.
    std::string updateBitKey;
    const auto freshUpdateBit = [&](std::string_view key, SignalEntry parent) -> Signal& {
        const std::size_t hash = signals.hashOf(key);
        SignalEntry at = std::next(parent);  // the first entry not below the key, when near
        int steps = 0;
        while (at != signals.end() && std::string_view(at->first) < key && steps < 16) {
            ++at;
            ++steps;
        }
        if (steps == 16) {  // far off: look it up
            at = signals.find(key, hash);
            if (at != signals.end()) return at->second = Signal();
            return signals.insert(key, hash, signals.end())->second;
        }
        if (at != signals.end() && std::string_view(at->first) == key) return at->second = Signal();
        return signals.insert(key, hash, at)->second;
    };

    std::vector<Element> instances;
    const Element list = at(document.root(), {"fx:ELEMENTS", "fx:PDUS"});
    // Most signals are placed once: their number is a good guess for the number of instances.
    const std::size_t expected = database.signals.size();
    placements_.reserve(expected);
    placedIn.reserve(expected);
    instanceIds.reserve(expected);
    instancesRead.reserve(expected);
    forEachBelow(list, "fx:PDU", [&](Element e) {
        Element items[5];
        findChildren(e, kPduItems, items);
        if (!items[kShortName]) {
            KELO_ERROR(26, kOp, "Database file parse error: SHORT-NAME of signal item not found!");
            return;
        }
        if (!items[kByteLength]) {
            KELO_ERROR(27, kOp, "Database file parse error: BYTE-LENGTH of frame item not found!");
            return;
        }
        const char* pduId = attribute(e, "ID");
        const std::size_t pduIndex = pdus.size();
        pduIds.push_back(texts.keep(pduId));
        pdus.emplace_back();
        Pdu& pdu = pdus.back();
        readText(items[kShortName], pdu.shortName);
        readText(items[kDesc], pdu.desc);
        readU16Into(items[kByteLength], pdu.byteLength);
        if (readText(items[kPduType], pdu.pduType)) pdu.pduTypeCode = typeCode(pdu.pduType);

        listBelow(items[kInstances], "fx:SIGNAL-INSTANCE", instances);
        pdu.signalInstanceCount = static_cast<std::uint32_t>(instances.size());
        pdu.signalInstances.reserve(instances.size());
        for (const Element si : instances) {
            Element fields[5];
            findChildren(si, kInstanceItems, fields);
            SignalInstance instance;
            readText(fields[kInstanceDesc], instance.desc);
            if (!readU16Into(fields[kBitPosition], instance.bitPosition)) {
                KELO_ERROR(28, kOp,
                           "Database file parse error: BIT-POSITION of signal item not found!");
                instance.bitPosition = 0;
            }
            if (!readU16Into(fields[kUpdateBit], instance.updateBitPosition))
                instance.updateBitPosition = 65535;
            if (!fields[kByteOrder]) {
                KELO_ERROR(29, kOp,
                           "Database file parse error: IS-HIGH-LOW-BYTE-ORDER of signal item not "
                           "found!");
                instance.isHighLowByteOrder = false;
            } else {
                instance.isHighLowByteOrder = readBool(fields[kByteOrder], false);
            }

            // Place the referred signal in this PDU (the last PDU read wins).
            SignalEntry entry = signals.end();
            std::string_view ref;
            if (fields[kSignalRef]) {
                ref = attribute(fields[kSignalRef], "ID-REF");
                entry = signalFor(ref);
                Signal& signal = entry->second;
                signal.bitPosition = instance.bitPosition;
                signal.isHighLowByteOrder = instance.isHighLowByteOrder;
                signal.pduId.assign(pduId);
                instance.signal = &signal;
                placements_.emplace_back(&signal, nullptr);
                placedIn.push_back(pduIndex);
            }
            // signalInstances[ID] := the instance; the PDU's list takes a copy.
            instanceIds.push_back(keepAttribute(si, "ID", texts));
            instancesRead.push_back(instance);
            pdu.signalInstances.push_back(std::move(instance));

            // An update bit becomes a signal of its own, "<name>_UB" under "<ID>_UB". Only the
            // instance in the PDU's list links to it.
            SignalInstance& listed = pdu.signalInstances.back();
            if (entry != signals.end() && listed.updateBitPosition < 65535) {
                const Signal& signal = entry->second;
                updateBitKey.assign(ref).append("_UB");
                Signal& ub = freshUpdateBit(updateBitKey, entry);
                ub.shortName.reserve(signal.shortName.size() + 3);
                ub.shortName.append(signal.shortName).append("_UB");
                ub.bitPosition = listed.updateBitPosition;
                listed.updateBitSignal = &ub;
                updateBitSignals_.emplace_back(&ub, &entry->second);
                updateBitNames.push_back(texts.keep(ub.shortName));
                updateBitLinks.push_back(&ub);
            }
        }
    });

    maps.signalsByName.storeAll(
        updateBitNames, [&updateBitLinks](std::size_t i) -> Signal*& { return updateBitLinks[i]; });
    maps.signalInstances.storeAll(instanceIds, [&instancesRead](std::size_t i) -> SignalInstance&& {
        return std::move(instancesRead[i]);
    });
    std::vector<decltype(maps.pdus)::Entry> pduEntries;
    maps.pdus.indexAhead(pduIds.size());
    maps.pdus.storeAll(
        pduIds, [&pdus](std::size_t i) -> Pdu&& { return std::move(pdus[i]); }, &pduEntries);
    for (std::size_t i = 0; i < placements_.size(); ++i)
        placements_[i].second = &pduEntries[placedIn[i]]->second;
    return 0;
}

int FibexReader::ParseFrames() {
    static const char kOp[] = "ParseFrames";
    static const char* const kFrameItems[] = {"ho:SHORT-NAME", "ho:DESC", "fx:BYTE-LENGTH",
                                              "fx:FRAME-TYPE", "fx:PDU-INSTANCES"};
    enum { kShortName, kDesc, kByteLength, kFrameType, kInstances };
    static const char* const kInstanceItems[] = {"ho:DESC", "fx:BIT-POSITION",
                                                 "fx:IS-HIGH-LOW-BYTE-ORDER",
                                                 "fx:PDU-UPDATE-BIT-POSITION", "fx:PDU-REF"};
    enum { kInstanceDesc, kBitPosition, kByteOrder, kUpdateBit, kPduRef };

    frameOrder_.clear();
    std::unique_ptr<LoadMaps> own;
    LoadMaps& maps = mapsForStep(own);

    // The frames in document order with their names, stored together at the end; their PDU
    // instances by ID, with a pointer to the instance in its frame's list.
    std::vector<std::string_view> frameIds, names;
    std::vector<Frame> frames;
    std::vector<std::string_view> instanceIds;
    std::vector<const PduInstance*> instanceRecords;
    TextStore texts;
    std::vector<Element> instances;
    const Element list = at(document.root(), {"fx:ELEMENTS", "fx:FRAMES"});
    forEachBelow(list, "fx:FRAME", [&](Element e) {
        Element items[5];
        findChildren(e, kFrameItems, items);
        if (!items[kShortName]) {
            KELO_ERROR(30, kOp, "Database file parse error: SHORT-NAME of signal item not found!");
            return;
        }
        if (!items[kByteLength]) {
            KELO_ERROR(31, kOp, "Database file parse error: BYTE-LENGTH of frame item not found!");
            return;
        }
        frameIds.push_back(keepAttribute(e, "ID", texts));
        frames.emplace_back();
        Frame& frame = frames.back();
        names.push_back(keepText(items[kShortName], texts));
        frame.shortName.assign(names.back());
        readText(items[kDesc], frame.desc);
        readU16Into(items[kByteLength], frame.byteLength);
        readText(items[kFrameType], frame.frameType);
        frame.frameTypeCode = typeCode(frame.frameType);

        listBelow(items[kInstances], "fx:PDU-INSTANCE", instances);
        frame.pduInstanceCount = static_cast<std::uint32_t>(instances.size());
        frame.pduInstances.reserve(instances.size());  // no reallocation: pointers stay valid
        for (const Element pi : instances) {
            Element fields[5];
            findChildren(pi, kInstanceItems, fields);
            PduInstance instance;
            readText(fields[kInstanceDesc], instance.desc);
            if (!readU16Into(fields[kBitPosition], instance.bitPosition)) {
                KELO_ERROR(32, kOp,
                           "Database file parse error: fx:BIT-POSITION of fx:PDU-INSTANCE item not "
                           "found!");
                continue;
            }
            // PDUs sit on whole bytes only (signals inside a PDU may sit on any bit).
            if (instance.bitPosition % 8 != 0) {
                KELO_ERROR(33, kOp,
                           "Database file parse error: BIT-POSITIONs that are not a multiple of 8 "
                           "are not supported!");
                continue;
            }
            instance.isHighLowByteOrder = readBool(fields[kByteOrder], false);
            instance.updateBitPosition =
                static_cast<std::uint16_t>(readU32(fields[kUpdateBit], 65535));
            if (!fields[kPduRef]) {
                KELO_ERROR(34, kOp,
                           "Database file parse error: fx:PDU-REF of fx:PDU-INSTANCE item not "
                           "found!");
                continue;
            }
            instance.pduId.assign(attribute(fields[kPduRef], "ID-REF"));
            instance.pdu = &maps.pdus[instance.pduId];
            frame.pduInstances.push_back(std::move(instance));
            instanceIds.push_back(keepAttribute(pi, "ID", texts));
            instanceRecords.push_back(&frame.pduInstances.back());
        }
    });

    maps.pduInstances.storeAll(
        instanceIds,
        [&instanceRecords](std::size_t i) -> const PduInstance& { return *instanceRecords[i]; });
    std::vector<decltype(maps.frames)::Entry> entries;
    maps.frames.indexAhead(frameIds.size());
    maps.frames.storeAll(
        frameIds, [&frames](std::size_t i) -> Frame&& { return std::move(frames[i]); }, &entries);
    frameOrder_.resize(entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i)
        frameOrder_[i] = &entries[i]->second;
    maps.framesByName.storeAll(names, [&entries](std::size_t i) { return &entries[i]->second; });
    return 0;
}

// ---- channels, ECUs, clusters ----------------------------------------------------------------

int FibexReader::ParseChannels() {
    static const char kOp[] = "ParseChannels";
    static const char* const kChannelItems[] = {"ho:SHORT-NAME", "ho:DESC", "fx:PDU-TRIGGERINGS",
                                                "flexray:FLEXRAY-CHANNEL-NAME",
                                                "fx:FRAME-TRIGGERINGS"};
    enum { kShortName, kDesc, kPduTriggerings, kChannelName, kFrameTriggerings };
    static const char* const kTriggeringItems[] = {"ho:DESC",       "fx:TIMINGS",
                                                   "fx:PDU-REF",    "fx:FRAME-REF",
                                                   "fx:IDENTIFIER", "fx:MANUFACTURER-EXTENSION"};
    enum { kTriggeringDesc, kTimings, kPduRef, kFrameRef, kIdentifier, kExtension };

    std::vector<Element> channels, triggerings;
    if (!listBelow(at(document.root(), {"fx:ELEMENTS", "fx:CHANNELS"}), "fx:CHANNEL", channels)) {
        KELO_ERROR(36, kOp, "Database file parse error: No CLUSTER item found!");
        return 2;
    }
    std::unique_ptr<LoadMaps> own;
    LoadMaps& maps = mapsForStep(own);
    // The triggerings in document order, stored in their maps together at the end.
    std::vector<std::string_view> pduTriggeringIds, frameTriggeringIds;
    std::vector<PduTriggering> pduTriggerings;
    std::vector<FrameTriggering> frameTriggerings;
    TextStore texts;
    std::string text;
    for (const Element e : channels) {
        Element items[5];
        findChildren(e, kChannelItems, items);
        Channel channel;
        if (!readText(items[kShortName], channel.shortName)) {
            KELO_ERROR(37, kOp, "Database file parse error: SHORT-NAME of signal item not found!");
            continue;
        }
        readText(items[kDesc], channel.desc);

        // PDU triggerings: the PDU takes the triggering's timing kind.
        listBelow(items[kPduTriggerings], "fx:PDU-TRIGGERING", triggerings);
        channel.pduTriggerings.reserve(triggerings.size());
        for (const Element t : triggerings) {
            Element fields[6];
            findChildren(t, kTriggeringItems, fields);
            PduTriggering triggering;
            triggering.id.assign(attribute(t, "ID"));
            readText(fields[kTriggeringDesc], triggering.desc);
            const Element debounce = at(fields[kTimings], {"fx:EVENT-CONTROLLED-TIMING",
                                                           "fx:DEBOUNCE-TIME-RANGE", "fx:VALUE"});
            triggering.timingKind = debounce ? 2 : 1;
            if (readText(debounce, text)) triggering.debounceTime = durationSeconds(text);
            if (!fields[kPduRef]) {
                KELO_ERROR(38, kOp,
                           "Database file parse error: fx:PDU-REF of fx:PDU-TRIGGERING item not "
                           "found!");
                continue;
            }
            triggering.pduId.assign(attribute(fields[kPduRef], "ID-REF"));
            triggering.pdu = &maps.pdus[triggering.pduId];
            triggering.pdu->timingKind = triggering.timingKind;
            pduTriggeringIds.push_back(texts.keep(triggering.id));
            pduTriggerings.push_back(triggering);
            channel.pduTriggerings.push_back(std::move(triggering));
        }

        readText(items[kChannelName], channel.flexrayChannelName);
        channel.channelMask = channelMaskOf(channel.flexrayChannelName);

        // Frame triggerings: the frame takes the channel's bit and the triggering's schedule.
        listBelow(items[kFrameTriggerings], "fx:FRAME-TRIGGERING", triggerings);
        channel.frameTriggerings.reserve(triggerings.size());
        for (const Element t : triggerings) {
            Element fields[6];
            findChildren(t, kTriggeringItems, fields);
            FrameTriggering triggering;
            triggering.id.assign(attribute(t, "ID"));
            readText(fields[kTriggeringDesc], triggering.desc);
            if (!fields[kFrameRef]) {
                KELO_ERROR(39, kOp,
                           "Database file parse error: fx:FRAME-REF of fx:FRAME-TRIGGERING item "
                           "not found!");
                continue;
            }
            triggering.frameId.assign(attribute(fields[kFrameRef], "ID-REF"));
            Frame& frame = maps.frames[triggering.frameId];
            triggering.frame = &frame;
            frame.channelMask = static_cast<std::uint16_t>(frame.channelMask | channel.channelMask);

            const Element identifier = child(fields[kIdentifier], "fx:IDENTIFIER-VALUE");
            if (identifier) {
                triggering.identifierType = trimmedAttribute(identifier, "xsi:type");
                triggering.extendedAddressing =
                    toBoolean(attribute(identifier, "EXTENDED-ADDRESSING"));
                triggering.identifier = readU32(identifier, 0);
            }
            readText(at(fields[kExtension], {"ni:NI-XNET-EXTENSION", "ni:APPLICATION-PROTOCOL"}),
                     triggering.applicationProtocol);

            const Element timing = child(fields[kTimings], "fx:ABSOLUTELY-SCHEDULED-TIMING");
            if (timing) {
                static const char* const kTimingItems[] = {"fx:SLOT-ID", "fx:BASE-CYCLE",
                                                           "fx:CYCLE-REPETITION"};
                Element values[3];
                findChildren(timing, kTimingItems, values);
                readU16Into(values[0], triggering.slotId);
                readU16Into(values[1], triggering.baseCycle);
                readU16Into(values[2], triggering.cycleRepetition);
            }
            // Without an absolutely scheduled timing all three are 0, in the frame as well: the
            // last triggering of a frame decides its schedule.
            frame.slotId = triggering.slotId;
            frame.baseCycle = static_cast<std::uint8_t>(triggering.baseCycle);
            frame.cycleRepetition = static_cast<std::uint8_t>(triggering.cycleRepetition);

            frameTriggeringIds.push_back(texts.keep(triggering.id));
            frameTriggerings.push_back(triggering);
            channel.frameTriggerings.push_back(std::move(triggering));
        }
        maps.channels.store(attribute(e, "ID"), std::move(channel));
    }
    maps.pduTriggerings.storeAll(pduTriggeringIds,
                                 [&pduTriggerings](std::size_t i) -> PduTriggering&& {
                                     return std::move(pduTriggerings[i]);
                                 });
    maps.frameTriggerings.indexAhead(frameTriggeringIds.size());
    maps.frameTriggerings.storeAll(frameTriggeringIds,
                                   [&frameTriggerings](std::size_t i) -> FrameTriggering&& {
                                       return std::move(frameTriggerings[i]);
                                   });
    return 0;
}

namespace {

// The ports of one list of a connector. Each is appended to `ports` and, with its ID, to
// `ids` and `stored` for the port map, which takes them at the end of the step.
template <typename FrameTriggerings>
void readPorts(FrameTriggerings& frameTriggerings, Element list, const char* name, bool input,
               std::vector<Port>& ports, std::uint32_t& count, std::vector<Element>& scratch,
               std::vector<std::string_view>& ids, std::vector<Port>& stored, TextStore& texts) {
    listBelow(list, name, scratch);
    count = static_cast<std::uint32_t>(scratch.size());
    ports.reserve(scratch.size());
    for (const Element p : scratch) {
        Port port;
        const Element ref = child(p, "fx:FRAME-TRIGGERING-REF");
        if (!ref) {
            // Both kinds of port report the input-port text.
            if (input)
                KELO_ERROR(24, "ParseECUs",
                           "Database file parse error: fx:FRAME-TRIGGERING-REF of fx:INPUT-PORT "
                           "item not found!");
            else
                KELO_ERROR(25, "ParseECUs",
                           "Database file parse error: fx:FRAME-TRIGGERING-REF of fx:INPUT-PORT "
                           "item not found!");
            continue;
        }
        port.frameTriggeringId.assign(attribute(ref, "ID-REF"));
        port.frameTriggering = &frameTriggerings[port.frameTriggeringId];
        readText(child(p, "fx:COMPLETE-FRAME"), port.completeFrame);
        ids.push_back(texts.keep(attribute(p, "ID")));
        stored.push_back(port);
        ports.push_back(std::move(port));
    }
}

// An NI-XNET item of a controller: the child itself, or the same item inside the controller's
// manufacturer extension.
Element niItem(Element controller, const char* name) {
    const Element direct = child(controller, name);
    if (direct) return direct;
    return child(at(controller, {"fx:MANUFACTURER-EXTENSION", "ni:NI-XNET-EXTENSION"}), name);
}

void readController(Element c, Controller& controller) {
    readText(child(c, "ho:DESC"), controller.desc);
    controller.type = trimmedAttribute(c, "xsi:type");
    controller.j1939NodeAddress = readU32(niItem(c, "ni:J1939-NODE-ADDRESS"), 0);
    controller.j1939NodeName = readHex64(niItem(c, "ni:J1939-NODE-NAME"), 0);
    const auto u = [c](const char* name) { return readU32(child(c, name), 0); };
    controller.keySlotUsageStartupSync =
        readU32(at(c, {"flexray:KEY-SLOT-USAGE", "flexray:STARTUP-SYNC"}), 0);
    controller.maxDynamicPayloadLength = u("flexray:MAX-DYNAMIC-PAYLOAD-LENGTH");
    controller.clusterDriftDamping = u("flexray:CLUSTER-DRIFT-DAMPING");
    controller.decodingCorrection = u("flexray:DECODING-CORRECTION");
    controller.maxDrift = u("flexray:MAX-DRIFT");
    controller.latestTx = u("flexray:LATEST-TX");
    controller.microPerCycle = u("flexray:MICRO-PER-CYCLE");
    controller.microPerMacroNom = u("flexray:MICRO-PER-MACRO-NOM");
    controller.offsetCorrectionOut = u("flexray:OFFSET-CORRECTION-OUT");
    controller.rateCorrectionOut = u("flexray:RATE-CORRECTION-OUT");
    controller.delayCompensationA = u("flexray:DELAY-COMPENSATION-A");
    controller.delayCompensationB = u("flexray:DELAY-COMPENSATION-B");
    controller.listenTimeout = u("flexray:LISTEN-TIMEOUT");
    controller.externOffsetCorrection = u("flexray:EXTERN-OFFSET-CORRECTION");
    controller.externRateCorrection = u("flexray:EXTERN-RATE-CORRECTION");
    controller.wakeUpPattern = u("flexray:WAKE-UP-PATTERN");
    controller.allowHaltDueToClock = readBool(child(c, "flexray:ALLOW-HALT-DUE-TO-CLOCK"), false);
    controller.allowPassiveToActive = u("flexray:ALLOW-PASSIVE-TO-ACTIVE");
    controller.acceptedStartupRange = u("flexray:ACCEPTED-STARTUP-RANGE");
    controller.macroInitialOffsetA = u("flexray:MACRO-INITIAL-OFFSET-A");
    controller.macroInitialOffsetB = u("flexray:MACRO-INITIAL-OFFSET-B");
    controller.microInitialOffsetA = u("flexray:MICRO-INITIAL-OFFSET-A");
    controller.microInitialOffsetB = u("flexray:MICRO-INITIAL-OFFSET-B");
    controller.singleSlotEnabled = u("flexray:SINGLE-SLOT-ENABLED");
    controller.microtick = readF32(child(c, "flexray:MICROTICK"), 0.0f);
}

}  // namespace

int FibexReader::ParseECUs() {
    static const char kOp[] = "ParseECUs";
    std::unique_ptr<LoadMaps> own;
    LoadMaps& maps = mapsForStep(own);
    // Connectors and ports in document order, stored in their maps together at the end (also
    // when the step stops early).
    std::vector<std::string_view> connectorIds, inputIds, outputIds;
    std::vector<Connector> connectorsRead;
    std::vector<Port> inputsRead, outputsRead;
    TextStore texts;
    std::vector<Element> ecus, controllers, connectors, ports;
    listBelow(at(document.root(), {"fx:ELEMENTS", "fx:ECUS"}), "fx:ECU", ecus);
    int code = 0;
    for (const Element e : ecus) {
        Ecu ecu;
        if (!readText(child(e, "ho:SHORT-NAME"), ecu.shortName)) {
            KELO_ERROR(20, kOp, "Database file parse error: SHORT-NAME of ECU item not found!");
            code = 3;
            break;
        }
        readText(child(e, "ho:DESC"), ecu.desc);

        listBelow(child(e, "fx:CONTROLLERS"), "fx:CONTROLLER", controllers);
        ecu.controllerCount = static_cast<std::uint32_t>(controllers.size());
        ecu.controllers.reserve(controllers.size());
        for (const Element c : controllers) {
            Controller controller;
            if (!readText(child(c, "ho:SHORT-NAME"), controller.shortName)) {
                KELO_ERROR(21, kOp,
                           "Database file parse error: SHORT-NAME of controller item not found!");
                continue;
            }
            readController(c, controller);
            maps.controllers.store(attribute(c, "ID"), controller);
            ecu.controllers.push_back(std::move(controller));
        }

        listBelow(child(e, "fx:CONNECTORS"), "fx:CONNECTOR", connectors);
        ecu.connectorCount = static_cast<std::uint32_t>(connectors.size());
        ecu.connectors.reserve(connectors.size());
        for (const Element c : connectors) {
            Connector connector;
            readText(child(c, "ho:DESC"), connector.desc);
            const Element channelRef = child(c, "fx:CHANNEL-REF");
            if (!channelRef) {
                KELO_ERROR(22, kOp,
                           "Database file parse error: fx:CHANNEL-REF of fx:CONNECTOR item not "
                           "found!");
                continue;
            }
            const Element controllerRef = child(c, "fx:CONTROLLER-REF");
            if (!controllerRef) {
                KELO_ERROR(23, kOp,
                           "Database file parse error: fx:CONTROLLER-REF of fx:CONNECTOR item not "
                           "found!");
                continue;
            }
            connector.channelId.assign(attribute(channelRef, "ID-REF"));
            connector.controllerId.assign(attribute(controllerRef, "ID-REF"));
            connector.channel = &maps.channels[connector.channelId];
            connector.controller = &maps.controllers[connector.controllerId];
            readPorts(maps.frameTriggerings, child(c, "fx:INPUTS"), "fx:INPUT-PORT", true,
                      connector.inputPorts, connector.inputPortCount, ports, inputIds, inputsRead,
                      texts);
            readPorts(maps.frameTriggerings, child(c, "fx:OUTPUTS"), "fx:OUTPUT-PORT", false,
                      connector.outputPorts, connector.outputPortCount, ports, outputIds,
                      outputsRead, texts);
            connector.wakeUpChannel = readBool(child(c, "flexray:WAKE-UP-CHANNEL"), false);
            connectorIds.push_back(keepAttribute(c, "ID", texts));
            connectorsRead.push_back(connector);
            ecu.connectors.push_back(std::move(connector));
        }

        // Three independent copies.
        const char* id = attribute(e, "ID");
        maps.ecusByName.store(ecu.shortName, ecu);
        maps.ecus.store(id, ecu);
        database.ecuList.emplace_back(id, std::move(ecu));
    }
    maps.inputPorts.storeAll(
        inputIds, [&inputsRead](std::size_t i) -> Port&& { return std::move(inputsRead[i]); });
    maps.outputPorts.storeAll(
        outputIds, [&outputsRead](std::size_t i) -> Port&& { return std::move(outputsRead[i]); });
    maps.connectors.storeAll(connectorIds, [&connectorsRead](std::size_t i) -> Connector&& {
        return std::move(connectorsRead[i]);
    });
    return code;
}

int FibexReader::ParseClusters() {
    std::unique_ptr<LoadMaps> own;
    LoadMaps& maps = mapsForStep(own);
    std::vector<Element> clusters, refs;
    listBelow(at(document.root(), {"fx:ELEMENTS", "fx:CLUSTERS"}), "fx:CLUSTER", clusters);
    for (const Element c : clusters) {
        Cluster cluster;
        const auto u = [c](const char* name) { return readU32(child(c, name), 0); };
        const auto wakeUp = [c](const char* name) {
            return readU32(at(c, {"flexray:WAKE-UP", name}), 0);
        };
        readText(child(c, "ho:SHORT-NAME"), cluster.shortName);
        readText(child(c, "ho:DESC"), cluster.desc);
        cluster.speed = u("fx:SPEED");
        cluster.isHighLowBitOrder = readBool(child(c, "fx:IS-HIGH-LOW-BIT-ORDER"), true);
        readText(child(c, "fx:BIT-COUNTING-POLICY"), cluster.bitCountingPolicy);
        readText(child(c, "fx:PROTOCOL"), cluster.protocol);
        listBelow(child(c, "fx:CHANNEL-REFS"), "fx:CHANNEL-REF", refs);
        cluster.channels.reserve(refs.size());
        for (const Element r : refs)
            cluster.channels.push_back(&maps.channels[attribute(r, "ID-REF")]);
        readText(child(c, "fx:MEDIUM"), cluster.medium);
        cluster.maxFrameLength = u("fx:MAX-FRAME-LENGTH");
        cluster.coldStartAttempts = u("flexray:COLD-START-ATTEMPTS");
        cluster.actionPointOffset = u("flexray:ACTION-POINT-OFFSET");
        cluster.dynamicSlotIdlePhase = u("flexray:DYNAMIC-SLOT-IDLE-PHASE");
        cluster.minislot = u("flexray:MINISLOT");
        cluster.minislotActionPointOffset = u("flexray:MINISLOT-ACTION-POINT-OFFSET");
        cluster.nit = u("flexray:N-I-T");
        cluster.staticSlot = u("flexray:STATIC-SLOT");
        cluster.symbolWindow = u("flexray:SYMBOL-WINDOW");
        cluster.tssTransmitter = u("flexray:T-S-S-TRANSMITTER");
        cluster.wakeUpSymbolRxIdle = wakeUp("flexray:WAKE-UP-SYMBOL-RX-IDLE");
        cluster.wakeUpSymbolRxLow = wakeUp("flexray:WAKE-UP-SYMBOL-RX-LOW");
        cluster.wakeUpSymbolRxWindow = wakeUp("flexray:WAKE-UP-SYMBOL-RX-WINDOW");
        cluster.wakeUpSymbolTxIdle = wakeUp("flexray:WAKE-UP-SYMBOL-TX-IDLE");
        cluster.wakeUpSymbolTxLow = wakeUp("flexray:WAKE-UP-SYMBOL-TX-LOW");
        cluster.listenNoise = u("flexray:LISTEN-NOISE");
        cluster.macroPerCycle = u("flexray:MACRO-PER-CYCLE");
        cluster.macrotick = u("flexray:MACROTICK");
        cluster.maxInitializationError = u("flexray:MAX-INITIALIZATION-ERROR");
        cluster.maxWithoutClockCorrectionFatal = u("flexray:MAX-WITHOUT-CLOCK-CORRECTION-FATAL");
        cluster.maxWithoutClockCorrectionPassive =
            u("flexray:MAX-WITHOUT-CLOCK-CORRECTION-PASSIVE");
        cluster.networkManagementVectorLength = u("flexray:NETWORK-MANAGEMENT-VECTOR-LENGTH");
        cluster.numberOfMinislots = u("flexray:NUMBER-OF-MINISLOTS");
        // Required, but a cluster without it is reported and kept.
        if (!readU32Into(child(c, "flexray:NUMBER-OF-STATIC-SLOTS"), cluster.numberOfStaticSlots))
            KELO_ERROR(35, "ParseClusters",
                       "Database file parse error: Item flexray:NUMBER-OF-STATIC-SLOTS not found!");
        cluster.offsetCorrectionStart = u("flexray:OFFSET-CORRECTION-START");
        cluster.payloadLengthStatic = u("flexray:PAYLOAD-LENGTH-STATIC");
        cluster.syncNodeMax = u("flexray:SYNC-NODE-MAX");
        cluster.casRxLowMax = u("flexray:CAS-RX-LOW-MAX");
        cluster.cycle = u("flexray:CYCLE");
        cluster.clusterDriftDamping = readF32(child(c, "flexray:CLUSTER-DRIFT-DAMPING"), 0.0f);
        readText(
            at(c, {"fx:MANUFACTURER-EXTENSION", "ni:NI-XNET-EXTENSION", "ni:APPLICATION-PROTOCOL"}),
            cluster.applicationProtocol);
        maps.clusters.store(attribute(c, "ID"), std::move(cluster));
    }
    return 0;
}

// ---- links the codec and the slot queries need -------------------------------------------------

void FibexReader::LinkSignalsToFrames() {
    // The frames that carry each PDU: the first and the second distinct one, in document order.
    std::unordered_map<const Pdu*, std::pair<const Frame*, const Frame*>> carriers;
    carriers.reserve(database.pdus.size());
    for (const Frame* frame : frameOrder_) {
        for (const PduInstance& instance : frame->pduInstances) {
            if (!instance.pdu) continue;
            auto& carrier = carriers[instance.pdu];
            if (!carrier.first)
                carrier.first = frame;
            else if (!carrier.second && carrier.first != frame)
                carrier.second = frame;
        }
    }
    // A signal follows the PDU that placed it last (the one its pduId and bit position name).
    for (const auto& [signal, pdu] : placements_) {
        const auto it = carriers.find(pdu);
        signal->frame = it == carriers.end() ? nullptr : it->second.first;
        signal->secondFrame = it == carriers.end() ? nullptr : it->second.second;
    }
    // An update bit travels with its parent signal.
    for (const auto& [updateBit, parent] : updateBitSignals_) {
        updateBit->frame = parent->frame;
        updateBit->secondFrame = parent->frame;
    }
}

void FibexReader::BuildSlotTable() {
    database.frameNamesBySlot.clear();
    for (const Frame* frame : frameOrder_) {
        // The first frame (in document order) that claims a slot and cycle keeps it.
        xml::enterFrameName(database.frameNamesBySlot, frame->slotId, frame->baseCycle,
                            frame->cycleRepetition, frame->shortName);
    }
}

}  // namespace fibex
}  // namespace kelo