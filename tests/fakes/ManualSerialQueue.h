#pragma once

#include "SerialQueue.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>

namespace keyferry::fakes {

// A serial queue driven by the test, on a virtual clock that starts at 0 and moves only through advance().
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
    ManualSerialQueue() = default;
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

    // Runs everything due now (posted tasks, and work posted by them), without moving the clock.
    // Returns the number of entries run.
    std::size_t runUntilIdle();

    // Moves the clock forward by `seconds`, running every entry whose deadline falls inside the window in
    // deadline order, with the clock set to each entry's deadline while it runs (so work scheduled by work
    // inside the window runs too when due). Ends with the clock at the window's end. Returns entries run.
    std::size_t advance(double seconds);

    // Introspection for tests (cancelled entries are not counted).
    std::size_t pendingTaskCount() const;    // posted tasks not yet run
    std::size_t pendingDelayedCount() const; // postAfter() work not yet run
    std::size_t activeTimerCount() const;    // timers not cancelled
    std::optional<double> nextDeadline() const; // virtual time of the earliest live entry
    std::optional<double> nextDelayedDeadline() const; // virtual time of the earliest postAfter() work

    static std::int64_t toNanoseconds(double seconds);

private:
    enum class Kind { task, delayed, timerTick };
    struct Liveness;
    struct TimerState;
    class Item;
    class Timer;
    struct Entry {
        Kind kind;
        std::function<void()> work; // for tasks and delayed work
        std::shared_ptr<Liveness> liveness; // for delayed work
        std::shared_ptr<TimerState> timer;  // for timer ticks
    };
    using Key = std::pair<std::int64_t, std::uint64_t>; // (deadline, order scheduled)

    void schedule(std::int64_t deadline, Entry entry);
    void scheduleTick(const std::shared_ptr<TimerState>& timer);
    bool isLive(const Entry& entry) const;
    std::optional<Key> firstLiveDueBy(std::int64_t limit);
    void runEntry(Entry entry);
    std::size_t runDueBy(std::int64_t limit, bool moveClock);

    std::map<Key, Entry> entries;
    std::int64_t clock = 0;
    std::uint64_t nextOrder = 0;
    bool running = false;
};

} // namespace keyferry::fakes
