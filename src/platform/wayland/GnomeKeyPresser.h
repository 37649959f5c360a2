#pragma once

#include "GnomeRemoteDesktop.h"
#include "UserKeyPresser.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace keyferry {

// Presses the user's keys through one GNOME remote-desktop session, started on the first ready() and kept
// for the presser's life (started again only after it was lost). Keys go as the keysyms they give with no
// modifier held, the modifiers as their own keysyms, so the level is the one the held modifiers select.
// Each key is sent when the next is pressed, without waiting; confirm() sends the last one and waits for
// mutter's answer, which comes after every earlier key was handled. The layout in effect is the one GNOME's
// settings tell (see GnomeInputSources). Contract as UserKeyPresser's.
class GnomeKeyPresser final : public UserKeyPresser {
public:
    bool ready() override;
    bool press(const LayoutKey& key, bool pressed) override;
    bool confirm() override;
    std::optional<bool> capsLockOn() override;
    std::optional<std::uint32_t> layoutInEffect() override;

private:
    struct Event {
        std::uint32_t keysym;
        bool pressed;
    };

    std::unique_ptr<GnomeRemoteDesktop> session;
    std::optional<Event> held; // the last key, not sent yet
};

} // namespace keyferry
