#include "SecretServiceBackend.h"

#include "SecretServiceSession.h"

namespace keyferry {

SecretServiceBackend::SecretServiceBackend(std::chrono::milliseconds timeout)
    : session(std::make_unique<SecretServiceSession>(timeout)) {}

SecretServiceBackend::~SecretServiceBackend() = default;

SecretStatus SecretServiceBackend::find(const SecretQuery& query, std::string& value) {
    std::vector<SecretServiceSession::Ref<SecretItem>> items;
    if (const SecretStatus status = session->existingItems(query, items); status != secretSuccess) {
        return status;
    }
    SecretValue* secret = secret_item_get_secret(items.front().get());
    if (secret == nullptr) {
        // Found but not readable without unlocking it.
        return secretInteractionNotAllowed;
    }
    gsize length = 0;
    const gchar* bytes = secret_value_get(secret, &length);
    value.assign(bytes, length);
    secret_value_unref(secret);
    return secretSuccess;
}

SecretStatus SecretServiceBackend::update(const SecretQuery& query, const std::string& value) {
    std::vector<SecretServiceSession::Ref<SecretItem>> items;
    if (const SecretStatus status = session->existingItems(query, items); status != secretSuccess) {
        return status;
    }
    return session->setSecret(items.front().get(), value);
}

// Items go to the default collection, which the desktop unlocks at login: the keyring's form of "readable
// after the first unlock", the only accessibility there is.
SecretStatus SecretServiceBackend::add(const SecretQuery& query, const std::string& value, SecretAccessibility) {
    session->beginCall();
    return session->create(query, value);
}

SecretStatus SecretServiceBackend::remove(const SecretQuery& query) {
    std::vector<SecretServiceSession::Ref<SecretItem>> items;
    if (const SecretStatus status = session->existingItems(query, items); status != secretSuccess) {
        return status;
    }
    for (const auto& item : items) {
        if (const SecretStatus status = session->remove(item.get()); status != secretSuccess) {
            return status;
        }
    }
    return secretSuccess;
}

} // namespace keyferry
