#include "CompositorBacklog.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>

namespace keyferry {
namespace {

// A connected pair of Unix sockets within this process: the peer of one end is this process, which stands
// for the compositor, and what is written to the other end without being read is its backlog.
class SocketPair {
public:
    SocketPair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0); }
    ~SocketPair() {
        close(ends[0]);
        close(ends[1]);
    }
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;

    int client() const { return ends[0]; }
    int compositor() const { return ends[1]; }
    std::uint64_t compositorInode() const {
        struct stat status {};
        fstat(ends[1], &status);
        return status.st_ino;
    }

private:
    int ends[2] = {-1, -1};
};

const CompositorBacklog::Connection* find(const std::vector<CompositorBacklog::Connection>& connections,
                                          std::uint64_t inode) {
    const auto found = std::find_if(connections.begin(), connections.end(),
                                    [inode](const auto& connection) { return connection.inode == inode; });
    return found == connections.end() ? nullptr : &*found;
}

TEST(CompositorBacklog, WhatTheCompositorWroteAndTheClientHasNotReadIsItsBacklog) {
    SocketPair pair;
    const std::string written(4000, 'k');
    ASSERT_EQ(write(pair.compositor(), written.data(), written.size()), static_cast<ssize_t>(written.size()));
    const auto connections = CompositorBacklog(pair.client()).sample();
    ASSERT_TRUE(connections.has_value()) << "the kernel's Unix socket diagnostics are not readable here";
    const auto* connection = find(*connections, pair.compositorInode());
    ASSERT_NE(connection, nullptr);
    EXPECT_GE(connection->queued, written.size());
    EXPECT_GT(connection->limit, connection->queued);
}

TEST(CompositorBacklog, ReadingEmptiesTheBacklog) {
    SocketPair pair;
    std::string data(4000, 'k');
    ASSERT_EQ(write(pair.compositor(), data.data(), data.size()), static_cast<ssize_t>(data.size()));
    ASSERT_EQ(read(pair.client(), data.data(), data.size()), static_cast<ssize_t>(data.size()));
    const auto connections = CompositorBacklog(pair.client()).sample();
    ASSERT_TRUE(connections.has_value());
    const auto* connection = find(*connections, pair.compositorInode());
    ASSERT_NE(connection, nullptr);
    EXPECT_EQ(connection->queued, 0u);
}

TEST(CompositorBacklog, EveryLookSeesTheBacklogAsItIsNow) {
    SocketPair pair;
    CompositorBacklog backlog(pair.client());
    ASSERT_TRUE(backlog.sample().has_value());
    const std::string written(4000, 'k');
    ASSERT_EQ(write(pair.compositor(), written.data(), written.size()), static_cast<ssize_t>(written.size()));
    const auto connections = backlog.sample();
    ASSERT_TRUE(connections.has_value());
    const auto* connection = find(*connections, pair.compositorInode());
    ASSERT_NE(connection, nullptr);
    EXPECT_GE(connection->queued, written.size());
}

TEST(CompositorBacklog, AClientThatConnectedLaterIsSeenOnceTheSocketsAreListedAgain) {
    SocketPair pair;
    CompositorBacklog backlog(pair.client());
    ASSERT_TRUE(backlog.sample().has_value());
    SocketPair later;
    std::this_thread::sleep_for(CompositorBacklog::socketsValidFor);
    const auto connections = backlog.sample();
    ASSERT_TRUE(connections.has_value());
    EXPECT_NE(find(*connections, later.compositorInode()), nullptr);
}

} // namespace
} // namespace keyferry
