#pragma once

#include <algorithm>
#include <chrono>
#include <thread>

namespace keyferry::testing {

// Between two checks of a condition: sleeps a short while, never past the deadline. For tests that wait
// on another process or thread without an event loop of their own to run.
struct PollBriefly {
    void operator()(std::chrono::milliseconds left) const {
        std::this_thread::sleep_for(std::min(left, std::chrono::milliseconds(10)));
    }
};

// The one way tests wait for something another process or thread does: checks `condition` until it holds
// or `limit` has passed, calling `pause(timeLeft)` between checks (polling by default; an event loop's
// pause for tests whose peers report through that loop). True when the condition holds.
template <typename Condition, typename Pause = PollBriefly>
bool waitUntil(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(10), Pause pause = {}) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return condition();
        }
        pause(left);
    }
    return true;
}

// Waits until `measure()` reaches `enough` or has not changed for `quiet` (a program that stopped producing
// output), at most `limit`; the last value measured.
template <typename Measure, typename Value>
Value waitUntilSteady(Measure measure, const Value& enough, std::chrono::milliseconds quiet,
                      std::chrono::milliseconds limit = std::chrono::minutes(2)) {
    Value last = measure();
    auto changed = std::chrono::steady_clock::now();
    waitUntil(
        [&] {
            const Value now = measure();
            if (now != last) {
                last = now;
                changed = std::chrono::steady_clock::now();
            }
            return !(last < enough) || std::chrono::steady_clock::now() - changed >= quiet;
        },
        limit);
    return last;
}

} // namespace keyferry::testing
