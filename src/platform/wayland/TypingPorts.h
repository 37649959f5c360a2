#pragma once

#include "AccessibilityProbe.h"
#include "KeyboardPoster.h"
#include "TypingBackendChoice.h"

#include <memory>
#include <optional>
#include <string>

namespace keyferry {

// The keyboard poster and availability probe for this session, with the choice that picked them. Owned by
// the application (or a tool) for its whole life; the poster and probe keep their own contracts.
struct TypingPorts {
    TypingBackendChoice choice;
    std::unique_ptr<KeyboardPoster> poster;
    std::unique_ptr<AccessibilityProbe> probe;

    // The session's backend (see chooseTypingBackend), or the one named, probing the routes for real. When
    // nothing works, a Wayland session gets a poster and probe that refuse everything, and an X11 session
    // keeps XTest's, whose probe answers true once an X server with XTEST appears.
    static TypingPorts make(std::optional<TypingBackend> requested = std::nullopt);
};

} // namespace keyferry
