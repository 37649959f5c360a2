#pragma once

#include <string_view>

namespace keyferry::service::NameCharacters {

// Whether `text` holds a character names may not, or is not well-formed UTF-8: a C0 or C1 control, DEL, or a
// format character that is invisible or changes the direction of the text (U+200B, U+200E, U+202E, U+2066,
// U+FEFF and the like).
bool hasControlCharacter(std::string_view text);

} // namespace keyferry::service::NameCharacters
