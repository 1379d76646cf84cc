#pragma once

// The base of every object the object database stores. An object has an id, unique within the
// id space of its database, and a class that the class registry can construct. What it stores is
// its state stream (WriteIsolatedState, ReadIsolatedState); the database keeps the id, the class
// and the links of associations beside the stream, never in it.
//
// An object belongs to the reference that created it until it joins a database; from then on the
// database owns it and may unload it whenever no reference holds it. Code that keeps a raw
// pointer past the life of its reference keeps a pointer that may dangle.
#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Object.hpp"

#include <cstdint>

namespace ODB {

using Id = KL::Guid;

class FileDatabase;
class RefBase;
struct ObjectEntry;

// The copy of an object's fields that undo and transfer work with; each class nests its own.
class LM_EXPORT IsolatedState {
public:
    virtual ~IsolatedState();
};

class LM_EXPORT Object : public KL::Object {
public:
    static const KL::ClassInfo classInfo;

    Object();
    ~Object() override;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    const KL::ClassInfo* GetClassInfo() const override;
    // The base level writes and reads nothing: the database keeps the id beside the stream.
    int WriteIsolatedState(KL::OChannel& channel) const override;
    int ReadIsolatedState(KL::IChannel& channel) override;

    virtual IsolatedState* CreateIsolatedState() const;
    virtual int StoreIsolatedState(IsolatedState* state) const;
    virtual int RestoreIsolatedState(const IsolatedState* state);
    // What the object holds in memory, for the database's memory limit.
    virtual std::uint64_t GetIsolatedSize() const;

    // A new object draws its id on first use; one the database loads gets its stored id, and
    // draws none.
    const Id& GetId() const;
    // Only before the object joins a database; false, and nothing changes, afterwards.
    bool SetId(const Id& newId);
    // A reference to this object; null for an object that no reference holds.
    RefBase GetRef() const;
    // The database the object belongs to, or null while it belongs to no database.
    FileDatabase* GetDatabase() const;

private:
    friend struct ObjectEntry;
    friend class FileDatabase;
    friend class RefBase;

    mutable Id id;
    ObjectEntry* entry = nullptr;
};

} // namespace ODB
