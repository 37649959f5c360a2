#pragma once

#include <chrono>

namespace keyferry {

// When the next keys may go, so that no client is flooded. A compositor queues key events for the focused
// client and drops the client when the queue overflows (a slow GTK client was seen disconnected after a few
// hundred keys sent faster than it read them). The pacer models the slowest client worth serving, one that
// reads a key per `sustainedInterval`, and lets its queue hold at most `burstKeys`: a short text goes at one
// key per `keyInterval`, a long one settles at the slow client's pace. Keys may go in batches; a batch counts
// as that many keys. Plain value, no clock of its own.
class KeyPacer {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::steady_clock::duration;

    struct Timing {
        Duration keyInterval;
        Duration sustainedInterval;
        int burstKeys;
    };

    explicit KeyPacer(Timing pacing) : timing(pacing) {}

    // The earliest moment `keys` keys may be sent together, asked at `now`.
    TimePoint nextKeysAt(TimePoint now, int keys = 1) const;

    // Records `keys` keys sent together at `at`.
    void sent(TimePoint at, int keys = 1);

private:
    double queuedAt(TimePoint when) const;

    Timing timing;
    double queued = 0;     // keys the modelled client has not read yet, at `queuedSince`
    TimePoint queuedSince; // when `queued` was last worked out
    TimePoint nextAllowed; // one key interval per key after the last keys sent
};

} // namespace keyferry
