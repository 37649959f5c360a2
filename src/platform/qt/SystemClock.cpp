#include "SystemClock.h"

#include <chrono>

namespace keyferry {

double SystemClock::now() const {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(sinceEpoch).count();
}

} // namespace keyferry
