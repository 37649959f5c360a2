#include "Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace keyferry {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

TEST(WaitUntil, ReturnsAsSoonAsTheConditionHolds) {
    std::atomic<bool> done{false};
    std::thread other([&done] {
        std::this_thread::sleep_for(50ms); // the other side takes a while
        done = true;
    });
    const auto start = Clock::now();
    EXPECT_TRUE(testing::waitUntil([&done] { return done.load(); }, 10s));
    EXPECT_LT(Clock::now() - start, 5s);
    other.join();
}

TEST(WaitUntil, GivesUpAfterItsLimit) {
    const auto start = Clock::now();
    int checks = 0;
    EXPECT_FALSE(testing::waitUntil([&checks] { return ++checks < 0; }, 100ms));
    EXPECT_GE(Clock::now() - start, 100ms);
    EXPECT_GT(checks, 2); // it polled, not slept the whole time
}

// A limit that is not a whole number of milliseconds away by the time of a check still counts in full.
TEST(WaitUntil, NeverGivesUpBeforeItsLimitHowEverTheMillisecondsFall) {
    for (int attempt = 0; attempt < 50; ++attempt) {
        const auto start = Clock::now();
        EXPECT_FALSE(testing::waitUntil([] { return false; }, 3ms));
        ASSERT_GE(Clock::now() - start, 3ms) << "attempt " << attempt;
    }
}

TEST(WaitUntil, PausesWithTheGivenPauseAndNeverPastTheDeadline) {
    std::vector<std::chrono::milliseconds> pauses;
    const auto recordAndSleep = [&pauses](std::chrono::milliseconds left) {
        pauses.push_back(left);
        std::this_thread::sleep_for(left);
    };
    EXPECT_FALSE(testing::waitUntil([] { return false; }, 50ms, recordAndSleep));
    ASSERT_FALSE(pauses.empty());
    EXPECT_LE(pauses.front(), 50ms);
}

TEST(WaitUntilSteady, StopsOnceTheValueIsEnough) {
    int value = 0;
    const auto start = Clock::now();
    EXPECT_EQ(testing::waitUntilSteady([&value] { return ++value; }, 5, 10s), 5);
    EXPECT_LT(Clock::now() - start, 5s);
}

TEST(WaitUntilSteady, StopsOnceTheValueHasNotChangedForTheQuietTime) {
    const auto start = Clock::now();
    EXPECT_EQ(testing::waitUntilSteady([] { return 3; }, 10, 100ms, 10s), 3);
    const auto waited = Clock::now() - start;
    EXPECT_GE(waited, 100ms);
    EXPECT_LT(waited, 5s);
}

} // namespace
} // namespace keyferry
