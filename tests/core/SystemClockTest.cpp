#include "SystemClock.h"

#include <gtest/gtest.h>

#include <chrono>

namespace keyferry {
namespace {

TEST(SystemClockTest, TellsSecondsSinceTheUnixEpochWithAFraction) {
    SystemClock clock;
    const auto secondsSinceEpoch = [] {
        return static_cast<double>(std::chrono::duration_cast<std::chrono::microseconds>(
                                       std::chrono::system_clock::now().time_since_epoch())
                                       .count()) /
               1e6;
    };
    const double before = secondsSinceEpoch();
    const double now = clock.now();
    const double after = secondsSinceEpoch();
    EXPECT_GE(now, before - 0.001);
    EXPECT_LE(now, after + 0.001);
    EXPECT_GT(now, 1.7e9); // after November 2023
}

} // namespace
} // namespace keyferry
