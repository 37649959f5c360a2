#include "NameCharacters.h"

#include "Utf8.h"

namespace keyferry::service::NameCharacters {
namespace {

// Characters a name may not hold: controls, and format characters that are invisible or change the
// direction of what follows (a name could otherwise show one thing and be another). The joiners U+200C
// and U+200D stay allowed: scripts and emoji sequences need them.
bool isRefusedInNames(char32_t c) {
    return c < 0x20 || (c >= 0x7f && c <= 0x9f) || c == 0xad || c == 0x61c || c == 0x180e || c == 0x200b ||
           c == 0x200e || c == 0x200f || (c >= 0x2028 && c <= 0x202e) || (c >= 0x2060 && c <= 0x206f) || c == 0xfeff ||
           (c >= 0xfff9 && c <= 0xfffb) || (c >= 0xe0000 && c <= 0xe007f);
}

} // namespace

bool hasControlCharacter(std::string_view text) {
    for (std::size_t position = 0; position < text.size();) {
        const Utf8Sequence sequence = readUtf8Sequence(text, position);
        if (!sequence.wellFormed || isRefusedInNames(sequence.codePoint)) { // malformed text is no name either
            return true;
        }
        position += sequence.length;
    }
    return false;
}

} // namespace keyferry::service::NameCharacters
