#pragma once

#include <functional>

namespace keyferry {

// Reports the reopen event: the user opens Keyferry again while it runs (a double click in the Finder,
// Launchpad, `open -a Keyferry`). Qt reports it only as an activation, which cannot be told apart from any
// other, so this installs a handler for the reopen Apple event (kCoreEventClass, kAEReopenApplication) with
// NSAppleEventManager, replacing the application object's own.
//
// Main thread only; install after the event loop has started (after NSApplication installed its handlers).
// `handler` runs on the main thread for every reopen event until uninstall().
class ReopenEvents {
public:
    ReopenEvents() = delete;

    static void install(std::function<void()> handler);
    static void uninstall();
};

} // namespace keyferry
