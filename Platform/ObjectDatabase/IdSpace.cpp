#include "ObjectDatabase/IdSpace.hpp"

#include "ObjectDatabase/FileDatabase.hpp"

#include <utility>

namespace ODB {

IdSpace::IdSpace(KL::UniString name) : name(std::move(name)) {}

IdSpace::~IdSpace() = default;

ObjectEntry* IdSpace::FindEntry(const Id& id) {
    if (const auto it = entries.find(id); it != entries.end())
        return it->second;
    for (FileDatabase* database : databases) {
        if (ObjectEntry* entry = database->FindStored(id))
            return entry;
    }
    return nullptr;
}

} // namespace ODB
