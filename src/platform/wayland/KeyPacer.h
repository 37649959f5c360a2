#pragma once

#include <chrono>

namespace keyferry {

// When the next key may go, so that no client is flooded. A compositor queues key events for the focused
// client and drops the client when the queue overflows (a slow GTK client was seen disconnected after a few
// hundred keys sent faster than it read them). The pacer models the slowest client worth serving, one that
// reads a key per `sustainedInterval`, and lets its queue hold at most `burstKeys`: a short text goes at one
// key per `keyInterval`, a long one settles at the slow client's pace. Plain value, no clock of its own.
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

    // The earliest moment a key may be sent, asked at `now`.
    TimePoint nextKeyAt(TimePoint now) const;

    // Records a key sent at `at`.
    void sent(TimePoint at);

private:
    double queuedAt(TimePoint when) const;

    Timing timing;
    double queued = 0;     // keys the modelled client has not read yet, at `queuedSince`
    TimePoint queuedSince; // when `queued` was last worked out
    TimePoint lastKey;
};

} // namespace keyferry
