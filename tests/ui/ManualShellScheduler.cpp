#include "ManualShellScheduler.h"

#include <cmath>

namespace keyferry::uitest {

namespace {

std::int64_t nanoseconds(double seconds) {
    return static_cast<std::int64_t>(std::llround(seconds * 1e9));
}

} // namespace

struct ManualShellScheduler::TimerState {
    std::int64_t interval = 0;
    std::function<void()> tick;
    bool valid = true;
};

class ManualShellScheduler::Timer : public ShellTimer {
public:
    explicit Timer(std::shared_ptr<TimerState> timerState) : state(std::move(timerState)) {}
    void invalidate() override { state->valid = false; }
    bool isValid() const override { return state->valid; }

private:
    std::shared_ptr<TimerState> state;
};

void ManualShellScheduler::schedule(std::int64_t deadline, Entry entry) {
    entries.emplace(Key{deadline, nextOrder++}, std::move(entry));
}

void ManualShellScheduler::after(double seconds, std::function<void()> task) {
    schedule(clock + nanoseconds(seconds), Entry{std::move(task), nullptr});
}

std::shared_ptr<ShellTimer> ManualShellScheduler::repeating(double interval, std::function<void()> tick) {
    auto state = std::make_shared<TimerState>(TimerState{nanoseconds(interval), std::move(tick), true});
    schedule(clock + state->interval, Entry{nullptr, state});
    return std::make_shared<Timer>(state);
}

std::size_t ManualShellScheduler::advance(double seconds) {
    const std::int64_t end = clock + nanoseconds(seconds);
    std::size_t ran = 0;
    while (!entries.empty() && entries.begin()->first.first <= end) {
        auto node = entries.extract(entries.begin());
        clock = node.key().first;
        Entry& entry = node.mapped();
        if (entry.timer) {
            if (!entry.timer->valid) {
                continue;
            }
            entry.timer->tick();
            ++ran;
            if (entry.timer->valid) {
                schedule(clock + entry.timer->interval, Entry{nullptr, entry.timer});
            }
        } else {
            entry.task();
            ++ran;
        }
    }
    clock = end;
    return ran;
}

double ManualShellScheduler::now() const {
    return static_cast<double>(clock) / 1e9;
}

std::size_t ManualShellScheduler::pendingTaskCount() const {
    std::size_t count = 0;
    for (const auto& [key, entry] : entries) {
        count += entry.timer ? 0 : 1;
    }
    return count;
}

std::size_t ManualShellScheduler::activeTimerCount() const {
    std::size_t count = 0;
    for (const auto& [key, entry] : entries) {
        count += entry.timer && entry.timer->valid ? 1 : 0;
    }
    return count;
}

} // namespace keyferry::uitest
