#include "SteppedMainThread.h"

namespace keyferry::uitest {

bool SteppedMainThread::runOne() {
    if (tasks.empty()) {
        return false;
    }
    auto task = std::move(tasks.front());
    tasks.pop_front();
    task();
    return true;
}

std::size_t SteppedMainThread::drain() {
    std::size_t ran = 0;
    while (runOne()) {
        ++ran;
    }
    return ran;
}

} // namespace keyferry::uitest
