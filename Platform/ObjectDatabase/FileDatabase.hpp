#pragma once

// A database of objects in one file, kept by SQLite. Objects are stored as their state streams
// in the table of their storage group, links of associations in a table of their own. Objects
// come into memory when a reference reads them and leave it again, oldest first, when what is
// loaded passes the memory limit and no reference holds them.
//
// Every change goes into one open transaction that Flush commits, so the file always holds the
// state of the last Flush: a crash, or a database closed without Flush, loses only what came
// after it. Every fault reaches the error handler, which must not return; without one, a fault
// is thrown as a DatabaseException.
#include "ObjectDatabase/ClassRegistry.hpp"
#include "ObjectDatabase/Ref.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/Exceptions.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>
#include <exception>
#include <list>
#include <memory>
#include <unordered_set>

namespace ODB {

class Association;
class IdSpace;
class ObjectStore;
struct StoredRow;

class LM_EXPORT FileDatabase {
public:
    using StorageGroup = ODB::StorageGroup;

    struct Operation {
        enum Value {
            Load = 0x1,
            Store = 0x2,
            Link = 0x4,
            Delete = 0x8,
            Flush = 0x10,
            Compact = 0x20,
            Query = 0x40,
            Open = 0x100,
            Create = 0x200,
        };
    };
    struct Subject {
        enum Value { Database = 0, Object = 1, Association = 2, StorageGroup = 3 };
    };
    struct ErrorCode {
        enum Value {
            StorageFailed = 1, // the code is SQLite's
            NotOwnFile,
            NewerFormat,
            DamagedObject,
            UnknownClass,
            DuplicateId,
            ReadOnly,
        };
    };

    class LM_EXPORT ErrorHandler {
    public:
        virtual ~ErrorHandler();
        // Must not return: it throws what the caller of the database should see.
        virtual void ErrorEncountered(const FileDatabase* database, Operation::Value operation,
                                      Subject::Value subject, ErrorCode::Value error, int code) = 0;
    };

    enum OpenMode { ReadWrite = 0, ReadOnly = 1 };

    struct Locations {
        IO::Location file;
    };
    struct Parameters {
        IdSpace* idSpace = nullptr;
        KL::UniString idSpaceName;
        ErrorHandler* errorHandler = nullptr;
        int openMode = ReadWrite;
        // Kept for the callers' sake; a file always opens at its last flushed state.
        int restoreMode = 0;
    };

    // Opens the file, or makes a new database in it when it is empty or absent and the mode is
    // ReadWrite. A file that is not ours, or is damaged, goes to the error handler as an Open
    // fault, or a Create fault when the database was to be made.
    FileDatabase(const Locations& locations, const Parameters& parameters);
    // Drops what was not flushed; references to its objects stop resolving.
    ~FileDatabase();
    FileDatabase(const FileDatabase&) = delete;
    FileDatabase& operator=(const FileDatabase&) = delete;

    // In MiB; 0 keeps in memory only what references hold.
    void SetMaxMemorySize(unsigned mebibytes);
    // What the loaded objects hold by their own count.
    std::uint64_t GetLoadedSize() const { return loadedSize; }

    // Brings a new object, and what it is linked to, into the database.
    void AddObject(const RefBase& object);
    void SetRootObject(const RefBase& object);
    // A null reference when no root was set.
    RefBase GetRootObject();
    // Stores every changed object and commits. A fault met earlier while unloading objects, as a
    // reference went, is thrown here first.
    void Flush();
    // Gives the file's free pages back, after a Flush.
    void CompactToMinimum();

    const IO::Location& GetLocation() const { return location; }
    IdSpace& GetIdSpace() const { return *idSpace; }

    // By content: a SQLite file that carries this database's application id. `newer`, if given,
    // tells whether it was written by a later version of the schema.
    static bool IsOwnFile(const IO::Location& location, bool* newer = nullptr);

    // The database's own ways, for references and associations. Called under the id space's lock.
    ObjectEntry* FindStored(const Id& id);
    void Load(ObjectEntry* entry);
    void Unpinned(ObjectEntry* entry);
    // Writes out an entry that no reference holds if it changed, and lets it go: what the memory
    // limit does to the oldest, and what a reference let go for good does at once.
    void LetGo(ObjectEntry* entry);
    void Repinned(ObjectEntry* entry);
    void MarkChanged(ObjectEntry* entry);
    void Join(ObjectEntry* entry);
    void Delete(ObjectEntry* entry);
    void AddLink(const Association& association, ObjectEntry* left, ObjectEntry* right);
    bool RemoveLink(const Association& association, ObjectEntry* left, ObjectEntry* right);
    bool HasRight(const Association& association, ObjectEntry* left);
    bool HasLeft(const Association& association, ObjectEntry* right);
    void EnumerateRight(const Association& association, ObjectEntry* left, RefList* rights);

private:
    [[noreturn]] void Fail(Operation::Value operation, Subject::Value subject, ErrorCode::Value error,
                           int code) const;
    // Runs a store step; a failure of the store reaches the error handler as `operation`.
    template <class Step>
    auto Guarded(Operation::Value operation, Subject::Value subject, Step&& step);
    ObjectEntry* EntryOfRow(const StoredRow& row);
    void WriteState(ObjectEntry* entry);
    void Unload(ObjectEntry* entry);
    void Forget(ObjectEntry* entry);
    void EvictOverLimit();
    void Charge(ObjectEntry* entry);

    IO::Location location;
    IdSpace* idSpace;
    ErrorHandler* errorHandler;
    bool readOnly;
    std::unique_ptr<ObjectStore> store;
    std::uint64_t maxMemoryBytes = UINT64_MAX;
    std::uint64_t loadedSize = 0;
    std::exception_ptr deferredFault;
    std::unordered_set<ObjectEntry*> loaded;
    // Loaded entries that no reference holds, the least recently released first.
    std::list<ObjectEntry*> lru;
};

// What a fault becomes when its database has no error handler.
class LM_EXPORT DatabaseException : public KL::KLException {
public:
    DatabaseException(FileDatabase::Operation::Value operation, FileDatabase::ErrorCode::Value error,
                      int code);
    ~DatabaseException() override;

    FileDatabase::Operation::Value GetOperation() const { return operation; }
    FileDatabase::ErrorCode::Value GetError() const { return error; }

private:
    FileDatabase::Operation::Value operation;
    FileDatabase::ErrorCode::Value error;
};

} // namespace ODB
