#pragma once

#include "catalogue/SortedIndex.hpp"

#include "KLRoot/UniString.hpp"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace LM {

// The first units of a folded name packed four to a word, so that comparing the words compares
// the units in code point order. A search among 100,000 names decides most of its steps on the
// heads alone, without reading the texts.
struct NameHead {
    static constexpr std::size_t Units = 16;

    explicit NameHead(std::u16string_view folded);

    std::array<std::uint64_t, Units / 4> words{};
};

// A searched name in the form a name index keeps: folded, "/" as ":" since a name with "/" is
// stored with ":". The usual query, a short ASCII name, is folded inside the object: a heap block
// would cost a lookup a fifth of its time.
class NameQuery {
public:
    explicit NameQuery(const KL::UniString& name);
    NameQuery(const NameQuery&) = delete; // the text may lie in the object itself
    NameQuery& operator=(const NameQuery&) = delete;

    std::u16string_view GetText() const { return text; }
    const NameHead& GetHead() const { return head; }

private:
    std::u16string_view Fold(const KL::UniString& name);

    std::array<KL::UniChar, 64> shortText;
    KL::UniString longText;
    std::u16string_view text;
    NameHead head;
};

// A name without case of each record, in the order of the folded texts (code point order, which
// is the order of a case-insensitive compare), then of the record's type, so that a script and a
// part of one name stand together. The texts lie in one buffer in index order, which keeps the
// keys small and lets the last steps of a search read neighbouring texts; a record that leaves
// leaves its text behind until the next Build.
class NameIndex {
    struct Key {
        NameHead head;
        std::uint32_t offset = 0;
        std::uint32_t length = 0;
        std::int32_t type = 0;
        std::uint32_t record = 0;
    };

public:
    using Records = SortedRecords;
    using Range = SortedRange;

    // Gathers the records of a build in record order: each name is folded into one buffer as it
    // comes, so a build never holds a text per record.
    class Builder {
    public:
        explicit Builder(std::size_t count) { keys.reserve(count); }
        void Add(const KL::UniString& name, std::int32_t type, std::uint32_t record);

    private:
        friend class NameIndex;
        std::vector<Key> keys;
        std::u16string texts;
    };

    const Records& GetRecords() const { return index.GetRecords(); }

    // Equal names keep the order in which the builder took them.
    void Build(Builder builder);
    void Insert(const KL::UniString& name, std::int32_t type, std::uint32_t record);
    void Remove(std::uint32_t record) { index.Remove(record); }

    // The records of this name, whatever their type.
    Range EqualRange(const NameQuery& name) const;
    // Whether the records at two positions of GetRecords have equal names and types.
    bool HaveEqualKeys(std::size_t position, std::size_t other) const;

private:
    // Folds `name` onto the end of `texts`; the key of its record says where it lies.
    static Key AppendKey(std::u16string& texts, const KL::UniString& name, std::int32_t type,
                         std::uint32_t record);
    static int CompareKeys(const Key& key, std::u16string_view text, const Key& other,
                           std::u16string_view otherText);
    std::u16string_view TextOf(const Key& key) const;

    SortedIndex<Key> index;
    std::u16string texts;
};

} // namespace LM
