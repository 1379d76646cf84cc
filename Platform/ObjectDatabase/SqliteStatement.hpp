#pragma once

// Thin owners of a SQLite connection and its prepared statements. Every failing call throws a
// StoreFailure with SQLite's extended result code; the database turns it into a call of its
// error handler, so nothing below this line decides what a fault means.
#include "ObjectDatabase/FileDatabase.hpp"

#include <cstdint>
#include <span>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace ODB {

struct StoreFailure {
    FileDatabase::ErrorCode::Value error;
    int code;
};

class SqliteStatement {
public:
    SqliteStatement() = default;
    SqliteStatement(sqlite3* connection, const std::string& sql);
    SqliteStatement(SqliteStatement&& other) noexcept;
    SqliteStatement& operator=(SqliteStatement&& other) noexcept;
    ~SqliteStatement();

    // Resets the statement and binds the values in order, starting at parameter 1; a statement
    // gets all its parameters on every call.
    template <class... Values>
    SqliteStatement& Bind(const Values&... values) {
        Reset();
        [[maybe_unused]] int index = 0;
        (BindValue(++index, values), ...);
        return *this;
    }
    // True while a row is there to read.
    bool Step();
    // Runs a statement that returns no row.
    void Run();
    // Lets go of the row read last, so that no statement is pending when a transaction ends.
    void Finish();

    std::int64_t ColumnInt(int column) const;
    std::span<const char> ColumnBlob(int column) const;
    bool ColumnIsNull(int column) const;

private:
    void Reset();
    void BindValue(int index, std::int64_t value);
    void BindValue(int index, int value) { BindValue(index, static_cast<std::int64_t>(value)); }
    void BindValue(int index, std::span<const char> blob);

    sqlite3_stmt* statement = nullptr;
};

class SqliteConnection {
public:
    // Throws a StoreFailure when the file cannot be opened.
    SqliteConnection(const std::string& path, bool readOnly);
    ~SqliteConnection();
    SqliteConnection(const SqliteConnection&) = delete;
    SqliteConnection& operator=(const SqliteConnection&) = delete;

    void Execute(const std::string& sql);
    SqliteStatement Prepare(const std::string& sql) { return SqliteStatement(connection, sql); }
    // The single integer a pragma or query returns.
    std::int64_t QueryInt(const std::string& sql);
    std::int64_t LastInsertRowId() const;
    std::int64_t Changes() const;

private:
    sqlite3* connection = nullptr;
};

[[noreturn]] void ThrowStoreFailure(int code);

} // namespace ODB
