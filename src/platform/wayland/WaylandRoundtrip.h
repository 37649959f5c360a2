#pragma once

#include <chrono>

struct wl_display;

namespace keyferry {

// wl_display_roundtrip with a time limit: sends what is queued, then dispatches events until the compositor
// has answered everything sent before, or until `limit` passed (a compositor that hangs must not hang the
// caller: the probe runs on the main thread, typing on the service's queue). False on time-out or a broken
// connection. Called by the connection's single user thread.
bool roundtripWithin(wl_display* display, std::chrono::milliseconds limit);

} // namespace keyferry
