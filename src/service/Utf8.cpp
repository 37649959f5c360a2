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

} // namespace

std::optional<std::size_t> codePointCount(std::string_view text) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < text.size(); ++count) {
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
    }
    return count;
}

bool hasControlCharacter(std::string_view text) {
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f) {
            return true;
        }
    }
    return false;
}

} // namespace keyferry::service::Utf8
