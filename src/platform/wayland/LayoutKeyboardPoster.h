#pragma once

#include "BacklogBrake.h"
#include "CompositorBacklog.h"
#include "KeyPacer.h"
#include "KeyboardPoster.h"
#include "LayoutKeyPlan.h"
#include "SeatKeymap.h"
#include "UserKeyPresser.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace keyferry {

// Types text with the keys of the user's own keymap through a route that can press no other (GNOME's
// remote desktop, KDE's fake input): characters of the layout in effect as their keys with the modifiers
// of their level, any other through the input method's Unicode entry (see LayoutKeyPlan). The keymap is the
// one the compositor gives its clients (see SeatKeymap), read again before each text. A text holding a
// character that no stroke types (a control character other than line feed and tab) is refused whole, and so
// is one that needs the Unicode entry when the route tells that the window getting the keys does not
// understand it.
// Caps Lock, where the route tells it is on, is released for each text and put back after it.
// Presses are paced (see KeyPacer) so that no window is flooded: a compositor drops a client that falls too
// far behind, and GTK windows also trade input-method state with the compositor at every key. Where the
// compositor's connections can be seen (CompositorBacklog of the compositor that the seat's keymap comes from),
// each character also waits while the window receiving the keys is behind (see waitForReceiver), and the text
// fails when that window reads nothing for `receiverPatience`; where they cannot, a slower pace alone protects
// it.
//
// Ownership: owned by the application or a tool, with its presser, for its whole life. Thread: canType and
// postKeyPair are called from one thread at a time (the service's queue). Failure: postKeyPair returns false
// when the route is lost, a key is refused or the receiving window stopped reading; what was pressed before
// stays typed.
class LayoutKeyboardPoster final : public KeyboardPoster {
public:
    struct Timing {
        // Where the window receiving the keys is watched, keys wait for it whenever it falls behind, so they go
        // at the virtual keyboard's pace: a long text settles at 1,250 presses a second.
        KeyPacer::Timing pacing{std::chrono::microseconds(500), std::chrono::microseconds(800), 150};
        // Where it is not (a compositor run by another user), a pace a slow GTK client keeps up with on a busy
        // machine unaided: at one press per 1.5 ms, one of three 2,000-character texts lost its last third in a
        // GTK window under KWin, with a load of 11 on two cores.
        KeyPacer::Timing blindPacing{std::chrono::microseconds(500), std::chrono::microseconds(2500), 150};
        // How long keys wait for a receiving window that reads nothing at all before the text fails.
        std::chrono::steady_clock::duration receiverPatience = std::chrono::seconds(5);
    };

    // Where the plan for the keymap in effect comes from; null when there is no keymap.
    using PlanSource = std::function<std::shared_ptr<const LayoutKeyPlan>()>;

    // With no plan source, plans come from the seat's keymap (see SeatKeymap), and the receiving window is
    // watched through the seat's connection; with one, it is not.
    explicit LayoutKeyboardPoster(std::unique_ptr<UserKeyPresser> presser);
    LayoutKeyboardPoster(std::unique_ptr<UserKeyPresser> presser, Timing posterTiming, PlanSource plans = {});

    bool postKeyPair(std::u16string_view units) override;
    bool canType(std::u16string_view text) override;

private:
    std::shared_ptr<const LayoutKeyPlan> currentPlan();
    bool tap(const KeyStroke& stroke);
    bool press(const LayoutKey& key, bool pressed);
    std::optional<std::vector<std::vector<KeyStroke>>> strokesOf(std::u16string_view units) const;
    bool typeCharacters(const std::vector<std::vector<KeyStroke>>& characters);
    bool capsLockOffForTheText();
    void restoreCapsLock();
    void watchReceiver();
    bool receiverKeepsUp();

    std::unique_ptr<UserKeyPresser> keys;
    std::unique_ptr<SeatKeymap> seat;
    PlanSource plans;
    std::shared_ptr<const LayoutKeyPlan> plan;
    Timing timing;
    KeyPacer pacer;
    KeyPacer blindPacer;
    bool receiverWatched = false; // whether the last look at the receiving window could see it
    std::size_t unitsLeft = 0;    // of the text last asked about, not posted yet
    enum class CapsLock { unchecked, off, released } capsLock = CapsLock::unchecked; // for the text being typed
    std::optional<CompositorBacklog> backlog;
    BacklogBrake brake;
};

} // namespace keyferry
