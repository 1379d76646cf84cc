#pragma once

// References to objects of the object database. A reference stands for one object by its entry:
// a small record that lives as long as a reference to it, or as long as its database keeps it
// in memory. The object behind an entry is loaded when the reference is first read and may be
// unloaded again once no reference holds the entry, so a reference, not a pointer, is what a
// caller keeps.
//
// Invariant: an entry with references is never unloaded. An entry of no database (transient)
// owns its object outright and dies with its last reference; such entries carry the links that
// were made while they belonged nowhere, until they join a database.
#include "ObjectDatabase/Object.hpp"

#include "KLRoot/KLExport.hpp"

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <type_traits>
#include <vector>

namespace ODB {

class Association;
class IdSpace;

class LM_EXPORT RefBase {
public:
    RefBase() = default;
    // Takes a new object over, or shares the entry of an object that has one already.
    explicit RefBase(Object* object);
    // The object of that id in the space's databases; a null reference when there is none.
    RefBase(const Id& id, IdSpace& space);
    RefBase(const RefBase& other);
    RefBase(RefBase&& other) noexcept;
    RefBase& operator=(const RefBase& other);
    RefBase& operator=(RefBase&& other) noexcept;
    ~RefBase();

    bool IsNull() const { return entry == nullptr; }
    // Whether the reference stands for an object that exists: in memory, or in its database.
    bool IsLive() const;
    // Brings the object into memory; false for a null or dead reference. A stored object that
    // cannot be read is a fault of its database and goes to the database's error handler.
    bool Load() const;
    // The null id for a null reference.
    const Id& GetId() const;
    // The object's class without loading it when its database knows it; null when unknown.
    const KL::ClassInfo* GetClassInfo() const;
    bool IsCompatibleWith(const KL::ClassInfo& info) const;
    FileDatabase* GetDatabase() const;
    IdSpace* GetIdSpace() const;
    // Deletes the object from memory and its database, with what it owns through associations.
    void Delete();
    void Clear();
    // Clears the reference; when it was the last, the object is written out if changed and leaves
    // memory at once rather than when the memory limit reaches it: for objects used once.
    void ClearAndUnload();

    bool operator==(const RefBase& other) const { return entry == other.entry; }

    // Loads the object; the non-const form marks it as changed, to be stored again.
    Object* GetObject() const;
    const Object* GetConstObject() const;

    ObjectEntry* GetEntry() const { return entry; }
    // A reference on an entry that someone already holds or that its database keeps.
    static RefBase FromEntry(ObjectEntry* entry);

private:
    ObjectEntry* entry = nullptr;
};

using RefList = std::vector<RefBase>;

// A link made while its left side belonged to no database.
struct PendingLink {
    const Association* association;
    RefBase right;
};

struct LM_EXPORT ObjectEntry {
    Id id;
    std::atomic<int> refCount = 0;
    std::unique_ptr<Object> object; // null while unloaded
    const KL::ClassInfo* classInfo = nullptr;
    FileDatabase* database = nullptr; // null while transient
    std::int64_t rowId = 0;
    int storage = 0;
    std::uint64_t chargedSize = 0;
    bool dirty = false;
    // Deleted, or its database closed: references to it no longer resolve.
    bool dead = false;
    bool inLru = false;
    std::list<ObjectEntry*>::iterator lruPosition;
    std::vector<PendingLink> pendingLinks;

    void Acquire() { refCount.fetch_add(1, std::memory_order_relaxed); }
    void Release();
    // Unties and frees the object in memory; the entry stays.
    void DropObject();
};

// A reference to an object of class T or of a class derived from it.
template <class T>
class Ref : public RefBase {
public:
    Ref() = default;
    explicit Ref(T* object) : RefBase(object) {}
    Ref(const Id& id, IdSpace& space) : RefBase(Cast(RefBase(id, space))) {}
    template <class U>
    requires std::is_base_of_v<T, U> Ref(const Ref<U>& other) : RefBase(other) {}

    // The reference when its object is of class T, else a null reference.
    static Ref Cast(const RefBase& ref) {
        Ref result;
        if (ref.IsCompatibleWith(T::classInfo))
            static_cast<RefBase&>(result) = ref;
        return result;
    }

    T* operator->() const { return static_cast<T*>(GetObject()); }
    T& operator*() const { return *operator->(); }
};

// A reference that reads only, so it never marks its object as changed.
template <class T>
class ConstRef : public RefBase {
public:
    ConstRef() = default;
    ConstRef(const Id& id, IdSpace& space) : RefBase(Cast(RefBase(id, space))) {}
    template <class U>
    requires std::is_base_of_v<T, U> ConstRef(const Ref<U>& other) : RefBase(other) {}
    template <class U>
    requires std::is_base_of_v<T, U> ConstRef(const ConstRef<U>& other) : RefBase(other) {}

    static ConstRef Cast(const RefBase& ref) {
        ConstRef result;
        if (ref.IsCompatibleWith(T::classInfo))
            static_cast<RefBase&>(result) = ref;
        return result;
    }

    const T* operator->() const { return static_cast<const T*>(GetConstObject()); }
    const T& operator*() const { return *operator->(); }
};

} // namespace ODB
