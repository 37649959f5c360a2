#pragma once

#include <X11/Xlib.h>

#include <chrono>
#include <functional>
#include <optional>
#include <utility>

namespace keyferry {

// Asks the client owning the focused window whether it has handled every event sent to it so far, with the
// window manager's _NET_WM_PING: a client answers it from its event loop, after translating the key events
// queued before it, so its answer proves that those keys were read with the keymap they were sent under.
// Toolkit applications (Qt, GTK, browsers) answer; clients that do not list _NET_WM_PING in WM_PROTOCOLS
// (plain Xlib programs) get no question, and callers fall back to their own estimate.
//
// Uses the caller's X connection (owned by X11KeyboardSession, same thread); selects SubstructureNotify on
// the root window, where the answers arrive (and StructureNotify), so the caller sees those events too and
// must drain them, handing each to answers().
class FocusedClientPing {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using EventSink = std::function<void(const XEvent&)>;

    explicit FocusedClientPing(Display* display);

    // The window that has the focus now, as the keys just sent found it.
    Window focusedWindow() const;

    // Whether the client of `focus` answers pings (remembered for the last window asked about).
    bool answersPings(Window focus);

    // Pings the client of `focus` (a window focusedWindow() returned) unless a ping is awaiting its answer;
    // false when that client does not answer pings. Nothing is waited for.
    bool ask(Window focus);
    bool awaiting() const { return awaited.has_value(); }
    // Stops awaiting the answer (the keys it would confirm are counted anew).
    void forget() { awaited.reset(); }

    // Whether `event` is the awaited answer; it is then awaited no more.
    bool answers(const XEvent& event);

    // Reads events until the awaited answer arrives (true) or `deadline` passes; other events read meanwhile
    // go to `otherEvents`.
    bool awaitAnswer(TimePoint deadline, const EventSink& otherEvents);

private:
    std::optional<Window> pingableAncestor(Window window) const;
    std::optional<Window> targetOf(Window focus);
    bool listsPing(Window window) const;
    bool waitForEvent(TimePoint deadline) const;

    Display* display;
    Window root;
    Atom protocols;
    Atom ping;
    long stamp = 0;
    std::optional<Window> awaited; // the window whose client is to answer the last ping
    std::optional<std::pair<Window, std::optional<Window>>> lastTarget; // a focus and where it is pinged
};

} // namespace keyferry
