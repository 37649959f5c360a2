// The Linux adapters of the ports the service runs on: defaults in a QSettings file, secrets in the Secret
// Service, typing with XTest.
#include "PlatformPorts.h"

#include "QtSettingsDefaults.h"
#include "SecretServiceBackend.h"
#include "X11AccessibilityProbe.h"
#include "XTestKeyboardPoster.h"

namespace keyferry {

std::unique_ptr<DefaultsStore> PlatformPorts::makeDefaultsStore() {
    return std::make_unique<QtSettingsDefaults>();
}

std::unique_ptr<SecretBackend> PlatformPorts::makeSecretBackend() {
    return std::make_unique<SecretServiceBackend>();
}

std::unique_ptr<KeyboardPoster> PlatformPorts::makeKeyboardPoster() {
    return std::make_unique<XTestKeyboardPoster>();
}

std::unique_ptr<AccessibilityProbe> PlatformPorts::makeAccessibilityProbe() {
    return std::make_unique<X11AccessibilityProbe>();
}

} // namespace keyferry
