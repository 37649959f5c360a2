#include "Utf16.h"

#include <cstdint>

namespace keyferry {

namespace {

constexpr char32_t replacementCharacter = 0xFFFD;

struct Decoded {
    char32_t codePoint;
    std::size_t length; // bytes consumed; at least 1
    bool wellFormed = true;
};

bool isContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// Decodes the sequence starting at `position`; an ill-formed one yields U+FFFD and consumes its maximal
// ill-formed prefix (at least one byte).
Decoded decodeOne(std::string_view bytes, std::size_t position) {
    const auto lead = static_cast<unsigned char>(bytes[position]);
    if (lead < 0x80) {
        return {lead, 1};
    }
    std::size_t length = 0;
    char32_t codePoint = 0;
    unsigned char lowest = 0x80; // allowed range of the second byte, which rules out overlongs and surrogates
    unsigned char highest = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        codePoint = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        codePoint = lead & 0x0F;
        lowest = lead == 0xE0 ? 0xA0 : 0x80;
        highest = lead == 0xED ? 0x9F : 0xBF;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        codePoint = lead & 0x07;
        lowest = lead == 0xF0 ? 0x90 : 0x80;
        highest = lead == 0xF4 ? 0x8F : 0xBF;
    } else {
        return {replacementCharacter, 1, false};
    }
    for (std::size_t index = 1; index < length; ++index) {
        if (position + index >= bytes.size()) {
            return {replacementCharacter, index, false};
        }
        const auto byte = static_cast<unsigned char>(bytes[position + index]);
        const bool inRange = index == 1 ? (byte >= lowest && byte <= highest) : isContinuation(byte);
        if (!inRange) {
            return {replacementCharacter, index, false};
        }
        codePoint = (codePoint << 6) | (byte & 0x3F);
    }
    return {codePoint, length};
}

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

bool isLowSurrogate(char16_t unit) { return (unit & 0xFC00) == 0xDC00; }

} // namespace

std::u16string utf16FromUtf8(std::string_view utf8) {
    std::u16string out;
    out.reserve(utf8.size());
    for (std::size_t position = 0; position < utf8.size();) {
        const Decoded decoded = decodeOne(utf8, position);
        appendUtf16(out, decoded.codePoint);
        position += decoded.length;
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

bool isValidUtf8(std::string_view bytes) {
    for (std::size_t position = 0; position < bytes.size();) {
        const Decoded decoded = decodeOne(bytes, position);
        if (!decoded.wellFormed) {
            return false;
        }
        position += decoded.length;
    }
    return true;
}

} // namespace keyferry
