#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace keyferry::service::Utf8 {

// The number of Unicode code points in `text`, or nothing when it is not well-formed UTF-8 (overlong
// forms, surrogates and values above U+10FFFF are refused).
std::optional<std::size_t> codePointCount(std::string_view text);

// Whether `text` holds a C0 control character or DEL; names may not.
bool hasControlCharacter(std::string_view text);

} // namespace keyferry::service::Utf8
