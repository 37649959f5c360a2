#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

struct _GDBusConnection;

namespace keyferry {

// One remote-desktop session of GNOME's compositor (org.gnome.Mutter.RemoteDesktop on the session bus),
// created and started at construction and stopped at destruction; mutter grants it without asking. Its
// keyboard presses keysyms of the layout in effect (mutter picks the key; a keysym the layout lacks is
// dropped silently, so callers send only the layout's own).
//
// Owned by the GNOME poster or the probe; called from one thread at a time. Keys go in order on one bus
// connection, each either waiting for mutter's answer or not; mutter handles them in that order, so an
// answered key means every earlier one was handled. Failures are returned, never thrown.
class GnomeRemoteDesktop {
public:
    // A started session; null when the session bus, the service or the session is not to be had.
    static std::unique_ptr<GnomeRemoteDesktop> start();
    ~GnomeRemoteDesktop();
    GnomeRemoteDesktop(const GnomeRemoteDesktop&) = delete;
    GnomeRemoteDesktop& operator=(const GnomeRemoteDesktop&) = delete;

    // Presses or releases the key of a keysym. With `answered`, waits for mutter's answer: false when mutter
    // refused this key or an earlier one, or could not be reached. Without, returns at once (true).
    bool pressKeysym(std::uint32_t keysym, bool pressed, bool answered);

    // Whether Caps Lock is on for the seat, as mutter tells it; none when it cannot be asked.
    std::optional<bool> capsLockOn() const;

    // Whether the bus has a GNOME remote-desktop service (without starting one).
    static bool offered();

private:
    GnomeRemoteDesktop(_GDBusConnection* connection, std::string sessionPath);

    _GDBusConnection* bus;
    std::string session;
};

} // namespace keyferry
