#include "GnomeKeyPresser.h"

#include "GnomeInputSources.h"

namespace keyferry {

bool GnomeKeyPresser::ready() {
    if (!session) {
        session = GnomeRemoteDesktop::start();
    }
    return session != nullptr;
}

bool GnomeKeyPresser::press(const LayoutKey& key, bool pressed) {
    if (!session) {
        return false;
    }
    if (held) {
        session->pressKeysym(held->keysym, held->pressed, false);
    }
    held = Event{key.keysym, pressed};
    return true;
}

std::optional<bool> GnomeKeyPresser::capsLockOn() {
    return session ? session->capsLockOn() : std::nullopt;
}

bool GnomeKeyPresser::confirm() {
    if (!session) {
        held.reset();
        return false;
    }
    if (!held) {
        return true;
    }
    const Event last = *held;
    held.reset();
    if (!session->pressKeysym(last.keysym, last.pressed, true)) {
        session.reset();
        return false;
    }
    return true;
}

std::optional<std::uint32_t> GnomeKeyPresser::layoutInEffect() {
    return GnomeInputSources().layoutInEffect();
}

} // namespace keyferry
