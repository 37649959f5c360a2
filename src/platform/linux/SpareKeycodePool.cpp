#include "SpareKeycodePool.h"

#include <algorithm>

namespace keyferry {

SpareKeycodePool::SpareKeycodePool(std::vector<unsigned> keycodes, std::chrono::steady_clock::duration guard)
    : reuseGuard(guard) {
    slots.reserve(keycodes.size());
    for (const unsigned keycode : keycodes) {
        slots.push_back(Slot{keycode, std::nullopt, std::nullopt});
    }
}

std::optional<unsigned> SpareKeycodePool::keycodeFor(unsigned long keysym) const {
    const auto found = std::find_if(slots.begin(), slots.end(), [&](const Slot& slot) { return slot.keysym == keysym; });
    if (found == slots.end()) {
        return std::nullopt;
    }
    return found->keycode;
}

std::optional<unsigned long> SpareKeycodePool::keysymOn(unsigned keycode) const {
    const auto found = std::find_if(slots.begin(), slots.end(), [&](const Slot& slot) { return slot.keycode == keycode; });
    if (found == slots.end()) {
        return std::nullopt;
    }
    return found->keysym;
}

bool SpareKeycodePool::isIdle(const Slot& slot, TimePoint now) const {
    return !slot.typedAt || now >= *slot.typedAt + reuseGuard;
}

SpareKeycodePool::TimePoint SpareKeycodePool::idleFrom(const Slot& slot) const {
    return slot.typedAt ? *slot.typedAt + reuseGuard : TimePoint{};
}

std::vector<SpareKeycodePool::Binding> SpareKeycodePool::bind(const std::vector<unsigned long>& keysyms,
                                                              const std::unordered_set<unsigned long>& protectedKeysyms,
                                                              TimePoint now) {
    std::vector<Slot*> candidates;
    for (Slot& slot : slots) {
        const bool isProtected = slot.keysym && protectedKeysyms.contains(*slot.keysym);
        if (!isProtected && isIdle(slot, now)) {
            candidates.push_back(&slot);
        }
    }
    // Never-typed keycodes first, then the least recently typed; ties in keycode order, so that a fresh
    // pool is bound in few contiguous runs.
    std::stable_sort(candidates.begin(), candidates.end(), [](const Slot* left, const Slot* right) {
        return left->typedAt.value_or(TimePoint{}) < right->typedAt.value_or(TimePoint{});
    });
    std::vector<Binding> bindings;
    for (std::size_t index = 0; index < keysyms.size() && index < candidates.size(); ++index) {
        candidates[index]->keysym = keysyms[index];
        bindings.push_back(Binding{candidates[index]->keycode, keysyms[index]});
    }
    return bindings;
}

std::optional<SpareKeycodePool::TimePoint>
SpareKeycodePool::nextIdle(const std::unordered_set<unsigned long>& protectedKeysyms) const {
    std::optional<TimePoint> earliest;
    for (const Slot& slot : slots) {
        if (slot.keysym && protectedKeysyms.contains(*slot.keysym)) {
            continue;
        }
        const TimePoint from = idleFrom(slot);
        if (!earliest || from < *earliest) {
            earliest = from;
        }
    }
    return earliest;
}

void SpareKeycodePool::markTyped(unsigned keycode, TimePoint when) {
    for (Slot& slot : slots) {
        if (slot.keycode == keycode) {
            slot.typedAt = when;
        }
    }
}

bool SpareKeycodePool::hasBindings() const {
    return std::any_of(slots.begin(), slots.end(), [](const Slot& slot) { return slot.keysym.has_value(); });
}

std::optional<SpareKeycodePool::TimePoint> SpareKeycodePool::lastTyped() const {
    std::optional<TimePoint> latest;
    for (const Slot& slot : slots) {
        if (slot.typedAt && (!latest || *slot.typedAt > *latest)) {
            latest = slot.typedAt;
        }
    }
    return latest;
}

std::vector<unsigned> SpareKeycodePool::boundKeycodes() const {
    std::vector<unsigned> keycodes;
    for (const Slot& slot : slots) {
        if (slot.keysym) {
            keycodes.push_back(slot.keycode);
        }
    }
    return keycodes;
}

void SpareKeycodePool::forgetBindings() {
    for (Slot& slot : slots) {
        slot.keysym.reset();
    }
}

bool SpareKeycodePool::isSpare(unsigned keycode) const {
    return std::any_of(slots.begin(), slots.end(), [&](const Slot& slot) { return slot.keycode == keycode; });
}

} // namespace keyferry
