#pragma once

#include "MainThread.h"

#include <cstddef>
#include <deque>
#include <functional>

namespace keyferry::uitest {

// The main-thread hand-off of the shell tests: posted reports wait until the test runs them, all at once or
// one by one (to look at the shell between two reports the service made in a row). Single-threaded.
class SteppedMainThread : public MainThread {
public:
    void post(std::function<void()> task) override { tasks.push_back(std::move(task)); }

    // Runs the oldest report; false when none is waiting.
    bool runOne();
    // Runs reports, including ones posted meanwhile, until none is left. Returns the number run.
    std::size_t drain();
    std::size_t pendingCount() const { return tasks.size(); }

private:
    std::deque<std::function<void()>> tasks;
};

} // namespace keyferry::uitest
