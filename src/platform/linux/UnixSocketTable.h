#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace keyferry {

// What the kernel tells any process of the connected Unix sockets on the machine (its socket diagnostics,
// the source of `ss -x`): for each end, the other end, the bytes waiting to be read, and what its sender has
// written and not yet seen read. Together with the socket descriptors of a process of one's own user
// (/proc/PID/fd) it shows how far another program is behind with what a server sends it.
// Stateless functions; any of it may be missing (a kernel without the diagnostics, another user's process):
// they then answer none.
struct UnixSocketEnd {
    std::uint64_t inode = 0;
    std::uint64_t peer = 0;   // the inode of the other end
    std::uint32_t unread = 0; // bytes that arrived at this end and were not read yet
    std::uint32_t queued = 0; // what this end wrote and the other has not read, as the kernel charges it
    std::uint32_t limit = 0;  // the send buffer that `queued` must stay below
    std::string name;         // the address it is bound to; an accepted connection shares its listener's
};

// The connected ends whose inode is among `inodes` (sorted), or every connected end when `inodes` is none.
std::optional<std::vector<UnixSocketEnd>> connectedUnixSockets(const std::optional<std::vector<std::uint64_t>>& inodes);

// The inodes of the sockets `process` holds open, sorted; none when its descriptors cannot be read.
std::optional<std::vector<std::uint64_t>> socketInodesOf(pid_t process);

// The inode of the socket behind the descriptor `fd`; none when it is no socket.
std::optional<std::uint64_t> socketInodeOf(int fd);

// The process at the other end of the Unix socket `fd`; 0 when unknown.
pid_t peerProcessOf(int fd);

} // namespace keyferry
