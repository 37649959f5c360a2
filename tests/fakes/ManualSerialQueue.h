#pragma once

#include "SerialQueue.h"
#include "VirtualClock.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>

namespace keyferry::fakes {

// A serial queue driven by the test, on a virtual clock that starts at 0 and moves only through advance():
// a clock of its own, or one shared with other queues (the service's queue and the shell's), which then all
// move together.
//
// Nothing runs on its own: posted tasks wait for runUntilIdle() or advance(); delayed work and timer ticks
// wait for advance() to reach their deadline. Virtual time is kept in whole nanoseconds, so deadlines that
// add up (1.8 + 1.8 + ...) land exactly where a test expects them.
//
// Ordering: by deadline, then first scheduled first. A posted task is due at the current virtual time.
// Timers tick exactly at start + k * period (no drift) and run whatever handler is installed when the tick
// runs. The queue owns what is scheduled on it: work items run and timers tick until cancelled, even when
// the caller drops the returned handle. Single-threaded: used from the test's thread only.
class ManualSerialQueue : public SerialQueue {
public:
    // On a clock of its own.
    ManualSerialQueue();
    // On `sharedClock`, which must outlive the queue.
    explicit ManualSerialQueue(VirtualClock& sharedClock);
    ~ManualSerialQueue() override;
    ManualSerialQueue(const ManualSerialQueue&) = delete;
    ManualSerialQueue& operator=(const ManualSerialQueue&) = delete;

    void post(std::function<void()> task) override;
    std::shared_ptr<WorkItem> postAfter(double seconds, std::function<void()> task) override;
    std::shared_ptr<RepeatingTimer> startTimer(double firstDeadline, double period,
                                               std::function<void()> handler) override;

    // True only while this fake is running a task, work item or timer tick.
    bool isCurrent() const override { return running; }

    // Virtual seconds since the queue was made.
    double now() const;

    // Runs everything due now on this queue (posted tasks, and work posted by them), without moving the
    // clock. Returns the number of entries run.
    std::size_t runUntilIdle();

    // Moves the clock forward by `seconds`, running every entry whose deadline falls inside the window in
    // deadline order, with the clock set to each entry's deadline while it runs (so work scheduled by work
    // inside the window runs too when due). Ends with the clock at the window's end. Returns entries run.
    // On a shared clock, the other queues' work runs too, in the same order (VirtualClock::advance()).
    std::size_t advance(double seconds);

    // Introspection for tests (cancelled entries are not counted).
    std::size_t pendingTaskCount() const;              // posted tasks not yet run
    std::size_t pendingDelayedCount() const;           // postAfter() work not yet run
    std::size_t activeTimerCount() const;              // timers not cancelled
    std::optional<double> nextDeadline() const;        // virtual time of the earliest live entry
    std::optional<double> nextDelayedDeadline() const; // virtual time of the earliest postAfter() work

    static std::int64_t toNanoseconds(double seconds);

private:
    friend class VirtualClock;

    enum class Kind { task, delayed, timerTick };
    struct Liveness;
    struct TimerState;
    class Item;
    class Timer;
    struct Entry {
        Kind kind;
        std::function<void()> work;         // for tasks and delayed work
        std::shared_ptr<Liveness> liveness; // for delayed work
        std::shared_ptr<TimerState> timer;  // for timer ticks
    };
    using Key = std::pair<std::int64_t, std::uint64_t>; // (deadline, order scheduled)

    void schedule(std::int64_t deadline, Entry entry);
    void scheduleTick(const std::shared_ptr<TimerState>& timer);
    bool isLive(const Entry& entry) const;
    std::optional<Key> firstLiveDueBy(std::int64_t limit);
    void runKey(const Key& key);
    void runEntry(Entry entry);
    std::int64_t clockNanoseconds() const { return time.nanoseconds; }

    std::unique_ptr<VirtualClock> ownClock; // when not on a shared one
    VirtualClock& time;
    std::map<Key, Entry> entries;
    bool running = false;
};

} // namespace keyferry::fakes
