#include "QtDeadlineQueue.h"

namespace keyferry {

QtDeadlineQueue::QtDeadlineQueue(const std::atomic<bool>& stopping) : stopping_(stopping) {
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer_, &QTimer::timeout, &timer_, [this] { runDue(); });
}

void QtDeadlineQueue::schedule(TimePoint deadline, std::function<void()> task) {
    const bool becomesFirst = pending_.empty() || deadline < pending_.begin()->first;
    pending_.emplace(deadline, std::move(task));
    if (becomesFirst) {
        arm();
    }
}

void QtDeadlineQueue::runDue() {
    // Tasks may schedule more work; the loop re-reads the earliest entry each time.
    while (!stopping_ && !pending_.empty() && pending_.begin()->first <= std::chrono::steady_clock::now()) {
        auto task = std::move(pending_.begin()->second);
        pending_.erase(pending_.begin());
        task();
    }
    arm();
}

void QtDeadlineQueue::arm() {
    if (pending_.empty()) {
        timer_.stop();
        return;
    }
    // Qt timers count whole milliseconds: round up so that nothing runs before its deadline.
    const auto remaining = pending_.begin()->first - std::chrono::steady_clock::now();
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(remaining).count();
    timer_.start(static_cast<int>(std::max<decltype(milliseconds)>(milliseconds, 0)));
}

} // namespace keyferry
