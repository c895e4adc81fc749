// The keyed storage of the load steps: every operation must leave the map as the map's own
// subscript and assignment would, before and after the hash index takes over.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "xml/keyed_store.h"

namespace {

using kelo::xml::KeyedMap;
using kelo::xml::TextStore;
using Map = std::map<std::string, int>;

TEST(TextStore, ViewsStayValidAcrossBlocks) {
    TextStore store;
    std::vector<std::string_view> kept;
    for (int i = 0; i < 5000; ++i)
        kept.push_back(store.keep(std::to_string(i), "_UB"));
    kept.push_back(store.keep(std::string(100000, 'x')));  // larger than a block
    for (int i = 0; i < 5000; ++i)
        ASSERT_EQ(kept[static_cast<std::size_t>(i)], std::to_string(i) + "_UB");
    EXPECT_EQ(kept.back().size(), 100000u);
    EXPECT_EQ(store.keep(""), "");
}

// Subscript inserts a reset record under a missing key (also the empty key), before and after
// enough searches to switch to the index; insertions keep the index up to date.
TEST(KeyedMap, SubscriptAndStoreMatchTheMap) {
    Map map{{"b", 2}};
    KeyedMap<Map> keyed(map);
    EXPECT_EQ(keyed["b"], 2);
    EXPECT_EQ(keyed["a"], 0);
    keyed.store("", 7);
    for (int i = 0; i < 600; ++i)  // past the searches made without an index
        keyed.store("k" + std::to_string(i % 300), i);
    EXPECT_EQ(keyed[""], 7);
    EXPECT_EQ(keyed["k5"], 305);
    EXPECT_EQ(keyed["new"], 0);
    const std::size_t hash = KeyedMap<Map>::hashOf("new");
    EXPECT_NE(keyed.find("new", hash), keyed.end());
    EXPECT_EQ(keyed.find("missing", KeyedMap<Map>::hashOf("missing")), keyed.end());
    EXPECT_EQ(map.size(), 304u);  // a, b, "", new and k0..k299
}

// storeAll stores in key order; of equal keys the last one's record wins and every position
// gets the entry that holds it. Both ways of making the record give the same map.
TEST(KeyedMap, StoreAllLastOfEqualKeysWins) {
    const std::vector<std::string_view> keys = {
        "m", "a", "m", "z", "a", "longer-than-sixteen-1", "longer-than-sixteen-0", ""};
    for (bool fill : {false, true}) {
        Map map{{"m", 99}, {"q", 5}};
        KeyedMap<Map> keyed(map);
        if (fill) keyed.indexAhead(keys.size());
        std::vector<Map::iterator> entries;
        if (fill)
            keyed.storeAll(
                keys, [](std::size_t i, int& v) { v += static_cast<int>(i) + 1; }, &entries);
        else
            keyed.storeAll(
                keys, [](std::size_t i) { return static_cast<int>(i) + 1; }, &entries);
        const Map expected{{"", 8},
                           {"a", 5},
                           {"longer-than-sixteen-0", 7},
                           {"longer-than-sixteen-1", 6},
                           {"m", 3},
                           {"q", 5},
                           {"z", 4}};
        EXPECT_EQ(map, expected) << (fill ? "fill" : "make");
        ASSERT_EQ(entries.size(), keys.size());
        for (std::size_t i = 0; i < keys.size(); ++i)
            EXPECT_EQ(entries[i]->first, keys[i]);
        EXPECT_EQ(keyed["z"], 4);
    }
}

}  // namespace
