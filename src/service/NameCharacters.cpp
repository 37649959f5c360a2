#include "Utf8.h"

namespace keyferry::service::Utf8 {
namespace {

struct Lead {
    int continuationBytes;
    unsigned minimum;
};

std::optional<Lead> leadOf(unsigned char byte) {
    if (byte < 0x80) {
        return Lead{0, 0};
    }
    if (byte >= 0xc2 && byte <= 0xdf) {
        return Lead{1, 0x80};
    }
    if (byte >= 0xe0 && byte <= 0xef) {
        return Lead{2, 0x800};
    }
    if (byte >= 0xf0 && byte <= 0xf4) {
        return Lead{3, 0x10000};
    }
    return std::nullopt;
}

// The code point that starts at `i`, advancing `i` past it; nothing when the bytes there are not
// well-formed UTF-8.
std::optional<unsigned> nextCodePoint(std::string_view text, std::size_t& i) {
    const auto first = static_cast<unsigned char>(text[i]);
    const auto lead = leadOf(first);
    if (!lead || text.size() - i < static_cast<std::size_t>(lead->continuationBytes) + 1) {
        return std::nullopt;
    }
    unsigned value = lead->continuationBytes == 0 ? first : first & (0x3fU >> lead->continuationBytes);
    for (int k = 1; k <= lead->continuationBytes; ++k) {
        const auto next = static_cast<unsigned char>(text[i + static_cast<std::size_t>(k)]);
        if ((next & 0xc0) != 0x80) {
            return std::nullopt;
        }
        value = (value << 6) | (next & 0x3fU);
    }
    if (value < lead->minimum || value > 0x10ffff || (value >= 0xd800 && value <= 0xdfff)) {
        return std::nullopt;
    }
    i += static_cast<std::size_t>(lead->continuationBytes) + 1;
    return value;
}

// Characters a name may not hold: controls, and format characters that are invisible or change the
// direction of what follows (a name could otherwise show one thing and be another). The joiners U+200C
// and U+200D stay allowed: scripts and emoji sequences need them.
bool isRefusedInNames(unsigned c) {
    return c < 0x20 || (c >= 0x7f && c <= 0x9f) || c == 0xad || c == 0x61c || c == 0x180e || c == 0x200b ||
           c == 0x200e || c == 0x200f || (c >= 0x2028 && c <= 0x202e) || (c >= 0x2060 && c <= 0x206f) ||
           c == 0xfeff || (c >= 0xfff9 && c <= 0xfffb) || (c >= 0xe0000 && c <= 0xe007f);
}

} // namespace

std::optional<std::size_t> codePointCount(std::string_view text) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < text.size(); ++count) {
        if (!nextCodePoint(text, i)) {
            return std::nullopt;
        }
    }
    return count;
}

bool hasControlCharacter(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto value = nextCodePoint(text, i); // malformed text is no name either
        if (!value || isRefusedInNames(*value)) {
            return true;
        }
    }
    return false;
}

} // namespace keyferry::service::Utf8
