#pragma once

#include "CompositorBacklog.h"

#include <cstdint>
#include <vector>

namespace keyferry {

// Whether the next keys must wait for the client they go to. That client's connection is the one whose queue
// grows while keys are being sent (the focused window, or Xwayland for X windows); other connections, such as
// a background client that is slow for reasons of its own, never hold typing up. The keys wait while such a
// receiving connection holds more than half its send buffer, far from the full buffer at which the compositor
// drops the client. Plain value: the caller samples (CompositorBacklog) and sleeps.
class BacklogBrake {
public:
    using Connections = std::vector<CompositorBacklog::Connection>;

    // Keys were handed to the compositor since the last look.
    void keysSent() { keysSinceLastLook = true; }

    // Takes a new look at the compositor's connections; the bytes by which receiving connections are over
    // their share (0: the next keys may go).
    std::uint64_t excess(const Connections& now);

private:
    void noteReceivers(const Connections& now);

    Connections lastLook;
    std::vector<std::uint64_t> receivers;
    bool keysSinceLastLook = false;
};

} // namespace keyferry
