#pragma once

#include "FocusedClientPing.h"
#include "SpareKeycodePool.h"
#include "SpareKeycodeWriter.h"
#include "X11ClientInbox.h"
#include "X11Keymap.h"
#include "X11UserModifiers.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace keyferry {

// One X connection that types text with XTest: characters the layout has through their own keys, every other
// character through a spare keycode bound to it (see SpareKeycodePool), and the spare keycodes given back
// on request. Owned by XTestKeyboardPoster, which serialises every call; not thread-safe itself. Failures are
// returned (false), never thrown; a lost X connection is reopened on the next call.
class X11KeyboardSession {
public:
    struct Timing {
        std::chrono::steady_clock::duration settle;
        std::chrono::steady_clock::duration reuseGuard;
        // The slowest client typing stays exact for: one that handles one key per this interval.
        std::chrono::steady_clock::duration slowestKeyInterval;
        // How long a client that answers pings may take to answer beyond the keys it still has to read,
        // before its places are freed by the estimate instead.
        std::chrono::steady_clock::duration answerPatience = std::chrono::seconds(2);
    };

    explicit X11KeyboardSession(Timing timing);
    ~X11KeyboardSession();
    X11KeyboardSession(const X11KeyboardSession&) = delete;
    X11KeyboardSession& operator=(const X11KeyboardSession&) = delete;

    // Types the characters as key presses in order; false when no X display with XTest is reachable or the
    // server refused a request (what was typed before stays typed). A piece followed by more of the announced
    // text is sent without waiting for the server, so a request it has refused fails a later piece of that
    // text at the latest its last one, which waits.
    bool type(std::u32string_view text);

    // Binds what `text` needs to places free now, without waiting for any; the rest is bound while typing.
    // Texts then typed piece by piece in the same order are bound ahead as far as the places go.
    void prepare(std::u32string_view text);

    // Writes the original symbols back on every borrowed keycode.
    void restoreSpareKeycodes();

    // Waits until the client the keys went to confirms it has read them all (it answers a ping), or is seen
    // to have (X11ClientInbox), at most until `deadline`; false when neither happens in time.
    bool awaitReading(std::chrono::steady_clock::time_point deadline);

    bool hasBindings() const;
    // When the slowest client is expected to have read the last borrowed key typed.
    std::optional<std::chrono::steady_clock::time_point> lastReadBy() const;
    // When the last key was sent.
    std::optional<std::chrono::steady_clock::time_point> lastSent() const { return sentAt; }

private:
    bool connect();
    void disconnect();
    void matchTestDeviceKeymap();
    bool loadKeymap();
    bool keymapChangedElsewhere();
    void noteEvent(const XEvent& event);
    bool followKeymapChange();
    bool carriesOurSymbols(const X11Keymap& current, unsigned keycode) const;
    bool matchesOurKeymap(const X11Keymap& current) const;
    void giveBackBindingsStillInPlace(const X11Keymap& current);
    void discardOwnNotifications();

    void readPendingEvents();
    Window focusOfKeys();

    std::u32string_view textAhead(std::u32string_view text) const;
    bool typePrefix(std::u32string_view text, std::u32string_view ahead, std::size_t& position, int group);
    bool lacksPlace(std::u32string_view text, int group);
    bool bindFor(std::u32string_view remaining, int group);
    SpareKeycodePool::TimePoint placesFreeAt(std::size_t count, std::unordered_set<unsigned long>& bound);
    void noteReadingPace(std::size_t unreadKeys, std::chrono::steady_clock::time_point since);
    bool plainPlacesOnly() const;
    std::vector<unsigned> bindPlaces(const std::vector<unsigned long>& needed,
                                     const std::unordered_set<unsigned long>& bound,
                                     SpareKeycodePool::TimePoint freeAt);
    void askFocusedClient();
    bool awaitNextAnswer(std::chrono::steady_clock::time_point deadline);
    bool awaitReadingSeen(std::chrono::steady_clock::time_point deadline);
    void confirmRead(std::size_t keys);
    void noteFocus(Window focus);
    void collectNeeded(std::u32string_view text, int group, std::vector<unsigned long>& needed,
                       std::unordered_set<unsigned long>& bound);
    bool applyBindings(const std::vector<unsigned>& keycodes);
    SpareKeycodeWriter writer() const;
    int currentGroup();
    bool pressKeys(std::u32string_view text, std::size_t& position, int group);
    std::optional<KeyStroke> strokeFor(char32_t character, int group);

    Timing timing;
    Display* display = nullptr;
    std::atomic<bool> connectionLost{false};
    int xkbEventBase = 0;
    std::optional<X11Keymap> keymap;
    std::optional<SpareKeycodePool> pool;
    std::optional<FocusedClientPing> ping;
    std::optional<X11ClientInbox> inbox;
    bool keymapEventSeen = false;
    std::optional<X11UserModifiers> userModifiers;
    // The focused window whose focus changes are reported to this connection, since when, and how many pieces
    // went to it since the last round trip.
    struct WatchedFocus {
        Window window = 0;
        bool confirmed = false;
        int piecesSent = 0;
    };
    std::optional<WatchedFocus> watchedFocus;
    bool textGoesOn = false; // the piece being typed is followed by more of the announced text
    // The windows keys went to since their client last confirmed reading them (a ping answers for one client).
    std::optional<Window> typedInto;
    bool typedIntoSeveral = false;
    Window lastFocus = None;          // the window the last keys went to
    std::optional<Window> slowReader; // a window seen reading its keys slowly
    std::size_t keysAsked = 0;        // the keys typed when the client was last asked whether it had read them
    // The text announced by prepare() and how much of it has been typed.
    std::u32string announced;
    std::size_t announcedTyped = 0;
    std::chrono::steady_clock::time_point slowestReader;
    std::optional<std::chrono::steady_clock::time_point> sentAt;
};

} // namespace keyferry
