#include "FakeClock.h"

namespace keyferry::fakes {

FakeClock::FakeClock(const ManualSerialQueue& virtualTime, double startEpoch) : queue(virtualTime), epoch(startEpoch) {}

double FakeClock::now() const {
    return epoch + queue.now();
}

} // namespace keyferry::fakes
