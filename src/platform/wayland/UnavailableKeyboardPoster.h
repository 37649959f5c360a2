#pragma once

#include "KeyboardPoster.h"

namespace keyferry {

// The keyboard where no typing route works in this session: it types nothing and says so, so no text is
// ever acknowledged as typed. Stateless; callable from any thread.
class UnavailableKeyboardPoster final : public KeyboardPoster {
public:
    bool postKeyPair(std::u16string_view) override { return false; }
    bool canType(std::u16string_view) override { return false; }
};

} // namespace keyferry
