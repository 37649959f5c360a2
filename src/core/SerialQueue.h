#pragma once

#include <functional>
#include <memory>

namespace keyferry {

// A unit of delayed work that can be called off before it runs.
// Owned jointly by whoever scheduled it; cancel() may be called from the queue's own thread only.
class WorkItem {
public:
    virtual ~WorkItem() = default;

    // After cancel() the work never runs (a no-op once it has run).
    virtual void cancel() = 0;
    virtual bool isCancelled() const = 0;
};

// A repeating timer on a serial queue, firing on schedule with zero leeway.
// The handler runs on the queue. setEventHandler() and cancel() are called on the queue's thread;
// a tick already on its way runs whatever handler is installed when it is delivered, so replacing the
// handler with a no-op before cancel() guarantees the old handler never runs again.
class RepeatingTimer {
public:
    virtual ~RepeatingTimer() = default;

    virtual void setEventHandler(std::function<void()> handler) = 0;
    virtual void cancel() = 0;
};

// A serial queue: tasks run one at a time, in the order posted (delayed ones in deadline order,
// first-posted first among equal deadlines). Owned by whoever builds the service; it must outlive
// every task and timer made on it. Any thread may post; the queue never reports failure.
class SerialQueue {
public:
    virtual ~SerialQueue() = default;

    // Runs the task later on the queue, always asynchronously.
    virtual void post(std::function<void()> task) = 0;

    // Runs the task on the queue once `seconds` have passed, unless the returned item is cancelled first.
    virtual std::shared_ptr<WorkItem> postAfter(double seconds, std::function<void()> task) = 0;

    // Starts a timer whose first tick is `firstDeadline` seconds from now and which then ticks every
    // `period` seconds, with zero leeway, until cancelled.
    virtual std::shared_ptr<RepeatingTimer> startTimer(double firstDeadline, double period,
                                                       std::function<void()> handler) = 0;

    // True when the calling thread is the one currently running this queue's work (debug checks).
    virtual bool isCurrent() const = 0;
};

} // namespace keyferry
