#pragma once

// A space of object ids: the databases opened in it and the entries of their objects that are in
// memory or referenced. The same id may name different objects in two spaces, which is why every
// database is opened in a space of its own unless two must see each other's objects.
//
// The space's lock guards its table, its databases' caches and their connections; references
// take it whenever they resolve, load or release an entry. A space outlives its databases.
#include "ObjectDatabase/Object.hpp"

#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

#include <mutex>
#include <unordered_map>
#include <vector>

namespace ODB {

class LM_EXPORT IdSpace {
public:
    explicit IdSpace(KL::UniString name);
    ~IdSpace();
    IdSpace(const IdSpace&) = delete;
    IdSpace& operator=(const IdSpace&) = delete;

    const KL::UniString& GetName() const { return name; }
    // Held by whatever resolves, loads, links or releases an object of this space.
    std::recursive_mutex& GetLock() { return lock; }

private:
    friend class FileDatabase;
    friend class RefBase;

    // The entry of a stored object with that id, made and entered when a database holds it; null
    // when none does. Called under the lock.
    ObjectEntry* FindEntry(const Id& id);

    KL::UniString name;
    std::recursive_mutex lock;
    std::unordered_map<Id, ObjectEntry*> entries;
    std::vector<FileDatabase*> databases;
};

} // namespace ODB
