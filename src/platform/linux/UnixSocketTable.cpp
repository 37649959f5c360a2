#include "UnixSocketTable.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

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

constexpr unsigned shown = UDIAG_SHOW_RQLEN | UDIAG_SHOW_MEMINFO | UDIAG_SHOW_PEER | UDIAG_SHOW_NAME;

bool sendRequest(int netlink, const unix_diag_req& request, unsigned short flags) {
    struct {
        nlmsghdr header;
        unix_diag_req request;
    } message{};
    message.header.nlmsg_len = sizeof(message);
    message.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    message.header.nlmsg_flags = flags;
    message.request = request;
    return send(netlink, &message, sizeof(message), 0) == static_cast<ssize_t>(sizeof(message));
}

bool requestConnectedUnixSockets(int netlink) {
    unix_diag_req request{};
    request.sdiag_family = AF_UNIX;
    request.udiag_states = 1U << TCP_ESTABLISHED;
    request.udiag_show = shown;
    return sendRequest(netlink, request, NLM_F_REQUEST | NLM_F_DUMP);
}

// One socket by its inode: far cheaper than listing every socket of the machine.
bool requestUnixSocket(int netlink, std::uint64_t inode) {
    unix_diag_req request{};
    request.sdiag_family = AF_UNIX;
    request.udiag_states = 1U << TCP_ESTABLISHED;
    request.udiag_ino = static_cast<std::uint32_t>(inode);
    request.udiag_show = shown;
    request.udiag_cookie[0] = INET_DIAG_NOCOOKIE;
    request.udiag_cookie[1] = INET_DIAG_NOCOOKIE;
    return sendRequest(netlink, request, NLM_F_REQUEST);
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

void readAttribute(unsigned short type, const char* payload, std::size_t length, UnixSocketEnd& end) {
    if (type == UNIX_DIAG_RQLEN && length >= sizeof(unix_diag_rqlen)) {
        const auto lengths = read<unix_diag_rqlen>(payload);
        end.unread = lengths.udiag_rqueue;
        end.queued = lengths.udiag_wqueue;
    } else if (type == UNIX_DIAG_MEMINFO && length > SK_MEMINFO_SNDBUF * sizeof(std::uint32_t)) {
        end.limit = read<std::uint32_t>(payload + SK_MEMINFO_SNDBUF * sizeof(std::uint32_t));
    } else if (type == UNIX_DIAG_PEER && length >= sizeof(std::uint32_t)) {
        end.peer = read<std::uint32_t>(payload);
    } else if (type == UNIX_DIAG_NAME) {
        end.name.assign(payload, length);
    }
}

UnixSocketEnd endOf(const char* message, std::size_t length) {
    const auto socket = read<unix_diag_msg>(message + aligned(sizeof(nlmsghdr)));
    UnixSocketEnd end;
    end.inode = socket.udiag_ino;
    std::size_t at = aligned(sizeof(nlmsghdr)) + aligned(sizeof(unix_diag_msg));
    while (at + sizeof(rtattr) <= length) {
        const auto attribute = read<rtattr>(message + at);
        if (attribute.rta_len < sizeof(rtattr) || at + attribute.rta_len > length) {
            break;
        }
        readAttribute(attribute.rta_type, message + at + aligned(sizeof(rtattr)),
                      attribute.rta_len - aligned(sizeof(rtattr)), end);
        at += aligned(attribute.rta_len);
    }
    return end;
}

bool wanted(const std::optional<std::vector<std::uint64_t>>& inodes, std::uint64_t inode) {
    return !inodes || std::binary_search(inodes->begin(), inodes->end(), inode);
}

// Reads the dump's answers (or the one answer to an exact request, `single`); keeps the wanted ends. False on
// an error or an unfinished dump.
bool readEnds(int netlink, const std::optional<std::vector<std::uint64_t>>& inodes, std::vector<UnixSocketEnd>& ends,
              bool single = false) {
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
                auto end = endOf(buffer.data() + at, header.nlmsg_len);
                if (wanted(inodes, end.inode)) {
                    ends.push_back(std::move(end));
                }
                if (single) {
                    return true;
                }
            }
            at += aligned(header.nlmsg_len);
        }
    }
}

// Each of a few sockets asked for by its inode; one that is gone (or not connected) is left out.
bool readExact(int netlink, const std::vector<std::uint64_t>& inodes, std::vector<UnixSocketEnd>& ends) {
    for (const std::uint64_t inode : inodes) {
        if (!requestUnixSocket(netlink, inode)) {
            return false;
        }
        const std::size_t before = ends.size();
        if (!readEnds(netlink, inodes, ends, true) && ends.size() != before) {
            return false;
        }
    }
    return true;
}

} // namespace

std::optional<std::vector<UnixSocketEnd>>
connectedUnixSockets(const std::optional<std::vector<std::uint64_t>>& inodes) {
    constexpr std::size_t fewSockets = 4;
    const Descriptor netlink(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
    std::vector<UnixSocketEnd> ends;
    if (netlink.get() < 0) {
        return std::nullopt;
    }
    if (inodes && inodes->size() <= fewSockets) {
        return readExact(netlink.get(), *inodes, ends) ? std::optional(ends) : std::nullopt;
    }
    if (!requestConnectedUnixSockets(netlink.get()) || !readEnds(netlink.get(), inodes, ends)) {
        return std::nullopt;
    }
    return ends;
}

std::optional<std::vector<std::uint64_t>> socketInodesOf(pid_t process) {
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

std::optional<std::uint64_t> socketInodeOf(int fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0 || !S_ISSOCK(status.st_mode)) {
        return std::nullopt;
    }
    return status.st_ino;
}

pid_t peerProcessOf(int fd) {
    ucred credentials{};
    socklen_t size = sizeof(credentials);
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0 ? credentials.pid : 0;
}

} // namespace keyferry
