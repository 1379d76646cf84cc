#include "ObjectDatabase/ObjectStore.hpp"

#include "KLRoot/Channel.hpp"

#include <sqlite3.h>

#include <array>
#include <filesystem>

namespace ODB {

namespace {

using IdBlob = std::array<char, KL::Guid::RawSize>;

// Ids are stored big-endian, so that their byte order is the order of their text.
IdBlob ToBlob(const Id& id) {
    IdBlob blob;
    id.ToRaw(blob.data(), KL::BigEndianSign);
    return blob;
}

Id FromBlob(std::span<const char> blob) {
    if (blob.size() != KL::Guid::RawSize)
        throw StoreFailure{FileDatabase::ErrorCode::DamagedObject, 0};
    return KL::Guid::FromRaw(blob.data(), KL::BigEndianSign);
}

std::span<const char> AsSpan(const IdBlob& blob) {
    return {blob.data(), blob.size()};
}

// The statement with "@" standing for the table of the storage group.
std::string GroupSql(std::string_view pattern, int storage) {
    const std::size_t at = pattern.find('@');
    return std::string(pattern.substr(0, at)) + "odb_group_" + std::to_string(storage) +
           std::string(pattern.substr(at + 1));
}

// A writer that died mid-transaction leaves a hot journal that only a writable connection can
// roll back; a reader does that first, when it may, rather than refuse the file.
const std::string& RolledBack(const std::string& path, bool readOnly) {
    if (readOnly && std::filesystem::exists(path + "-journal")) {
        try {
            SqliteConnection writer(path, false);
            writer.QueryInt("PRAGMA schema_version");
        } catch (const StoreFailure&) {
            // Not ours to write: the read-only open below refuses the file instead.
        }
    }
    return path;
}

ObjectStore::Row ReadRow(const SqliteStatement& statement) {
    return {statement.ColumnInt(0), FromBlob(statement.ColumnBlob(1)), FromBlob(statement.ColumnBlob(2)),
            static_cast<int>(statement.ColumnInt(3))};
}

} // namespace

ObjectStore::ObjectStore(const std::string& path, bool readOnly)
    : connection(RolledBack(path, readOnly), readOnly), readOnly(readOnly) {
    const bool empty = connection.QueryInt("PRAGMA page_count") == 0;
    if (empty && readOnly)
        throw StoreFailure{FileDatabase::ErrorCode::NotOwnFile, 0};
    if (empty)
        CreateSchema();
    else
        CheckSchema();
    PrepareStatements();
    connection.Execute(readOnly ? "BEGIN" : "BEGIN IMMEDIATE");
}

ObjectStore::~ObjectStore() {
    try {
        connection.Execute("ROLLBACK");
    } catch (const StoreFailure&) {
        // Nothing was open; closing the connection rolls back whatever is left.
    }
}

void ObjectStore::CreateSchema() {
    // auto_vacuum must be set before the first table exists; incremental, so that compaction
    // costs what is free and not what is stored.
    // The application id goes in with the tables, so a file that carries it has them all.
    connection.Execute(
        "PRAGMA auto_vacuum = INCREMENTAL;"
        "BEGIN IMMEDIATE;"
        "PRAGMA application_id = " +
        std::to_string(ApplicationId) + ";PRAGMA user_version = " + std::to_string(SchemaVersion) +
        ";"
        "CREATE TABLE odb_object(rowid INTEGER PRIMARY KEY, id BLOB NOT NULL UNIQUE,"
        " class BLOB NOT NULL, storage INTEGER NOT NULL, state BLOB);"
        "CREATE TABLE odb_storage_group(storage INTEGER PRIMARY KEY, id BLOB NOT NULL UNIQUE);"
        "CREATE TABLE odb_association(association INTEGER PRIMARY KEY, id BLOB NOT NULL UNIQUE);"
        "CREATE TABLE odb_link(leftObject INTEGER NOT NULL, association INTEGER NOT NULL,"
        " sequence INTEGER NOT NULL, rightObject INTEGER NOT NULL,"
        " PRIMARY KEY(leftObject, association, sequence)) WITHOUT ROWID;"
        "CREATE INDEX odb_link_right ON odb_link(rightObject, association);"
        "CREATE TABLE odb_meta(key TEXT PRIMARY KEY, value BLOB) WITHOUT ROWID;"
        "COMMIT;");
}

void ObjectStore::CheckSchema() {
    if (connection.QueryInt("PRAGMA application_id") != ApplicationId)
        throw StoreFailure{FileDatabase::ErrorCode::NotOwnFile, 0};
    if (connection.QueryInt("PRAGMA user_version") > SchemaVersion)
        throw StoreFailure{FileDatabase::ErrorCode::NewerFormat, 0};
}

void ObjectStore::PrepareStatements() {
    find = connection.Prepare("SELECT rowid, id, class, storage FROM odb_object WHERE id = ?1");
    insert = connection.Prepare("INSERT INTO odb_object(id, class, storage) VALUES(?1, ?2, ?3)");
    writeMainState = connection.Prepare("UPDATE odb_object SET state = ?2 WHERE rowid = ?1");
    readMainState = connection.Prepare("SELECT state FROM odb_object WHERE rowid = ?1");
    deleteObject = connection.Prepare("DELETE FROM odb_object WHERE rowid = ?1");
    addLink = connection.Prepare(
        "INSERT INTO odb_link(leftObject, association, sequence, rightObject) VALUES(?1, ?2, ?3, ?4)");
    nextLinkSequence = connection.Prepare(
        "SELECT COALESCE(MAX(sequence), 0) + 1 FROM odb_link WHERE leftObject = ?1 AND association = ?2");
    removeLink = connection.Prepare(
        "DELETE FROM odb_link WHERE leftObject = ?1 AND association = ?2 AND rightObject = ?3");
    hasRight =
        connection.Prepare("SELECT 1 FROM odb_link WHERE leftObject = ?1 AND association = ?2 LIMIT 1");
    hasLeft =
        connection.Prepare("SELECT 1 FROM odb_link WHERE rightObject = ?1 AND association = ?2 LIMIT 1");
    rights = connection.Prepare("SELECT o.rowid, o.id, o.class, o.storage FROM odb_link l"
                                " JOIN odb_object o ON o.rowid = l.rightObject"
                                " WHERE l.leftObject = ?1 AND l.association = ?2 ORDER BY l.sequence");
    removeLinksOf = connection.Prepare("DELETE FROM odb_link WHERE leftObject = ?1 OR rightObject = ?1");
    findAssociation = connection.Prepare("SELECT association FROM odb_association WHERE id = ?1");
    addAssociation = connection.Prepare("INSERT INTO odb_association(id) VALUES(?1)");
    findGroup = connection.Prepare("SELECT storage FROM odb_storage_group WHERE id = ?1");
    addGroup = connection.Prepare("INSERT INTO odb_storage_group(id) VALUES(?1)");
    getRoot = connection.Prepare("SELECT value FROM odb_meta WHERE key = 'root'");
    setRoot = connection.Prepare("INSERT OR REPLACE INTO odb_meta(key, value) VALUES('root', ?1)");
}

std::optional<ObjectStore::Row> ObjectStore::Find(const Id& id) {
    const IdBlob blob = ToBlob(id);
    if (!find.Bind(AsSpan(blob)).Step())
        return std::nullopt;
    const Row row = ReadRow(find);
    find.Finish();
    return row;
}

std::int64_t ObjectStore::Insert(const Id& id, const KL::Guid& classGuid, int storage) {
    const IdBlob idBlob = ToBlob(id);
    const IdBlob classBlob = ToBlob(classGuid);
    try {
        insert.Bind(AsSpan(idBlob), AsSpan(classBlob), storage).Run();
    } catch (const StoreFailure& failure) {
        if (failure.code == SQLITE_CONSTRAINT_UNIQUE)
            throw StoreFailure{FileDatabase::ErrorCode::DuplicateId, failure.code};
        throw;
    }
    return connection.LastInsertRowId();
}

SqliteStatement& ObjectStore::StateStatement(std::map<int, SqliteStatement>& statements, int storage,
                                             std::string_view sqlPattern) {
    auto it = statements.find(storage);
    if (it == statements.end())
        it = statements.emplace(storage, connection.Prepare(GroupSql(sqlPattern, storage))).first;
    return it->second;
}

void ObjectStore::WriteState(std::int64_t rowId, int storage, std::span<const char> state) {
    if (storage == 0) {
        writeMainState.Bind(rowId, state).Run();
        return;
    }
    StateStatement(writeGroupState, storage, "INSERT OR REPLACE INTO @(rowid, state) VALUES(?1, ?2)")
        .Bind(rowId, state)
        .Run();
}

std::optional<std::span<const char>> ObjectStore::ReadState(std::int64_t rowId, int storage) {
    SqliteStatement& statement =
        storage == 0 ? readMainState
                     : StateStatement(readGroupState, storage, "SELECT state FROM @ WHERE rowid = ?1");
    if (!statement.Bind(rowId).Step() || statement.ColumnIsNull(0))
        return std::nullopt;
    return statement.ColumnBlob(0);
}

void ObjectStore::DeleteObject(std::int64_t rowId, int storage) {
    if (storage != 0)
        StateStatement(deleteGroupState, storage, "DELETE FROM @ WHERE rowid = ?1").Bind(rowId).Run();
    deleteObject.Bind(rowId).Run();
}

int ObjectStore::StorageOf(const Id& group) {
    const IdBlob blob = ToBlob(group);
    if (findGroup.Bind(AsSpan(blob)).Step()) {
        const int storage = static_cast<int>(findGroup.ColumnInt(0));
        findGroup.Finish();
        return storage;
    }
    addGroup.Bind(AsSpan(blob)).Run();
    const int storage = static_cast<int>(connection.LastInsertRowId());
    connection.Execute(GroupSql("CREATE TABLE @(rowid INTEGER PRIMARY KEY, state BLOB NOT NULL)", storage));
    return storage;
}

std::int64_t ObjectStore::AssociationIndex(const Id& association) {
    if (const auto it = associations.find(association); it != associations.end())
        return it->second;
    const IdBlob blob = ToBlob(association);
    std::int64_t index = -1;
    if (findAssociation.Bind(AsSpan(blob)).Step()) {
        index = findAssociation.ColumnInt(0);
        findAssociation.Finish();
    } else if (!readOnly) {
        addAssociation.Bind(AsSpan(blob)).Run();
        index = connection.LastInsertRowId();
    } else {
        return index; // a link may come later from another writer; do not cache the absence
    }
    associations.emplace(association, index);
    return index;
}

void ObjectStore::AddLink(const Id& association, std::int64_t left, std::int64_t right) {
    const std::int64_t index = AssociationIndex(association);
    nextLinkSequence.Bind(left, index).Step();
    const std::int64_t sequence = nextLinkSequence.ColumnInt(0);
    nextLinkSequence.Finish();
    addLink.Bind(left, index, sequence, right).Run();
}

bool ObjectStore::RemoveLink(const Id& association, std::int64_t left, std::int64_t right) {
    removeLink.Bind(left, AssociationIndex(association), right).Run();
    return connection.Changes() > 0;
}

bool ObjectStore::HasRight(const Id& association, std::int64_t left) {
    const bool found = hasRight.Bind(left, AssociationIndex(association)).Step();
    hasRight.Finish();
    return found;
}

bool ObjectStore::HasLeft(const Id& association, std::int64_t right) {
    const bool found = hasLeft.Bind(right, AssociationIndex(association)).Step();
    hasLeft.Finish();
    return found;
}

std::vector<ObjectStore::Row> ObjectStore::Rights(const Id& association, std::int64_t left) {
    std::vector<Row> result;
    rights.Bind(left, AssociationIndex(association));
    while (rights.Step())
        result.push_back(ReadRow(rights));
    return result;
}

void ObjectStore::RemoveLinksOf(std::int64_t rowId) {
    removeLinksOf.Bind(rowId).Run();
}

std::optional<Id> ObjectStore::GetRoot() {
    if (!getRoot.Bind().Step())
        return std::nullopt;
    const Id root = FromBlob(getRoot.ColumnBlob(0));
    getRoot.Finish();
    return root;
}

void ObjectStore::SetRoot(const Id& id) {
    const IdBlob blob = ToBlob(id);
    setRoot.Bind(AsSpan(blob)).Run();
}

void ObjectStore::Commit() {
    if (readOnly)
        return;
    readMainState.Finish();
    for (auto& [storage, statement] : readGroupState)
        statement.Finish();
    connection.Execute("COMMIT");
    connection.Execute("BEGIN IMMEDIATE");
}

void ObjectStore::CompactToMinimum() {
    if (readOnly)
        return;
    connection.Execute("PRAGMA incremental_vacuum");
    Commit();
}

} // namespace ODB
