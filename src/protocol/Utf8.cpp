#include "Utf8.h"

namespace keyferry {

namespace {

constexpr char32_t replacementCharacter = 0xFFFD;

bool isContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// The shape of a sequence by its lead byte: its length, the lead's payload bits, and the range allowed for the
// second byte, which rules out overlong forms, surrogates and values above U+10FFFF.
struct LeadByte {
    std::size_t length = 0; // 0: the byte cannot start a sequence
    char32_t payload = 0;
    unsigned char lowest = 0x80;
    unsigned char highest = 0xBF;
};

LeadByte leadByte(unsigned char lead) {
    if (lead < 0x80) {
        return {1, lead};
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        return {2, static_cast<char32_t>(lead & 0x1F)};
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        return {3, static_cast<char32_t>(lead & 0x0F), static_cast<unsigned char>(lead == 0xE0 ? 0xA0 : 0x80),
                static_cast<unsigned char>(lead == 0xED ? 0x9F : 0xBF)};
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        return {4, static_cast<char32_t>(lead & 0x07), static_cast<unsigned char>(lead == 0xF0 ? 0x90 : 0x80),
                static_cast<unsigned char>(lead == 0xF4 ? 0x8F : 0xBF)};
    }
    return {};
}

} // namespace

Utf8Sequence readUtf8Sequence(std::string_view bytes, std::size_t position) {
    const LeadByte lead = leadByte(static_cast<unsigned char>(bytes[position]));
    if (lead.length == 0) {
        return {replacementCharacter, 1, false};
    }
    char32_t codePoint = lead.payload;
    for (std::size_t index = 1; index < lead.length; ++index) {
        if (position + index >= bytes.size()) {
            return {replacementCharacter, index, false};
        }
        const auto byte = static_cast<unsigned char>(bytes[position + index]);
        const bool inRange = index == 1 ? (byte >= lead.lowest && byte <= lead.highest) : isContinuation(byte);
        if (!inRange) {
            return {replacementCharacter, index, false};
        }
        codePoint = (codePoint << 6) | (byte & 0x3F);
    }
    return {codePoint, lead.length, true};
}

std::optional<std::size_t> utf8CodePointCount(std::string_view text) {
    std::size_t count = 0;
    for (std::size_t position = 0; position < text.size(); ++count) {
        const Utf8Sequence sequence = readUtf8Sequence(text, position);
        if (!sequence.wellFormed) {
            return std::nullopt;
        }
        position += sequence.length;
    }
    return count;
}

bool isValidUtf8(std::string_view bytes) {
    return utf8CodePointCount(bytes).has_value();
}

} // namespace keyferry
