#pragma once

#include "MainThread.h"

#include <cstddef>
#include <deque>
#include <functional>

namespace keyferry::fakes {

// A main thread that only records what is posted; the test runs it with drain(). Single-threaded: the test
// posts (through the code under test) and drains from its own thread.
class RecordingMainThread : public MainThread {
public:
    void post(std::function<void()> task) override;

    // Runs posted tasks in order, including tasks posted while draining, until none is left.
    // Returns the number run.
    std::size_t drain();

    std::size_t pendingCount() const { return tasks.size(); }
    std::size_t postedCount() const { return posted; } // every task ever posted

private:
    std::deque<std::function<void()>> tasks;
    std::size_t posted = 0;
};

} // namespace keyferry::fakes
