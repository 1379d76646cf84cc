#include "ObjectDatabase/SqliteStatement.hpp"

#include <sqlite3.h>

#include <utility>

namespace ODB {

void ThrowStoreFailure(int code) {
    throw StoreFailure{FileDatabase::ErrorCode::StorageFailed, code};
}

SqliteStatement::SqliteStatement(sqlite3* connection, const std::string& sql) {
    const int result = sqlite3_prepare_v3(connection, sql.c_str(), static_cast<int>(sql.size() + 1),
                                          SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (result != SQLITE_OK)
        ThrowStoreFailure(sqlite3_extended_errcode(connection));
}

SqliteStatement::SqliteStatement(SqliteStatement&& other) noexcept
    : statement(std::exchange(other.statement, nullptr)) {}

SqliteStatement& SqliteStatement::operator=(SqliteStatement&& other) noexcept {
    std::swap(statement, other.statement);
    return *this;
}

SqliteStatement::~SqliteStatement() {
    sqlite3_finalize(statement);
}

bool SqliteStatement::Step() {
    const int result = sqlite3_step(statement);
    if (result == SQLITE_ROW)
        return true;
    if (result == SQLITE_DONE)
        return false;
    ThrowStoreFailure(sqlite3_extended_errcode(sqlite3_db_handle(statement)));
}

void SqliteStatement::Run() {
    while (Step()) {
    }
    sqlite3_reset(statement);
}

void SqliteStatement::Finish() {
    sqlite3_reset(statement);
}

std::int64_t SqliteStatement::ColumnInt(int column) const {
    return sqlite3_column_int64(statement, column);
}

std::span<const char> SqliteStatement::ColumnBlob(int column) const {
    const auto* data = static_cast<const char*>(sqlite3_column_blob(statement, column));
    return {data, static_cast<std::size_t>(sqlite3_column_bytes(statement, column))};
}

bool SqliteStatement::ColumnIsNull(int column) const {
    return sqlite3_column_type(statement, column) == SQLITE_NULL;
}

// Every statement binds all its parameters each time, so old bindings need no clearing.
void SqliteStatement::Reset() {
    sqlite3_reset(statement);
}

void SqliteStatement::BindValue(int index, std::int64_t value) {
    if (sqlite3_bind_int64(statement, index, value) != SQLITE_OK)
        ThrowStoreFailure(sqlite3_extended_errcode(sqlite3_db_handle(statement)));
}

void SqliteStatement::BindValue(int index, std::span<const char> blob) {
    // An empty blob is still a blob, not a NULL.
    static const char nothing = 0;
    const char* data = blob.empty() ? &nothing : blob.data();
    if (sqlite3_bind_blob64(statement, index, data, blob.size(), SQLITE_STATIC) != SQLITE_OK)
        ThrowStoreFailure(sqlite3_extended_errcode(sqlite3_db_handle(statement)));
}

SqliteConnection::SqliteConnection(const std::string& path, bool readOnly) {
    const int flags = (readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) |
                      SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    const int result = sqlite3_open_v2(path.c_str(), &connection, flags, nullptr);
    if (result != SQLITE_OK) {
        sqlite3_close_v2(connection);
        connection = nullptr;
        ThrowStoreFailure(result);
    }
}

SqliteConnection::~SqliteConnection() {
    sqlite3_close_v2(connection);
}

void SqliteConnection::Execute(const std::string& sql) {
    if (sqlite3_exec(connection, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
        ThrowStoreFailure(sqlite3_extended_errcode(connection));
}

std::int64_t SqliteConnection::QueryInt(const std::string& sql) {
    SqliteStatement statement = Prepare(sql);
    return statement.Step() ? statement.ColumnInt(0) : 0;
}

std::int64_t SqliteConnection::LastInsertRowId() const {
    return sqlite3_last_insert_rowid(connection);
}

std::int64_t SqliteConnection::Changes() const {
    return sqlite3_changes64(connection);
}

} // namespace ODB
