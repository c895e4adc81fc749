// Keyed storage for the steps of a database load. The database's maps are ordered by key and
// the files list their elements in no particular key order: inserting record by record would
// search a deep tree for every record and reference. Instead a step collects its records with
// their keys, sorts the keys and inserts in key order (each insertion next to the previous one);
// references are resolved through a hash index of the keys.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace kelo {
namespace xml {

// Text a step makes up (a key such as "<ID>_UB") or gathers from several text nodes; views into
// it stay valid while the store lives.
class TextStore {
  public:
    // A copy of a followed by b.
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

// Open-addressing hash table from key text to a value. It keeps its own compact copy of the keys,
// so checking a hit does not reach into a map node or the document.
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

}  // namespace xml
}  // namespace kelo
