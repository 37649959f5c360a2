#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keyferry {

// The records of the computer's side of the API: what the application sends and what the service answers.
// Decoding is strict: a required field that is missing, null or of the wrong JSON type fails the whole
// record; integers must be JSON integers that fit in 64 signed bits; optional fields that are missing or
// null are absent; unknown keys are ignored. Each decode returns nothing on failure and never throws.
// toJson() writes every field, optional ones only when present.

// A computer's standing, as the "status" of PairingResponse and PairStatusResponse.
namespace PairingStatus {
inline constexpr std::string_view pending = "pending"; // the first code waits for a phone
inline constexpr std::string_view active = "active";   // a phone paired
inline constexpr std::string_view expired = "expired"; // the first code ran out unused
inline constexpr std::string_view revoked = "revoked"; // a phone removed the computer
} // namespace PairingStatus

// The body of a pairing start.
struct PairStartRequest {
    std::string name;
    std::string platform;

    static std::optional<PairStartRequest> decode(std::string_view json);
    nlohmann::json toJson() const;
};

// The body of a phone's removal.
struct RemovePhoneRequest {
    std::string pairingId;

    static std::optional<RemovePhoneRequest> decode(std::string_view json);
    nlohmann::json toJson() const;
};

struct PairingResponse {
    std::string computerId;
    std::optional<std::string> computerToken;
    std::string pairCode;
    std::int64_t expiresAt = 0; // milliseconds since the Unix epoch
    std::string status;
    std::optional<std::string> platform;

    static std::optional<PairingResponse> decode(std::string_view json);
    nlohmann::json toJson() const;
};

struct PairStatusResponse {
    std::string computerId;
    std::string name;
    std::string status;
    bool paired = false;
    std::int64_t expiresAt = 0;
    std::optional<std::int64_t> pairedDeviceCount;
    std::optional<bool> pairingPending;
    std::optional<bool> pairingExpired;

    static std::optional<PairStatusResponse> decode(std::string_view json);
    nlohmann::json toJson() const;
};

struct PairedPhone {
    std::string id;
    std::string name;
    std::string platform;
    std::string appVersion;
    std::int64_t createdAt = 0;
    std::int64_t lastSeenAt = 0;

    bool operator==(const PairedPhone&) const = default;
    nlohmann::json toJson() const;
};

struct PairedPhonesResponse {
    std::vector<PairedPhone> phones;

    static std::optional<PairedPhonesResponse> decode(std::string_view json);
    nlohmann::json toJson() const;
};

struct RemovePhoneResponse {
    bool removed = false;

    static std::optional<RemovePhoneResponse> decode(std::string_view json);
    nlohmann::json toJson() const;
};

} // namespace keyferry
