#include "ServiceClock.h"

#include <chrono>

namespace keyferry::service {

std::int64_t SystemClock::nowMs() const {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count();
}

} // namespace keyferry::service
