#include "X11KeyboardSession.h"

#include "XTestDeviceKeymap.h"
#include "XlibErrors.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>

namespace keyferry {

namespace {

constexpr unsigned long unicodeKeysymBase = 0x01000000;

unsigned long keysymFor(char32_t character) {
    if (character == U'\n') {
        return XK_Return;
    }
    if (character == U'\t') {
        return XK_Tab;
    }
    const bool latin1 = (character >= 0x20 && character <= 0x7E) || (character >= 0xA0 && character <= 0xFF);
    return latin1 ? character : unicodeKeysymBase + character;
}

} // namespace

X11KeyboardSession::X11KeyboardSession(Timing sessionTiming) : timing(sessionTiming) {}

X11KeyboardSession::~X11KeyboardSession() {
    if (display != nullptr && !connectionLost.load()) {
        restoreSpareKeycodes();
    }
    disconnect();
}

bool X11KeyboardSession::connect() {
    if (display != nullptr && !connectionLost.load()) {
        return true;
    }
    disconnect();
    installXlibErrorHandlers();
    display = XOpenDisplay(nullptr);
    if (display == nullptr) {
        return false;
    }
    connectionLost.store(false);
    reportConnectionLoss(display, connectionLost);
    int eventBase = 0;
    int errorBase = 0;
    int major = 0;
    int minor = 0;
    if (!XTestQueryExtension(display, &eventBase, &errorBase, &major, &minor)) {
        disconnect();
        return false;
    }
    int opcode = 0;
    major = XkbMajorVersion;
    minor = XkbMinorVersion;
    if (!XkbQueryExtension(display, &opcode, &xkbEventBase, &errorBase, &major, &minor)) {
        disconnect();
        return false;
    }
    const unsigned long mapEvents = XkbNewKeyboardNotifyMask | XkbMapNotifyMask;
    XkbSelectEvents(display, XkbUseCoreKbd, mapEvents, mapEvents);
    userModifiers.emplace(display, xkbEventBase);
    ping.emplace(display);
    inbox.emplace(display);
    matchTestDeviceKeymap();
    if (!loadKeymap()) {
        disconnect();
        return false;
    }
    return true;
}

void X11KeyboardSession::disconnect() {
    if (display != nullptr) {
        XCloseDisplay(display);
        display = nullptr;
    }
    keymap.reset();
    pool.reset();
    ping.reset();
    inbox.reset();
    typedInto.reset();
    typedIntoSeveral = false;
    slowReader.reset();
    watchedFocus.reset();
    userModifiers.reset();
}

void X11KeyboardSession::matchTestDeviceKeymap() {
    if (giveTestDeviceTheCoreKeymap(display)) {
        discardOwnNotifications();
    }
}

bool X11KeyboardSession::loadKeymap() {
    const auto previousUse = pool ? pool->lastReadBy() : std::nullopt;
    keymap = X11Keymap::load(display);
    if (!keymap) {
        pool.reset();
        return false;
    }
    const unsigned levels = keymap->shiftKeycode() ? 2 : 1;
    if (ping) {
        ping->forget();
    }
    pool.emplace(keymap->spareKeycodes(), levels, timing.reuseGuard);
    if (previousUse) {
        // The new keycodes may be the ones a slow client is still reading under their old meaning.
        for (const unsigned keycode : keymap->spareKeycodes()) {
            for (unsigned level = 0; level < levels; ++level) {
                pool->markTyped({keycode, level}, *previousUse);
            }
        }
    }
    return true;
}

bool X11KeyboardSession::keymapChangedElsewhere() {
    readPendingEvents();
    return std::exchange(keymapEventSeen, false);
}

// Reads the events that have arrived, without a round trip.
void X11KeyboardSession::readPendingEvents() {
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        noteEvent(event);
    }
}

void X11KeyboardSession::noteEvent(const XEvent& event) {
    if (ping && ping->answers(event)) {
        confirmRead(keysAsked);
    } else if (event.type == MappingNotify) {
        keymapEventSeen = true;
    } else if ((event.type == FocusIn || event.type == FocusOut) && watchedFocus &&
               event.xfocus.window == watchedFocus->window) {
        watchedFocus.reset();
    } else if (event.type == xkbEventBase) {
        const int kind = reinterpret_cast<const XkbEvent*>(&event)->any.xkb_type;
        keymapEventSeen = keymapEventSeen || kind == XkbMapNotify || kind == XkbNewKeyboardNotify;
        userModifiers->note(event);
    }
}

// The server also reports a new keyboard when the XTest device sends its first key after another keyboard:
// the core keyboard takes over that device's keymap, which holds the same symbols, ours included. Treating
// that as a new layout gave the borrowed keycodes back while the keys typed with them were still on their
// way, and a window that had not read its keymap yet read them without their characters. Only a change of the
// symbols themselves counts: then the keycodes still carrying ours get their own symbols back (the others
// belong to the new layout now) and the keymap is read again.
bool X11KeyboardSession::followKeymapChange() {
    const auto current = X11Keymap::load(display);
    if (!current) {
        return false;
    }
    if (matchesOurKeymap(*current)) {
        return true;
    }
    giveBackBindingsStillInPlace(*current);
    matchTestDeviceKeymap();
    return loadKeymap();
}

// Compared on the symbols of the first group's two levels, which is what a layout change changes: the server
// lists the further columns as it derives them from its own keymap, not always as they were written.
bool X11KeyboardSession::carriesOurSymbols(const X11Keymap& current, unsigned keycode) const {
    auto expected = pool->isSpare(keycode) ? writer().intendedSymbols(keycode) : keymap->originalSymbols(keycode);
    auto actual = current.originalSymbols(keycode);
    constexpr std::size_t compared = 2;
    expected.resize(compared, NoSymbol);
    actual.resize(compared, NoSymbol);
    return actual == expected;
}

bool X11KeyboardSession::matchesOurKeymap(const X11Keymap& current) const {
    if (current.firstKeycode() != keymap->firstKeycode() || current.lastKeycode() != keymap->lastKeycode() ||
        current.heldModifierKeycodes() != keymap->heldModifierKeycodes()) {
        return false;
    }
    for (int keycode = current.firstKeycode(); keycode <= current.lastKeycode(); ++keycode) {
        if (!carriesOurSymbols(current, static_cast<unsigned>(keycode))) {
            return false;
        }
    }
    return true;
}

void X11KeyboardSession::giveBackBindingsStillInPlace(const X11Keymap& current) {
    std::vector<unsigned> stillOurs;
    const bool sameRange =
        current.firstKeycode() == keymap->firstKeycode() && current.lastKeycode() == keymap->lastKeycode();
    for (const unsigned keycode : pool->boundKeycodes()) {
        if (sameRange && carriesOurSymbols(current, keycode)) {
            stillOurs.push_back(keycode);
        }
    }
    pool->forgetBindings();
    writer().rewrite(stillOurs);
    discardOwnNotifications();
}

// The server reports our own keymap changes back to us; they are known already. A client's answer read
// meanwhile still counts.
void X11KeyboardSession::discardOwnNotifications() {
    XSync(display, False);
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        if (ping && ping->answers(event)) {
            confirmRead(keysAsked);
        }
        userModifiers->note(event);
    }
}

bool X11KeyboardSession::type(std::u32string_view text) {
    if (!connect()) {
        return false;
    }
    const int errorsBefore = xlibProtocolErrors();
    if (keymapChangedElsewhere() && !followKeymapChange()) {
        return false;
    }
    const auto modifiers = userModifiers->release(keymap->heldModifierKeycodes());
    const std::u32string_view ahead = textAhead(text);
    textGoesOn = ahead.size() > text.size() && !modifiers.any();
    std::size_t position = 0;
    bool typed = true;
    while (typed && position < text.size()) {
        typed = typePrefix(text, ahead, position, modifiers.group);
    }
    if (ahead.size() > text.size()) {
        announcedTyped += position;
    } else {
        announced.clear();
    }
    if (userModifiers->putBack(modifiers)) {
        XSync(display, False);
    }
    return typed && !connectionLost.load() && xlibProtocolErrors() == errorsBefore;
}

// The rest of the announced text when `text` continues it, so that places are bound ahead; else `text` alone.
std::u32string_view X11KeyboardSession::textAhead(std::u32string_view text) const {
    const std::u32string_view rest = std::u32string_view(announced).substr(std::min(announcedTyped, announced.size()));
    return rest.starts_with(text) ? rest : text;
}

bool X11KeyboardSession::typePrefix(std::u32string_view text, std::u32string_view ahead, std::size_t& position,
                                    int group) {
    if (lacksPlace(text.substr(position), group) && !bindFor(ahead.substr(position), group)) {
        return false;
    }
    const std::size_t before = position;
    if (!pressKeys(text, position, group)) {
        return false;
    }
    return position > before;
}

void X11KeyboardSession::prepare(std::u32string_view text) {
    if (!connect() || (keymapChangedElsewhere() && !followKeymapChange())) {
        return;
    }
    announced.assign(text);
    announcedTyped = 0;
    std::vector<unsigned long> needed;
    std::unordered_set<unsigned long> bound;
    collectNeeded(text, currentGroup(), needed, bound);
    if (!needed.empty()) {
        applyBindings(bindPlaces(needed, bound, std::chrono::steady_clock::now()));
    }
}

int X11KeyboardSession::currentGroup() {
    XkbStateRec current{};
    return XkbGetState(display, XkbUseCoreKbd, &current) == Success ? current.group : 0;
}

// The keysyms of `text` the layout lacks, in order of first appearance, as many as the places hold: those not
// bound yet (or, for a slow window, bound on a shifted place, to come onto a plain one), and those bound among
// the nearest half, which are kept. Keeping only half makes room for many
// characters per keymap change; a farther character that loses its place is bound again when it comes.
void X11KeyboardSession::collectNeeded(std::u32string_view text, int group, std::vector<unsigned long>& needed,
                                       std::unordered_set<unsigned long>& bound) {
    std::unordered_set<unsigned long> seen;
    const std::size_t kept = std::max<std::size_t>(pool->size() / 2, 1);
    for (const char32_t character : text) {
        if (seen.size() >= pool->size()) {
            break;
        }
        const unsigned long keysym = keysymFor(character);
        if (keymap->strokeFor(keysym, group) || !seen.insert(keysym).second) {
            continue;
        }
        const auto place = pool->placeOf(keysym);
        if (!place || (place->level > 0 && plainPlacesOnly())) {
            needed.push_back(keysym);
        } else if (seen.size() <= kept) {
            bound.insert(keysym);
        }
    }
}

bool X11KeyboardSession::lacksPlace(std::u32string_view text, int group) {
    return std::any_of(text.begin(), text.end(), [&](char32_t character) {
        const unsigned long keysym = keysymFor(character);
        return !keymap->strokeFor(keysym, group) && !pool->placeOf(keysym);
    });
}

// Binds the characters of `remaining` that have no key yet, as many as places free allow, waiting for the
// receiving client to have read the keys typed on them when too few are.
bool X11KeyboardSession::bindFor(std::u32string_view remaining, int group) {
    std::vector<unsigned long> needed;
    std::unordered_set<unsigned long> bound;
    collectNeeded(remaining, group, needed, bound);
    if (needed.empty()) {
        return true;
    }
    const std::size_t unreadKeys = pool->unconfirmedKeys();
    const auto waitStarted = std::chrono::steady_clock::now();
    const auto freeAt = placesFreeAt(needed.size(), bound);
    noteReadingPace(unreadKeys, waitStarted);
    const auto keycodes = bindPlaces(needed, bound, freeAt);
    return !keycodes.empty() && applyBindings(keycodes);
}

bool X11KeyboardSession::plainPlacesOnly() const {
    return slowReader == lastFocus;
}

// Binds on plain places only for a window seen reading slowly, on any place otherwise or when no plain one is
// free; the keycodes changed.
std::vector<unsigned> X11KeyboardSession::bindPlaces(const std::vector<unsigned long>& needed,
                                                     const std::unordered_set<unsigned long>& bound,
                                                     SpareKeycodePool::TimePoint freeAt) {
    const bool plainOnly = plainPlacesOnly();
    auto keycodes = pool->bind(needed, bound, freeAt, plainOnly);
    if (keycodes.empty() && plainOnly) {
        keycodes = pool->bind(needed, bound, freeAt);
    }
    return keycodes;
}

// A window that takes longer than a millisecond per key to read the keys it was sent gets characters on plain
// places only: for it, each Shift press is one more key to handle, which costs more than the keymap changes
// of binding fewer characters at a time. Judged when the window has confirmed reading at least a few dozen
// keys the typing had to wait for; an estimate of its pace says nothing about it.
void X11KeyboardSession::noteReadingPace(std::size_t unreadKeys, std::chrono::steady_clock::time_point since) {
    constexpr std::size_t fewestKeysJudged = 32;
    constexpr auto slowKeyInterval = std::chrono::milliseconds(1);
    if (unreadKeys < fewestKeysJudged || pool->unconfirmedKeys() >= unreadKeys) {
        return;
    }
    const bool slow = std::chrono::steady_clock::now() - since > slowKeyInterval * unreadKeys;
    slowReader = slow ? std::optional(lastFocus) : std::nullopt;
}

// The moment at which places count as free for binding `count` characters, after waiting when too few are.
// A client that answers pings is asked, and only places it has confirmed reading (or never typed) are
// taken: an estimate of its speed can be wrong when it is busy, its answer cannot. A client that never answers
// is watched handling its keys instead, where it can be, at most until the estimate frees every place anyway.
// Otherwise places free up as the slowest client would read them.
SpareKeycodePool::TimePoint X11KeyboardSession::placesFreeAt(std::size_t count,
                                                             std::unordered_set<unsigned long>& bound) {
    const auto now = std::chrono::steady_clock::now();
    if (typedInto && !typedIntoSeveral && ping->answersPings(*typedInto)) {
        constexpr SpareKeycodePool::TimePoint onlyConfirmed{};
        // As long as the client could need for the keys still queued, and more.
        const auto deadline = std::max(now, pool->lastReadBy().value_or(now)) + timing.answerPatience;
        while (pool->freePlaces(bound, onlyConfirmed) < count && awaitNextAnswer(deadline)) {
        }
        if (pool->freePlaces(bound, onlyConfirmed) > 0) {
            return onlyConfirmed;
        }
    }
    const auto everyPlaceFree = pool->lastReadBy().value_or(now) + timing.reuseGuard;
    if (pool->freePlaces(bound, now) < count && awaitReadingSeen(everyPlaceFree)) {
        return SpareKeycodePool::TimePoint{};
    }
    if (pool->freePlaces(bound, now) > 0) {
        return now;
    }
    auto free = pool->nextFree(bound);
    if (!free) {
        // Every slot carries a character still to come: free one anyway; the rest is rebound later.
        bound.clear();
        free = pool->nextFree(bound);
    }
    if (free) {
        std::this_thread::sleep_until(*free);
    }
    return std::chrono::steady_clock::now();
}

// Asks the client the keys went to, unless it has been asked already, whether it has read them.
void X11KeyboardSession::askFocusedClient() {
    if (typedInto && !typedIntoSeveral && !ping->awaiting() && ping->ask(*typedInto)) {
        keysAsked = pool->typedKeys();
    }
}

// Waits for the answer to the question in flight (asked now when none is); false without an answer.
bool X11KeyboardSession::awaitNextAnswer(std::chrono::steady_clock::time_point deadline) {
    askFocusedClient();
    if (!ping->awaiting() || !ping->awaitAnswer(deadline, [this](const XEvent& event) { noteEvent(event); })) {
        return false;
    }
    confirmRead(keysAsked);
    return true;
}

// For a client that never answers pings but can be watched from outside (see X11ClientInbox).
bool X11KeyboardSession::awaitReadingSeen(std::chrono::steady_clock::time_point deadline) {
    if (!typedInto || typedIntoSeveral || ping->answersPings(*typedInto) || !inbox || !inbox->follow(*typedInto)) {
        return false;
    }
    const std::size_t keys = pool->typedKeys();
    if (!inbox->awaitHandled(deadline)) {
        return false;
    }
    confirmRead(keys);
    return true;
}

void X11KeyboardSession::confirmRead(std::size_t keys) {
    if (!pool) {
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    pool->confirmRead(keys, now);
    if (keys == pool->typedKeys()) {
        slowestReader = std::min(slowestReader, now);
        typedInto.reset();
    }
}

// The window the keys just sent went to. Asked with a round trip (which also lets the server's answers to
// every request so far arrive) at the end of a text, every few pieces, and whenever the focus may have moved;
// between those, the pieces of one text go out without waiting, as long as the window asked about last
// reports no focus change. Its focus changes are watched from the first answer on and trusted from the
// second, which arrives after the server has started reporting them.
Window X11KeyboardSession::focusOfKeys() {
    constexpr int piecesBetweenRoundTrips = 8;
    readPendingEvents();
    if (textGoesOn && watchedFocus && watchedFocus->confirmed && ++watchedFocus->piecesSent < piecesBetweenRoundTrips) {
        XFlush(display);
        return watchedFocus->window;
    }
    const Window focus = ping->focusedWindow();
    readPendingEvents();
    if (watchedFocus && watchedFocus->window == focus) {
        watchedFocus->confirmed = true;
        watchedFocus->piecesSent = 0;
    } else if (focus != None && focus != PointerRoot) {
        XSelectInput(display, focus, FocusChangeMask);
        watchedFocus = WatchedFocus{focus};
    }
    return focus;
}

void X11KeyboardSession::noteFocus(Window focus) {
    if (typedInto && *typedInto != focus) {
        typedIntoSeveral = true;
    }
    lastFocus = focus;
    typedInto = focus;
    const auto everyKeyRead = pool->lastReadBy();
    if (typedIntoSeveral && everyKeyRead && std::chrono::steady_clock::now() >= *everyKeyRead + timing.reuseGuard) {
        // Even the slowest client has read the keys sent to the other window by now.
        typedIntoSeveral = false;
    }
}

bool X11KeyboardSession::applyBindings(const std::vector<unsigned>& keycodes) {
    if (keycodes.empty()) {
        return true;
    }
    if (!writer().bind(keycodes) || connectionLost.load()) {
        return false;
    }
    discardOwnNotifications();
    // Clients fetch the changed keymap when they see the change; key events that arrive first read the old one.
    std::this_thread::sleep_for(timing.settle);
    return true;
}

std::optional<KeyStroke> X11KeyboardSession::strokeFor(char32_t character, int group) {
    const unsigned long keysym = keysymFor(character);
    if (const auto stroke = keymap->strokeFor(keysym, group)) {
        return stroke;
    }
    if (const auto place = pool->placeOf(keysym)) {
        return KeyStroke{place->keycode, place->level == 1};
    }
    return std::nullopt;
}

// Presses the keys of the characters from `position` on, up to the first one without a key.
bool X11KeyboardSession::pressKeys(std::u32string_view text, std::size_t& position, int group) {
    const auto shiftKeycode = keymap->shiftKeycode();
    bool shiftDown = false;
    const auto now = std::chrono::steady_clock::now();
    // Where the slowest client would be in its queue: each key press takes it one interval.
    const auto pressed = [&] { slowestReader = std::max(slowestReader, now) + timing.slowestKeyInterval; };
    for (; position < text.size(); ++position) {
        const auto stroke = strokeFor(text[position], group);
        if (!stroke) {
            break;
        }
        if (stroke->shift != shiftDown && shiftKeycode) {
            XTestFakeKeyEvent(display, *shiftKeycode, stroke->shift ? True : False, CurrentTime);
            shiftDown = stroke->shift;
            if (shiftDown) {
                pressed();
            }
        }
        XTestFakeKeyEvent(display, stroke->keycode, True, CurrentTime);
        XTestFakeKeyEvent(display, stroke->keycode, False, CurrentTime);
        pressed();
        if (pool->isSpare(stroke->keycode)) {
            pool->markTyped({stroke->keycode, stroke->shift ? 1U : 0U}, slowestReader);
        }
    }
    if (shiftDown) {
        XTestFakeKeyEvent(display, *shiftKeycode, False, CurrentTime);
    }
    noteFocus(focusOfKeys());
    askFocusedClient();
    sentAt = std::chrono::steady_clock::now();
    return !connectionLost.load();
}

void X11KeyboardSession::restoreSpareKeycodes() {
    if (display == nullptr || !pool || !pool->hasBindings()) {
        return;
    }
    // A layout changed meanwhile gets back only what it still has of ours, from its own symbols.
    if (keymapChangedElsewhere() && (!followKeymapChange() || !pool->hasBindings())) {
        return;
    }
    const auto keycodes = pool->boundKeycodes();
    pool->forgetBindings();
    writer().restore(keycodes);
    discardOwnNotifications();
}

SpareKeycodeWriter X11KeyboardSession::writer() const {
    return SpareKeycodeWriter(display, *keymap, *pool);
}

bool X11KeyboardSession::awaitReading(std::chrono::steady_clock::time_point deadline) {
    if (display == nullptr || connectionLost.load() || !pool) {
        return false;
    }
    while (typedInto && !typedIntoSeveral && ping->answersPings(*typedInto)) {
        if (!awaitNextAnswer(deadline)) {
            return false;
        }
    }
    if (typedInto) {
        awaitReadingSeen(deadline);
    }
    return !typedInto; // every key confirmed
}

bool X11KeyboardSession::hasBindings() const {
    return pool && pool->hasBindings();
}

std::optional<std::chrono::steady_clock::time_point> X11KeyboardSession::lastReadBy() const {
    return pool ? pool->lastReadBy() : std::nullopt;
}

} // namespace keyferry
