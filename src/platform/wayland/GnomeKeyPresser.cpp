#include "GnomeKeyPresser.h"

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
    if (!session->pressKeysym(key.keysym, pressed)) {
        session.reset();
        return false;
    }
    return true;
}

} // namespace keyferry
