#pragma once

#include "Storage.h"

#include <filesystem>
#include <memory>

struct sqlite3;

namespace keyferry::service {

// Storage in one SQLite file (WAL journal, full sync), or in memory for ":memory:". Opens or creates the
// schema in the constructor and throws std::runtime_error when the file cannot be used. Owned by the
// server; used from its network thread only.
class SqliteStorage final : public Storage {
public:
    explicit SqliteStorage(const std::string& path);
    ~SqliteStorage() override;
    SqliteStorage(const SqliteStorage&) = delete;
    SqliteStorage& operator=(const SqliteStorage&) = delete;

    void transaction(const std::function<void()>& work) override;

    void insertComputer(const ComputerRecord& computer, std::string_view tokenHash) override;
    std::optional<ComputerRecord> computerByTokenHash(std::string_view tokenHash) override;
    std::optional<ComputerRecord> computer(std::string_view computerId) override;
    void setComputerStatus(std::string_view computerId, ComputerStatus status) override;
    void deleteComputerBelongings(std::string_view computerId) override;
    void deleteAbandonedComputers(std::int64_t before) override;

    std::int64_t insertPairCode(const PairCodeRecord& code) override;
    std::optional<PairCodeRecord> latestPairCode(std::string_view computerId) override;
    std::vector<PairCodeRecord> livePairCodes(std::int64_t now) override;
    void updatePairCode(const PairCodeRecord& code) override;

    void insertPhone(const PhoneRecord& phone, std::string_view tokenHash) override;
    std::optional<PhoneRecord> phoneByTokenHash(std::string_view tokenHash) override;
    std::vector<PhoneRecord> phones(std::string_view computerId) override;
    bool deletePhone(std::string_view computerId, std::string_view phoneId) override;
    void touchPhone(std::string_view phoneId, std::int64_t now) override;

    std::int64_t insertText(const TextRecord& text) override;
    std::vector<TextRecord> untypedTexts(std::string_view computerId, std::int64_t afterSerial,
                                         std::int64_t createdAfter, int limit) override;
    std::int64_t untypedTextCount(std::string_view computerId) override;
    std::int64_t untypedTextBytes(std::string_view computerId, std::int64_t createdAfter) override;
    bool isTextUntyped(std::string_view computerId, std::string_view textId) override;
    void markTextDelivered(std::string_view computerId, std::string_view textId, std::int64_t now) override;
    bool markTextTyped(std::string_view computerId, std::string_view textId, std::int64_t now) override;
    std::vector<TextRecord> phoneTexts(std::string_view phoneId, int limit) override;
    void deleteTypedTexts(std::int64_t typedBefore) override;
    void deleteTextsCreatedBy(std::int64_t moment) override;

private:
    void execute(std::string_view sql);
    void createSchema();
    void dropRetiredColumns();

    sqlite3* database_ = nullptr;
    int transactionDepth_ = 0;
};

} // namespace keyferry::service
