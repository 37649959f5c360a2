#pragma once

#include "HelperProcess.h"

#include <string>

namespace keyferry {

// A private Xvfb server on a free display number (chosen by the server itself), stopped at destruction.
// Owned by a test or benchmark; throws std::runtime_error when the server does not start.
class XvfbDisplay {
public:
    XvfbDisplay();

    // The DISPLAY value, e.g. ":3".
    const std::string& name() const { return displayName; }

private:
    HelperProcess server;
    std::string displayName;
};

} // namespace keyferry
