#include "SecretServiceBackend.h"

#include "SecretServiceSession.h"

namespace keyferry {

SecretServiceBackend::SecretServiceBackend(std::chrono::milliseconds callTimeout) : timeout(callTimeout) {}

SecretServiceBackend::~SecretServiceBackend() = default;

SecretStatus SecretServiceBackend::find(const SecretQuery& query, std::string& value) {
    SecretServiceSession session(timeout);
    QStringList items;
    if (const SecretStatus status = session.existingItems(query, items); status != secretSuccess) {
        return status;
    }
    return session.secretOf(items.front(), value);
}

SecretStatus SecretServiceBackend::update(const SecretQuery& query, const std::string& value) {
    SecretServiceSession session(timeout);
    QStringList items;
    if (const SecretStatus status = session.existingItems(query, items); status != secretSuccess) {
        return status;
    }
    return session.setSecret(items.front(), value);
}

// Items go to the default collection, which the desktop unlocks at login: the keyring's form of "readable
// after the first unlock", the only accessibility there is.
SecretStatus SecretServiceBackend::add(const SecretQuery& query, const std::string& value, SecretAccessibility) {
    SecretServiceSession session(timeout);
    return session.create(query, value);
}

SecretStatus SecretServiceBackend::remove(const SecretQuery& query) {
    SecretServiceSession session(timeout);
    QStringList items;
    if (const SecretStatus status = session.existingItems(query, items); status != secretSuccess) {
        return status;
    }
    for (const QString& item : items) {
        if (const SecretStatus status = session.remove(item); status != secretSuccess) {
            return status;
        }
    }
    return secretSuccess;
}

} // namespace keyferry
