#include "SystemClock.h"

#include <gtest/gtest.h>

#include <QDateTime>

namespace keyferry {
namespace {

TEST(SystemClockTest, TellsSecondsSinceTheUnixEpochWithAFraction) {
    SystemClock clock;
    const double before = static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
    const double now = clock.now();
    const double after = static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
    EXPECT_GE(now, before - 0.001);
    EXPECT_LE(now, after + 0.001);
    EXPECT_GT(now, 1.7e9); // after November 2023
}

} // namespace
} // namespace keyferry
