#pragma once

#include "KeyboardPoster.h"
#include "LayoutKeyPlan.h"
#include "SeatKeymap.h"
#include "UserKeyPresser.h"

#include <chrono>
#include <memory>
#include <string_view>

namespace keyferry {

// Types text with the keys of the user's own keymap through a route that can press no other (GNOME's
// remote desktop, KDE's fake input): characters of the layout in effect as their keys with the modifiers
// of their level, any other through the input method's Unicode entry (see LayoutKeyPlan). The keymap is the
// one the compositor gives its clients (see SeatKeymap), read again before each text. A text holding a
// character that no stroke types (a control character other than line feed and tab) is refused whole.
//
// Ownership: owned by the application or a tool, with its presser, for its whole life. Thread: canType and
// postKeyPair are called from one thread at a time (the service's queue). Failure: postKeyPair returns false
// when the route is lost or a key is refused; what was pressed before stays typed.
class LayoutKeyboardPoster final : public KeyboardPoster {
public:
    explicit LayoutKeyboardPoster(std::unique_ptr<UserKeyPresser> presser);

    bool postKeyPair(std::u16string_view units) override;
    bool canType(std::u16string_view text) override;

private:
    std::shared_ptr<const LayoutKeyPlan> currentPlan();
    bool tap(const KeyStroke& stroke);

    std::unique_ptr<UserKeyPresser> keys;
    SeatKeymap seat;
    std::shared_ptr<const LayoutKeyPlan> plan;
};

} // namespace keyferry
