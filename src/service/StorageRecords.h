#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace keyferry::service {

// A computer's standing. "expired" is not stored: it is a pending computer whose first code ran out.
enum class ComputerStatus { pending, active, revoked };

struct ComputerRecord {
    std::string id;
    std::string name;
    std::string platform;
    ComputerStatus status = ComputerStatus::pending;
    std::int64_t createdAt = 0;
};

struct PairCodeRecord {
    std::int64_t serial = 0; // assigned by the storage; orders a computer's codes
    std::string code;
    std::string computerId;
    std::int64_t createdAt = 0;
    std::int64_t expiresAt = 0;
    std::optional<std::int64_t> usedAt;
    bool withdrawn = false; // superseded by a newer code
};

struct PhoneRecord {
    std::string id; // the pairing's identifier
    std::string computerId;
    std::string name;
    std::string platform;
    std::string appVersion;
    std::int64_t createdAt = 0;
    std::int64_t lastSeenAt = 0;
};

struct TextRecord {
    std::int64_t serial = 0; // assigned by the storage; the delivery order
    std::string id;
    std::string computerId;
    std::string phoneId;
    std::string text;
    std::int64_t createdAt = 0;
    std::optional<std::int64_t> deliveredAt;
    std::optional<std::int64_t> typedAt;
};

} // namespace keyferry::service
