#include "KeyPacer.h"

#include <algorithm>

namespace keyferry {

double KeyPacer::queuedAt(TimePoint when) const {
    const double read =
        std::chrono::duration<double>(when - queuedSince) / std::chrono::duration<double>(timing.sustainedInterval);
    return std::max(0.0, queued - std::max(0.0, read));
}

KeyPacer::TimePoint KeyPacer::nextKeysAt(TimePoint now, int keys) const {
    TimePoint at = std::max(now, nextAllowed);
    const double excess = queuedAt(at) + keys - timing.burstKeys;
    if (excess > 0) {
        at += std::chrono::duration_cast<Duration>(excess * std::chrono::duration<double>(timing.sustainedInterval));
    }
    return at;
}

void KeyPacer::sent(TimePoint at, int keys) {
    queued = queuedAt(at) + keys;
    queuedSince = at;
    nextAllowed = at + keys * timing.keyInterval;
}

} // namespace keyferry
