// The spare-keycode bookkeeping on its own: which keycode a character gets, and when one may be rebound.
#include "SpareKeycodePool.h"

#include <gtest/gtest.h>

namespace keyferry {
namespace {

using namespace std::chrono_literals;
using TimePoint = SpareKeycodePool::TimePoint;

const TimePoint start = TimePoint{} + 1000s;

TEST(SpareKeycodePoolTest, BindsFreshKeycodesInTheOrderGiven) {
    SpareKeycodePool pool({30, 10, 20}, 250ms);
    EXPECT_EQ(pool.bind({0x1000001, 0x1000002}, {}, start), (std::vector<unsigned>{30, 10}));
    EXPECT_EQ(pool.keycodeFor(0x1000001), std::optional<unsigned>(30));
    EXPECT_EQ(pool.keysymOn(10), std::optional<unsigned long>(0x1000002));
    EXPECT_EQ(pool.keycodeFor(0x1000003), std::nullopt);
    EXPECT_TRUE(pool.hasBindings());
}

TEST(SpareKeycodePoolTest, RebindsOnlyKeycodesReadLongEnoughAgoLeastRecentFirst) {
    SpareKeycodePool pool({10, 20}, 250ms);
    pool.bind({1, 2}, {}, start);
    pool.markTyped(10, start + 100ms);
    pool.markTyped(20, start);
    EXPECT_TRUE(pool.bind({3}, {}, start + 200ms).empty());
    EXPECT_EQ(pool.nextFree({}), std::optional<TimePoint>(start + 250ms));
    EXPECT_EQ(pool.bind({3}, {}, start + 250ms), (std::vector<unsigned>{20}));
    EXPECT_EQ(pool.keycodeFor(2), std::nullopt);
    EXPECT_EQ(pool.keycodeFor(3), std::optional<unsigned>(20));
}

TEST(SpareKeycodePoolTest, NeverTakesAKeycodeCarryingAProtectedCharacter) {
    SpareKeycodePool pool({10, 20}, 250ms);
    pool.bind({1, 2}, {}, start);
    EXPECT_EQ(pool.bind({3}, {1}, start), (std::vector<unsigned>{20}));
    EXPECT_EQ(pool.nextFree({1, 3}), std::nullopt);
}

TEST(SpareKeycodePoolTest, KeepsTheLatestReadingTimeAndForgetsBindingsOnRestore) {
    SpareKeycodePool pool({10}, 250ms);
    pool.bind({1}, {}, start);
    pool.markTyped(10, start + 2s);
    pool.markTyped(10, start + 1s);
    EXPECT_EQ(pool.lastReadBy(), std::optional<TimePoint>(start + 2s));
    EXPECT_EQ(pool.boundKeycodes(), (std::vector<unsigned>{10}));
    pool.forgetBindings();
    EXPECT_FALSE(pool.hasBindings());
    EXPECT_TRUE(pool.isSpare(10));
    EXPECT_FALSE(pool.isSpare(11));
    EXPECT_TRUE(pool.bind({2}, {}, start + 2100ms).empty());
}

} // namespace
} // namespace keyferry
