#pragma once

#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Object.hpp"

#include <cstdint>
#include <utility>
#include <vector>

// The "MGRT" section of a part: the main guids of the parts it replaces, each with the version it
// replaces them from (the rank the catalogue sorts replacements by) and a flag. Pairs keep the
// order in which they were added; a key is there at most once.
class LM_EXPORT MigrationTable {
public:
    struct Value {
        std::int32_t version = 0;
        bool flag = false;
        bool operator==(const Value&) const = default;
    };
    using Pair = std::pair<KL::Guid, Value>;
    using const_iterator = std::vector<Pair>::const_iterator;

    static const KL::ClassInfo classInfo;

    // Replaces the value of a key that is there already.
    void Add(const KL::Guid& mainGuid, const Value& value);
    const Value* Find(const KL::Guid& mainGuid) const;
    std::size_t GetCount() const { return pairs.size(); }
    const_iterator BeginPairs() const { return pairs.begin(); }
    const_iterator EndPairs() const { return pairs.end(); }
    void Clear() { pairs.clear(); }

    // A frame around a 32-bit count and, per pair, the guid, the version and the flag.
    int Read(KL::IChannel& channel);
    int Write(KL::OChannel& channel) const;

    bool operator==(const MigrationTable&) const = default;

private:
    std::vector<Pair> pairs;
};

// The table as the object that a part file's section content gives.
class LM_EXPORT MigrationTableObject : public KL::Object {
public:
    static const KL::ClassInfo classInfo;

    MigrationTableObject() = default;
    explicit MigrationTableObject(MigrationTable table) : table(std::move(table)) {}

    MigrationTableObject* Clone() const override { return new MigrationTableObject(*this); }
    const KL::ClassInfo* GetClassInfo() const override { return &classInfo; }
    int Read(KL::IChannel& channel) override { return table.Read(channel); }
    int Write(KL::OChannel& channel) const override { return table.Write(channel); }

    const MigrationTable& GetTable() const { return table; }
    MigrationTable& GetTable() { return table; }

private:
    MigrationTable table;
};
