// A plain Xlib client that takes the keyboard focus and appends the text of every key press to a file, as a text
// field would insert it (Return inserts a line feed). Arguments: output file, milliseconds to spend on each key
// (a slow client), then optionally "fresh", "ping", "pending" and "roundtrip". It follows keymap changes as
// plain Xlib clients do (MappingNotify, then XRefreshKeyboardMapping). Prints "ready" once it has the focus and
// its keymap; with "fresh", as soon as it has the focus, before it has translated any key (a window that just
// opened). With "ping" it answers the window manager's _NET_WM_PING in turn with its other events, as toolkit
// applications do; without, it is a client that never answers. With "pending" it reads its events the way event
// loops built on XPending do (XPending, then a wait on its connection); with "roundtrip" it asks the server
// something (the pointer's position) for every key, as some clients do while handling one. Stops on SIGTERM.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <poll.h>

#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>

namespace {

XIC createInputContext(Display* display, Window window) {
    XSetLocaleModifiers("@im=none");
    XIM method = XOpenIM(display, nullptr, nullptr, nullptr);
    if (method == nullptr) {
        return nullptr;
    }
    return XCreateIC(method, XNInputStyle, XIMPreeditNothing | XIMStatusNothing, XNClientWindow, window, XNFocusWindow,
                     window, nullptr);
}

std::string textOf(XIC context, XKeyPressedEvent& event) {
    char buffer[64];
    KeySym keysym = NoSymbol;
    Status status = 0;
    const int length = Xutf8LookupString(context, &event, buffer, sizeof buffer, &keysym, &status);
    if (keysym == XK_Return || keysym == XK_KP_Enter) {
        return "\n";
    }
    if (status == XLookupChars || status == XLookupBoth) {
        return std::string(buffer, static_cast<std::size_t>(length));
    }
    return {};
}

// Xlib fetches the keymap, and asks to be told of its changes, on the first key it translates; that request
// waits in its output buffer until its event queue runs empty. An application has usually handled keys long
// before text is typed into it; this client does the same before it says it is ready.
void loadKeymap(Display* display) {
    XKeyEvent key{};
    key.type = KeyPress;
    key.display = display;
    key.keycode = XKeysymToKeycode(display, XK_a);
    char buffer[8];
    KeySym keysym = NoSymbol;
    XLookupString(&key, buffer, sizeof buffer, &keysym, nullptr);
    XFlush(display);
}

// Waits until an event is queued, reading the connection only when none is, as loops built on XPending do.
void awaitQueuedEvent(Display* display) {
    // XPending sends what is buffered, then reads what has arrived (sending may read it too).
    while (XPending(display) == 0) {
        pollfd connection{ConnectionNumber(display), POLLIN, 0};
        poll(&connection, 1, -1);
    }
}

void askPointer(Display* display, Window window) {
    Window root = 0;
    Window child = 0;
    int rootX = 0;
    int rootY = 0;
    int x = 0;
    int y = 0;
    unsigned mask = 0;
    XQueryPointer(display, window, &root, &child, &rootX, &rootY, &x, &y, &mask);
}

bool hasOption(int argc, char** argv, const std::string& option) {
    for (int index = 3; index < argc; ++index) {
        if (argv[index] == option) {
            return true;
        }
    }
    return false;
}

void answerPings(Display* display, Window window) {
    Atom ping = XInternAtom(display, "_NET_WM_PING", False);
    XSetWMProtocols(display, window, &ping, 1);
}

bool isPing(Display* display, const XEvent& event) {
    return event.type == ClientMessage && event.xclient.message_type == XInternAtom(display, "WM_PROTOCOLS", True) &&
           static_cast<Atom>(event.xclient.data.l[0]) == XInternAtom(display, "_NET_WM_PING", True);
}

void answer(Display* display, XEvent event) {
    const Window root = DefaultRootWindow(display);
    event.xclient.window = root;
    XSendEvent(display, root, False, SubstructureNotifyMask | SubstructureRedirectMask, &event);
    XFlush(display);
}

} // namespace

int main(int argc, char** argv) {
    const bool fresh = hasOption(argc, argv, "fresh");
    const bool pings = hasOption(argc, argv, "ping");
    const bool pending = hasOption(argc, argv, "pending");
    const bool roundTrip = hasOption(argc, argv, "roundtrip");
    if (argc < 3 || argc != 3 + int(fresh) + int(pings) + int(pending) + int(roundTrip)) {
        std::cerr << "usage: keyferry-xlib-receiver OUTPUT DELAY_MS [fresh] [ping] [pending] [roundtrip]\n";
        return 2;
    }
    if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr || !XSupportsLocale()) {
        std::cerr << "no UTF-8 locale\n";
        return 1;
    }
    const auto delay = std::chrono::milliseconds(std::atoi(argv[2]));
    std::ofstream output(argv[1], std::ios::binary | std::ios::trunc);
    Display* display = XOpenDisplay(nullptr);
    if (display == nullptr || !output) {
        std::cerr << "cannot open the display or the output file\n";
        return 1;
    }
    const int screen = DefaultScreen(display);
    const Window window = XCreateSimpleWindow(display, RootWindow(display, screen), 0, 0, 400, 300, 0,
                                              BlackPixel(display, screen), WhitePixel(display, screen));
    XSelectInput(display, window, KeyPressMask | FocusChangeMask | StructureNotifyMask);
    if (pings) {
        answerPings(display, window);
    }
    XMapRaised(display, window);
    XIC context = createInputContext(display, window);
    if (context == nullptr) {
        std::cerr << "no input context\n";
        return 1;
    }
    bool announced = false;
    while (true) {
        if (pending) {
            awaitQueuedEvent(display);
        }
        XEvent event;
        XNextEvent(display, &event);
        if (XFilterEvent(&event, None)) {
            continue;
        }
        if (isPing(display, event) && event.xclient.window == window) {
            answer(display, event);
        } else if (event.type == MappingNotify) {
            // What every Xlib client is told to do when the keyboard mapping changes.
            XRefreshKeyboardMapping(&event.xmapping);
        } else if (event.type == MapNotify) {
            XSetInputFocus(display, window, RevertToParent, CurrentTime);
        } else if (event.type == FocusIn && !announced) {
            XSetICFocus(context);
            if (!fresh) {
                loadKeymap(display);
            }
            announced = true;
            std::cout << "ready" << std::endl;
        } else if (event.type == KeyPress) {
            if (roundTrip) {
                askPointer(display, window);
            }
            output << textOf(context, event.xkey);
            output.flush();
            std::this_thread::sleep_for(delay);
        }
    }
}
