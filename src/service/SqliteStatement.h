#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace keyferry::service {

// One prepared SQLite statement, finalized on destruction. Binding is by position (1-based) in call
// order. Errors throw std::runtime_error carrying SQLite's message. Not thread-safe; owned by one caller.
class SqliteStatement {
public:
    SqliteStatement(sqlite3* database, std::string_view sql);
    ~SqliteStatement();
    SqliteStatement(const SqliteStatement&) = delete;
    SqliteStatement& operator=(const SqliteStatement&) = delete;

    SqliteStatement& bind(std::string_view value);
    SqliteStatement& bind(std::int64_t value);
    SqliteStatement& bind(const std::optional<std::int64_t>& value);

    // Advances to the next row; false when there is none.
    bool step();
    // Runs a statement that returns no rows.
    void run();

    std::string text(int column) const;
    std::int64_t integer(int column) const;
    std::optional<std::int64_t> optionalInteger(int column) const;

private:
    void check(int result) const;

    sqlite3* database_;
    sqlite3_stmt* statement_ = nullptr;
    int nextIndex_ = 1;
};

} // namespace keyferry::service
