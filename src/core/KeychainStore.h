#pragma once

#include "SecretBackend.h"

#include <optional>
#include <string>

namespace keyferry {

// The local state's one error: the secret store refused a write with this status.
struct StoreError {
    SecretStatus status = 0;
};

// Small secret strings as generic-password items under one service name. Used only by CompanionStore,
// under its lock; has no lock of its own.
class KeychainStore {
public:
    KeychainStore(SecretBackend& backend, std::string service);

    SecretQuery baseQuery(const std::string& account) const;

    // The stored string; nothing when absent, unreadable or not valid UTF-8. Never fails.
    std::optional<std::string> string(const std::string& account) const;

    // Update, or add when not found; the error carries the failing call's status.
    std::optional<StoreError> set(const std::string& value, const std::string& account);

    // Deletes the item; the status is the backend's.
    SecretStatus remove(const std::string& account);

private:
    SecretBackend& backend;
    std::string service;
};

} // namespace keyferry
