#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace keyferry::service::Utf8 {

// The number of Unicode code points in `text`, or nothing when it is not well-formed UTF-8 (overlong
// forms, surrogates and values above U+10FFFF are refused).
std::optional<std::size_t> codePointCount(std::string_view text);

// Whether `text` holds a character names may not: a C0 or C1 control, DEL, or a format character that is
// invisible or changes the direction of the text (U+200B, U+200E, U+202E, U+2066, U+FEFF and the like).
bool hasControlCharacter(std::string_view text);

} // namespace keyferry::service::Utf8
