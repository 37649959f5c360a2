#pragma once

#include "AccessibilityProbe.h"
#include "KeyboardPoster.h"

#include <string_view>

namespace keyferry {

// Types a text into the focused application as key events carrying up to 20 UTF-16 units each.
// Called on the service's queue only; calls must not overlap.
class TextInjector {
public:
    TextInjector(KeyboardPoster& poster, AccessibilityProbe& accessibility);

    // True when all of the (UTF-8) text was posted, or there was nothing to type; false without the
    // permission or when an event could not be posted (earlier chunks stay typed).
    bool insert(std::string_view text);

private:
    bool postUnicode(const std::u16string& units);

    KeyboardPoster& poster;
    AccessibilityProbe& accessibility;
};

} // namespace keyferry
