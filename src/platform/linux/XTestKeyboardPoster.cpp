#include "XTestKeyboardPoster.h"

#include "X11KeyboardSession.h"

#include <string>

namespace keyferry {

namespace {

constexpr char32_t replacementCharacter = 0xFFFD;

bool isHighSurrogate(char16_t unit) {
    return (unit & 0xFC00) == 0xD800;
}
bool isLowSurrogate(char16_t unit) {
    return (unit & 0xFC00) == 0xDC00;
}

// Joins surrogate pairs into code points; a lone surrogate cannot be typed and becomes U+FFFD.
std::u32string codePoints(std::u16string_view units) {
    std::u32string characters;
    characters.reserve(units.size());
    for (std::size_t index = 0; index < units.size(); ++index) {
        const char16_t unit = units[index];
        if (isHighSurrogate(unit) && index + 1 < units.size() && isLowSurrogate(units[index + 1])) {
            const char16_t low = units[++index];
            characters.push_back(0x10000 + ((static_cast<char32_t>(unit) - 0xD800) << 10) +
                                 (static_cast<char32_t>(low) - 0xDC00));
        } else if (isHighSurrogate(unit) || isLowSurrogate(unit)) {
            characters.push_back(replacementCharacter);
        } else {
            characters.push_back(unit);
        }
    }
    return characters;
}

} // namespace

XTestKeyboardPoster::XTestKeyboardPoster() : XTestKeyboardPoster(Timing{}) {}

XTestKeyboardPoster::XTestKeyboardPoster(Timing posterTiming)
    : timing(posterTiming), session(std::make_unique<X11KeyboardSession>(X11KeyboardSession::Timing{
                                timing.settle, timing.reuseGuard, timing.slowestKeyInterval})),
      restorer([this](const std::stop_token& stop) { restoreWhenIdle(stop); }) {}

XTestKeyboardPoster::~XTestKeyboardPoster() {
    restorer.request_stop();
    restorer.join();
    const std::lock_guard lock(mutex);
    const auto readBy = session->lastReadBy();
    const auto sent = session->lastSent();
    if (readBy && sent && session->hasBindings()) {
        // The last keys may still be waiting in a client's queue: a client that answers pings says when it
        // has read them, one watched from outside is seen to; for others, the grace of a rebind, within limits.
        const auto grace = std::min(*readBy + timing.reuseGuard, *sent + timing.restoreAfter);
        if (!session->awaitReading(std::max(grace, *readBy) + timing.restoreAfter)) {
            std::this_thread::sleep_until(grace);
        }
    }
    session.reset();
}

bool XTestKeyboardPoster::postKeyPair(std::u16string_view units) {
    const std::u32string characters = codePoints(units);
    bool typed = false;
    {
        const std::lock_guard lock(mutex);
        typed = session->type(characters);
    }
    typedSomething.notify_all();
    return typed;
}

void XTestKeyboardPoster::prepare(std::u16string_view text) {
    const std::u32string characters = codePoints(text);
    const std::lock_guard lock(mutex);
    session->prepare(characters);
}

void XTestKeyboardPoster::restoreWhenIdle(const std::stop_token& stop) {
    std::unique_lock lock(mutex);
    while (!stop.stop_requested()) {
        if (!typedSomething.wait(lock, stop, [this] { return session->hasBindings(); })) {
            return;
        }
        const auto last = session->lastReadBy();
        const auto due = last.value_or(std::chrono::steady_clock::now()) + timing.restoreAfter;
        const bool typedAgain =
            typedSomething.wait_until(lock, stop, due, [this, last] { return session->lastReadBy() != last; });
        if (!typedAgain && !stop.stop_requested() && session->hasBindings()) {
            session->restoreSpareKeycodes();
        }
    }
}

} // namespace keyferry
