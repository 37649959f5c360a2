#include "SpareKeycodePool.h"

#include <algorithm>
#include <utility>

namespace keyferry {

SpareKeycodePool::SpareKeycodePool(const std::vector<unsigned>& keycodes, unsigned levels,
                                   std::chrono::steady_clock::duration guard)
    : reuseGuard(guard) {
    // Every plain place comes before every shifted one: a text whose characters fit on the plain places never
    // needs Shift for them, which spares a slow window one key press in four; binding more keycodes costs
    // nothing, one request spans them all.
    for (unsigned level = 0; level < levels; ++level) {
        for (const unsigned keycode : keycodes) {
            slots.push_back(Slot{Place{keycode, level}, std::nullopt, std::nullopt});
        }
    }
}

const SpareKeycodePool::Slot* SpareKeycodePool::slotAt(Place place) const {
    const auto found = std::find_if(slots.begin(), slots.end(), [&](const Slot& slot) { return slot.place == place; });
    return found == slots.end() ? nullptr : &*found;
}

SpareKeycodePool::Slot* SpareKeycodePool::slotAt(Place place) {
    return const_cast<Slot*>(std::as_const(*this).slotAt(place));
}

std::optional<SpareKeycodePool::Place> SpareKeycodePool::placeOf(unsigned long keysym) const {
    const auto found =
        std::find_if(slots.begin(), slots.end(), [&](const Slot& slot) { return slot.keysym == keysym; });
    return found == slots.end() ? std::nullopt : std::optional<Place>(found->place);
}

std::optional<unsigned long> SpareKeycodePool::keysymOn(Place place) const {
    const Slot* slot = slotAt(place);
    return slot == nullptr ? std::nullopt : slot->keysym;
}

SpareKeycodePool::TimePoint SpareKeycodePool::freeFrom(const Slot& slot) const {
    return slot.readBy && slot.lastKey > keysConfirmed ? *slot.readBy + reuseGuard : TimePoint{};
}

std::vector<unsigned> SpareKeycodePool::bind(const std::vector<unsigned long>& keysyms,
                                             const std::unordered_set<unsigned long>& protectedKeysyms, TimePoint now,
                                             bool plainOnly) {
    std::vector<Slot*> candidates;
    std::vector<Slot*> shifted;
    for (Slot& slot : slots) {
        const bool isProtected = slot.keysym && protectedKeysyms.contains(*slot.keysym);
        if (!isProtected && now >= freeFrom(slot)) {
            (plainOnly && slot.place.level > 0 ? shifted : candidates).push_back(&slot);
        }
    }
    // Never-typed slots first (plain places before shifted ones), then the least recently typed.
    std::stable_sort(candidates.begin(), candidates.end(), [this](const Slot* left, const Slot* right) {
        return std::pair(freeFrom(*left), left->lastKey) < std::pair(freeFrom(*right), right->lastKey);
    });
    std::vector<unsigned> changed;
    for (std::size_t index = 0; index < keysyms.size() && index < candidates.size(); ++index) {
        candidates[index]->keysym = keysyms[index];
        changed.push_back(candidates[index]->place.keycode);
    }
    // Shifted places free to rebind are emptied as well, so that their characters come back on plain places.
    for (Slot* slot : shifted) {
        if (slot->keysym && !candidates.empty()) {
            slot->keysym.reset();
            changed.push_back(slot->place.keycode);
        }
    }
    std::sort(changed.begin(), changed.end());
    changed.erase(std::unique(changed.begin(), changed.end()), changed.end());
    return changed;
}

std::size_t SpareKeycodePool::freePlaces(const std::unordered_set<unsigned long>& protectedKeysyms,
                                         TimePoint now) const {
    return static_cast<std::size_t>(std::count_if(slots.begin(), slots.end(), [&](const Slot& slot) {
        return !(slot.keysym && protectedKeysyms.contains(*slot.keysym)) && now >= freeFrom(slot);
    }));
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

void SpareKeycodePool::markTyped(Place place, TimePoint readBy) {
    if (Slot* slot = slotAt(place)) {
        slot->readBy = std::max(slot->readBy.value_or(readBy), readBy);
        slot->lastKey = ++keysTyped;
    }
}

void SpareKeycodePool::confirmRead(std::size_t keysRead, TimePoint now) {
    keysConfirmed = std::max(keysConfirmed, keysRead);
    for (Slot& slot : slots) {
        if (slot.readBy && slot.lastKey <= keysConfirmed) {
            slot.readBy = std::min(*slot.readBy, now);
        }
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
            bound.push_back(slot.place.keycode);
        }
    }
    std::sort(bound.begin(), bound.end());
    bound.erase(std::unique(bound.begin(), bound.end()), bound.end());
    return bound;
}

void SpareKeycodePool::forgetBindings() {
    for (Slot& slot : slots) {
        slot.keysym.reset();
    }
}

bool SpareKeycodePool::isSpare(unsigned keycode) const {
    return slotAt(Place{keycode, 0}) != nullptr;
}

} // namespace keyferry
