#include "ObjectDatabase/ClassRegistry.hpp"

#include <algorithm>
#include <unordered_map>

namespace ODB {

namespace {

std::unordered_map<KL::Guid, ClassRecord>& Registry() {
    static std::unordered_map<KL::Guid, ClassRecord> registry;
    return registry;
}

} // namespace

ClassProperty::~ClassProperty() = default;

bool RegisterClass(const KL::ClassInfo& info, ConstructorFunction constructor,
                   const StorageGroup* storageGroup, std::initializer_list<const ClassProperty*> properties) {
    return Registry()
        .emplace(info.GetGuid(), ClassRecord{&info, constructor, storageGroup, properties})
        .second;
}

const ClassRecord* FindClass(const KL::Guid& classGuid) {
    const auto& registry = Registry();
    const auto it = registry.find(classGuid);
    return it == registry.end() ? nullptr : &it->second;
}

bool HasClassProperty(const KL::ClassInfo& info, const ClassProperty& property) {
    const ClassRecord* record = FindClass(info.GetGuid());
    return record != nullptr && std::ranges::find(record->properties, &property) != record->properties.end();
}

} // namespace ODB
