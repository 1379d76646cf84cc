#pragma once

// Runs SQL on a database file behind the object database's back, to damage it the way a broken
// disk or a hostile sender would.
#include <LibraryManager.hpp>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>

namespace testsupport {

// How many rows the last statement changed.
inline int RunSql(const IO::Location& file, const std::string& sql) {
    sqlite3* connection = nullptr;
    EXPECT_EQ(sqlite3_open(file.ToString().c_str(), &connection), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(connection, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sql;
    const int changed = sqlite3_changes(connection);
    sqlite3_close(connection);
    return changed;
}

// The first column of the first row, as an integer.
inline long long QueryInt(const IO::Location& file, const std::string& sql) {
    sqlite3* connection = nullptr;
    EXPECT_EQ(sqlite3_open(file.ToString().c_str(), &connection), SQLITE_OK);
    sqlite3_stmt* statement = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(connection, sql.c_str(), -1, &statement, nullptr), SQLITE_OK) << sql;
    const long long value = sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : -1;
    sqlite3_finalize(statement);
    sqlite3_close(connection);
    return value;
}

} // namespace testsupport
