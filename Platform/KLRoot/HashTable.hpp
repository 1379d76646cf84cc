#pragma once

#include <cstddef>
#include <functional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace KL {

// A hash table from keys to values; keys hash through std::hash, which the foundation's key
// types (UniString, Guid, UnID) specialise.
template <typename Key, typename Value, typename Hash = std::hash<Key>, typename Equal = std::equal_to<Key>>
class HashTable {
public:
    using const_iterator = typename std::unordered_map<Key, Value, Hash, Equal>::const_iterator;

    std::size_t GetSize() const { return table.size(); }
    bool IsEmpty() const { return table.empty(); }

    // Adds a new entry; false, and nothing changes, when the key is present.
    bool Add(const Key& key, const Value& value) { return table.emplace(key, value).second; }
    bool Add(const Key& key, Value&& value) { return table.emplace(key, std::move(value)).second; }
    // Adds or replaces.
    void Put(const Key& key, const Value& value) { table.insert_or_assign(key, value); }
    void Put(const Key& key, Value&& value) { table.insert_or_assign(key, std::move(value)); }
    bool Delete(const Key& key) { return table.erase(key) > 0; }
    void Clear() { table.clear(); }

    bool ContainsKey(const Key& key) const { return table.find(key) != table.end(); }
    Value* GetPtr(const Key& key) {
        const auto it = table.find(key);
        return it == table.end() ? nullptr : &it->second;
    }
    const Value* GetPtr(const Key& key) const {
        const auto it = table.find(key);
        return it == table.end() ? nullptr : &it->second;
    }
    bool Get(const Key& key, Value* value) const {
        const Value* found = GetPtr(key);
        if (found != nullptr && value != nullptr)
            *value = *found;
        return found != nullptr;
    }
    Value& operator[](const Key& key) { return table[key]; }
    void Reserve(std::size_t count) { table.reserve(count); }

    auto begin() { return table.begin(); }
    auto end() { return table.end(); }
    auto begin() const { return table.begin(); }
    auto end() const { return table.end(); }

private:
    std::unordered_map<Key, Value, Hash, Equal> table;
};

template <typename Key, typename Hash = std::hash<Key>, typename Equal = std::equal_to<Key>>
class HashSet {
public:
    std::size_t GetSize() const { return set.size(); }
    bool IsEmpty() const { return set.empty(); }
    bool Add(const Key& key) { return set.insert(key).second; }
    bool Delete(const Key& key) { return set.erase(key) > 0; }
    bool Contains(const Key& key) const { return set.find(key) != set.end(); }
    void Clear() { set.clear(); }
    void Reserve(std::size_t count) { set.reserve(count); }

    auto begin() const { return set.begin(); }
    auto end() const { return set.end(); }
    bool operator==(const HashSet&) const = default;

private:
    std::unordered_set<Key, Hash, Equal> set;
};

} // namespace KL
