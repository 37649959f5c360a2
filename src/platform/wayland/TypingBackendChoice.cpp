#include "TypingBackendChoice.h"

#include <array>
#include <cstdlib>
#include <utility>

namespace keyferry {

namespace {

constexpr std::string_view readMore = " (see \"Typing on Linux\" in Keyferry's README)";

enum class SessionKind { x11, wayland, unknown };

SessionKind sessionKind(const TypingSession& session) {
    if (session.sessionType == "wayland") {
        return SessionKind::wayland;
    }
    if (session.sessionType == "x11") {
        return SessionKind::x11;
    }
    if (session.hasWaylandDisplay) {
        return SessionKind::wayland;
    }
    return session.hasX11Display ? SessionKind::x11 : SessionKind::unknown;
}

bool desktopIs(const TypingSession& session, std::string_view name) {
    return session.currentDesktop.find(name) != std::string::npos;
}

std::string waylandLack(const TypingSession& session) {
    if (desktopIs(session, "KDE")) {
        return "KDE's fake input is not offered to Keyferry: its desktop entry (keyferry.desktop) is not installed";
    }
    if (desktopIs(session, "GNOME")) {
        return "GNOME's remote desktop service (org.gnome.Mutter.RemoteDesktop) is not on the session bus";
    }
    return "This Wayland desktop offers no virtual keyboard, GNOME remote desktop or KDE fake input";
}

std::string lackFor(const TypingSession& session) {
    switch (sessionKind(session)) {
    case SessionKind::x11:
        return "This X session has no XTEST extension";
    case SessionKind::wayland:
        return waylandLack(session);
    case SessionKind::unknown:
        break;
    }
    return "No desktop session found: neither WAYLAND_DISPLAY nor DISPLAY is set";
}

TypingBackendChoice unavailable(std::string lack) {
    return {TypingBackend::none, std::move(lack) + std::string(readMore)};
}

std::string environmentValue(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

constexpr std::array<std::pair<TypingBackend, std::string_view>, 4> names{{
    {TypingBackend::xtest, "xtest"},
    {TypingBackend::virtualKeyboard, "virtual-keyboard"},
    {TypingBackend::gnomeRemoteDesktop, "gnome"},
    {TypingBackend::kdeFakeInput, "kde"},
}};

} // namespace

TypingSession TypingSession::fromEnvironment() {
    return {environmentValue("XDG_SESSION_TYPE"), environmentValue("XDG_CURRENT_DESKTOP"),
            !environmentValue("WAYLAND_DISPLAY").empty(), !environmentValue("DISPLAY").empty()};
}

bool TypingSession::isX11() const {
    return sessionKind(*this) == SessionKind::x11;
}

TypingBackendChoice chooseTypingBackend(const TypingSession& session, const TypingRouteTest& works) {
    switch (sessionKind(session)) {
    case SessionKind::x11:
        if (works(TypingBackend::xtest)) {
            return {TypingBackend::xtest, {}};
        }
        break;
    case SessionKind::wayland:
        for (const TypingBackend backend :
             {TypingBackend::virtualKeyboard, TypingBackend::gnomeRemoteDesktop, TypingBackend::kdeFakeInput}) {
            if (works(backend)) {
                return {backend, {}};
            }
        }
        break;
    case SessionKind::unknown:
        break;
    }
    return unavailable(lackFor(session));
}

TypingBackendChoice chooseRequestedTypingBackend(TypingBackend requested, const TypingRouteTest& works) {
    if (requested != TypingBackend::none && works(requested)) {
        return {requested, {}};
    }
    return unavailable("The " + std::string(typingBackendName(requested)) + " typing route is not available here");
}

std::string_view typingBackendName(TypingBackend backend) {
    for (const auto& [candidate, name] : names) {
        if (candidate == backend) {
            return name;
        }
    }
    return "none";
}

std::optional<TypingBackend> typingBackendNamed(std::string_view name) {
    for (const auto& [backend, candidate] : names) {
        if (candidate == name) {
            return backend;
        }
    }
    return std::nullopt;
}

} // namespace keyferry
