#include "CompositorBacklog.h"

#include "UnixSocketTable.h"

namespace keyferry {

CompositorBacklog::CompositorBacklog(int waylandFd) : compositor(peerProcessOf(waylandFd)) {}

std::optional<std::vector<CompositorBacklog::Connection>> CompositorBacklog::sample() {
    if (compositor <= 0) {
        return std::nullopt;
    }
    const auto now = std::chrono::steady_clock::now();
    if (!sockets || now - socketsListed >= socketsValidFor) {
        sockets = socketInodesOf(compositor);
        socketsListed = now;
    }
    const auto ends = sockets ? connectedUnixSockets(sockets) : std::nullopt;
    if (!ends || ends->empty()) {
        return std::nullopt;
    }
    std::vector<Connection> connections;
    for (const UnixSocketEnd& end : *ends) {
        connections.push_back(Connection{end.inode, end.queued, end.limit});
    }
    return connections;
}

} // namespace keyferry
