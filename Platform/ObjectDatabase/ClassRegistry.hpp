#pragma once

// The classes the object database can bring back from their stored rows. A class registers its
// class information, a constructor of empty objects, and optionally the storage group whose table
// holds its objects, so that bulky objects stay apart from the small ones that are listed often.
// Registration happens at start-up, before any database is opened; afterwards the registry is
// only read.
#include "ObjectDatabase/Object.hpp"

#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/KLExport.hpp"

#include <initializer_list>
#include <vector>

namespace ODB {

using ConstructorFunction = Object* (*)();

// A set of classes stored in a table of their own. `ownerClass` is the class the group belongs to.
class LM_EXPORT StorageGroup {
public:
    StorageGroup(const Id& id, const KL::ClassInfo& ownerClass) : id(id), ownerClass(ownerClass) {}
    const Id& GetId() const { return id; }
    const KL::ClassInfo& GetOwnerClass() const { return ownerClass; }

private:
    Id id;
    const KL::ClassInfo& ownerClass;
};

// A trait that a stored class declares of itself, such as taking no part in undo; the layers
// that care ask for it by identity.
class LM_EXPORT ClassProperty {
public:
    virtual ~ClassProperty();
    virtual const char* GetName() const = 0;
};

struct ClassRecord {
    const KL::ClassInfo* info;
    ConstructorFunction constructor;
    const StorageGroup* storageGroup; // null for the database's main table
    std::vector<const ClassProperty*> properties;
};

// False when another class registered the same guid.
LM_EXPORT bool RegisterClass(const KL::ClassInfo& info, ConstructorFunction constructor,
                             const StorageGroup* storageGroup = nullptr,
                             std::initializer_list<const ClassProperty*> properties = {});
// Null for a guid no class registered.
LM_EXPORT const ClassRecord* FindClass(const KL::Guid& classGuid);
LM_EXPORT bool HasClassProperty(const KL::ClassInfo& info, const ClassProperty& property);

// Registers a class when the program starts: a global of this type per stored class.
struct ClassRegistration {
    ClassRegistration(const KL::ClassInfo& info, ConstructorFunction constructor,
                      const StorageGroup* storageGroup = nullptr,
                      std::initializer_list<const ClassProperty*> properties = {}) {
        RegisterClass(info, constructor, storageGroup, properties);
    }
};

} // namespace ODB
