#include "KeychainStore.h"

#include "Utf8.h"

#include <utility>

namespace keyferry {

KeychainStore::KeychainStore(SecretBackend& secretBackend, std::string serviceName)
    : backend(secretBackend), service(std::move(serviceName)) {}

SecretQuery KeychainStore::baseQuery(const std::string& account) const {
    return SecretQuery{service, account};
}

std::optional<std::string> KeychainStore::string(const std::string& account) const {
    std::string bytes;
    if (backend.find(baseQuery(account), bytes) != secretSuccess || !isValidUtf8(bytes)) {
        return std::nullopt;
    }
    return bytes;
}

std::optional<StoreError> KeychainStore::set(const std::string& value, const std::string& account) {
    const SecretQuery query = baseQuery(account);
    const SecretStatus updated = backend.update(query, value);
    if (updated == secretSuccess) {
        return std::nullopt; // an existing item keeps the accessibility it was created with
    }
    if (updated != secretItemNotFound) {
        return StoreError{updated};
    }
    const SecretStatus added = backend.add(query, value, SecretAccessibility::afterFirstUnlock);
    if (added != secretSuccess) {
        return StoreError{added};
    }
    return std::nullopt;
}

SecretStatus KeychainStore::remove(const std::string& account) {
    return backend.remove(baseQuery(account));
}

} // namespace keyferry
