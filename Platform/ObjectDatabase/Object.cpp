#include "ObjectDatabase/Object.hpp"

#include "ObjectDatabase/Ref.hpp"

#include "KLRoot/ErrorCodes.hpp"

namespace ODB {

const KL::ClassInfo Object::classInfo("ODB::Object", KL::Guid("77608F83-E45D-4C9F-A9E2-003D49DF2729"), 1, 0,
                                      &KL::Object::classInfo);

IsolatedState::~IsolatedState() = default;

Object::Object() = default;

const Id& Object::GetId() const {
    if (id.IsNull())
        id = Id::Generate();
    return id;
}

Object::~Object() = default;

const KL::ClassInfo* Object::GetClassInfo() const {
    return &classInfo;
}

int Object::WriteIsolatedState(KL::OChannel&) const {
    return KL::NoError;
}

int Object::ReadIsolatedState(KL::IChannel&) {
    return KL::NoError;
}

IsolatedState* Object::CreateIsolatedState() const {
    return new IsolatedState;
}

int Object::StoreIsolatedState(IsolatedState*) const {
    return KL::NoError;
}

int Object::RestoreIsolatedState(const IsolatedState*) {
    return KL::NoError;
}

std::uint64_t Object::GetIsolatedSize() const {
    return sizeof(Object);
}

bool Object::SetId(const Id& newId) {
    if (entry != nullptr && (entry->database != nullptr || entry->dead))
        return false;
    id = newId;
    if (entry != nullptr)
        entry->id = newId;
    return true;
}

RefBase Object::GetRef() const {
    return entry == nullptr ? RefBase() : RefBase::FromEntry(entry);
}

FileDatabase* Object::GetDatabase() const {
    return entry == nullptr ? nullptr : entry->database;
}

} // namespace ODB
