#pragma once

#include "BacklogBrake.h"
#include "CompositorBacklog.h"

#include <chrono>
#include <optional>

namespace keyferry {

// What a wait for the receiving window found.
struct ReceiverLook {
    bool keepsUp;     // the next keys may go; false when the window read nothing for the whole patience
    bool backlogSeen; // the compositor's connections could be seen (else keys must go at a blind pace)
};

// Waits while the window receiving the keys is behind (see BacklogBrake), sampling the compositor's connections
// every 10 ms; gives up when the window read nothing at all for `patience` (each time its backlog shrinks,
// the patience starts again). Returns at once, keeping up, when `backlog` is empty or cannot be sampled. For every
// route whose keys a compositor passes on to windows (the virtual keyboard, GNOME's remote desktop, KDE's fake
// input); blocks the calling thread, which owns `brake` and `backlog`.
ReceiverLook waitForReceiver(BacklogBrake& brake, std::optional<CompositorBacklog>& backlog,
                             std::chrono::steady_clock::duration patience);

} // namespace keyferry
