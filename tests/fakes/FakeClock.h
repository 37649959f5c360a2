#pragma once

#include "Clock.h"
#include "ManualSerialQueue.h"

namespace keyferry::fakes {

// The wall clock as seen on a ManualSerialQueue's virtual time: `epoch` (seconds since 1970) plus the
// queue's virtual seconds. The queue must outlive the clock. Single-threaded, like the queue.
class FakeClock : public Clock {
public:
    static constexpr double defaultEpoch = 1'800'000'000.0; // 2027-01-15T08:00:00Z

    explicit FakeClock(const ManualSerialQueue& virtualTime, double startEpoch = defaultEpoch);

    double now() const override;

    // Moves the wall clock (without running anything on the queue), as when the user changes the time.
    void setEpoch(double seconds) { epoch = seconds; }
    double epochSeconds() const { return epoch; }

private:
    const ManualSerialQueue& queue;
    double epoch;
};

} // namespace keyferry::fakes
