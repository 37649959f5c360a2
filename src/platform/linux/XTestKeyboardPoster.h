#pragma once

#include "KeyboardPoster.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>

namespace keyferry {

class X11KeyboardSession;

// Types text into the focused X window with XTest, exactly, whatever the characters and the layout.
//
// Characters the current layout has are typed with their own keys (with Shift where the layout needs it). Every
// other character is bound to a place on a spare keycode (a keycode with no symbol, or only a media/launcher
// symbol; each holds two characters, one typed plain and one with Shift): the bindings are made in one keymap
// request for the characters of the text ahead as far as the places go (each keymap change makes every Qt window
// compile its whole keymap again), followed by a short settle so clients see the new keymap before the keys.
// Bindings stay as a least-recently-used cache. A client translates a key with the keymap it holds when it
// processes the event, possibly long after it was sent, so a place is bound again only once the window's client
// has read its last key. A client that answers the window manager's pings (_NET_WM_PING: Qt, GTK and browser
// windows) is asked after each chunk and answers once it has handled the keys sent before, so texts with more
// distinct characters than places are typed at its own pace. A client that never answers but runs here as the
// same user is watched handling its events from outside (X11ClientInbox), with the same effect. For any other
// client, a place is rebound only `reuseGuard` after the moment a client handling one key per
// `slowestKeyInterval` would have read its last key. Caps Lock and other locks, latched modifiers and modifier
// keys the user holds are released for the chunk and put back after it, so the text never turns into shortcuts
// or changes case; the server is asked for them only when its state notifications show a change. The chunks of
// one announced text go out without waiting for the server, with a round trip every few chunks, at the text's
// end and when the focused window reports a focus change. The borrowed keycodes get their own symbols back
// `restoreAfter` after the slowest client has read the last key (from a background thread), and at destruction
// (once the window has said or been seen to have read every key, or after `restoreAfter` at most for one that
// can do neither).
//
// Ownership: owned by the application or a tool; opens its own X connection (DISPLAY) on first use and
// reopens it after a loss. Thread: postKeyPair is called from one thread at a time (the service's queue);
// the restoring thread is private. Failure: postKeyPair returns false when no X display with XTest is
// reachable or the server refused a request.
class XTestKeyboardPoster final : public KeyboardPoster {
public:
    struct Timing {
        std::chrono::steady_clock::duration settle = std::chrono::milliseconds(5);
        std::chrono::steady_clock::duration reuseGuard = std::chrono::milliseconds(250);
        std::chrono::steady_clock::duration restoreAfter = std::chrono::seconds(3);
        std::chrono::steady_clock::duration slowestKeyInterval = std::chrono::milliseconds(10);
    };

    XTestKeyboardPoster();
    explicit XTestKeyboardPoster(Timing timing);
    ~XTestKeyboardPoster() override;
    XTestKeyboardPoster(const XTestKeyboardPoster&) = delete;
    XTestKeyboardPoster& operator=(const XTestKeyboardPoster&) = delete;

    bool postKeyPair(std::u16string_view units) override;
    // Binds the characters of the whole text that the layout lacks at once, as far as places are free now, so
    // that its chunks need no keymap change of their own (one change and one settle per text, and a window
    // that reads its keymap on the first key finds them all).
    void prepare(std::u16string_view text) override;

private:
    void restoreWhenIdle(const std::stop_token& stop);

    Timing timing;
    std::unique_ptr<X11KeyboardSession> session;
    std::mutex mutex;
    std::condition_variable_any typedSomething;
    std::jthread restorer;
};

} // namespace keyferry
