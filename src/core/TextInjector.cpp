#include "TextInjector.h"

#include "Utf16.h"

#include <algorithm>

namespace keyferry {

namespace {

// Every line end becomes one line feed: CR LF first, then any CR left. In place, since the text only shrinks.
void normaliseLineEnds(std::u16string& units) {
    std::size_t kept = 0;
    for (std::size_t index = 0; index < units.size(); ++index) {
        if (units[index] == u'\r') {
            if (index + 1 < units.size() && units[index + 1] == u'\n') {
                ++index;
            }
            units[kept++] = u'\n';
        } else {
            units[kept++] = units[index];
        }
    }
    units.resize(kept);
}

} // namespace

TextInjector::TextInjector(KeyboardPoster& keyboardPoster, AccessibilityProbe& accessibilityProbe)
    : poster(keyboardPoster), accessibility(accessibilityProbe) {}

bool TextInjector::insert(std::string_view text) {
    if (text.empty()) {
        return true; // nothing to type, so no permission needed
    }
    return insertUnits(utf16FromUtf8(text));
}

bool TextInjector::insert(std::u16string_view text) {
    if (text.empty()) {
        return true;
    }
    return insertUnits(std::u16string(text));
}

// The one copy of the text per call; every chunk is a view into it.
bool TextInjector::insertUnits(std::u16string units) {
    // Never the system prompt from here: asking is the shell's business.
    if (!accessibility.isTrusted(false)) {
        return false;
    }
    normaliseLineEnds(units);
    // A text with a character this keyboard cannot type is refused whole: typed in part, it would be lost.
    if (!poster.canType(units)) {
        return false;
    }
    poster.prepare(units);
    return postUnicode(units);
}

bool TextInjector::postUnicode(const std::u16string& units) {
    const std::size_t total = units.size();
    std::size_t position = 0;
    while (position < total) {
        std::size_t length = std::min(KeyboardPoster::maximumUnits, total - position);
        // Keep a surrogate pair in one event, unless this chunk ends the text anyway.
        if (position + length < total && isHighSurrogate(units[position + length - 1])) {
            --length;
        }
        if (length < 1) {
            return false;
        }
        if (!poster.postKeyPair(std::u16string_view(units).substr(position, length))) {
            return false;
        }
        position += length;
    }
    return true;
}

} // namespace keyferry
