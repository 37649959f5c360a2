#pragma once

#include <QTimer>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>

namespace keyferry {

// Work due at given moments on one serial queue, run in deadline order, first scheduled first among equal
// deadlines. Created, used and destroyed on the queue's thread only; one precise Qt timer wakes it for the
// earliest deadline, so a thousand delayed tasks cost one timer. Nothing more runs once `stopping` is set;
// dropping the queue drops the work.
class QtDeadlineQueue {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    explicit QtDeadlineQueue(const std::atomic<bool>& stopping);

    void schedule(TimePoint deadline, std::function<void()> task);

private:
    void runDue();
    void arm();

    const std::atomic<bool>& stopping_;
    QTimer timer_;
    std::multimap<TimePoint, std::function<void()>> pending_; // equal keys keep insertion order
};

} // namespace keyferry
