#include "QtRepeatingTimer.h"

namespace keyferry {

QtRepeatingTimer::QtRepeatingTimer(std::chrono::nanoseconds period, std::function<void()> handler)
    : period_(period), handler_(std::move(handler)) {}

void QtRepeatingTimer::setEventHandler(std::function<void()> handler) {
    const std::scoped_lock lock(mutex_);
    handler_ = std::move(handler);
}

void QtRepeatingTimer::cancel() {
    const std::scoped_lock lock(mutex_);
    cancelled_ = true;
    handler_ = nullptr;
}

bool QtRepeatingTimer::isCancelled() const {
    const std::scoped_lock lock(mutex_);
    return cancelled_;
}

void QtRepeatingTimer::scheduleTick(QtDeadlineQueue& deadlines, QtDeadlineQueue::TimePoint deadline) {
    deadlines.schedule(deadline, [weakSelf = weak_from_this(), &deadlines, deadline] {
        if (const auto self = weakSelf.lock()) {
            self->tick(deadlines, deadline);
        }
    });
}

void QtRepeatingTimer::tick(QtDeadlineQueue& deadlines, QtDeadlineQueue::TimePoint deadline) {
    std::function<void()> handler;
    {
        const std::scoped_lock lock(mutex_);
        if (cancelled_) {
            return;
        }
        handler = handler_;
    }
    // The lock is not held here: the handler may replace itself or cancel the timer.
    if (handler) {
        handler();
    }
    if (!isCancelled() && period_.count() > 0) {
        scheduleTick(deadlines, nextDeadlineAfter(deadline));
    }
}

QtDeadlineQueue::TimePoint QtRepeatingTimer::nextDeadlineAfter(QtDeadlineQueue::TimePoint deadline) const {
    const auto now = std::chrono::steady_clock::now();
    auto next = deadline + period_;
    if (next <= now) {
        next += ((now - next) / period_ + 1) * period_;
    }
    return next;
}

} // namespace keyferry
