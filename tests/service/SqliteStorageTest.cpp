// The service's database file: what a new one holds, and that one written by an earlier version still opens.
#include "SqliteStorage.h"
#include "TempFolder.h"

#include <sqlite3.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace keyferry::service {
namespace {

// The column names of `table` in the database file at `path`, read with SQLite directly.
std::vector<std::string> columnsOf(const std::string& path, const std::string& table) {
    sqlite3* database = nullptr;
    EXPECT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
    sqlite3_stmt* statement = nullptr;
    const std::string query = "SELECT name FROM pragma_table_info('" + table + "')";
    EXPECT_EQ(sqlite3_prepare_v2(database, query.c_str(), -1, &statement, nullptr), SQLITE_OK);
    std::vector<std::string> names;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        names.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
    }
    sqlite3_finalize(statement);
    sqlite3_close(database);
    return names;
}

void executeAll(const std::string& path, const char* statements) {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
    char* error = nullptr;
    EXPECT_EQ(sqlite3_exec(database, statements, nullptr, nullptr, &error), SQLITE_OK) << (error ? error : "");
    sqlite3_free(error);
    sqlite3_close(database);
}

const std::vector<std::string> codeColumns{"serial",     "code",    "computer_id", "created_at",
                                           "expires_at", "used_at", "withdrawn"};

TEST(SqliteStorage, ANewDatabaseKeepsOnlyTheColumnsInUse) {
    TempFolder folder;
    const std::string path = (folder.path() / "keyferry.db").string();
    { SqliteStorage storage(path); }
    EXPECT_EQ(columnsOf(path, "pair_codes"), codeColumns);
}

TEST(SqliteStorage, ADatabaseWithTheRetiredWrongTriesColumnOpensAndLosesIt) {
    TempFolder folder;
    const std::string path = (folder.path() / "keyferry.db").string();
    executeAll(path, "CREATE TABLE pair_codes (serial INTEGER PRIMARY KEY AUTOINCREMENT, code TEXT NOT NULL, "
                     "computer_id TEXT NOT NULL, created_at INTEGER NOT NULL, expires_at INTEGER NOT NULL, "
                     "used_at INTEGER, wrong_tries INTEGER NOT NULL DEFAULT 0, withdrawn INTEGER NOT NULL DEFAULT 0);"
                     "INSERT INTO pair_codes (code, computer_id, created_at, expires_at, used_at, wrong_tries, "
                     "withdrawn) VALUES ('123456789', 'c1', 1000, 601000, NULL, 3, 0);");
    {
        SqliteStorage storage(path);
        const auto kept = storage.latestPairCode("c1");
        ASSERT_TRUE(kept);
        EXPECT_EQ(kept->code, "123456789");
        EXPECT_EQ(kept->expiresAt, 601000);
        EXPECT_FALSE(kept->withdrawn);
        PairCodeRecord next{0, "987654321", "c1", 2000, 602000, std::nullopt, false};
        next.serial = storage.insertPairCode(next);
        EXPECT_EQ(storage.latestPairCode("c1")->code, "987654321");
    }
    EXPECT_EQ(columnsOf(path, "pair_codes"), codeColumns);
    { SqliteStorage reopened(path); } // a second opening finds nothing left to change
    EXPECT_EQ(columnsOf(path, "pair_codes"), codeColumns);
}

} // namespace
} // namespace keyferry::service
