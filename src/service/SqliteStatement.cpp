#include "SqliteStatement.h"

#include <sqlite3.h>

#include <stdexcept>

namespace keyferry::service {

SqliteStatement::SqliteStatement(sqlite3* database, std::string_view sql) : database_(database) {
    check(sqlite3_prepare_v2(database_, sql.data(), static_cast<int>(sql.size()), &statement_, nullptr));
}

SqliteStatement::~SqliteStatement() {
    sqlite3_finalize(statement_);
}

SqliteStatement& SqliteStatement::bind(std::string_view value) {
    check(sqlite3_bind_text(statement_, nextIndex_++, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT));
    return *this;
}

SqliteStatement& SqliteStatement::bind(std::int64_t value) {
    check(sqlite3_bind_int64(statement_, nextIndex_++, value));
    return *this;
}

SqliteStatement& SqliteStatement::bind(const std::optional<std::int64_t>& value) {
    if (value) {
        return bind(*value);
    }
    check(sqlite3_bind_null(statement_, nextIndex_++));
    return *this;
}

bool SqliteStatement::step() {
    const int result = sqlite3_step(statement_);
    if (result == SQLITE_ROW) {
        return true;
    }
    if (result == SQLITE_DONE) {
        return false;
    }
    check(result);
    return false;
}

void SqliteStatement::run() {
    while (step()) {
    }
}

std::string SqliteStatement::text(int column) const {
    const auto* bytes = sqlite3_column_text(statement_, column);
    const int size = sqlite3_column_bytes(statement_, column);
    return bytes ? std::string(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size)) : std::string();
}

std::int64_t SqliteStatement::integer(int column) const {
    return sqlite3_column_int64(statement_, column);
}

std::optional<std::int64_t> SqliteStatement::optionalInteger(int column) const {
    if (sqlite3_column_type(statement_, column) == SQLITE_NULL) {
        return std::nullopt;
    }
    return integer(column);
}

void SqliteStatement::check(int result) const {
    if (result != SQLITE_OK && result != SQLITE_ROW && result != SQLITE_DONE) {
        throw std::runtime_error(std::string("database error: ") + sqlite3_errmsg(database_));
    }
}

} // namespace keyferry::service
