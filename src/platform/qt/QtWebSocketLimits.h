#pragma once

#include <chrono>
#include <cstdint>

namespace keyferry {

// Limits every Qt WebSocket task keeps. The defaults are the product's; tests shorten them.
struct QtWebSocketLimits {
    // A ping whose pong has not come back within this time has failed, so that a dead link is noticed
    // well before two heartbeats have passed.
    std::chrono::milliseconds pongDeadline{10'000};
    // Larger incoming messages (and frames) are refused: the socket fails.
    std::uint64_t largestIncomingMessage = 1024 * 1024;
    // Time allowed to finish the closing handshake of a socket that was let go before it is cut.
    std::chrono::milliseconds closingGrace{5'000};
};

} // namespace keyferry
