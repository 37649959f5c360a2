#pragma once

#include <cstdint>
#include <string>

namespace keyferry {

// The status every secret operation returns: 0 on success, a negative code otherwise.
using SecretStatus = std::int32_t;
inline constexpr SecretStatus secretSuccess = 0;
inline constexpr SecretStatus secretItemNotFound = -25300;

// Who may read an item, from the moment it is created.
enum class SecretAccessibility { afterFirstUnlock };

// Identifies one generic-password item.
struct SecretQuery {
    std::string service;
    std::string account;

    bool operator==(const SecretQuery&) const = default;
};

// The user's secret store (keychain, Secret Service). Owned by the application (or a test) and outliving
// the stores that use it; calls are synchronous and serialised by the caller (the companion store's lock).
// Failures are reported only as a status; no call blocks indefinitely.
class SecretBackend {
public:
    virtual ~SecretBackend() = default;

    // Reads the item's bytes into `value`; secretItemNotFound when there is no such item.
    virtual SecretStatus find(const SecretQuery& query, std::string& value) = 0;

    // Replaces the bytes of an existing item; secretItemNotFound when there is none.
    virtual SecretStatus update(const SecretQuery& query, const std::string& value) = 0;

    // Creates the item.
    virtual SecretStatus add(const SecretQuery& query, const std::string& value, SecretAccessibility accessibility) = 0;

    // Deletes the item; secretItemNotFound when there is none.
    virtual SecretStatus remove(const SecretQuery& query) = 0;
};

} // namespace keyferry
