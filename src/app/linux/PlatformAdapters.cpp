// The Linux adapters of the ports the service runs on: defaults in a QSettings file, secrets in the Secret
// Service, typing through the route the session offers (XTest on X11, the virtual keyboard on wlroots).
#include "PlatformPorts.h"

#include "QtSettingsDefaults.h"
#include "SecretServiceBackend.h"
#include "TypingPorts.h"

#include <utility>

namespace keyferry {

std::unique_ptr<DefaultsStore> PlatformPorts::makeDefaultsStore() {
    return std::make_unique<QtSettingsDefaults>();
}

std::unique_ptr<SecretBackend> PlatformPorts::makeSecretBackend() {
    return std::make_unique<SecretServiceBackend>();
}

PlatformPorts::Typing PlatformPorts::makeTyping() {
    TypingPorts session = TypingPorts::make();
    return {std::move(session.poster), std::move(session.probe), std::move(session.choice.missing)};
}

} // namespace keyferry
