#pragma once

#include <cstddef>
#include <string_view>

namespace keyferry {

// Posts synthetic keyboard events to whatever application has the keyboard focus. Owned by the
// application (or a test) and outliving the injector; called from the service's queue only, one call
// at a time.
class KeyboardPoster {
public:
    static constexpr std::size_t maximumUnits = 20;

    virtual ~KeyboardPoster() = default;

    // Posts one key-down/key-up pair that types `units` (1 to maximumUnits UTF-16 code units, a surrogate
    // pair never split except at the end of the text). False when the events could not be made or posted;
    // what was posted before stays typed.
    virtual bool postKeyPair(std::u16string_view units) = 0;

    // Whether every character of `text` (a whole text, line ends already made line feeds) can be typed.
    // Asked once per text before its first key, so a text holding a character this keyboard cannot type
    // is refused whole rather than typed in part. A keyboard that types anything keeps this answer.
    virtual bool canType(std::u16string_view text) {
        static_cast<void>(text);
        return true;
    }

    // Announces the whole text whose chunks follow (as they will be posted), so that a poster which must
    // prepare keys for characters can do it once for all of them; posting works the same without it.
    virtual void prepare(std::u16string_view /*text*/) {}
};

} // namespace keyferry
