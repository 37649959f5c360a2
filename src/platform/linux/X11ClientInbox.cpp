#include "X11ClientInbox.h"

#include "UnixSocketTable.h"

#include <X11/extensions/XRes.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <thread>

namespace keyferry {

namespace {

// The address the X server accepted `ends`' own connection on, found as the name of its end's peer.
std::optional<std::string> serverAddress(const std::vector<UnixSocketEnd>& ends, std::uint64_t ownEnd) {
    const auto find = [&](std::uint64_t inode) {
        return std::find_if(ends.begin(), ends.end(), [inode](const UnixSocketEnd& end) { return end.inode == inode; });
    };
    const auto own = find(ownEnd);
    if (own == ends.end()) {
        return std::nullopt;
    }
    const auto server = find(own->peer);
    if (server == ends.end() || server->name.empty()) {
        return std::nullopt;
    }
    return server->name;
}

// The write calls `client` has made so far (its sockets' sends among them); none when they cannot be read.
std::optional<std::uint64_t> writeCallsOf(pid_t client) {
    std::ifstream counters("/proc/" + std::to_string(client) + "/io");
    std::string field;
    std::uint64_t value = 0;
    while (counters >> field >> value) {
        if (field == "syscw:") {
            return value;
        }
    }
    return std::nullopt;
}

} // namespace

X11ClientInbox::X11ClientInbox(Display* connection) : display(connection) {
    int eventBase = 0;
    int errorBase = 0;
    int major = 0;
    int minor = 0;
    mark = XInternAtom(display, "_KEYFERRY_READ_MARK", False);
    // Client process identifiers came with version 1.2.
    extensionPresent = XResQueryExtension(display, &eventBase, &errorBase) != 0 &&
                       XResQueryVersion(display, &major, &minor) != 0 && (major > 1 || (major == 1 && minor >= 2));
}

std::optional<pid_t> X11ClientInbox::ownerProcess(Window window) const {
    XResClientIdSpec query{window, XRES_CLIENT_ID_PID_MASK};
    long count = 0;
    XResClientIdValue* values = nullptr;
    if (XResQueryClientIds(display, 1, &query, &count, &values) != Success) {
        return std::nullopt;
    }
    std::optional<pid_t> owner;
    for (long index = 0; index < count && !owner; ++index) {
        const pid_t found = XResGetClientPid(&values[index]);
        if (found > 0) {
            owner = found;
        }
    }
    XResClientIdsDestroy(count, values);
    return owner;
}

// The process's ends of connections whose other end the X server accepted on its address.
std::vector<std::uint64_t> X11ClientInbox::connectionsOf(pid_t client) const {
    const auto processSockets = socketInodesOf(client);
    const auto ownEnd = socketInodeOf(ConnectionNumber(display));
    const auto ends = connectedUnixSockets(std::nullopt);
    if (!processSockets || !ownEnd || !ends) {
        return {};
    }
    const auto address = serverAddress(*ends, *ownEnd);
    std::vector<std::uint64_t> found;
    for (const UnixSocketEnd& end : *ends) {
        const bool acceptedByServer = address && end.name == *address;
        if (acceptedByServer && std::binary_search(processSockets->begin(), processSockets->end(), end.peer)) {
            found.push_back(end.peer);
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

bool X11ClientInbox::follow(Window window) {
    // A client not found is looked for again after a while (its connection may not have been listed yet).
    constexpr auto retryAfter = std::chrono::milliseconds(500);
    const auto now = std::chrono::steady_clock::now();
    if (followed != window || (connections.empty() && now - lookedUp >= retryAfter)) {
        followed = window;
        lookedUp = now;
        const auto owner = extensionPresent ? ownerProcess(window) : std::nullopt;
        process = owner.value_or(0);
        connections = owner ? connectionsOf(*owner) : std::vector<std::uint64_t>{};
    }
    return !connections.empty();
}

std::optional<X11ClientInbox::Look> X11ClientInbox::look() const {
    const auto writes = writeCallsOf(process);
    const auto ends = connectedUnixSockets(connections);
    if (!writes || !ends || ends->size() != connections.size()) {
        return std::nullopt;
    }
    Look seen{0, 0, *writes};
    for (const UnixSocketEnd& end : *ends) {
        seen.unread += end.unread;
        seen.unsent += end.queued;
    }
    return seen;
}

std::optional<X11ClientInbox::Look> X11ClientInbox::awaitEmpty(TimePoint deadline) const {
    // Looks often at first (a fast client reads within microseconds), then less often for a slow one.
    auto pause = std::chrono::microseconds(50);
    for (;;) {
        const auto seen = look();
        if (!seen || seen->unread == 0) {
            return seen;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return std::nullopt;
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::microseconds(2000));
    }
}

// An event of no meaning to the client, which makes it read its connection once more: a change of a property
// it has never heard of (a client message might be taken for a request to close by a careless client).
void X11ClientInbox::sendMark() {
    XEvent event{};
    event.xproperty.type = PropertyNotify;
    event.xproperty.window = *followed;
    event.xproperty.atom = mark;
    event.xproperty.time = CurrentTime;
    event.xproperty.state = PropertyNewValue;
    XSendEvent(display, *followed, False, NoEventMask, &event);
    XSync(display, False);
}

// Xlib reads its connection in two cases only: for the next event once it has handled every event read before,
// and while it waits for the answer to a request of its own, such as a keymap fetch (a fetch made after the
// keymap changed would translate the keys still queued with the new one). So the client counts as having
// handled what it had read when, without sending any request meanwhile (no write call at all), it is seen to
// read two marks, the second sent only once the first was read. That the client is still waiting for the answer
// to a request sent before is left unlikely, not impossible: the server has read every request it sent, and has
// answered two of ours since.
bool X11ClientInbox::seenIdle(TimePoint deadline) {
    const auto before = awaitEmpty(deadline);
    if (!before) {
        return false;
    }
    for (int marks = 0; marks < 2; ++marks) {
        sendMark();
        const auto after = awaitEmpty(deadline);
        if (!after || after->writes != before->writes || after->unsent != 0) {
            return false;
        }
    }
    return true;
}

bool X11ClientInbox::awaitHandled(TimePoint deadline) {
    if (!followed || connections.empty()) {
        return false;
    }
    // After the round trip the server has handed the events sent before to the client's connection.
    XSync(display, False);
    while (!seenIdle(deadline)) {
        if (std::chrono::steady_clock::now() >= deadline || !look()) {
            return false;
        }
    }
    return true;
}

} // namespace keyferry
