#include "LayoutKeyboardPoster.h"

#include "ReceiverWait.h"
#include "Utf16.h"

#include <ranges>
#include <thread>
#include <vector>

namespace keyferry {

namespace {

// How long the seat may take to show its keyboard after the route's keyboard appeared.
constexpr std::chrono::milliseconds keymapLimit(2000);

constexpr std::size_t charactersPerConfirmation = 8;

// A character of a layout is one stroke; the Unicode entry takes several.
bool isUnicodeEntry(const std::vector<KeyStroke>& strokes) {
    return strokes.size() > 1;
}

} // namespace

LayoutKeyboardPoster::LayoutKeyboardPoster(std::unique_ptr<UserKeyPresser> presser)
    : LayoutKeyboardPoster(std::move(presser), Timing()) {}

LayoutKeyboardPoster::LayoutKeyboardPoster(std::unique_ptr<UserKeyPresser> presser, Timing posterTiming,
                                           PlanSource planSource)
    : keys(std::move(presser)), plans(std::move(planSource)), timing(posterTiming), pacer(timing.pacing),
      blindPacer(timing.blindPacing) {
    if (!plans) {
        seat = std::make_unique<SeatKeymap>();
        plans = [this] { return seat->plan(keymapLimit, keys->layoutInEffect()); };
    }
    // Early, so that windows have seen the route's keyboard before the first text.
    plan = currentPlan();
}

std::shared_ptr<const LayoutKeyPlan> LayoutKeyboardPoster::currentPlan() {
    return keys->ready() ? plans() : nullptr;
}

bool LayoutKeyboardPoster::canType(std::u16string_view text) {
    plan = currentPlan();
    if (!plan) {
        return false;
    }
    watchReceiver();
    unitsLeft = text.size();
    bool needsUnicodeEntry = false;
    for (const char32_t character : codePointsFromUtf16(text)) {
        const auto strokes = plan->strokesFor(character);
        if (!strokes) {
            return false;
        }
        needsUnicodeEntry = needsUnicodeEntry || isUnicodeEntry(*strokes);
    }
    // A window that does not understand the entry would show its hex digits as text.
    return !needsUnicodeEntry || keys->focusedWindowTakesUnicodeEntry().value_or(true);
}

bool LayoutKeyboardPoster::postKeyPair(std::u16string_view units) {
    if (!plan) {
        plan = currentPlan();
    }
    if (!plan) {
        return false;
    }
    const auto characters = strokesOf(units);
    const bool typed = characters && capsLockOffForTheText() && typeCharacters(*characters);
    unitsLeft -= std::min(unitsLeft, units.size());
    if (!typed || unitsLeft == 0) {
        restoreCapsLock();
    }
    if (!typed) {
        plan.reset();
    }
    return typed;
}

// The strokes of each character; none when one of them has none.
std::optional<std::vector<std::vector<KeyStroke>>> LayoutKeyboardPoster::strokesOf(std::u16string_view units) const {
    std::vector<std::vector<KeyStroke>> characters;
    for (const char32_t character : codePointsFromUtf16(units)) {
        auto strokes = plan->strokesFor(character);
        if (!strokes) {
            return std::nullopt;
        }
        characters.push_back(std::move(*strokes));
    }
    return characters;
}

// The route confirms every few characters: one that queues keys (GNOME's) can then hand a window no more than
// those after a stall, a few kilobytes of events, while each confirmation costs GNOME a round trip through
// mutter (2,000 characters went at some 600 a second confirmed one by one, at some 790 eight by eight).
bool LayoutKeyboardPoster::typeCharacters(const std::vector<std::vector<KeyStroke>>& characters) {
    std::size_t unconfirmed = 0;
    for (const auto& strokes : characters) {
        if (!receiverKeepsUp()) {
            return false;
        }
        bool typed = true;
        for (const KeyStroke& stroke : strokes) {
            typed = typed && tap(stroke);
        }
        if (!typed || (++unconfirmed == charactersPerConfirmation && !keys->confirm())) {
            return false;
        }
        unconfirmed %= charactersPerConfirmation;
        brake.keysSent();
    }
    return unconfirmed == 0 || keys->confirm();
}

// Caps Lock would swap the case of every letter and keep windows from starting the Unicode entry, so it is
// released before a text's first key and put back after its last. False when it is on and cannot be released.
bool LayoutKeyboardPoster::capsLockOffForTheText() {
    if (capsLock != CapsLock::unchecked) {
        return true;
    }
    capsLock = CapsLock::off;
    if (!keys->capsLockOn().value_or(false)) {
        return true;
    }
    const auto key = plan->capsLockKey();
    if (!key || !tap(KeyStroke{*key, {}}) || !keys->confirm()) {
        return false;
    }
    capsLock = CapsLock::released;
    return true;
}

void LayoutKeyboardPoster::restoreCapsLock() {
    const auto key = plan ? plan->capsLockKey() : std::nullopt;
    if (capsLock == CapsLock::released && key && tap(KeyStroke{*key, {}})) {
        keys->confirm();
    }
    capsLock = CapsLock::unchecked;
}

bool LayoutKeyboardPoster::tap(const KeyStroke& stroke) {
    bool pressed = true;
    for (const LayoutKey& modifier : stroke.modifiers) {
        pressed = pressed && press(modifier, true);
    }
    pressed = pressed && press(stroke.key, true) && keys->press(stroke.key, false);
    // Released even after a failure, so no modifier stays held.
    bool released = true;
    for (const LayoutKey& modifier : std::views::reverse(stroke.modifiers)) {
        released = keys->press(modifier, false) && released;
    }
    return pressed && released;
}

} // namespace keyferry

namespace keyferry {

// Presses wait for the pacer; releases follow at once, as a key's own events reach a window together.
bool LayoutKeyboardPoster::press(const LayoutKey& key, bool pressed) {
    if (pressed) {
        KeyPacer& pace = receiverWatched ? pacer : blindPacer;
        std::this_thread::sleep_until(pace.nextKeysAt(std::chrono::steady_clock::now()));
        pace.sent(std::chrono::steady_clock::now());
    }
    return keys->press(key, pressed);
}

// A new text may go to another window: the brake learns its connection anew, so a window typed into before
// that is slow for reasons of its own never holds it up.
void LayoutKeyboardPoster::watchReceiver() {
    brake = BacklogBrake();
    backlog.reset();
    if (const int connection = seat ? seat->connection() : -1; connection >= 0) {
        backlog.emplace(connection);
    }
}

bool LayoutKeyboardPoster::receiverKeepsUp() {
    const ReceiverLook look = waitForReceiver(brake, backlog, timing.receiverPatience);
    receiverWatched = look.backlogSeen;
    return look.keepsUp;
}

} // namespace keyferry
