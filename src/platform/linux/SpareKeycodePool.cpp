#include "SpareKeycodePool.h"

#include <algorithm>

namespace keyferry {

SpareKeycodePool::SpareKeycodePool(const std::vector<unsigned>& keycodes, std::chrono::steady_clock::duration guard)
    : reuseGuard(guard) {
    for (const unsigned keycode : keycodes) {
        slots.push_back(Slot{keycode, std::nullopt, std::nullopt});
    }
}

SpareKeycodePool::Slot* SpareKeycodePool::slotOn(unsigned keycode) {
    const auto found = std::find_if(slots.begin(), slots.end(), [&](const Slot& slot) { return slot.keycode == keycode; });
    return found == slots.end() ? nullptr : &*found;
}

const SpareKeycodePool::Slot* SpareKeycodePool::slotOn(unsigned keycode) const {
    return const_cast<SpareKeycodePool*>(this)->slotOn(keycode);
}

std::optional<unsigned> SpareKeycodePool::keycodeFor(unsigned long keysym) const {
    const auto found = std::find_if(slots.begin(), slots.end(), [&](const Slot& slot) { return slot.keysym == keysym; });
    return found == slots.end() ? std::nullopt : std::optional<unsigned>(found->keycode);
}

std::optional<unsigned long> SpareKeycodePool::keysymOn(unsigned keycode) const {
    const Slot* slot = slotOn(keycode);
    return slot == nullptr ? std::nullopt : slot->keysym;
}

SpareKeycodePool::TimePoint SpareKeycodePool::freeFrom(const Slot& slot) const {
    return slot.readBy ? *slot.readBy + reuseGuard : TimePoint{};
}

std::vector<unsigned> SpareKeycodePool::bind(const std::vector<unsigned long>& keysyms,
                                             const std::unordered_set<unsigned long>& protectedKeysyms, TimePoint now) {
    std::vector<Slot*> candidates;
    for (Slot& slot : slots) {
        const bool isProtected = slot.keysym && protectedKeysyms.contains(*slot.keysym);
        if (!isProtected && now >= freeFrom(slot)) {
            candidates.push_back(&slot);
        }
    }
    // Never-typed slots first, then the least recently typed; ties in keycode order, so that a fresh pool is
    // bound in few contiguous runs.
    std::stable_sort(candidates.begin(), candidates.end(), [this](const Slot* left, const Slot* right) {
        return freeFrom(*left) < freeFrom(*right);
    });
    std::vector<unsigned> changed;
    for (std::size_t index = 0; index < keysyms.size() && index < candidates.size(); ++index) {
        candidates[index]->keysym = keysyms[index];
        changed.push_back(candidates[index]->keycode);
    }
    return changed;
}

std::optional<SpareKeycodePool::TimePoint>
SpareKeycodePool::nextFree(const std::unordered_set<unsigned long>& protectedKeysyms) const {
    std::optional<TimePoint> earliest;
    for (const Slot& slot : slots) {
        if (slot.keysym && protectedKeysyms.contains(*slot.keysym)) {
            continue;
        }
        const TimePoint from = freeFrom(slot);
        if (!earliest || from < *earliest) {
            earliest = from;
        }
    }
    return earliest;
}

void SpareKeycodePool::markTyped(unsigned keycode, TimePoint readBy) {
    if (Slot* slot = slotOn(keycode)) {
        slot->readBy = std::max(slot->readBy.value_or(readBy), readBy);
    }
}

bool SpareKeycodePool::hasBindings() const {
    return std::any_of(slots.begin(), slots.end(), [](const Slot& slot) { return slot.keysym.has_value(); });
}

std::optional<SpareKeycodePool::TimePoint> SpareKeycodePool::lastReadBy() const {
    std::optional<TimePoint> latest;
    for (const Slot& slot : slots) {
        if (slot.readBy && (!latest || *slot.readBy > *latest)) {
            latest = slot.readBy;
        }
    }
    return latest;
}

std::vector<unsigned> SpareKeycodePool::boundKeycodes() const {
    std::vector<unsigned> bound;
    for (const Slot& slot : slots) {
        if (slot.keysym) {
            bound.push_back(slot.keycode);
        }
    }
    return bound;
}

void SpareKeycodePool::forgetBindings() {
    for (Slot& slot : slots) {
        slot.keysym.reset();
    }
}

bool SpareKeycodePool::isSpare(unsigned keycode) const { return slotOn(keycode) != nullptr; }

} // namespace keyferry
