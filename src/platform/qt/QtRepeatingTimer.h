#pragma once

#include "QtDeadlineQueue.h"
#include "SerialQueue.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

namespace keyferry {

// A repeating timer of a QtSerialQueue. Ticks are due at fixed multiples of the period after the first
// deadline (no drift); ticks missed while the queue was busy are skipped, not bunched. The queue holds it
// weakly: it ticks until cancelled or until its last owner lets it go. Its methods may be called from any
// thread; the handler runs on the queue.
class QtRepeatingTimer : public RepeatingTimer, public std::enable_shared_from_this<QtRepeatingTimer> {
public:
    QtRepeatingTimer(std::chrono::nanoseconds period, std::function<void()> handler);

    void setEventHandler(std::function<void()> handler) override;
    void cancel() override;

    // Schedules the tick due at `deadline` (queue thread only); each tick schedules the next one.
    void scheduleTick(QtDeadlineQueue& deadlines, QtDeadlineQueue::TimePoint deadline);

private:
    void tick(QtDeadlineQueue& deadlines, QtDeadlineQueue::TimePoint deadline);
    bool isCancelled() const;
    QtDeadlineQueue::TimePoint nextDeadlineAfter(QtDeadlineQueue::TimePoint deadline) const;

    const std::chrono::nanoseconds period_;
    mutable std::mutex mutex_;
    std::function<void()> handler_;
    bool cancelled_ = false;
};

} // namespace keyferry
