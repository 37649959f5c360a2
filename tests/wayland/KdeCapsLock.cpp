// Taps Caps Lock through KDE's fake input, as a user would on a keyboard, so that the lock is on (or off) for
// the whole seat. Argument: "on" or "off". Prints the lock's state as KWin told it before ("on" or "off"),
// and exits 0 once it is the one asked for, 1 otherwise, 2 when KWin grants neither fake input nor key states.
#include "KdeKeyPresser.h"

#include <xkbcommon/xkbcommon.h>

#include <chrono>
#include <cstdio>
#include <string_view>
#include <thread>

namespace {

constexpr keyferry::LayoutKey capsLockKey{66, XKB_KEY_Caps_Lock}; // the evdev key 58, as xkb numbers it

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: keyferry-kde-caps-lock on|off\n", stderr);
        return 2;
    }
    const bool wanted = std::string_view(argv[1]) == "on";
    keyferry::KdeKeyPresser keys;
    const auto before = keys.ready() ? keys.capsLockOn() : std::nullopt;
    if (!before) {
        return 2;
    }
    std::printf("%s\n", *before ? "on" : "off");
    std::fflush(stdout);
    if (*before != wanted && !(keys.press(capsLockKey, true) && keys.press(capsLockKey, false))) {
        return 2;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (keys.capsLockOn() != wanted && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return keys.capsLockOn() == wanted ? 0 : 1;
}
