#include "BacklogBrake.h"

#include <algorithm>

namespace keyferry {

namespace {

std::uint32_t queuedBefore(const BacklogBrake::Connections& look, std::uint64_t inode) {
    const auto found =
        std::find_if(look.begin(), look.end(), [inode](const auto& connection) { return connection.inode == inode; });
    return found == look.end() ? 0 : found->queued;
}

} // namespace

void BacklogBrake::noteReceivers(const Connections& now) {
    for (const auto& connection : now) {
        const bool grew = connection.queued > queuedBefore(lastLook, connection.inode);
        if (grew && std::find(receivers.begin(), receivers.end(), connection.inode) == receivers.end()) {
            receivers.push_back(connection.inode);
        }
    }
}

std::uint64_t BacklogBrake::excess(const Connections& now) {
    if (keysSinceLastLook) {
        noteReceivers(now);
        keysSinceLastLook = false;
    }
    lastLook = now;
    std::uint64_t over = 0;
    for (const auto& connection : now) {
        const std::uint32_t share = connection.limit / 2;
        const bool receiving = std::find(receivers.begin(), receivers.end(), connection.inode) != receivers.end();
        if (receiving && connection.queued > share) {
            over += connection.queued - share;
        }
    }
    return over;
}

} // namespace keyferry
