#pragma once

#include "KLRoot/Guid.hpp"
#include "KLRoot/UniString.hpp"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

namespace LM {

// Record numbers in the order of a key, with each record's key kept beside it: a search reads two
// contiguous arrays and never visits a record, which is what keeps a lookup among 100,000 parts
// within a few hundred nanoseconds. Keys are taken when a record enters the index; a record whose
// key changes leaves and enters again. Equal keys keep the order in which records entered.
template <typename Key>
class SortedIndex {
public:
    using Records = std::vector<std::uint32_t>;
    using Range = std::pair<Records::const_iterator, Records::const_iterator>;

    const Records& GetRecords() const { return records; }
    // Beside GetRecords, position by position.
    const std::vector<Key>& GetKeys() const { return keys; }

    // `entries` in record order; a stable sort keeps that order among equal keys.
    void Build(std::vector<std::pair<Key, std::uint32_t>> entries) {
        std::stable_sort(entries.begin(), entries.end(),
                         [](const auto& a, const auto& b) { return a.first.Compare(b.first) < 0; });
        records.clear();
        keys.clear();
        records.reserve(entries.size());
        keys.reserve(entries.size());
        for (auto& [key, record] : entries) {
            keys.push_back(std::move(key));
            records.push_back(record);
        }
    }

    // Behind all records of an equal key: one binary search and one insertion.
    void Insert(Key key, std::uint32_t record) {
        const auto at =
            std::upper_bound(keys.begin(), keys.end(), key,
                             [](const Key& wanted, const Key& other) { return wanted.Compare(other) < 0; });
        const auto offset = at - keys.begin();
        records.insert(records.begin() + offset, record);
        keys.insert(at, std::move(key));
    }

    void Remove(std::uint32_t record) {
        const auto at = std::find(records.begin(), records.end(), record);
        if (at == records.end())
            return;
        const auto offset = at - records.begin();
        records.erase(at);
        keys.erase(keys.begin() + offset);
    }

    // The records whose keys `compare` (key, probe) finds equal to `probe`; `compare` must order
    // keys as Key::Compare does, on a prefix of the key.
    template <typename Probe, typename Compare>
    Range EqualRange(const Probe& probe, Compare compare) const {
        const auto below =
            std::lower_bound(keys.begin(), keys.end(), probe,
                             [&](const Key& key, const Probe& wanted) { return compare(key, wanted) < 0; });
        // Equal ranges are short: a few steps forward usually find the end without a second search.
        auto above = below;
        for (int step = 0; step < 8 && above != keys.end() && compare(*above, probe) == 0; ++step)
            ++above;
        if (above != keys.end() && compare(*above, probe) == 0)
            above = std::upper_bound(above, keys.end(), probe, [&](const Probe& wanted, const Key& key) {
                return compare(key, wanted) > 0;
            });
        return {records.begin() + (below - keys.begin()), records.begin() + (above - keys.begin())};
    }

private:
    Records records;
    std::vector<Key> keys;
};

// A name without case: the folded text, compared unit by unit in code point order, which is the
// order of a case-insensitive compare; then the record's type, so that a script and a part of one
// name stand together.
struct NameKey {
    KL::UniString folded;
    std::int32_t type = 0;

    int Compare(const NameKey& other) const {
        if (const int byText = folded.Compare(other.folded); byText != 0)
            return byText;
        return type < other.type ? -1 : (type > other.type ? 1 : 0);
    }
};

// Records without a symbol first, among themselves by name; symbols by an id of theirs.
template <typename Id>
struct SymbolKey {
    bool isSymbol = false;
    Id id;
    KL::UniString folded;

    int Compare(const SymbolKey& other) const {
        if (isSymbol != other.isSymbol)
            return isSymbol ? 1 : -1;
        if (const int byId = id.Compare(other.id); byId != 0)
            return byId;
        return folded.Compare(other.folded);
    }
};

} // namespace LM
