#include "FocusedClientPing.h"

#include <X11/Xatom.h>
#include <poll.h>

#include <algorithm>

namespace keyferry {

FocusedClientPing::FocusedClientPing(Display* connection)
    : display(connection), root(DefaultRootWindow(connection)),
      protocols(XInternAtom(connection, "WM_PROTOCOLS", False)), ping(XInternAtom(connection, "_NET_WM_PING", False)) {
    XWindowAttributes attributes{};
    XGetWindowAttributes(display, root, &attributes);
    // EWMH has the answer sent to clients selecting SubstructureNotify on the root; Qt sends it to those
    // selecting StructureNotify.
    XSelectInput(display, root, attributes.your_event_mask | SubstructureNotifyMask | StructureNotifyMask);
}

Window FocusedClientPing::focusedWindow() const {
    Window focus = 0;
    int revert = 0;
    XGetInputFocus(display, &focus, &revert);
    return focus;
}

bool FocusedClientPing::listsPing(Window window) const {
    Atom* listed = nullptr;
    int count = 0;
    if (XGetWMProtocols(display, window, &listed, &count) == 0) {
        return false;
    }
    const bool found = std::find(listed, listed + count, ping) != listed + count;
    XFree(listed);
    return found;
}

// The focus may rest on a child of the client's top-level window, which is the one that lists its protocols.
std::optional<Window> FocusedClientPing::pingableAncestor(Window window) const {
    constexpr Window pointerRoot = 1;
    while (window != 0 && window != pointerRoot && window != root) {
        if (listsPing(window)) {
            return window;
        }
        Window treeRoot = 0;
        Window parent = 0;
        Window* children = nullptr;
        unsigned count = 0;
        if (XQueryTree(display, window, &treeRoot, &parent, &children, &count) == 0) {
            return std::nullopt;
        }
        if (children != nullptr) {
            XFree(children);
        }
        window = parent;
    }
    return std::nullopt;
}

std::optional<Window> FocusedClientPing::targetOf(Window focus) {
    if (!lastTarget || lastTarget->first != focus) {
        lastTarget.emplace(focus, pingableAncestor(focus));
    }
    return lastTarget->second;
}

bool FocusedClientPing::answersPings(Window focus) {
    return targetOf(focus).has_value();
}

bool FocusedClientPing::answers(const XEvent& event) {
    const XClientMessageEvent& message = event.xclient;
    const bool isAnswer = awaited && event.type == ClientMessage && message.window == root &&
                          message.message_type == protocols && message.format == 32 &&
                          static_cast<Atom>(message.data.l[0]) == ping && message.data.l[1] == stamp &&
                          static_cast<Window>(message.data.l[2]) == *awaited;
    if (isAnswer) {
        awaited.reset();
    }
    return isAnswer;
}

bool FocusedClientPing::waitForEvent(TimePoint deadline) const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
        return false;
    }
    pollfd descriptor{ConnectionNumber(display), POLLIN, 0};
    const int ready = poll(&descriptor, 1, static_cast<int>(std::min<long long>(left.count(), 1000)));
    // A connection that broke would wake the poll at once until the deadline.
    return ready >= 0 && (descriptor.revents & (POLLERR | POLLHUP | POLLNVAL)) == 0;
}

bool FocusedClientPing::ask(Window focus) {
    const auto target = targetOf(focus);
    if (!target) {
        return false;
    }
    if (awaited) {
        return true;
    }
    // Window managers ping with server timestamps; a counter from the top of the range keeps ours apart.
    stamp = stamp == 0 ? 0x7FFFFFF0 : stamp - 1;
    XEvent question{};
    question.xclient.type = ClientMessage;
    question.xclient.window = *target;
    question.xclient.message_type = protocols;
    question.xclient.format = 32;
    question.xclient.data.l[0] = static_cast<long>(ping);
    question.xclient.data.l[1] = stamp;
    question.xclient.data.l[2] = static_cast<long>(*target);
    XSendEvent(display, *target, False, NoEventMask, &question);
    XFlush(display);
    awaited = target;
    return true;
}

bool FocusedClientPing::awaitAnswer(TimePoint deadline, const EventSink& otherEvents) {
    while (awaited) {
        while (XPending(display) > 0) {
            XEvent event;
            XNextEvent(display, &event);
            if (answers(event)) {
                return true;
            }
            otherEvents(event);
        }
        if (std::chrono::steady_clock::now() >= deadline || !waitForEvent(deadline)) {
            return false;
        }
    }
    return false;
}

} // namespace keyferry
