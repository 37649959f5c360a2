#include "ManualSerialQueue.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace keyferry::fakes {

struct ManualSerialQueue::Liveness {
    bool cancelled = false;
    bool done = false;
};

struct ManualSerialQueue::TimerState {
    std::function<void()> handler;
    std::int64_t start = 0;
    std::int64_t period = 0;
    std::int64_t ticks = 0; // ticks already scheduled before the pending one
    bool cancelled = false;
};

class ManualSerialQueue::Item : public WorkItem {
public:
    explicit Item(std::shared_ptr<Liveness> shared) : state(std::move(shared)) {}
    void cancel() override {
        if (!state->done) {
            state->cancelled = true;
        }
    }
    bool isCancelled() const override { return state->cancelled; }

private:
    std::shared_ptr<Liveness> state;
};

class ManualSerialQueue::Timer : public RepeatingTimer {
public:
    explicit Timer(std::shared_ptr<TimerState> shared) : state(std::move(shared)) {}
    void setEventHandler(std::function<void()> handler) override { state->handler = std::move(handler); }
    void cancel() override { state->cancelled = true; }

private:
    std::shared_ptr<TimerState> state;
};

std::int64_t ManualSerialQueue::toNanoseconds(double seconds) {
    return std::llround(std::max(seconds, 0.0) * 1e9);
}

ManualSerialQueue::ManualSerialQueue() : ownClock(std::make_unique<VirtualClock>()), time(*ownClock) {
    time.attach(*this);
}

ManualSerialQueue::ManualSerialQueue(VirtualClock& sharedClock) : time(sharedClock) {
    time.attach(*this);
}

ManualSerialQueue::~ManualSerialQueue() {
    time.detach(*this);
}

double ManualSerialQueue::now() const {
    return time.now();
}

void ManualSerialQueue::post(std::function<void()> task) {
    schedule(clockNanoseconds(), Entry{Kind::task, std::move(task), nullptr, nullptr});
}

std::shared_ptr<WorkItem> ManualSerialQueue::postAfter(double seconds, std::function<void()> task) {
    auto liveness = std::make_shared<Liveness>();
    schedule(clockNanoseconds() + toNanoseconds(seconds), Entry{Kind::delayed, std::move(task), liveness, nullptr});
    return std::make_shared<Item>(liveness);
}

std::shared_ptr<RepeatingTimer> ManualSerialQueue::startTimer(double firstDeadline, double period,
                                                              std::function<void()> handler) {
    auto timer = std::make_shared<TimerState>();
    timer->handler = std::move(handler);
    timer->start = clockNanoseconds() + toNanoseconds(firstDeadline);
    timer->period = std::max<std::int64_t>(toNanoseconds(period), 1);
    scheduleTick(timer);
    return std::make_shared<Timer>(timer);
}

void ManualSerialQueue::schedule(std::int64_t deadline, Entry entry) {
    entries.emplace(Key{deadline, time.nextOrder()}, std::move(entry));
}

void ManualSerialQueue::scheduleTick(const std::shared_ptr<TimerState>& timer) {
    const std::int64_t deadline = timer->start + timer->ticks * timer->period;
    ++timer->ticks;
    schedule(deadline, Entry{Kind::timerTick, nullptr, nullptr, timer});
}

bool ManualSerialQueue::isLive(const Entry& entry) const {
    switch (entry.kind) {
    case Kind::task:
        return true;
    case Kind::delayed:
        return !entry.liveness->cancelled;
    case Kind::timerTick:
        return !entry.timer->cancelled;
    }
    return false;
}

std::optional<ManualSerialQueue::Key> ManualSerialQueue::firstLiveDueBy(std::int64_t limit) {
    while (!entries.empty() && entries.begin()->first.first <= limit) {
        if (isLive(entries.begin()->second)) {
            return entries.begin()->first;
        }
        entries.erase(entries.begin());
    }
    return std::nullopt;
}

void ManualSerialQueue::runEntry(Entry entry) {
    struct RunningFlag {
        bool& flag;
        explicit RunningFlag(bool& running) : flag(running) { flag = true; }
        ~RunningFlag() { flag = false; }
        RunningFlag(const RunningFlag&) = delete;
        RunningFlag& operator=(const RunningFlag&) = delete;
    } runningFlag(running);

    if (entry.kind == Kind::timerTick) {
        scheduleTick(entry.timer);
        if (auto handler = entry.timer->handler) {
            handler();
        }
        return;
    }
    if (entry.liveness) {
        entry.liveness->done = true;
    }
    if (entry.work) {
        entry.work();
    }
}

void ManualSerialQueue::runKey(const Key& key) {
    auto node = entries.extract(key);
    runEntry(std::move(node.mapped()));
}

std::size_t ManualSerialQueue::runUntilIdle() {
    if (running) {
        throw std::logic_error("ManualSerialQueue driven from inside its own work");
    }
    std::size_t count = 0;
    while (auto key = firstLiveDueBy(clockNanoseconds())) {
        runKey(*key);
        ++count;
    }
    return count;
}

std::size_t ManualSerialQueue::advance(double seconds) {
    return time.advance(seconds);
}

std::size_t ManualSerialQueue::pendingTaskCount() const {
    return static_cast<std::size_t>(
        std::ranges::count_if(entries, [](const auto& item) { return item.second.kind == Kind::task; }));
}

std::size_t ManualSerialQueue::pendingDelayedCount() const {
    return static_cast<std::size_t>(std::ranges::count_if(
        entries, [this](const auto& item) { return item.second.kind == Kind::delayed && isLive(item.second); }));
}

std::size_t ManualSerialQueue::activeTimerCount() const {
    return static_cast<std::size_t>(std::ranges::count_if(
        entries, [this](const auto& item) { return item.second.kind == Kind::timerTick && isLive(item.second); }));
}

std::optional<double> ManualSerialQueue::nextDeadline() const {
    for (const auto& [key, entry] : entries) {
        if (isLive(entry)) {
            return static_cast<double>(key.first) / 1e9;
        }
    }
    return std::nullopt;
}

std::optional<double> ManualSerialQueue::nextDelayedDeadline() const {
    for (const auto& [key, entry] : entries) {
        if (entry.kind == Kind::delayed && isLive(entry)) {
            return static_cast<double>(key.first) / 1e9;
        }
    }
    return std::nullopt;
}

} // namespace keyferry::fakes
