#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace keyferry::fakes {

class ManualSerialQueue;

// Virtual time shared by the ManualSerialQueues made on it (the service's queue and the shell's main-thread
// queue), so that one clock drives the core and the shell together. It starts at 0 and moves only through
// advance(). Time is kept in whole nanoseconds. The clock must outlive its queues. Single-threaded: used
// from the test's thread only, never from inside the queues' work.
class VirtualClock {
public:
    VirtualClock() = default;
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

    // Virtual seconds since the clock was made.
    double now() const;

    // Moves the clock forward by `seconds`, running the due work of every queue on it in deadline order,
    // first scheduled first among equal deadlines whichever queue holds it, with the clock set to each
    // deadline while that work runs. Ends with the clock at the window's end. Returns the entries run.
    std::size_t advance(double seconds);

private:
    friend class ManualSerialQueue;

    void attach(ManualSerialQueue& queue);
    void detach(ManualSerialQueue& queue);
    // The position of the next entry scheduled on any queue of this clock.
    std::uint64_t nextOrder() { return order++; }

    std::int64_t nanoseconds = 0;
    std::uint64_t order = 0;
    std::vector<ManualSerialQueue*> queues;
};

} // namespace keyferry::fakes
