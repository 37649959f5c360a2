#include "KeyPacer.h"

#include <algorithm>

namespace keyferry {

double KeyPacer::queuedAt(TimePoint when) const {
    const double read = std::chrono::duration<double>(when - queuedSince) /
                        std::chrono::duration<double>(timing.sustainedInterval);
    return std::max(0.0, queued - std::max(0.0, read));
}

KeyPacer::TimePoint KeyPacer::nextKeyAt(TimePoint now) const {
    TimePoint at = std::max(now, lastKey + timing.keyInterval);
    const double excess = queuedAt(at) - (timing.burstKeys - 1);
    if (excess > 0) {
        at += std::chrono::duration_cast<Duration>(excess * std::chrono::duration<double>(timing.sustainedInterval));
    }
    return at;
}

void KeyPacer::sent(TimePoint at) {
    queued = queuedAt(at) + 1;
    queuedSince = at;
    lastKey = at;
}

} // namespace keyferry
