#pragma once

#include <X11/Xlib.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace keyferry {

// What the X server has sent to the client owning a window that the client has not read from its connection
// yet, seen from outside through the kernel (see UnixSocketTable): the client's process comes from the
// X-Resource extension, its connection is the one of its sockets whose other end was accepted on the
// server's own address. Seen only for a local client of one's own user on a kernel with socket diagnostics;
// otherwise follow() answers false and callers keep their own estimate.
// Uses the caller's X connection (owned by X11KeyboardSession, same thread).
class X11ClientInbox {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    explicit X11ClientInbox(Display* display);

    // Follows the client owning `window` (remembered for the last window asked about); false when its
    // connection cannot be seen from here (asked again after a while).
    bool follow(Window window);

    // Waits until the followed client is seen to have handled every event the server sent it before the call,
    // at most until `deadline`; false when it is not seen to in time or can no longer be seen.
    bool awaitHandled(TimePoint deadline);

private:
    // The followed client's connections and process as seen at one moment.
    struct Look {
        std::uint32_t unread = 0; // bytes the server sent that the client has not read
        std::uint32_t unsent = 0; // bytes the client sent that the server has not read
        std::uint64_t writes = 0; // the write calls its process has made so far
    };

    std::optional<pid_t> ownerProcess(Window window) const;
    std::vector<std::uint64_t> connectionsOf(pid_t client) const;
    std::optional<Look> look() const;
    std::optional<Look> awaitEmpty(TimePoint deadline) const;
    bool seenIdle(TimePoint deadline);
    void sendMark();

    Display* display;
    bool extensionPresent = false;
    Atom mark = None;
    std::optional<Window> followed;
    TimePoint lookedUp;
    pid_t process = 0;
    std::vector<std::uint64_t> connections; // the followed client's ends of its X connections, sorted
};

} // namespace keyferry
