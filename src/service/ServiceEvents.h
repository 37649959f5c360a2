#pragma once

#include <functional>
#include <string>

namespace keyferry::service {

// What the service core tells the connection layer, synchronously, on the network thread, after the
// change is stored. Unset members drop the report.
struct ServiceEvents {
    // The computer's list of phones changed (a phone paired, unpaired or was removed).
    std::function<void(const std::string& computerId)> phonesChanged;
    // A text for the computer was stored and waits for delivery.
    std::function<void(const std::string& computerId)> textQueued;
    // The computer's credential was revoked: its connection must end.
    std::function<void(const std::string& computerId)> computerRevoked;
    // Whether the computer holds an open connection now.
    std::function<bool(const std::string& computerId)> computerOnline;
};

} // namespace keyferry::service
