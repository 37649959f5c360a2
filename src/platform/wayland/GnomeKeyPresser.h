#pragma once

#include "GnomeRemoteDesktop.h"
#include "UserKeyPresser.h"

#include <memory>

namespace keyferry {

// Presses the user's keys through one GNOME remote-desktop session, started on the first ready() and kept
// for the presser's life (started again only after it was lost). Keys go as the keysyms they give with no
// modifier held, the modifiers as their own keysyms, so the level is the one the held modifiers select.
// Contract as UserKeyPresser's.
class GnomeKeyPresser final : public UserKeyPresser {
public:
    bool ready() override;
    bool press(const LayoutKey& key, bool pressed) override;

private:
    std::unique_ptr<GnomeRemoteDesktop> session;
};

} // namespace keyferry
