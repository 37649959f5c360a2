// The macOS adapters of the ports the service runs on: the application's user defaults (CFPreferences), the
// keychain (Security), typing with CoreGraphics events and the Accessibility permission.
#include "PlatformPorts.h"

#include "AXAccessibilityProbe.h"
#include "CFPreferencesDefaults.h"
#include "CoreGraphicsKeyboardPoster.h"
#include "KeychainSecretBackend.h"

namespace keyferry {

std::unique_ptr<DefaultsStore> PlatformPorts::makeDefaultsStore() {
    return std::make_unique<CFPreferencesDefaults>();
}

std::unique_ptr<SecretBackend> PlatformPorts::makeSecretBackend() {
    return std::make_unique<KeychainSecretBackend>();
}

PlatformPorts::Typing PlatformPorts::makeTyping() {
    return {std::make_unique<CoreGraphicsKeyboardPoster>(), std::make_unique<AXAccessibilityProbe>(), {}};
}

} // namespace keyferry
