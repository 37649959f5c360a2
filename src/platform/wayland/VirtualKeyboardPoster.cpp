#include "VirtualKeyboardPoster.h"

#include "Utf16.h"
#include "VirtualKeyboardKeymap.h"
#include "WaylandVirtualKeyboard.h"

#include <algorithm>
#include <vector>

namespace keyferry {

namespace {

std::optional<std::vector<std::uint32_t>> keysymsTyping(std::u16string_view units) {
    std::vector<std::uint32_t> keysyms;
    for (const char32_t character : codePointsFromUtf16(units)) {
        const auto keysym = keysymTyping(character);
        if (!keysym) {
            return std::nullopt;
        }
        keysyms.push_back(*keysym);
    }
    return keysyms;
}

} // namespace

VirtualKeyboardPoster::VirtualKeyboardPoster() : VirtualKeyboardPoster(Timing{}) {}

VirtualKeyboardPoster::VirtualKeyboardPoster(Timing posterTiming)
    : timing(posterTiming), keyboard(std::make_unique<WaylandVirtualKeyboard>(
                                WaylandVirtualKeyboard::Timing{.pacing = timing.pacing,
                                                               .blindPacing = timing.blindPacing,
                                                               .keymapSettle = timing.keymapSettle,
                                                               .keysPerRoundtrip = timing.keysPerRoundtrip,
                                                               .watchBacklog = timing.watchBacklog})),
      restorer([this](const std::stop_token& stop) { restoreWhenIdle(stop); }) {
    const std::lock_guard lock(mutex);
    keyboard->connect(); // early, so clients have seen the keyboard before the first text
}

VirtualKeyboardPoster::~VirtualKeyboardPoster() {
    restorer.request_stop();
    restorer.join();
    const std::lock_guard lock(mutex);
    if (lastTyped && keyboard->holdsOwnKeymap()) {
        std::this_thread::sleep_until(*lastTyped + timing.exitGrace);
    }
    keyboard.reset();
}

bool VirtualKeyboardPoster::canType(std::u16string_view units) {
    auto keysyms = keysymsTyping(units);
    const std::lock_guard lock(mutex);
    text = keysyms.value_or(std::vector<std::uint32_t>{});
    typedUpTo = 0;
    return keysyms.has_value();
}

// The rest of the text after this chunk, when the chunk is where the text asked about had come to.
std::span<const std::uint32_t> VirtualKeyboardPoster::upcomingAfter(const std::vector<std::uint32_t>& chunk) {
    const std::span<const std::uint32_t> rest = std::span(text).subspan(std::min(typedUpTo, text.size()));
    if (rest.size() < chunk.size() || !std::equal(chunk.begin(), chunk.end(), rest.begin())) {
        text.clear();
        typedUpTo = 0;
        return {};
    }
    typedUpTo += chunk.size();
    return rest.subspan(chunk.size());
}

bool VirtualKeyboardPoster::postKeyPair(std::u16string_view units) {
    const auto keysyms = keysymsTyping(units);
    if (!keysyms) {
        return false;
    }
    bool typed = false;
    {
        const std::lock_guard lock(mutex);
        typed = keyboard->type(*keysyms, upcomingAfter(*keysyms));
        lastTyped = std::chrono::steady_clock::now();
    }
    typedSomething.notify_all();
    return typed;
}

void VirtualKeyboardPoster::restoreWhenIdle(const std::stop_token& stop) {
    std::unique_lock lock(mutex);
    while (!stop.stop_requested()) {
        if (!typedSomething.wait(lock, stop, [this] { return keyboard->holdsOwnKeymap(); })) {
            return;
        }
        const auto last = lastTyped;
        const auto due = last.value_or(std::chrono::steady_clock::now()) + timing.restoreAfter;
        const bool typedAgain = typedSomething.wait_until(lock, stop, due, [this, last] { return lastTyped != last; });
        if (!typedAgain && !stop.stop_requested()) {
            keyboard->restoreUserKeymap();
        }
    }
}

} // namespace keyferry
