#pragma once

#include "SecretBackend.h"

#include <chrono>

namespace keyferry {

// The user's secret store on Linux: the desktop keyring through the Secret Service D-Bus API, spoken with
// QtDBus, which the tray already loads (so the application carries no second D-Bus and crypto stack).
//
// An item is a secret with the attributes "service" and "account" under the schema
// "com.quillix.companion.GenericPassword" (recorded as libsecret does, in "xdg:schema"), stored in the keyring's
// default collection (the login keyring, unlocked when the user logs in: the keyring's equivalent of "readable after
// the first unlock"), labelled "Keyferry (<account>)". Values are stored as raw bytes.
//
// It never shows a prompt: a locked collection answers secretInteractionNotAllowed instead of asking the user
// to unlock it. No call blocks for ever: each one gives up after `timeout` (an unreachable, hung or prompting
// service) and answers secretNotAvailable.
//
// Ownership: owned by the application (or a test), outliving the stores that use it. Thread: calls are
// serialised by the caller (the companion store's lock) and may come from any thread. Each call opens its
// own connection to the session bus and closes it again, so nothing stays open between calls.
class SecretServiceBackend final : public SecretBackend {
public:
    // Same code and meaning as on macOS: "no keychain is available" (no Secret Service on the session bus,
    // no default collection, the call failed or timed out).
    static constexpr SecretStatus secretNotAvailable = -25291;
    // Same code and meaning as on macOS: "user interaction is not allowed" (the collection is locked and
    // unlocking it would need a prompt).
    static constexpr SecretStatus secretInteractionNotAllowed = -25308;

    explicit SecretServiceBackend(std::chrono::milliseconds timeout = std::chrono::seconds(4));
    ~SecretServiceBackend() override;
    SecretServiceBackend(const SecretServiceBackend&) = delete;
    SecretServiceBackend& operator=(const SecretServiceBackend&) = delete;

    SecretStatus find(const SecretQuery& query, std::string& value) override;
    SecretStatus update(const SecretQuery& query, const std::string& value) override;
    SecretStatus add(const SecretQuery& query, const std::string& value, SecretAccessibility accessibility) override;
    SecretStatus remove(const SecretQuery& query) override;

private:
    const std::chrono::milliseconds timeout;
};

} // namespace keyferry
