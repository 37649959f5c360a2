#include "SqliteStorage.h"

#include "SqliteStatement.h"

#include <sqlite3.h>

#include <stdexcept>

namespace keyferry::service {
namespace {

constexpr std::string_view computerColumns = "id, name, platform, status, created_at";
constexpr std::string_view codeColumns = "serial, code, computer_id, created_at, expires_at, used_at, withdrawn";
constexpr std::string_view phoneColumns = "id, computer_id, name, platform, app_version, created_at, last_seen_at";
constexpr std::string_view textColumns = "serial, id, computer_id, phone_id, body, created_at, delivered_at, typed_at";

std::string sql(std::string_view head, std::string_view columns, std::string_view tail) {
    return std::string(head) + std::string(columns) + std::string(tail);
}

ComputerRecord readComputer(const SqliteStatement& row) {
    return {row.text(0), row.text(1), row.text(2), static_cast<ComputerStatus>(row.integer(3)), row.integer(4)};
}

PairCodeRecord readCode(const SqliteStatement& row) {
    return {row.integer(0),         row.text(1),        row.text(2), row.integer(3), row.integer(4),
            row.optionalInteger(5), row.integer(6) != 0};
}

PhoneRecord readPhone(const SqliteStatement& row) {
    return {row.text(0), row.text(1), row.text(2), row.text(3), row.text(4), row.integer(5), row.integer(6)};
}

TextRecord readText(const SqliteStatement& row) {
    return {row.integer(0),         row.text(1),           row.text(2), row.text(3), row.text(4), row.integer(5),
            row.optionalInteger(6), row.optionalInteger(7)};
}

template <typename Record, typename Reader> std::vector<Record> readAll(SqliteStatement& statement, Reader reader) {
    std::vector<Record> records;
    while (statement.step()) {
        records.push_back(reader(statement));
    }
    return records;
}

template <typename Record, typename Reader> std::optional<Record> readOne(SqliteStatement& statement, Reader reader) {
    if (statement.step()) {
        return reader(statement);
    }
    return std::nullopt;
}

} // namespace

SqliteStorage::SqliteStorage(const std::string& path) {
    if (sqlite3_open_v2(path.c_str(), &database_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK) {
        const std::string message = database_ ? sqlite3_errmsg(database_) : "out of memory";
        sqlite3_close(database_);
        throw std::runtime_error("cannot open the database " + path + ": " + message);
    }
    sqlite3_busy_timeout(database_, 5000);
    execute("PRAGMA journal_mode=WAL");
    execute("PRAGMA synchronous=FULL");
    createSchema();
    dropRetiredColumns();
}

SqliteStorage::~SqliteStorage() {
    sqlite3_close(database_);
}

void SqliteStorage::execute(std::string_view statementText) {
    SqliteStatement(database_, statementText).run();
}

void SqliteStorage::createSchema() {
    execute("CREATE TABLE IF NOT EXISTS computers (id TEXT PRIMARY KEY, token_hash TEXT NOT NULL UNIQUE, "
            "name TEXT NOT NULL, platform TEXT NOT NULL, status INTEGER NOT NULL, created_at INTEGER NOT NULL)");
    execute("CREATE TABLE IF NOT EXISTS pair_codes (serial INTEGER PRIMARY KEY AUTOINCREMENT, code TEXT NOT NULL, "
            "computer_id TEXT NOT NULL, created_at INTEGER NOT NULL, expires_at INTEGER NOT NULL, used_at INTEGER, "
            "withdrawn INTEGER NOT NULL DEFAULT 0)");
    execute("CREATE INDEX IF NOT EXISTS pair_codes_by_computer ON pair_codes (computer_id, serial)");
    execute("CREATE TABLE IF NOT EXISTS phones (id TEXT PRIMARY KEY, computer_id TEXT NOT NULL, "
            "token_hash TEXT NOT NULL UNIQUE, name TEXT NOT NULL, platform TEXT NOT NULL, "
            "app_version TEXT NOT NULL, created_at INTEGER NOT NULL, last_seen_at INTEGER NOT NULL)");
    execute("CREATE INDEX IF NOT EXISTS phones_by_computer ON phones (computer_id, created_at)");
    execute("CREATE TABLE IF NOT EXISTS texts (serial INTEGER PRIMARY KEY AUTOINCREMENT, id TEXT NOT NULL UNIQUE, "
            "computer_id TEXT NOT NULL, phone_id TEXT NOT NULL, body TEXT NOT NULL, created_at INTEGER NOT NULL, "
            "delivered_at INTEGER, typed_at INTEGER)");
    execute("CREATE INDEX IF NOT EXISTS texts_by_computer ON texts (computer_id, typed_at, serial)");
    execute("CREATE INDEX IF NOT EXISTS texts_by_phone ON texts (phone_id, serial)");
    execute("CREATE INDEX IF NOT EXISTS texts_by_age ON texts (created_at)");
}

// Databases written by earlier versions kept a count of wrong tries per code, which guessing limits per client
// replaced; the column goes, so that such a database reads like a new one.
void SqliteStorage::dropRetiredColumns() {
    SqliteStatement retired(database_, "SELECT 1 FROM pragma_table_info('pair_codes') WHERE name = 'wrong_tries'");
    if (retired.step()) {
        execute("ALTER TABLE pair_codes DROP COLUMN wrong_tries");
    }
}

void SqliteStorage::transaction(const std::function<void()>& work) {
    if (transactionDepth_ > 0) {
        work();
        return;
    }
    execute("BEGIN IMMEDIATE");
    ++transactionDepth_;
    try {
        work();
    } catch (...) {
        --transactionDepth_;
        execute("ROLLBACK");
        throw;
    }
    --transactionDepth_;
    execute("COMMIT");
}

void SqliteStorage::insertComputer(const ComputerRecord& computer, std::string_view tokenHash) {
    SqliteStatement(database_, "INSERT INTO computers (id, token_hash, name, platform, status, created_at) "
                               "VALUES (?, ?, ?, ?, ?, ?)")
        .bind(computer.id)
        .bind(tokenHash)
        .bind(computer.name)
        .bind(computer.platform)
        .bind(static_cast<std::int64_t>(computer.status))
        .bind(computer.createdAt)
        .run();
}

std::optional<ComputerRecord> SqliteStorage::computerByTokenHash(std::string_view tokenHash) {
    SqliteStatement statement(database_, sql("SELECT ", computerColumns, " FROM computers WHERE token_hash = ?"));
    statement.bind(tokenHash);
    return readOne<ComputerRecord>(statement, readComputer);
}

std::optional<ComputerRecord> SqliteStorage::computer(std::string_view computerId) {
    SqliteStatement statement(database_, sql("SELECT ", computerColumns, " FROM computers WHERE id = ?"));
    statement.bind(computerId);
    return readOne<ComputerRecord>(statement, readComputer);
}

void SqliteStorage::setComputerStatus(std::string_view computerId, ComputerStatus status) {
    SqliteStatement(database_, "UPDATE computers SET status = ? WHERE id = ?")
        .bind(static_cast<std::int64_t>(status))
        .bind(computerId)
        .run();
}

void SqliteStorage::deleteComputerBelongings(std::string_view computerId) {
    for (const char* table : {"phones", "pair_codes", "texts"}) {
        SqliteStatement(database_, std::string("DELETE FROM ") + table + " WHERE computer_id = ?")
            .bind(computerId)
            .run();
    }
}

void SqliteStorage::deleteAbandonedComputers(std::int64_t before) {
    transaction([&] {
        const std::string abandoned =
            "SELECT id FROM computers c WHERE status = 0 AND NOT EXISTS (SELECT 1 FROM pair_codes p "
            "WHERE p.computer_id = c.id AND p.expires_at >= ?)";
        SqliteStatement(database_, "DELETE FROM pair_codes WHERE computer_id IN (" + abandoned + ")")
            .bind(before)
            .run();
        SqliteStatement(database_, "DELETE FROM computers WHERE status = 0 AND NOT EXISTS (SELECT 1 FROM pair_codes p "
                                   "WHERE p.computer_id = computers.id)")
            .run();
    });
}

std::int64_t SqliteStorage::insertPairCode(const PairCodeRecord& code) {
    SqliteStatement(database_, "INSERT INTO pair_codes (code, computer_id, created_at, expires_at, used_at, "
                               "withdrawn) VALUES (?, ?, ?, ?, ?, ?)")
        .bind(code.code)
        .bind(code.computerId)
        .bind(code.createdAt)
        .bind(code.expiresAt)
        .bind(code.usedAt)
        .bind(std::int64_t{code.withdrawn ? 1 : 0})
        .run();
    return sqlite3_last_insert_rowid(database_);
}

std::optional<PairCodeRecord> SqliteStorage::latestPairCode(std::string_view computerId) {
    SqliteStatement statement(
        database_, sql("SELECT ", codeColumns, " FROM pair_codes WHERE computer_id = ? ORDER BY serial DESC LIMIT 1"));
    statement.bind(computerId);
    return readOne<PairCodeRecord>(statement, readCode);
}

std::vector<PairCodeRecord> SqliteStorage::livePairCodes(std::int64_t now) {
    SqliteStatement statement(database_, sql("SELECT ", codeColumns,
                                             " FROM pair_codes WHERE used_at IS NULL AND withdrawn = 0 "
                                             "AND expires_at > ? ORDER BY serial"));
    statement.bind(now);
    return readAll<PairCodeRecord>(statement, readCode);
}

void SqliteStorage::updatePairCode(const PairCodeRecord& code) {
    SqliteStatement(database_, "UPDATE pair_codes SET used_at = ?, withdrawn = ? WHERE serial = ?")
        .bind(code.usedAt)
        .bind(std::int64_t{code.withdrawn ? 1 : 0})
        .bind(code.serial)
        .run();
}

void SqliteStorage::insertPhone(const PhoneRecord& phone, std::string_view tokenHash) {
    SqliteStatement(database_, "INSERT INTO phones (id, computer_id, token_hash, name, platform, app_version, "
                               "created_at, last_seen_at) VALUES (?, ?, ?, ?, ?, ?, ?, ?)")
        .bind(phone.id)
        .bind(phone.computerId)
        .bind(tokenHash)
        .bind(phone.name)
        .bind(phone.platform)
        .bind(phone.appVersion)
        .bind(phone.createdAt)
        .bind(phone.lastSeenAt)
        .run();
}

std::optional<PhoneRecord> SqliteStorage::phoneByTokenHash(std::string_view tokenHash) {
    SqliteStatement statement(database_, sql("SELECT ", phoneColumns, " FROM phones WHERE token_hash = ?"));
    statement.bind(tokenHash);
    return readOne<PhoneRecord>(statement, readPhone);
}

std::vector<PhoneRecord> SqliteStorage::phones(std::string_view computerId) {
    SqliteStatement statement(
        database_, sql("SELECT ", phoneColumns, " FROM phones WHERE computer_id = ? ORDER BY created_at, rowid"));
    statement.bind(computerId);
    return readAll<PhoneRecord>(statement, readPhone);
}

bool SqliteStorage::deletePhone(std::string_view computerId, std::string_view phoneId) {
    bool deleted = false;
    transaction([&] {
        SqliteStatement(database_, "DELETE FROM phones WHERE computer_id = ? AND id = ?")
            .bind(computerId)
            .bind(phoneId)
            .run();
        deleted = sqlite3_changes(database_) > 0;
        SqliteStatement(database_, "DELETE FROM texts WHERE computer_id = ? AND phone_id = ?")
            .bind(computerId)
            .bind(phoneId)
            .run();
    });
    return deleted;
}

void SqliteStorage::touchPhone(std::string_view phoneId, std::int64_t now) {
    SqliteStatement(database_, "UPDATE phones SET last_seen_at = ? WHERE id = ?").bind(now).bind(phoneId).run();
}

std::int64_t SqliteStorage::insertText(const TextRecord& text) {
    SqliteStatement(database_, "INSERT INTO texts (id, computer_id, phone_id, body, created_at, delivered_at, "
                               "typed_at) VALUES (?, ?, ?, ?, ?, ?, ?)")
        .bind(text.id)
        .bind(text.computerId)
        .bind(text.phoneId)
        .bind(text.text)
        .bind(text.createdAt)
        .bind(text.deliveredAt)
        .bind(text.typedAt)
        .run();
    return sqlite3_last_insert_rowid(database_);
}

std::vector<TextRecord> SqliteStorage::untypedTexts(std::string_view computerId, std::int64_t afterSerial,
                                                    std::int64_t createdAfter, int limit) {
    SqliteStatement statement(database_, sql("SELECT ", textColumns,
                                             " FROM texts WHERE computer_id = ? AND typed_at IS NULL AND serial > ? "
                                             "AND created_at > ? ORDER BY serial LIMIT ?"));
    statement.bind(computerId).bind(afterSerial).bind(createdAfter).bind(std::int64_t{limit});
    return readAll<TextRecord>(statement, readText);
}

std::int64_t SqliteStorage::untypedTextCount(std::string_view computerId) {
    SqliteStatement statement(database_, "SELECT COUNT(*) FROM texts WHERE computer_id = ? AND typed_at IS NULL");
    statement.bind(computerId);
    return statement.step() ? statement.integer(0) : 0;
}

std::int64_t SqliteStorage::untypedTextBytes(std::string_view computerId, std::int64_t createdAfter) {
    SqliteStatement statement(database_, "SELECT COALESCE(SUM(LENGTH(CAST(body AS BLOB))), 0) FROM texts "
                                         "WHERE computer_id = ? AND typed_at IS NULL AND created_at > ?");
    statement.bind(computerId).bind(createdAfter);
    return statement.step() ? statement.integer(0) : 0;
}

bool SqliteStorage::isTextUntyped(std::string_view computerId, std::string_view textId) {
    SqliteStatement statement(database_, "SELECT 1 FROM texts WHERE computer_id = ? AND id = ? AND typed_at IS NULL");
    statement.bind(computerId).bind(textId);
    return statement.step();
}

void SqliteStorage::markTextDelivered(std::string_view computerId, std::string_view textId, std::int64_t now) {
    SqliteStatement(database_,
                    "UPDATE texts SET delivered_at = COALESCE(delivered_at, ?) WHERE computer_id = ? AND id = ?")
        .bind(now)
        .bind(computerId)
        .bind(textId)
        .run();
}

bool SqliteStorage::markTextTyped(std::string_view computerId, std::string_view textId, std::int64_t now) {
    SqliteStatement(database_, "UPDATE texts SET typed_at = ?, delivered_at = COALESCE(delivered_at, ?) "
                               "WHERE computer_id = ? AND id = ? AND typed_at IS NULL")
        .bind(now)
        .bind(now)
        .bind(computerId)
        .bind(textId)
        .run();
    return sqlite3_changes(database_) > 0;
}

std::vector<TextRecord> SqliteStorage::phoneTexts(std::string_view phoneId, int limit) {
    SqliteStatement statement(
        database_, sql("SELECT ", textColumns, " FROM texts WHERE phone_id = ? ORDER BY serial DESC LIMIT ?"));
    statement.bind(phoneId).bind(std::int64_t{limit});
    return readAll<TextRecord>(statement, readText);
}

void SqliteStorage::deleteTypedTexts(std::int64_t typedBefore) {
    SqliteStatement(database_, "DELETE FROM texts WHERE typed_at IS NOT NULL AND typed_at < ?").bind(typedBefore).run();
}

void SqliteStorage::deleteTextsCreatedBy(std::int64_t moment) {
    SqliteStatement(database_, "DELETE FROM texts WHERE created_at <= ?").bind(moment).run();
}

} // namespace keyferry::service
