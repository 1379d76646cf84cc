#include "ObjectDatabase/FileDatabase.hpp"

#include "ObjectDatabase/Association.hpp"
#include "ObjectDatabase/IdSpace.hpp"
#include "ObjectDatabase/ObjectStore.hpp"

#include "KLRoot/Channel.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/MemoryChannel.hpp"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <utility>

namespace ODB {

namespace {

// Streams are stored in one byte order whatever the machine, so a file moves between machines.
constexpr KL::PlatformSign StreamOrder = KL::LittleEndianSign;

std::string DescribeFault(FileDatabase::Operation::Value operation, FileDatabase::ErrorCode::Value error,
                          int code) {
    char text[96];
    std::snprintf(text, sizeof text, "object database fault: operation 0x%x, error %d, code %d",
                  static_cast<unsigned>(operation), static_cast<int>(error), code);
    return text;
}

} // namespace

FileDatabase::ErrorHandler::~ErrorHandler() = default;

DatabaseException::DatabaseException(FileDatabase::Operation::Value operation,
                                     FileDatabase::ErrorCode::Value error, int code)
    : KL::KLException(code, DescribeFault(operation, error, code)), operation(operation), error(error) {}

DatabaseException::~DatabaseException() = default;

template <class Step>
auto FileDatabase::Guarded(Operation::Value operation, Subject::Value subject, Step&& step) {
    try {
        return step();
    } catch (const StoreFailure& failure) {
        Fail(operation, subject, failure.error, failure.code);
    }
}

FileDatabase::FileDatabase(const Locations& locations, const Parameters& parameters)
    : location(locations.file), idSpace(parameters.idSpace), errorHandler(parameters.errorHandler),
      readOnly(parameters.openMode == ReadOnly) {
    if (idSpace == nullptr)
        throw KL::IllegalArgumentException("ODB: a file database needs an id space", __FILE__, __LINE__);
    Guarded(readOnly ? Operation::Open : Operation::Create, Subject::Database,
            [&] { store = std::make_unique<ObjectStore>(location.ToString(), readOnly); });
    std::lock_guard lock(idSpace->lock);
    idSpace->databases.push_back(this);
}

FileDatabase::~FileDatabase() {
    std::lock_guard lock(idSpace->lock);
    std::vector<ObjectEntry*> own;
    for (const auto& [id, entry] : idSpace->entries) {
        if (entry->database == this)
            own.push_back(entry);
    }
    for (ObjectEntry* entry : own)
        Forget(entry);
    std::erase(idSpace->databases, this);
    store.reset();
}

void FileDatabase::Fail(Operation::Value operation, Subject::Value subject, ErrorCode::Value error,
                        int code) const {
    if (errorHandler != nullptr)
        errorHandler->ErrorEncountered(this, operation, subject, error, code);
    throw DatabaseException(operation, error, code);
}

void FileDatabase::SetMaxMemorySize(unsigned mebibytes) {
    std::lock_guard lock(idSpace->lock);
    maxMemoryBytes = static_cast<std::uint64_t>(mebibytes) << 20;
    EvictOverLimit();
}

void FileDatabase::AddObject(const RefBase& object) {
    ObjectEntry* entry = object.GetEntry();
    if (!object.IsLive() || entry->database == this)
        return;
    std::lock_guard lock(idSpace->lock);
    if (entry->database == nullptr)
        Join(entry);
}

void FileDatabase::SetRootObject(const RefBase& object) {
    AddObject(object);
    if (object.GetDatabase() != this)
        return;
    std::lock_guard lock(idSpace->lock);
    Guarded(Operation::Store, Subject::Database, [&] { store->SetRoot(object.GetId()); });
}

RefBase FileDatabase::GetRootObject() {
    std::lock_guard lock(idSpace->lock);
    const std::optional<Id> root =
        Guarded(Operation::Query, Subject::Database, [&] { return store->GetRoot(); });
    if (!root)
        return {};
    ObjectEntry* entry = FindStored(*root);
    return entry == nullptr ? RefBase() : RefBase::FromEntry(entry);
}

void FileDatabase::Flush() {
    std::lock_guard lock(idSpace->lock);
    if (deferredFault != nullptr)
        std::rethrow_exception(std::exchange(deferredFault, nullptr));
    if (readOnly)
        return;
    for (ObjectEntry* entry : loaded) {
        if (entry->dirty)
            WriteState(entry);
    }
    Guarded(Operation::Flush, Subject::Database, [&] { store->Commit(); });
}

void FileDatabase::CompactToMinimum() {
    std::lock_guard lock(idSpace->lock);
    Guarded(Operation::Compact, Subject::Database, [&] { store->CompactToMinimum(); });
}

bool FileDatabase::IsOwnFile(const IO::Location& location, bool* newer) {
    // The SQLite header: its magic text, then the application id and the schema version
    // (user_version) as big-endian words at fixed offsets.
    static constexpr char magic[] = "SQLite format 3";
    unsigned char header[100] = {};
    std::ifstream file(location.ToString(), std::ios::binary);
    if (!file.read(reinterpret_cast<char*>(header), sizeof header))
        return false;
    if (!std::equal(std::begin(magic), std::end(magic), header))
        return false;
    const auto wordAt = [&](int offset) {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(header[offset]) << 24 |
                                         static_cast<std::uint32_t>(header[offset + 1]) << 16 |
                                         static_cast<std::uint32_t>(header[offset + 2]) << 8 |
                                         header[offset + 3]);
    };
    if (wordAt(68) != ObjectStore::ApplicationId)
        return false;
    if (newer != nullptr)
        *newer = wordAt(60) > ObjectStore::SchemaVersion;
    return true;
}

ObjectEntry* FileDatabase::FindStored(const Id& id) {
    const std::optional<ObjectStore::Row> row =
        Guarded(Operation::Query, Subject::Object, [&] { return store->Find(id); });
    return row ? EntryOfRow(*row) : nullptr;
}

ObjectEntry* FileDatabase::EntryOfRow(const ObjectStore::Row& row) {
    if (const auto it = idSpace->entries.find(row.id); it != idSpace->entries.end())
        return it->second;
    auto* entry = new ObjectEntry;
    entry->id = row.id;
    const ClassRecord* record = FindClass(row.classGuid);
    entry->classInfo = record == nullptr ? nullptr : record->info;
    entry->database = this;
    entry->rowId = row.rowId;
    entry->storage = row.storage;
    idSpace->entries.emplace(row.id, entry);
    return entry;
}

void FileDatabase::Load(ObjectEntry* entry) {
    const ClassRecord* record =
        entry->classInfo == nullptr ? nullptr : FindClass(entry->classInfo->GetGuid());
    if (record == nullptr)
        Fail(Operation::Load, Subject::Object, ErrorCode::UnknownClass, 0);
    std::unique_ptr<Object> object(record->constructor());
    const int result = Guarded(Operation::Load, Subject::Object, [&] {
        const std::optional<std::span<const char>> state = store->ReadState(entry->rowId, entry->storage);
        if (!state)
            return KL::ErrEndOfData;
        KL::MemoryIChannel channel(state->data(), state->size(), StreamOrder);
        const int read = object->ReadIsolatedState(channel);
        if (read != KL::NoError)
            return read;
        // A stream that says less than it holds is as damaged as one that says more.
        return channel.GetAvailable() == 0 ? KL::NoError : KL::ErrStreamFormat;
    });
    if (result != KL::NoError)
        Fail(Operation::Load, Subject::Object, ErrorCode::DamagedObject, result);
    object->id = entry->id;
    object->entry = entry;
    entry->object = std::move(object);
    entry->dirty = false;
    loaded.insert(entry);
    Charge(entry);
    EvictOverLimit();
}

void FileDatabase::Charge(ObjectEntry* entry) {
    const std::uint64_t size = entry->object->GetIsolatedSize();
    loadedSize = loadedSize - entry->chargedSize + size;
    entry->chargedSize = size;
}

void FileDatabase::Unpinned(ObjectEntry* entry) {
    if (entry->object == nullptr) {
        Forget(entry);
        return;
    }
    Charge(entry);
    entry->lruPosition = lru.insert(lru.end(), entry);
    entry->inLru = true;
    // A reference goes here, often in a destructor, where a fault must not be thrown: a store that
    // fails while making room is reported by the next Flush, and nothing more is evicted until then.
    if (deferredFault != nullptr)
        return;
    try {
        EvictOverLimit();
    } catch (...) {
        deferredFault = std::current_exception();
    }
}

void FileDatabase::LetGo(ObjectEntry* entry) {
    if (entry->object != nullptr)
        Unload(entry);
    Forget(entry);
}

void FileDatabase::Repinned(ObjectEntry* entry) {
    if (entry->inLru) {
        lru.erase(entry->lruPosition);
        entry->inLru = false;
    }
}

void FileDatabase::MarkChanged(ObjectEntry* entry) {
    if (!readOnly)
        entry->dirty = true;
}

void FileDatabase::EvictOverLimit() {
    while (loadedSize > maxMemoryBytes && !lru.empty())
        LetGo(lru.front());
}

void FileDatabase::WriteState(ObjectEntry* entry) {
    KL::MemoryOChannel channel(StreamOrder);
    int result = entry->object->WriteIsolatedState(channel);
    if (result == KL::NoError)
        result = channel.GetStatus();
    if (result != KL::NoError)
        Fail(Operation::Store, Subject::Object, ErrorCode::DamagedObject, result);
    const std::vector<char>& state = channel.GetData();
    Guarded(Operation::Store, Subject::Object,
            [&] { store->WriteState(entry->rowId, entry->storage, state); });
    entry->dirty = false;
}

void FileDatabase::Unload(ObjectEntry* entry) {
    if (entry->dirty && !readOnly)
        WriteState(entry);
    loadedSize -= entry->chargedSize;
    entry->chargedSize = 0;
    loaded.erase(entry);
    Repinned(entry);
    entry->DropObject();
}

// Lets an entry go from this database. One that references still hold stays, dead.
void FileDatabase::Forget(ObjectEntry* entry) {
    if (entry->object != nullptr) {
        loadedSize -= entry->chargedSize;
        loaded.erase(entry);
        Repinned(entry);
        entry->DropObject();
    }
    if (const auto it = idSpace->entries.find(entry->id); it != idSpace->entries.end() && it->second == entry)
        idSpace->entries.erase(it);
    entry->database = nullptr;
    if (entry->refCount.load(std::memory_order_relaxed) == 0)
        delete entry;
    else
        entry->dead = true;
}

void FileDatabase::Join(ObjectEntry* entry) {
    if (readOnly)
        Fail(Operation::Store, Subject::Object, ErrorCode::ReadOnly, 0);
    const ClassRecord* record = FindClass(entry->object->GetClassInfo()->GetGuid());
    if (record == nullptr)
        Fail(Operation::Store, Subject::Object, ErrorCode::UnknownClass, 0);
    // An id another database of the space holds; the file's own ids are kept unique by the store.
    if (idSpace->entries.contains(entry->id))
        Fail(Operation::Store, Subject::Object, ErrorCode::DuplicateId, 0);
    Guarded(Operation::Store, Subject::Object, [&] {
        entry->storage =
            record->storageGroup == nullptr ? 0 : store->StorageOf(record->storageGroup->GetId());
        entry->rowId = store->Insert(entry->id, record->info->GetGuid(), entry->storage);
    });
    entry->database = this;
    entry->classInfo = record->info;
    entry->dirty = true;
    idSpace->entries.emplace(entry->id, entry);
    loaded.insert(entry);
    Charge(entry);

    const std::vector<PendingLink> links = std::move(entry->pendingLinks);
    entry->pendingLinks.clear();
    for (const PendingLink& link : links) {
        ObjectEntry* right = link.right.GetEntry();
        // A right side that joined another database meanwhile cannot be linked from this one.
        if (right->dead || (right->database != nullptr && right->database != this))
            continue;
        if (right->database == nullptr)
            Join(right);
        AddLink(*link.association, entry, right);
    }
}

void FileDatabase::Delete(ObjectEntry* entry) {
    if (readOnly)
        Fail(Operation::Delete, Subject::Object, ErrorCode::ReadOnly, 0);
    RefList owned;
    for (const Association* association : Association::GetRegistered()) {
        if (!association->IsOwning())
            continue;
        RefList rights;
        EnumerateRight(*association, entry, &rights);
        owned.insert(owned.end(), rights.begin(), rights.end());
    }
    // The object and its links go first, so that a damaged file whose links run in a circle
    // leads back to nothing.
    Guarded(Operation::Delete, Subject::Object, [&] {
        store->RemoveLinksOf(entry->rowId);
        store->DeleteObject(entry->rowId, entry->storage);
    });
    entry->dirty = false;
    entry->dead = true;
    Forget(entry);
    for (const RefBase& right : owned) {
        if (right.IsLive() && right.GetDatabase() == this)
            Delete(right.GetEntry());
    }
}

void FileDatabase::AddLink(const Association& association, ObjectEntry* left, ObjectEntry* right) {
    if (readOnly)
        Fail(Operation::Link, Subject::Association, ErrorCode::ReadOnly, 0);
    Guarded(Operation::Link, Subject::Association,
            [&] { store->AddLink(association.GetId(), left->rowId, right->rowId); });
}

bool FileDatabase::RemoveLink(const Association& association, ObjectEntry* left, ObjectEntry* right) {
    if (readOnly)
        Fail(Operation::Link, Subject::Association, ErrorCode::ReadOnly, 0);
    return Guarded(Operation::Link, Subject::Association,
                   [&] { return store->RemoveLink(association.GetId(), left->rowId, right->rowId); });
}

bool FileDatabase::HasRight(const Association& association, ObjectEntry* left) {
    return Guarded(Operation::Query, Subject::Association,
                   [&] { return store->HasRight(association.GetId(), left->rowId); });
}

bool FileDatabase::HasLeft(const Association& association, ObjectEntry* right) {
    return Guarded(Operation::Query, Subject::Association,
                   [&] { return store->HasLeft(association.GetId(), right->rowId); });
}

void FileDatabase::EnumerateRight(const Association& association, ObjectEntry* left, RefList* rights) {
    const std::vector<ObjectStore::Row> rows = Guarded(Operation::Query, Subject::Association, [&] {
        return store->Rights(association.GetId(), left->rowId);
    });
    rights->clear();
    rights->reserve(rows.size());
    for (const ObjectStore::Row& row : rows)
        rights->push_back(RefBase::FromEntry(EntryOfRow(row)));
}

} // namespace ODB
