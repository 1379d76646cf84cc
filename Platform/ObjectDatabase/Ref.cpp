#include "ObjectDatabase/Ref.hpp"

#include "ObjectDatabase/Association.hpp"
#include "ObjectDatabase/FileDatabase.hpp"
#include "ObjectDatabase/IdSpace.hpp"

#include "KLRoot/Exceptions.hpp"

#include <utility>

namespace ODB {

namespace {

// Takes a reference on an entry that may have none; such an entry leaves its database's list
// of what may be unloaded.
void Pin(ObjectEntry* entry) {
    if (entry->database == nullptr) {
        entry->Acquire();
        return;
    }
    FileDatabase* database = entry->database;
    std::lock_guard lock(database->GetIdSpace().GetLock());
    if (entry->refCount.fetch_add(1, std::memory_order_relaxed) == 0)
        database->Repinned(entry);
}

// Deletes what an object of no database owns, and lets the object go.
void DeleteTransient(ObjectEntry* entry) {
    std::vector<PendingLink> links = std::move(entry->pendingLinks);
    for (PendingLink& link : links) {
        if (link.association->IsOwning())
            link.right.Delete();
    }
    entry->DropObject();
    entry->dead = true;
}

} // namespace

void ObjectEntry::DropObject() {
    if (object != nullptr)
        object->entry = nullptr;
    object.reset();
}

void ObjectEntry::Release() {
    if (refCount.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    if (database == nullptr) {
        delete this;
        return;
    }
    FileDatabase* owner = database;
    std::lock_guard lock(owner->GetIdSpace().GetLock());
    if (refCount.load(std::memory_order_relaxed) == 0)
        owner->Unpinned(this);
}

RefBase::RefBase(Object* object) {
    if (object == nullptr)
        return;
    if (object->entry != nullptr) {
        entry = object->entry;
        Pin(entry);
        return;
    }
    entry = new ObjectEntry;
    entry->id = object->GetId();
    entry->object.reset(object);
    entry->classInfo = object->GetClassInfo();
    object->entry = entry;
    entry->Acquire();
}

RefBase::RefBase(const Id& id, IdSpace& space) {
    std::lock_guard lock(space.lock);
    if (ObjectEntry* found = space.FindEntry(id)) {
        entry = found;
        Pin(entry);
    }
}

RefBase::RefBase(const RefBase& other) : entry(other.entry) {
    if (entry != nullptr)
        entry->Acquire();
}

RefBase::RefBase(RefBase&& other) noexcept : entry(std::exchange(other.entry, nullptr)) {}

RefBase& RefBase::operator=(const RefBase& other) {
    if (this != &other) {
        RefBase copy(other);
        std::swap(entry, copy.entry);
    }
    return *this;
}

RefBase& RefBase::operator=(RefBase&& other) noexcept {
    std::swap(entry, other.entry);
    return *this;
}

RefBase::~RefBase() {
    Clear();
}

void RefBase::Clear() {
    if (entry != nullptr)
        std::exchange(entry, nullptr)->Release();
}

void RefBase::ClearAndUnload() {
    if (entry == nullptr)
        return;
    ObjectEntry* held = std::exchange(entry, nullptr);
    FileDatabase* database = held->database;
    if (database == nullptr) {
        held->Release();
        return;
    }
    std::lock_guard lock(database->GetIdSpace().GetLock());
    if (held->refCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
        database->LetGo(held);
}

RefBase RefBase::FromEntry(ObjectEntry* entry) {
    RefBase result;
    result.entry = entry;
    Pin(entry);
    return result;
}

bool RefBase::IsLive() const {
    return entry != nullptr && !entry->dead;
}

bool RefBase::Load() const {
    if (!IsLive())
        return false;
    if (entry->database == nullptr)
        return entry->object != nullptr;
    std::lock_guard lock(entry->database->GetIdSpace().GetLock());
    if (entry->object == nullptr)
        entry->database->Load(entry);
    return true;
}

const Id& RefBase::GetId() const {
    static const Id none;
    return entry == nullptr ? none : entry->id;
}

const KL::ClassInfo* RefBase::GetClassInfo() const {
    if (entry == nullptr)
        return nullptr;
    return entry->object != nullptr ? entry->object->GetClassInfo() : entry->classInfo;
}

bool RefBase::IsCompatibleWith(const KL::ClassInfo& info) const {
    const KL::ClassInfo* own = GetClassInfo();
    return own != nullptr && own->IsCompatibleWith(info);
}

FileDatabase* RefBase::GetDatabase() const {
    return entry == nullptr ? nullptr : entry->database;
}

IdSpace* RefBase::GetIdSpace() const {
    FileDatabase* database = GetDatabase();
    return database == nullptr ? nullptr : &database->GetIdSpace();
}

void RefBase::Delete() {
    if (!IsLive())
        return;
    if (entry->database == nullptr) {
        DeleteTransient(entry);
        return;
    }
    std::lock_guard lock(entry->database->GetIdSpace().GetLock());
    entry->database->Delete(entry);
}

Object* RefBase::GetObject() const {
    if (!Load())
        throw KL::IllegalArgumentException("ODB: a null or deleted reference was read", __FILE__, __LINE__);
    if (entry->database != nullptr) {
        std::lock_guard lock(entry->database->GetIdSpace().GetLock());
        entry->database->MarkChanged(entry);
    }
    return entry->object.get();
}

const Object* RefBase::GetConstObject() const {
    if (!Load())
        throw KL::IllegalArgumentException("ODB: a null or deleted reference was read", __FILE__, __LINE__);
    return entry->object.get();
}

} // namespace ODB
