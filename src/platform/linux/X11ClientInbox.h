#pragma once

#include <X11/Xlib.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace keyferry {

// Watches, from outside, whether the client owning a window has handled the events the X server sent it, for
// clients that cannot be asked (they do not answer _NET_WM_PING). Seen through the kernel (UnixSocketTable):
// the bytes waiting unread on the client's connection, the bytes it sent that the server has not read, and the
// write calls of its process (/proc/PID/io). The client's process comes from the X-Resource extension, its
// connection is the one of its sockets whose other end the server accepted on its own address. Seen only for a
// local client of one's own user on a kernel with socket diagnostics; otherwise follow() answers false and
// callers keep their own estimate. To make the client read, it sends the window PropertyNotify events of an
// atom of its own, which mean nothing to the client.
// Uses the caller's X connection (owned by X11KeyboardSession, same thread): awaitHandled() makes round trips
// on it, so events for the caller arrive in its queue meanwhile.
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
