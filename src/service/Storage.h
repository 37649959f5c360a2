#pragma once

#include "StorageRecords.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keyferry::service {

// The service's durable state. The embedded implementation is SqliteStorage; a shared database can take
// its place behind this interface. Called only from the service's network thread; every operation is
// durable when it returns. Failures of the underlying database throw std::runtime_error.
class Storage {
public:
    virtual ~Storage() = default;

    // Runs `work` as one atomic unit: either all of its writes persist or none.
    virtual void transaction(const std::function<void()>& work) = 0;

    virtual void insertComputer(const ComputerRecord& computer, std::string_view tokenHash) = 0;
    virtual std::optional<ComputerRecord> computerByTokenHash(std::string_view tokenHash) = 0;
    virtual std::optional<ComputerRecord> computer(std::string_view computerId) = 0;
    virtual void setComputerStatus(std::string_view computerId, ComputerStatus status) = 0;
    // Deletes the computer's phones, codes and texts; the computer row stays to answer "revoked".
    virtual void deleteComputerBelongings(std::string_view computerId) = 0;
    // Deletes computers still pending whose every code expired before `before`, with their codes.
    virtual void deleteAbandonedComputers(std::int64_t before) = 0;

    // Stores a code and returns its serial.
    virtual std::int64_t insertPairCode(const PairCodeRecord& code) = 0;
    virtual std::optional<PairCodeRecord> latestPairCode(std::string_view computerId) = 0;
    // Codes not used, not withdrawn and not expired at `now`.
    virtual std::vector<PairCodeRecord> livePairCodes(std::int64_t now) = 0;
    virtual void updatePairCode(const PairCodeRecord& code) = 0;

    virtual void insertPhone(const PhoneRecord& phone, std::string_view tokenHash) = 0;
    virtual std::optional<PhoneRecord> phoneByTokenHash(std::string_view tokenHash) = 0;
    // In pairing order.
    virtual std::vector<PhoneRecord> phones(std::string_view computerId) = 0;
    // Deletes the phone and every text it sent, in one transaction; returns whether the phone existed.
    virtual bool deletePhone(std::string_view computerId, std::string_view phoneId) = 0;
    virtual void touchPhone(std::string_view phoneId, std::int64_t now) = 0;

    // Stores a text and returns its serial.
    virtual std::int64_t insertText(const TextRecord& text) = 0;
    // At most `limit` texts not yet typed, created after `createdAfter`, with a serial above
    // `afterSerial`, in serial order.
    virtual std::vector<TextRecord> untypedTexts(std::string_view computerId, std::int64_t afterSerial,
                                                 std::int64_t createdAfter, int limit) = 0;
    virtual std::int64_t untypedTextCount(std::string_view computerId) = 0;
    // The UTF-8 bytes of the computer's texts not yet typed, created after `createdAfter`.
    virtual std::int64_t untypedTextBytes(std::string_view computerId, std::int64_t createdAfter) = 0;
    // Whether that text of the computer is stored and not yet typed.
    virtual bool isTextUntyped(std::string_view computerId, std::string_view textId) = 0;
    virtual void markTextDelivered(std::string_view computerId, std::string_view textId, std::int64_t now) = 0;
    // Returns whether a text of that computer was newly marked typed.
    virtual bool markTextTyped(std::string_view computerId, std::string_view textId, std::int64_t now) = 0;
    // The phone's latest texts, newest first.
    virtual std::vector<TextRecord> phoneTexts(std::string_view phoneId, int limit) = 0;
    virtual void deleteTypedTexts(std::int64_t typedBefore) = 0;
    // Deletes every text created at or before `moment`, typed or not.
    virtual void deleteTextsCreatedBy(std::int64_t moment) = 0;
};

} // namespace keyferry::service
