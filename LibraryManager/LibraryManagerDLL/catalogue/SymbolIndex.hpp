#pragma once

#include "catalogue/SortedIndex.hpp"

#include "KLRoot/UniString.hpp"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace LM {

// Records without a symbol first, among themselves by name without case; symbols by an id of
// theirs. Most records are symbols, so a key holds an id, and the few names lie in one buffer
// beside the keys rather than in a text of each key.
template <typename Id>
class SymbolIndex {
public:
    struct Key {
        Id id;
        bool isSymbol = false;
        std::uint32_t record = 0;
        // Where a record without a symbol has its folded name in the buffer.
        std::uint32_t nameOffset = 0;
        std::uint32_t nameLength = 0;
    };
    using Records = SortedRecords;
    using Range = SortedRange;

    // Gathers the records of a build in record order.
    class Builder {
    public:
        explicit Builder(std::size_t count) { keys.reserve(count); }
        // `name` counts only for a record without a symbol, `id` only for a symbol.
        void Add(bool isSymbol, const Id& id, const KL::UniString& name, std::uint32_t record) {
            keys.push_back(AppendKey(names, isSymbol, id, name, record));
        }

    private:
        friend class SymbolIndex;
        std::vector<Key> keys;
        std::u16string names;
    };

    const Records& GetRecords() const { return index.GetRecords(); }

    // Equal keys keep the order in which the builder took them.
    void Build(Builder builder) {
        names = std::move(builder.names);
        index.Build(std::move(builder.keys), [this](const Key& a, const Key& b) { return Compare(a, b); });
    }
    void Insert(bool isSymbol, const Id& id, const KL::UniString& name, std::uint32_t record) {
        index.Insert(AppendKey(names, isSymbol, id, name, record),
                     [this](const Key& a, const Key& b) { return Compare(a, b); });
    }
    void Remove(std::uint32_t record) { index.Remove(record); }

    // The symbols whose ids `project` makes equal to `probe`.
    template <typename Probe, typename Project>
    Range SymbolRange(const Probe& probe, Project project) const {
        return index.EqualRange(probe, [&](const Key& key, const Probe& wanted) {
            return key.isSymbol ? project(key.id).Compare(wanted) : -1;
        });
    }

private:
    static Key AppendKey(std::u16string& names, bool isSymbol, const Id& id, const KL::UniString& name,
                         std::uint32_t record) {
        Key key{isSymbol ? id : Id(), isSymbol, record};
        if (isSymbol)
            return key;
        const KL::UniString folded = name.GetFolded();
        key.nameOffset = static_cast<std::uint32_t>(names.size());
        key.nameLength = static_cast<std::uint32_t>(folded.GetLength());
        names.append(folded.View());
        return key;
    }

    std::u16string_view NameOf(const Key& key) const {
        return std::u16string_view(names).substr(key.nameOffset, key.nameLength);
    }

    int Compare(const Key& a, const Key& b) const {
        if (a.isSymbol != b.isSymbol)
            return a.isSymbol ? 1 : -1;
        if (a.isSymbol)
            return a.id.Compare(b.id);
        return KL::CompareCodePointOrder(NameOf(a), NameOf(b));
    }

    SortedIndex<Key> index;
    std::u16string names;
};

} // namespace LM
