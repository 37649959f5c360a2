#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keyferry {

// The service's JSON replies. Decoding is strict: a required field that is missing, null or of the wrong
// JSON type fails the whole reply; integers must be JSON integers that fit in 64 signed bits; optional
// fields that are missing or null are absent; unknown keys are ignored. Each decode returns nothing on
// failure and never throws.

struct PairingResponse {
    std::string computerId;
    std::optional<std::string> computerToken;
    std::string pairCode;
    std::int64_t expiresAt = 0; // milliseconds since the Unix epoch
    std::string status;
    std::optional<std::string> platform;

    static std::optional<PairingResponse> decode(std::string_view json);
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
};

struct PairedPhone {
    std::string id;
    std::string name;
    std::string platform;
    std::string appVersion;
    std::int64_t createdAt = 0;
    std::int64_t lastSeenAt = 0;

    bool operator==(const PairedPhone&) const = default;
};

struct PairedPhonesResponse {
    std::vector<PairedPhone> phones;

    static std::optional<PairedPhonesResponse> decode(std::string_view json);
};

struct RemovePhoneResponse {
    bool removed = false;

    static std::optional<RemovePhoneResponse> decode(std::string_view json);
};

} // namespace keyferry
