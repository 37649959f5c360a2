#pragma once

#include <string>
#include <string_view>

namespace keyferry {

// Conversions between the UTF-8 the network carries and the UTF-16 code units that key events carry.
// Neither fails: whatever cannot be converted becomes U+FFFD REPLACEMENT CHARACTER, so a damaged text is
// still typed visibly instead of being dropped.
//
// UTF-8 to UTF-16: each maximal ill-formed subsequence (a stray continuation byte, a truncated sequence, an
// overlong form, an encoded surrogate, a value above U+10FFFF, the bytes 0xC0, 0xC1, 0xF5-0xFF) becomes
// one U+FFFD, following the Unicode Standard's recommended practice.
std::u16string utf16FromUtf8(std::string_view utf8);

// UTF-16 to UTF-8: an unpaired surrogate becomes U+FFFD.
std::string utf8FromUtf16(std::u16string_view utf16);

// UTF-16 to code points: an unpaired surrogate becomes U+FFFD.
std::u32string codePointsFromUtf16(std::u16string_view utf16);

// True for the first half of a surrogate pair.
inline bool isHighSurrogate(char16_t unit) {
    return (unit & 0xFC00) == 0xD800;
}

} // namespace keyferry
