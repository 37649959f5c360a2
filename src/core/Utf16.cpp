#include "Utf16.h"

#include "Utf8.h"

namespace keyferry {

namespace {

constexpr char32_t replacementCharacter = 0xFFFD;

void appendUtf16(std::u16string& out, char32_t codePoint) {
    if (codePoint < 0x10000) {
        out.push_back(static_cast<char16_t>(codePoint));
        return;
    }
    const char32_t offset = codePoint - 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (offset >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (offset & 0x3FF)));
}

void appendUtf8(std::string& out, char32_t codePoint) {
    if (codePoint < 0x80) {
        out.push_back(static_cast<char>(codePoint));
    } else if (codePoint < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (codePoint >> 6)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    } else if (codePoint < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (codePoint >> 12)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (codePoint >> 18)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    }
}

bool isLowSurrogate(char16_t unit) {
    return (unit & 0xFC00) == 0xDC00;
}

} // namespace

std::u16string utf16FromUtf8(std::string_view utf8) {
    std::u16string out;
    out.reserve(utf8.size());
    for (std::size_t position = 0; position < utf8.size();) {
        const Utf8Sequence sequence = readUtf8Sequence(utf8, position);
        appendUtf16(out, sequence.codePoint);
        position += sequence.length;
    }
    return out;
}

std::u32string codePointsFromUtf16(std::u16string_view utf16) {
    std::u32string characters;
    characters.reserve(utf16.size());
    for (std::size_t index = 0; index < utf16.size(); ++index) {
        const char16_t unit = utf16[index];
        if (isHighSurrogate(unit) && index + 1 < utf16.size() && isLowSurrogate(utf16[index + 1])) {
            const char32_t high = unit - 0xD800u;
            const char32_t low = utf16[index + 1] - 0xDC00u;
            characters.push_back(0x10000 + ((high << 10) | low));
            ++index;
        } else if (isHighSurrogate(unit) || isLowSurrogate(unit)) {
            characters.push_back(replacementCharacter);
        } else {
            characters.push_back(unit);
        }
    }
    return characters;
}

std::string utf8FromUtf16(std::u16string_view utf16) {
    std::string out;
    out.reserve(utf16.size() * 3);
    for (const char32_t character : codePointsFromUtf16(utf16)) {
        appendUtf8(out, character);
    }
    return out;
}

} // namespace keyferry
