#include "X11KeyboardSession.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

namespace keyferry {

namespace {

constexpr unsigned long unicodeKeysymBase = 0x01000000;

// Xlib reports protocol errors through one process-wide handler; the default one ends the process. Errors
// are only counted here and turned into a failed call.
std::atomic<int> protocolErrors{0};

int countProtocolError(Display*, XErrorEvent*) {
    protocolErrors.fetch_add(1);
    return 0;
}

void initialiseXlib() {
    static std::once_flag once;
    std::call_once(once, [] {
        XInitThreads();
        XSetErrorHandler(countProtocolError);
    });
}

std::atomic<bool>* lostFlag(void* data) { return static_cast<std::atomic<bool>*>(data); }

// Called by Xlib instead of exiting the process when the server connection breaks.
void markConnectionLost(Display*, void* data) { lostFlag(data)->store(true); }

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
    initialiseXlib();
    display = XOpenDisplay(nullptr);
    if (display == nullptr) {
        return false;
    }
    connectionLost.store(false);
    XSetIOErrorExitHandler(display, markConnectionLost, &connectionLost);
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
}

bool X11KeyboardSession::loadKeymap() {
    const auto previousUse = pool ? pool->lastReadBy() : std::nullopt;
    keymap = X11Keymap::load(display);
    if (!keymap) {
        pool.reset();
        return false;
    }
    pool.emplace(keymap->spareKeycodes(), timing.reuseGuard);
    if (previousUse) {
        // The new keycodes may be the ones a slow client is still reading under their old meaning.
        for (const unsigned keycode : keymap->spareKeycodes()) {
            pool->markTyped(keycode, *previousUse);
        }
    }
    return true;
}

bool X11KeyboardSession::keymapChangedElsewhere() {
    bool changed = false;
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        if (event.type == MappingNotify) {
            changed = true;
        } else if (event.type == xkbEventBase) {
            const int kind = reinterpret_cast<XkbEvent*>(&event)->any.xkb_type;
            changed = changed || kind == XkbMapNotify || kind == XkbNewKeyboardNotify;
        }
    }
    return changed;
}

// The server reports our own keymap changes back to us; they are known already.
void X11KeyboardSession::discardOwnNotifications() {
    XSync(display, False);
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
    }
}

bool X11KeyboardSession::type(std::u32string_view text) {
    if (!connect()) {
        return false;
    }
    const int errorsBefore = protocolErrors.load();
    if (keymapChangedElsewhere()) {
        restoreSpareKeycodes();
        if (!loadKeymap()) {
            return false;
        }
    }
    const ModifierState modifiers = clearModifiers();
    std::size_t position = 0;
    bool typed = true;
    while (typed && position < text.size()) {
        typed = typePrefix(text, position, modifiers.group);
    }
    restoreModifiers(modifiers);
    XSync(display, False);
    return typed && !connectionLost.load() && protocolErrors.load() == errorsBefore;
}

bool X11KeyboardSession::typePrefix(std::u32string_view text, std::size_t& position, int group) {
    if (!bindFor(text.substr(position), group)) {
        return false;
    }
    const std::size_t before = position;
    if (!pressKeys(text, position, group)) {
        return false;
    }
    return position > before;
}

// Binds the characters of `remaining` that have no key yet, as many as idle spare keycodes allow, waiting
// for one to become idle when none is.
bool X11KeyboardSession::bindFor(std::u32string_view remaining, int group) {
    std::vector<unsigned long> needed;
    std::unordered_set<unsigned long> bound;
    for (const char32_t character : remaining) {
        const unsigned long keysym = keysymFor(character);
        if (keymap->strokeFor(keysym, group)) {
            continue;
        }
        if (pool->keycodeFor(keysym)) {
            bound.insert(keysym);
        } else if (std::find(needed.begin(), needed.end(), keysym) == needed.end()) {
            needed.push_back(keysym);
        }
    }
    if (needed.empty()) {
        return true;
    }
    auto keycodes = pool->bind(needed, bound, std::chrono::steady_clock::now());
    if (keycodes.empty()) {
        auto free = pool->nextFree(bound);
        if (!free) {
            // Every slot carries a character still to come: free one anyway; the rest is rebound later.
            bound.clear();
            free = pool->nextFree(bound);
        }
        if (!free) {
            return false;
        }
        std::this_thread::sleep_until(*free);
        keycodes = pool->bind(needed, bound, std::chrono::steady_clock::now());
    }
    if (keycodes.empty()) {
        return false;
    }
    if (!writeSpareKeycodes(std::move(keycodes))) {
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
    if (const auto keycode = pool->keycodeFor(keysym)) {
        return KeyStroke{*keycode, false};
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
            pool->markTyped(stroke->keycode, slowestReader);
        }
    }
    if (shiftDown) {
        XTestFakeKeyEvent(display, *shiftKeycode, False, CurrentTime);
    }
    XSync(display, False);
    sentAt = std::chrono::steady_clock::now();
    return !connectionLost.load();
}

X11KeyboardSession::ModifierState X11KeyboardSession::clearModifiers() {
    ModifierState state;
    XkbStateRec current{};
    if (XkbGetState(display, XkbUseCoreKbd, &current) != Success) {
        return state;
    }
    state.group = current.group;
    // Num Lock changes only the keypad, which typing never uses; every other lock (Caps Lock first) would
    // change the case or level of the keys typed.
    const unsigned numLock = XkbKeysymToModifiers(display, XK_Num_Lock);
    state.lockedMods = current.locked_mods & ~numLock;
    if (state.lockedMods != 0) {
        XkbLockModifiers(display, XkbUseCoreKbd, state.lockedMods, 0);
    }
    if (current.latched_mods != 0) {
        XkbLatchModifiers(display, XkbUseCoreKbd, current.latched_mods, 0);
    }
    if (current.base_mods != 0) {
        // Modifier keys the user is holding (Ctrl, Alt, Super, Shift) would turn the text into shortcuts.
        char keys[32] = {};
        XQueryKeymap(display, keys);
        for (const unsigned keycode : keymap->heldModifierKeycodes()) {
            if ((keys[keycode / 8] & (1 << (keycode % 8))) != 0) {
                XTestFakeKeyEvent(display, keycode, False, CurrentTime);
                state.heldKeycodes.push_back(keycode);
            }
        }
    }
    return state;
}

void X11KeyboardSession::restoreModifiers(const ModifierState& state) {
    for (const unsigned keycode : state.heldKeycodes) {
        XTestFakeKeyEvent(display, keycode, True, CurrentTime);
    }
    if (state.lockedMods != 0) {
        XkbLockModifiers(display, XkbUseCoreKbd, state.lockedMods, state.lockedMods);
    }
}

// A borrowed keycode carries its character on every level and group, so that neither Shift, Caps Lock nor the
// layout group can change it (a single symbol would be read as a lower/upper-case pair), and so that its key
// type keeps one level: Xlib clients update their copy of the keymap key by key and were measured misreading
// keys whose levels changed between bindings. Keycodes given back get their original symbols.
std::vector<unsigned long> X11KeyboardSession::intendedSymbols(unsigned keycode) const {
    if (const auto keysym = pool->keysymOn(keycode)) {
        return std::vector<unsigned long>(static_cast<std::size_t>(keymap->symbolsPerKeycode()), *keysym);
    }
    return keymap->originalSymbols(keycode);
}

// Writes the intended symbols of `keycodes` in as few requests as possible: one per run of spare keycodes,
// rewriting the unchanged spare keycodes between them as they are.
bool X11KeyboardSession::writeSpareKeycodes(std::vector<unsigned> keycodes) {
    std::sort(keycodes.begin(), keycodes.end());
    std::size_t start = 0;
    while (start < keycodes.size()) {
        std::size_t end = start + 1;
        while (end < keycodes.size()) {
            bool contiguous = true;
            for (unsigned between = keycodes[end - 1] + 1; between < keycodes[end]; ++between) {
                contiguous = contiguous && pool->isSpare(between);
            }
            if (!contiguous) {
                break;
            }
            ++end;
        }
        const unsigned first = keycodes[start];
        const unsigned last = keycodes[end - 1];
        std::vector<KeySym> symbols;
        for (unsigned keycode = first; keycode <= last; ++keycode) {
            const auto intended = intendedSymbols(keycode);
            symbols.insert(symbols.end(), intended.begin(), intended.end());
        }
        XChangeKeyboardMapping(display, static_cast<int>(first), keymap->symbolsPerKeycode(), symbols.data(),
                               static_cast<int>(last - first + 1));
        start = end;
    }
    return !connectionLost.load();
}

void X11KeyboardSession::restoreSpareKeycodes() {
    if (display == nullptr || !pool || !pool->hasBindings()) {
        return;
    }
    const auto keycodes = pool->boundKeycodes();
    pool->forgetBindings();
    writeSpareKeycodes(keycodes);
    discardOwnNotifications();
}

bool X11KeyboardSession::hasBindings() const { return pool && pool->hasBindings(); }

std::optional<std::chrono::steady_clock::time_point> X11KeyboardSession::lastReadBy() const {
    return pool ? pool->lastReadBy() : std::nullopt;
}

} // namespace keyferry
