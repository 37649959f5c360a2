#pragma once

#include "ShellScheduler.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>

namespace keyferry::uitest {

// The shell's scheduler on a virtual clock that starts at 0 and moves only through advance(): nothing
// runs on its own. Entries run in deadline order (first scheduled first among equals), with the clock set
// to each deadline while it runs; a repeating timer ticks at start + k * interval until invalidated.
// Single-threaded (the test's thread).
class ManualShellScheduler : public ShellScheduler {
public:
    void after(double seconds, std::function<void()> task) override;
    std::shared_ptr<ShellTimer> repeating(double interval, std::function<void()> tick) override;

    // Moves the clock forward by `seconds`, running everything that falls due. Returns entries run.
    std::size_t advance(double seconds);
    double now() const;

    std::size_t pendingTaskCount() const; // one-shot tasks not run yet
    std::size_t activeTimerCount() const; // repeating timers still valid

private:
    struct TimerState;
    class Timer;
    struct Entry {
        std::function<void()> task;
        std::shared_ptr<TimerState> timer;
    };
    using Key = std::pair<std::int64_t, std::uint64_t>;

    void schedule(std::int64_t deadline, Entry entry);

    std::map<Key, Entry> entries;
    std::int64_t clock = 0;
    std::uint64_t nextOrder = 0;
};

} // namespace keyferry::uitest
