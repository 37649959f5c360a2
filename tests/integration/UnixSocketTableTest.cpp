// The kernel's view of connected Unix sockets, on a real connection made here: what waits unread at each end,
// which end is whose peer, and the address an accepted end shares with its listener.
#include "UnixSocketTable.h"
#include "TempFolder.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace keyferry {
namespace {

class Connection {
public:
    explicit Connection(const std::string& path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        const auto* generic = reinterpret_cast<const sockaddr*>(&address);
        listener = socket(AF_UNIX, SOCK_STREAM, 0);
        client = socket(AF_UNIX, SOCK_STREAM, 0);
        if (bind(listener, generic, sizeof(address)) == 0 && listen(listener, 1) == 0 &&
            connect(client, generic, sizeof(address)) == 0) {
            accepted = accept(listener, nullptr, nullptr);
        }
    }
    ~Connection() {
        for (const int fd : {listener, client, accepted}) {
            if (fd >= 0) {
                close(fd);
            }
        }
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    int listener = -1;
    int client = -1;
    int accepted = -1;
};

UnixSocketEnd endOf(int fd) {
    const auto inode = socketInodeOf(fd);
    EXPECT_TRUE(inode.has_value());
    const auto ends = connectedUnixSockets(std::vector<std::uint64_t>{inode.value_or(0)});
    EXPECT_TRUE(ends.has_value());
    if (!ends || ends->size() != 1) {
        ADD_FAILURE() << "the end is not listed";
        return {};
    }
    return ends->front();
}

TEST(UnixSocketTableTest, ShowsWhatWaitsUnreadAndWhoSentIt) {
    TempFolder folder;
    const std::string path = (folder / "server").string();
    const Connection connection(path);
    ASSERT_GE(connection.accepted, 0);
    const std::string message(100, 'x');
    ASSERT_EQ(write(connection.accepted, message.data(), message.size()), 100);

    const UnixSocketEnd client = endOf(connection.client);
    const UnixSocketEnd server = endOf(connection.accepted);
    EXPECT_EQ(client.unread, 100U);
    EXPECT_EQ(client.peer, server.inode);
    EXPECT_EQ(server.peer, client.inode);
    EXPECT_GT(server.queued, 0U);
    EXPECT_GT(server.limit, 0U);
    // The accepted end carries the listener's address; the client's own end has none.
    EXPECT_EQ(std::string(server.name.c_str()), path);
    EXPECT_TRUE(client.name.empty());

    char buffer[100];
    ASSERT_EQ(read(connection.client, buffer, sizeof buffer), 100);
    EXPECT_EQ(endOf(connection.client).unread, 0U);
    EXPECT_EQ(endOf(connection.accepted).queued, 0U);
}

// Many sockets are listed at once, a few asked for one by one: both ways see the same.
TEST(UnixSocketTableTest, ListsEveryConnectedEndAsWellAsTheFewAskedFor) {
    TempFolder folder;
    const Connection connection((folder / "server").string());
    ASSERT_GE(connection.accepted, 0);
    ASSERT_EQ(write(connection.accepted, "abc", 3), 3);
    const auto clientEnd = socketInodeOf(connection.client).value_or(0);
    const auto all = connectedUnixSockets(std::nullopt);
    ASSERT_TRUE(all.has_value());
    const auto listed = std::find_if(all->begin(), all->end(),
                                     [clientEnd](const UnixSocketEnd& end) { return end.inode == clientEnd; });
    ASSERT_NE(listed, all->end());
    EXPECT_EQ(listed->unread, 3U);
    EXPECT_EQ(listed->peer, endOf(connection.client).peer);
    EXPECT_EQ(endOf(connection.client).unread, 3U);
}

TEST(UnixSocketTableTest, FindsTheSocketsOfAProcessAndTheProcessAtTheOtherEnd) {
    TempFolder folder;
    const Connection connection((folder / "server").string());
    ASSERT_GE(connection.accepted, 0);
    const auto own = socketInodesOf(getpid());
    ASSERT_TRUE(own.has_value());
    EXPECT_TRUE(std::binary_search(own->begin(), own->end(), socketInodeOf(connection.client).value_or(0)));
    EXPECT_EQ(peerProcessOf(connection.client), getpid());
}

TEST(UnixSocketTableTest, AnswersNoneForWhatIsNoSocketOrNoProcess) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_FALSE(socketInodeOf(ends[0]).has_value());
    close(ends[0]);
    close(ends[1]);
    EXPECT_FALSE(socketInodesOf(0).has_value());
}

} // namespace
} // namespace keyferry
