#pragma once

#include "AccessibilityProbe.h"
#include "KeyboardPoster.h"

#include <string>
#include <string_view>

namespace keyferry {

// Types a text into the focused application as key events carrying up to 20 UTF-16 units each.
// Called on the service's queue only; calls must not overlap.
class TextInjector {
public:
    TextInjector(KeyboardPoster& poster, AccessibilityProbe& accessibility);

    // True when all of the (UTF-8) text was posted, or there was nothing to type; false without the
    // permission, when the keyboard cannot type some character of it (then nothing is posted), or when an
    // event could not be posted (earlier chunks stay typed). Bytes that are not
    // valid UTF-8 are typed as U+FFFD, one per maximal ill-formed sequence, rather than dropped.
    bool insert(std::string_view text);

    // The same for text already in UTF-16 code units, passed on as they are (a lone surrogate included).
    bool insert(std::u16string_view text);

private:
    bool insertUnits(std::u16string units);
    bool postUnicode(const std::u16string& units);

    KeyboardPoster& poster;
    AccessibilityProbe& accessibility;
};

} // namespace keyferry
