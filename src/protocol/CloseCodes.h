#pragma once

namespace keyferry::CloseCodes {

// The close codes of the computer's WebSocket, as either side sends them.

// The computer stops (it quits, loses typing permission, reconnects) or the service shuts down.
inline constexpr int goingAway = 1001;
// The service closed this connection because the same computer opened a newer one.
inline constexpr int replaced = 4000;
// The service closed this connection because a phone removed the computer.
inline constexpr int computerRemoved = 4001;

} // namespace keyferry::CloseCodes
