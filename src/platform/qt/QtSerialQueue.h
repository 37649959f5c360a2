#pragma once

#include "QtDeadlineQueue.h"
#include "SerialQueue.h"

#include <QObject>
#include <QThread>

#include <atomic>
#include <memory>
#include <string>

namespace keyferry {

// A serial queue running on its own QThread with a Qt event loop, so that Qt network objects can live on it;
// or on the event loop of the thread that builds it (the main thread's, for the shell's delayed work).
// Owned by the application (or a test), which builds it before and destroys it after everything that uses
// it. Any thread may post. Delayed work and timer ticks keep deadline order; immediate posts run in posting
// order. A timer ticks until cancelled or until its last owner releases it; a period of zero ticks once.
// stop(), or destruction (never from the queue's own thread), waits for the task under way, then stops the
// thread: pending and later work is dropped and every Qt object parented to context() is destroyed on the
// queue's thread. On the building thread's loop, stop() and destruction happen on that thread instead, and
// drop pending and later work the same way. Stopping the queue first lets the application tear down the rest
// in any order.
class QtSerialQueue : public SerialQueue {
public:
    // On a thread of its own, named `name`.
    explicit QtSerialQueue(const std::string& name);
    // On the event loop of the thread that builds it.
    struct OnCallingThread {};
    explicit QtSerialQueue(OnCallingThread);
    ~QtSerialQueue() override;

    QtSerialQueue(const QtSerialQueue&) = delete;
    QtSerialQueue& operator=(const QtSerialQueue&) = delete;

    void post(std::function<void()> task) override;
    std::shared_ptr<WorkItem> postAfter(double seconds, std::function<void()> task) override;
    std::shared_ptr<RepeatingTimer> startTimer(double firstDeadline, double period,
                                               std::function<void()> handler) override;
    bool isCurrent() const override;

    // Stops the thread as described above; does nothing the second time.
    void stop();

    // An object living on the queue's thread: Qt objects of the queue are made (on the queue) as its
    // children, so that they are destroyed on that thread at the latest when the queue stops.
    QObject& context();

private:
    QtDeadlineQueue& deadlines();
    void releaseOnQueueThread();

    std::unique_ptr<QThread> thread_;
    std::unique_ptr<QObject> context_;
    std::unique_ptr<QtDeadlineQueue> deadlines_; // made and used on the queue's thread only
    std::atomic<bool> stopping_{false};
};

} // namespace keyferry
