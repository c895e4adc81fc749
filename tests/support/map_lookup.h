// Lookups into a database's maps that fail the test instead of inserting, and their key lists.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kelo_test {

// The mapped value under key; a missing key fails the test and yields a reset record.
template <class Map>
const typename Map::mapped_type& entry(const Map& map, const std::string& key) {
    static const typename Map::mapped_type kMissing{};
    const auto it = map.find(key);
    if (it == map.end()) {
        ADD_FAILURE() << "no entry '" << key << "'";
        return kMissing;
    }
    return it->second;
}

// Address of the mapped value, or null (without inserting) when the key is missing.
template <class Map>
const typename Map::mapped_type* addressOf(const Map& map, const std::string& key) {
    const auto it = map.find(key);
    return it == map.end() ? nullptr : &it->second;
}

// The keys in map order.
template <class Map>
std::vector<std::string> keys(const Map& map) {
    std::vector<std::string> out;
    for (const auto& item : map)
        out.push_back(item.first);
    return out;
}

}  // namespace kelo_test
