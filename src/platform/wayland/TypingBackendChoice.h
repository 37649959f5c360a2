#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace keyferry {

// The ways Keyferry can type on a Linux desktop.
enum class TypingBackend {
    xtest,              // X11 sessions: the XTEST extension
    virtualKeyboard,    // Wayland, wlroots compositors: zwp_virtual_keyboard_v1
    gnomeRemoteDesktop, // Wayland, GNOME: org.gnome.Mutter.RemoteDesktop on the session bus
    kdeFakeInput,       // Wayland, KDE Plasma: org_kde_kwin_fake_input, once authorised
    none,               // nothing here can type
};

// What the process's environment says about the desktop session it runs in.
struct TypingSession {
    std::string sessionType;    // XDG_SESSION_TYPE ("x11", "wayland", "tty", or empty)
    std::string currentDesktop; // XDG_CURRENT_DESKTOP ("sway", "GNOME", "KDE", ...)
    bool hasWaylandDisplay = false;
    bool hasX11Display = false;

    static TypingSession fromEnvironment();
    // An X11 session: XDG_SESSION_TYPE says so, or it says nothing and only DISPLAY is set.
    bool isX11() const;
};

// The backend picked, and when it is `none`, one line saying what this desktop lacks and where to read more.
struct TypingBackendChoice {
    TypingBackend backend = TypingBackend::none;
    std::string missing;
};

// Tells whether a backend can type here now (its route is offered and this build implements it). Asked
// lazily, in order of preference, so that a session never probes routes it would not use.
using TypingRouteTest = std::function<bool(TypingBackend)>;

// The session's backend: an X11 session keeps XTest; a Wayland session takes the first that works of the
// virtual keyboard, GNOME's remote desktop and KDE's fake input, and never XTest, which would reach the
// Xwayland windows alone and lose every text sent to a native one.
TypingBackendChoice chooseTypingBackend(const TypingSession& session, const TypingRouteTest& works);

// The backend a person asked for by name (keyferry-type's flag), when it works here.
TypingBackendChoice chooseRequestedTypingBackend(TypingBackend requested, const TypingRouteTest& works);

std::string_view typingBackendName(TypingBackend backend);
// The backend named "xtest", "virtual-keyboard", "gnome" or "kde"; none for any other name.
std::optional<TypingBackend> typingBackendNamed(std::string_view name);

} // namespace keyferry
