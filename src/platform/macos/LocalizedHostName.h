#pragma once

#include <string>

namespace keyferry {

// The computer's name as the user set it in System Settings (Sharing), for example "Ada's MacBook Air":
// NSHost's localizedName of the current host, as UTF-8. Empty when the system reports none. Any thread; may
// take a moment (the host lookup), so it is read once at start.
class LocalizedHostName {
public:
    LocalizedHostName() = delete;

    static std::string current();
};

} // namespace keyferry
