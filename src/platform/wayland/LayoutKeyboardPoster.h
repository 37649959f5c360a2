#pragma once

#include "KeyPacer.h"
#include "KeyboardPoster.h"
#include "LayoutKeyPlan.h"
#include "SeatKeymap.h"
#include "UserKeyPresser.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string_view>

namespace keyferry {

// Types text with the keys of the user's own keymap through a route that can press no other (GNOME's
// remote desktop, KDE's fake input): characters of the layout in effect as their keys with the modifiers
// of their level, any other through the input method's Unicode entry (see LayoutKeyPlan). The keymap is the
// one the compositor gives its clients (see SeatKeymap), read again before each text. A text holding a
// character that no stroke types (a control character other than line feed and tab) is refused whole.
// Presses are paced (see KeyPacer) so that no window is flooded: a compositor drops a client that falls too
// far behind, and GTK windows also trade input-method state with the compositor at every key.
//
// Ownership: owned by the application or a tool, with its presser, for its whole life. Thread: canType and
// postKeyPair are called from one thread at a time (the service's queue). Failure: postKeyPair returns false
// when the route is lost or a key is refused; what was pressed before stays typed.
class LayoutKeyboardPoster final : public KeyboardPoster {
public:
    // Short texts at one press per half millisecond; long ones settle at a pace a slow GTK client keeps up with
    // on a busy machine: at one press per 1.5 ms, one of three 2,000-character texts lost its last third in a
    // GTK window under KWin, with a load of 11 on two cores.
    static constexpr KeyPacer::Timing defaultPacing{std::chrono::microseconds(500), std::chrono::microseconds(2500),
                                                    150};

    // Where the plan for the keymap in effect comes from; null when there is no keymap.
    using PlanSource = std::function<std::shared_ptr<const LayoutKeyPlan>()>;

    // With no plan source, plans come from the seat's keymap (see SeatKeymap).
    explicit LayoutKeyboardPoster(std::unique_ptr<UserKeyPresser> presser, KeyPacer::Timing pacing = defaultPacing,
                                  PlanSource plans = {});

    bool postKeyPair(std::u16string_view units) override;
    bool canType(std::u16string_view text) override;

private:
    std::shared_ptr<const LayoutKeyPlan> currentPlan();
    bool tap(const KeyStroke& stroke);
    bool press(const LayoutKey& key, bool pressed);

    std::unique_ptr<UserKeyPresser> keys;
    std::unique_ptr<SeatKeymap> seat;
    PlanSource plans;
    std::shared_ptr<const LayoutKeyPlan> plan;
    KeyPacer pacer;
};

} // namespace keyferry
