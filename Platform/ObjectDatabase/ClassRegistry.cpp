#include "ObjectDatabase/ClassRegistry.hpp"

#include <unordered_map>

namespace ODB {

namespace {

std::unordered_map<KL::Guid, ClassRecord>& Registry() {
    static std::unordered_map<KL::Guid, ClassRecord> registry;
    return registry;
}

} // namespace

bool RegisterClass(const KL::ClassInfo& info, ConstructorFunction constructor,
                   const StorageGroup* storageGroup) {
    return Registry().emplace(info.GetGuid(), ClassRecord{&info, constructor, storageGroup}).second;
}

const ClassRecord* FindClass(const KL::Guid& classGuid) {
    const auto& registry = Registry();
    const auto it = registry.find(classGuid);
    return it == registry.end() ? nullptr : &it->second;
}

} // namespace ODB
