#include "TextInjector.h"

#include "Utf16.h"

#include <algorithm>

namespace keyferry {

namespace {

bool isHighSurrogate(char16_t unit) { return (unit & 0xFC00) == 0xD800; }

// Every line end becomes one line feed: CR LF first, then any CR left.
std::u16string normalisedLineEnds(std::u16string_view units) {
    std::u16string out;
    out.reserve(units.size());
    for (std::size_t index = 0; index < units.size(); ++index) {
        if (units[index] == u'\r') {
            if (index + 1 < units.size() && units[index + 1] == u'\n') {
                ++index;
            }
            out.push_back(u'\n');
        } else {
            out.push_back(units[index]);
        }
    }
    return out;
}

} // namespace

TextInjector::TextInjector(KeyboardPoster& keyboardPoster, AccessibilityProbe& accessibilityProbe)
    : poster(keyboardPoster), accessibility(accessibilityProbe) {}

bool TextInjector::insert(std::string_view text) {
    if (text.empty()) {
        return true; // nothing to type, so no permission needed
    }
    return insert(utf16FromUtf8(text));
}

bool TextInjector::insert(std::u16string_view text) {
    if (text.empty()) {
        return true;
    }
    // Never the system prompt from here: asking is the shell's business.
    if (!accessibility.isTrusted(false)) {
        return false;
    }
    return postUnicode(normalisedLineEnds(text));
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
