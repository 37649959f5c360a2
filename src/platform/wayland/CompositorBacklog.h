#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <sys/types.h>
#include <vector>

namespace keyferry {

// What the compositor has written to each of its connections that the other end has not read yet. A compositor
// drops a client whose connection stays full (the kernel's send buffer, then a small buffer of its own), so
// this is the queue that decides whether a slow client survives the keys sent to it.
//
// Seen through the kernel: the compositor's process (the peer of Keyferry's own connection), its open sockets
// (/proc/PID/fd, readable for processes of one's own user) and the kernel's socket diagnostics for Unix
// sockets. Any of these may be missing (another user's compositor, a kernel without them): sample() then
// answers none, and callers pace without it. Owned by one virtual keyboard; not thread-safe.
class CompositorBacklog {
public:
    struct Connection {
        std::uint64_t inode;  // the compositor's end of the connection
        std::uint32_t queued; // bytes written and not yet read, as the kernel charges them to the sender
        std::uint32_t limit;  // the send buffer that `queued` must stay below
    };

    // `waylandFd`: Keyferry's own connection to the compositor.
    explicit CompositorBacklog(int waylandFd);

    // Every connection of the compositor now; none when they cannot be seen here. The compositor's sockets
    // are listed afresh at most every `socketsValidFor` (listing them costs more than the rest of a look);
    // a client that connected since is seen from the next listing on.
    std::optional<std::vector<Connection>> sample();

    static constexpr std::chrono::milliseconds socketsValidFor{250};

private:
    pid_t compositor = 0;
    std::optional<std::vector<std::uint64_t>> sockets;
    std::chrono::steady_clock::time_point socketsListed;
};

} // namespace keyferry
