#include "WaylandRoundtrip.h"

#include <poll.h>
#include <wayland-client.h>

namespace keyferry {

namespace {

void markDone(void* data, wl_callback*, uint32_t) {
    *static_cast<bool*>(data) = true;
}
const wl_callback_listener doneListener{markDone};

// Waits for events on the connection and reads them; false on time-out or error.
bool readEvents(wl_display* display, std::chrono::steady_clock::time_point deadline) {
    while (wl_display_prepare_read(display) != 0) {
        if (wl_display_dispatch_pending(display) < 0) {
            return false;
        }
    }
    if (wl_display_flush(display) < 0) {
        wl_display_cancel_read(display);
        return false;
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd descriptor{wl_display_get_fd(display), POLLIN, 0};
    if (left.count() <= 0 || poll(&descriptor, 1, static_cast<int>(left.count())) <= 0) {
        wl_display_cancel_read(display);
        return false;
    }
    return wl_display_read_events(display) >= 0;
}

} // namespace

bool roundtripWithin(wl_display* display, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    bool done = false;
    wl_callback* callback = wl_display_sync(display);
    wl_callback_add_listener(callback, &doneListener, &done);
    bool healthy = true;
    while (!done && healthy) {
        healthy = readEvents(display, deadline) && wl_display_dispatch_pending(display) >= 0;
    }
    wl_callback_destroy(callback);
    return done;
}

} // namespace keyferry
