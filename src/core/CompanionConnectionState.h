#pragma once

namespace keyferry {

// The service's connection state, as the shell presents it. Carries no text of its own.
enum class CompanionConnectionState {
    unpaired,
    creatingCode,
    waitingForPhone,
    permissionRequired,
    connecting,
    connected,
    reconnecting,
};

} // namespace keyferry
