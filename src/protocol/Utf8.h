#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace keyferry {

// The one reading of UTF-8 that the application and the service share. Well-formed means the Unicode
// Standard's definition: no overlong forms, no encoded surrogates, nothing above U+10FFFF, none of the bytes
// 0xC0, 0xC1, 0xF5-0xFF.

// One character read from `bytes` at `position` (which must be inside `bytes`).
struct Utf8Sequence {
    char32_t codePoint = 0; // U+FFFD when the sequence is ill-formed
    std::size_t length = 1; // bytes consumed, at least 1: an ill-formed sequence's maximal ill-formed prefix
    bool wellFormed = true;
};

// Reads the sequence at `position`; an ill-formed one consumes its maximal ill-formed subpart, so that callers
// replacing each with U+FFFD follow the Unicode Standard's recommended practice.
Utf8Sequence readUtf8Sequence(std::string_view bytes, std::size_t position);

// True when the bytes are well-formed UTF-8.
bool isValidUtf8(std::string_view bytes);

// The number of code points in `text`, or nothing when it is not well-formed UTF-8.
std::optional<std::size_t> utf8CodePointCount(std::string_view text);

} // namespace keyferry
