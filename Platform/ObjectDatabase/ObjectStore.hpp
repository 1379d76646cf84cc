#pragma once

// The tables of a file database and the statements on them; the schema is written down in
// docs/formats/object-database.md. Rows know objects by a row id, the database above by their id;
// this class maps one to the other and knows nothing of loading, memory or handlers. Every
// failure is a StoreFailure.
//
// A writable store always has a transaction open: Commit ends it and opens the next, and closing
// without Commit rolls back. A read-only store holds one read transaction for its whole life, so
// it sees one state of the file and takes the file's lock once.
#include "ObjectDatabase/SqliteStatement.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ODB {

// One object's row: where it is, what it is.
struct StoredRow {
    std::int64_t rowId;
    Id id;
    KL::Guid classGuid;
    int storage;
};

class ObjectStore {
public:
    using Row = StoredRow;

    static constexpr std::int32_t ApplicationId = 0x4B4C4F44; // "KLOD"
    static constexpr std::int32_t SchemaVersion = 1;

    ObjectStore(const std::string& path, bool readOnly);
    ~ObjectStore();

    std::optional<Row> Find(const Id& id);
    std::int64_t Insert(const Id& id, const KL::Guid& classGuid, int storage);
    void WriteState(std::int64_t rowId, int storage, std::span<const char> state);
    // Valid until the next call on the store; nothing when the row or its state is missing.
    std::optional<std::span<const char>> ReadState(std::int64_t rowId, int storage);
    void DeleteObject(std::int64_t rowId, int storage);
    // The storage index of a group, 0 for the main table; a writable store enters a new group.
    int StorageOf(const Id& group);

    void AddLink(const Id& association, std::int64_t left, std::int64_t right);
    bool RemoveLink(const Id& association, std::int64_t left, std::int64_t right);
    bool HasRight(const Id& association, std::int64_t left);
    bool HasLeft(const Id& association, std::int64_t right);
    std::vector<Row> Rights(const Id& association, std::int64_t left);
    void RemoveLinksOf(std::int64_t rowId);

    std::optional<Id> GetRoot();
    void SetRoot(const Id& id);

    void Commit();
    // Gives every free page back to the file system.
    void CompactToMinimum();

private:
    void CreateSchema();
    void CheckSchema();
    void PrepareStatements();
    // -1 for an association no link of this file uses, in a read-only store.
    std::int64_t AssociationIndex(const Id& association);
    SqliteStatement& StateStatement(std::map<int, SqliteStatement>& statements, int storage,
                                    std::string_view sqlPattern);

    SqliteConnection connection;
    bool readOnly;
    SqliteStatement find, insert, writeMainState, readMainState, deleteObject, addLink, nextLinkSequence,
        removeLink, hasRight, hasLeft, rights, removeLinksOf, findAssociation, addAssociation, findGroup,
        addGroup, getRoot, setRoot;
    std::map<int, SqliteStatement> writeGroupState, readGroupState, deleteGroupState;
    std::map<Id, std::int64_t> associations;
};

} // namespace ODB
