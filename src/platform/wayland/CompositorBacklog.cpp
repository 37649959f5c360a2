#include "CompositorBacklog.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>

namespace keyferry {

namespace {

class Descriptor {
public:
    explicit Descriptor(int value) : fd(value) {}
    ~Descriptor() {
        if (fd >= 0) {
            close(fd);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd; }

private:
    int fd;
};

pid_t peerProcess(int fd) {
    ucred credentials{};
    socklen_t size = sizeof(credentials);
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0 ? credentials.pid : 0;
}

// The inodes of the sockets `process` holds open; none when its descriptors cannot be read.
std::optional<std::vector<std::uint64_t>> socketInodes(pid_t process) {
    constexpr std::string_view prefix = "socket:[";
    std::vector<std::uint64_t> inodes;
    std::error_code error;
    std::filesystem::directory_iterator entries("/proc/" + std::to_string(process) + "/fd", error);
    if (error) {
        return std::nullopt;
    }
    for (const auto& entry : entries) {
        const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
        if (!error && target.starts_with(prefix)) {
            inodes.push_back(std::stoull(target.substr(prefix.size())));
        }
    }
    std::sort(inodes.begin(), inodes.end());
    return inodes;
}

bool requestConnectedUnixSockets(int netlink) {
    struct {
        nlmsghdr header;
        unix_diag_req request;
    } message{};
    message.header.nlmsg_len = sizeof(message);
    message.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    message.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    message.request.sdiag_family = AF_UNIX;
    message.request.udiag_states = 1U << TCP_ESTABLISHED;
    message.request.udiag_show = UDIAG_SHOW_RQLEN | UDIAG_SHOW_MEMINFO;
    return send(netlink, &message, sizeof(message), 0) == static_cast<ssize_t>(sizeof(message));
}

// Netlink's own macros cast in the C way; these walk the same aligned layout.
constexpr std::size_t aligned(std::size_t length) {
    return (length + 3U) & ~std::size_t{3};
}

template <typename T> T read(const char* at) {
    T value;
    std::memcpy(&value, at, sizeof(T));
    return value;
}

CompositorBacklog::Connection connectionOf(const char* message, std::size_t length) {
    const auto socket = read<unix_diag_msg>(message + aligned(sizeof(nlmsghdr)));
    CompositorBacklog::Connection connection{socket.udiag_ino, 0, 0};
    std::size_t at = aligned(sizeof(nlmsghdr)) + aligned(sizeof(unix_diag_msg));
    while (at + sizeof(rtattr) <= length) {
        const auto attribute = read<rtattr>(message + at);
        if (attribute.rta_len < sizeof(rtattr) || at + attribute.rta_len > length) {
            break;
        }
        const char* payload = message + at + aligned(sizeof(rtattr));
        const std::size_t payloadLength = attribute.rta_len - aligned(sizeof(rtattr));
        if (attribute.rta_type == UNIX_DIAG_RQLEN && payloadLength >= sizeof(unix_diag_rqlen)) {
            connection.queued = read<unix_diag_rqlen>(payload).udiag_wqueue;
        } else if (attribute.rta_type == UNIX_DIAG_MEMINFO &&
                   payloadLength > SK_MEMINFO_SNDBUF * sizeof(std::uint32_t)) {
            connection.limit = read<std::uint32_t>(payload + SK_MEMINFO_SNDBUF * sizeof(std::uint32_t));
        }
        at += aligned(attribute.rta_len);
    }
    return connection;
}

// Reads the dump's answers; keeps the sockets among `inodes`. False on an error or an unfinished dump.
bool readConnections(int netlink, const std::vector<std::uint64_t>& inodes,
                     std::vector<CompositorBacklog::Connection>& connections) {
    std::vector<char> buffer(32768);
    for (;;) {
        const ssize_t received = recv(netlink, buffer.data(), buffer.size(), 0);
        if (received <= 0) {
            return false;
        }
        const auto length = static_cast<std::size_t>(received);
        for (std::size_t at = 0; at + sizeof(nlmsghdr) <= length;) {
            const auto header = read<nlmsghdr>(buffer.data() + at);
            if (header.nlmsg_len < sizeof(nlmsghdr) || at + header.nlmsg_len > length) {
                return false;
            }
            if (header.nlmsg_type == NLMSG_DONE) {
                return true;
            }
            if (header.nlmsg_type == NLMSG_ERROR) {
                return false;
            }
            if (header.nlmsg_len >= aligned(sizeof(nlmsghdr)) + sizeof(unix_diag_msg)) {
                const auto connection = connectionOf(buffer.data() + at, header.nlmsg_len);
                if (std::binary_search(inodes.begin(), inodes.end(), connection.inode)) {
                    connections.push_back(connection);
                }
            }
            at += aligned(header.nlmsg_len);
        }
    }
}

} // namespace

CompositorBacklog::CompositorBacklog(int waylandFd) : compositor(peerProcess(waylandFd)) {}

std::optional<std::vector<CompositorBacklog::Connection>> CompositorBacklog::sample() {
    if (compositor <= 0) {
        return std::nullopt;
    }
    const auto now = std::chrono::steady_clock::now();
    if (!sockets || now - socketsListed >= socketsValidFor) {
        sockets = socketInodes(compositor);
        socketsListed = now;
    }
    const Descriptor netlink(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
    std::vector<Connection> connections;
    if (!sockets || netlink.get() < 0 || !requestConnectedUnixSockets(netlink.get()) ||
        !readConnections(netlink.get(), *sockets, connections) || connections.empty()) {
        return std::nullopt;
    }
    return connections;
}

} // namespace keyferry
