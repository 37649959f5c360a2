#include "XvfbDisplay.h"

#include <stdexcept>

namespace keyferry {

XvfbDisplay::XvfbDisplay()
    : server({"Xvfb", "-displayfd", "1", "-screen", "0", "1024x768x24", "-nolisten", "tcp", "-noreset"}) {
    const auto number = server.readLine(std::chrono::seconds(20));
    if (!number || number->empty()) {
        throw std::runtime_error("Xvfb did not start");
    }
    displayName = ":" + *number;
}

} // namespace keyferry
