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

} // namespace testsupport
