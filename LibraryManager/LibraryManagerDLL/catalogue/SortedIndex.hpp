#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

namespace LM {

// Record numbers in the order of an index, and a run of them.
using SortedRecords = std::vector<std::uint32_t>;
using SortedRange = std::pair<SortedRecords::const_iterator, SortedRecords::const_iterator>;

// Record numbers in the order of a key, with each record's key kept beside it: a search reads two
// contiguous arrays and never visits a record, which is what keeps a lookup among 100,000 parts
// within a few hundred nanoseconds. A key names its record (`key.record`) and is taken when the
// record enters the index; a record whose key changes leaves and enters again. Equal keys keep the
// order in which records entered.
template <typename Key>
class SortedIndex {
public:
    using Records = SortedRecords;
    using Range = SortedRange;

    const Records& GetRecords() const { return records; }
    // Beside GetRecords, position by position.
    const std::vector<Key>& GetKeys() const { return keys; }

    // `entries` in record order; a stable sort keeps that order among equal keys. The keys are
    // sorted where they lie and kept, so a build holds no second copy of them. `compare` gives a
    // negative, zero or positive answer for two keys.
    template <typename Compare>
    void Build(std::vector<Key> entries, Compare compare) {
        std::stable_sort(entries.begin(), entries.end(),
                         [&](const Key& a, const Key& b) { return compare(a, b) < 0; });
        keys = std::move(entries);
        records.clear();
        records.reserve(keys.size());
        for (const Key& key : keys)
            records.push_back(key.record);
    }

    // Behind all records of an equal key: one binary search and one insertion.
    template <typename Compare>
    void Insert(Key key, Compare compare) {
        const auto at =
            std::upper_bound(keys.begin(), keys.end(), key,
                             [&](const Key& wanted, const Key& other) { return compare(wanted, other) < 0; });
        const auto offset = at - keys.begin();
        records.insert(records.begin() + offset, key.record);
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

    // Lets `rewrite` change every key in order, in what it stores but never in how it orders.
    template <typename Rewrite>
    void RewriteKeys(Rewrite rewrite) {
        for (Key& key : keys)
            rewrite(key);
    }

    // The records whose keys `compare` (key, probe) finds equal to `probe`; `compare` must order
    // keys as the index does, on a prefix of the key.
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

} // namespace LM
