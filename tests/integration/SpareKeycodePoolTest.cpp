// The spare-keycode bookkeeping on its own: which place a character gets, and when one may be rebound.
#include "SpareKeycodePool.h"

#include <gtest/gtest.h>

namespace keyferry {
namespace {

using namespace std::chrono_literals;
using TimePoint = SpareKeycodePool::TimePoint;
using Place = SpareKeycodePool::Place;

const TimePoint start = TimePoint{} + 1000s;

// Characters on plain places need no Shift press, which a slow window would have to handle as one more key.
TEST(SpareKeycodePoolTest, BindsEveryPlainPlaceBeforeAnyShiftedOneInTheOrderGiven) {
    SpareKeycodePool pool({30, 10, 20}, 2, 250ms);
    EXPECT_EQ(pool.size(), 6U);
    EXPECT_EQ(pool.bind({0x1000001, 0x1000002, 0x1000003}, {}, start), (std::vector<unsigned>{10, 20, 30}));
    EXPECT_EQ(pool.placeOf(0x1000001), (std::optional<Place>(Place{30, 0})));
    EXPECT_EQ(pool.placeOf(0x1000002), (std::optional<Place>(Place{10, 0})));
    EXPECT_EQ(pool.placeOf(0x1000003), (std::optional<Place>(Place{20, 0})));
    EXPECT_EQ(pool.keysymOn({30, 1}), std::nullopt);
    EXPECT_EQ(pool.bind({0x1000004}, {0x1000001, 0x1000002, 0x1000003}, start), (std::vector<unsigned>{30}));
    EXPECT_EQ(pool.placeOf(0x1000004), (std::optional<Place>(Place{30, 1})));
    EXPECT_EQ(pool.placeOf(0x1000005), std::nullopt);
    EXPECT_EQ(pool.boundKeycodes(), (std::vector<unsigned>{10, 20, 30}));
}

TEST(SpareKeycodePoolTest, RebindsOnlyPlacesReadLongEnoughAgoLeastRecentFirst) {
    SpareKeycodePool pool({10, 20}, 1, 250ms);
    pool.bind({1, 2}, {}, start);
    pool.markTyped({10, 0}, start + 100ms);
    pool.markTyped({20, 0}, start);
    EXPECT_TRUE(pool.bind({3}, {}, start + 200ms).empty());
    EXPECT_EQ(pool.nextFree({}), std::optional<TimePoint>(start + 250ms));
    EXPECT_EQ(pool.bind({3}, {}, start + 250ms), (std::vector<unsigned>{20}));
    EXPECT_EQ(pool.placeOf(2), std::nullopt);
    EXPECT_EQ(pool.placeOf(3), (std::optional<Place>(Place{20, 0})));
}

TEST(SpareKeycodePoolTest, NeverTakesAPlaceCarryingAProtectedCharacter) {
    SpareKeycodePool pool({10, 20}, 1, 250ms);
    pool.bind({1, 2}, {}, start);
    EXPECT_EQ(pool.bind({3}, {1}, start), (std::vector<unsigned>{20}));
    EXPECT_EQ(pool.nextFree({1, 3}), std::nullopt);
}

TEST(SpareKeycodePoolTest, KeepsTheLatestReadingTimeAndForgetsBindingsOnRestore) {
    SpareKeycodePool pool({10}, 1, 250ms);
    pool.bind({1}, {}, start);
    pool.markTyped({10, 0}, start + 2s);
    pool.markTyped({10, 0}, start + 1s);
    EXPECT_EQ(pool.lastReadBy(), std::optional<TimePoint>(start + 2s));
    EXPECT_EQ(pool.boundKeycodes(), (std::vector<unsigned>{10}));
    pool.forgetBindings();
    EXPECT_FALSE(pool.hasBindings());
    EXPECT_TRUE(pool.isSpare(10));
    EXPECT_FALSE(pool.isSpare(11));
    EXPECT_TRUE(pool.bind({2}, {}, start + 2100ms).empty());
}

// A client that says it has read every key typed so far frees their places at once, least recently typed first;
// a key typed after that answer keeps its place until the next one.
TEST(SpareKeycodePoolTest, PlacesConfirmedReadAreFreeAtOnceAndKeysTypedAfterAreNot) {
    SpareKeycodePool pool({10, 20, 30}, 1, 250ms);
    pool.bind({1, 2, 3}, {}, start);
    pool.markTyped({20, 0}, start + 10s);
    pool.markTyped({10, 0}, start + 10s);
    const TimePoint onlyConfirmed{};
    EXPECT_EQ(pool.freePlaces({}, onlyConfirmed), 1U) << "the never-typed place";
    pool.confirmRead(pool.typedKeys(), start);
    pool.markTyped({30, 0}, start + 10s);
    EXPECT_EQ(pool.freePlaces({}, onlyConfirmed), 2U);
    EXPECT_EQ(pool.bind({4, 5, 6}, {}, onlyConfirmed), (std::vector<unsigned>{10, 20}));
    EXPECT_EQ(pool.placeOf(4), (std::optional<Place>(Place{20, 0})));
    EXPECT_EQ(pool.placeOf(5), (std::optional<Place>(Place{10, 0})));
    EXPECT_EQ(pool.placeOf(3), (std::optional<Place>(Place{30, 0})));
    EXPECT_EQ(pool.lastReadBy(), std::optional<TimePoint>(start + 10s)) << "the unconfirmed key";
}

TEST(SpareKeycodePoolTest, ConfirmingBringsTheExpectedReadingTimeForward) {
    SpareKeycodePool pool({10}, 1, 250ms);
    pool.bind({1}, {}, start);
    pool.markTyped({10, 0}, start + 30s);
    pool.confirmRead(pool.typedKeys(), start + 1s);
    EXPECT_EQ(pool.lastReadBy(), std::optional<TimePoint>(start + 1s));
    EXPECT_EQ(pool.nextFree({}), std::optional<TimePoint>(TimePoint{}));
}

// For a window that reads its keys slowly: no character goes on a shifted place, and those on shifted places it
// has read lose them, to come back on plain ones; a shifted place still to be read keeps its character.
TEST(SpareKeycodePoolTest, PlainOnlyBindsNoShiftedPlaceAndEmptiesTheShiftedPlacesRead) {
    SpareKeycodePool pool({10, 20}, 2, 250ms);
    pool.bind({1, 2, 3, 4}, {}, start);
    pool.markTyped({10, 0}, start);
    pool.markTyped({10, 1}, start);
    pool.confirmRead(pool.typedKeys(), start);
    pool.markTyped({20, 1}, start + 10s);
    const TimePoint onlyConfirmed{};
    EXPECT_EQ(pool.bind({5}, {2}, onlyConfirmed, true), (std::vector<unsigned>{10}));
    EXPECT_EQ(pool.placeOf(5), (std::optional<Place>(Place{10, 0})));
    EXPECT_EQ(pool.placeOf(3), std::nullopt) << "read on a shifted place";
    EXPECT_EQ(pool.placeOf(4), (std::optional<Place>(Place{20, 1}))) << "still to be read";
    EXPECT_EQ(pool.placeOf(2), (std::optional<Place>(Place{20, 0}))) << "protected";
}

TEST(SpareKeycodePoolTest, PlainOnlyLeavesShiftedPlacesAloneWhenNoPlainPlaceIsFree) {
    SpareKeycodePool pool({10}, 2, 250ms);
    pool.bind({1, 2}, {}, start);
    EXPECT_TRUE(pool.bind({3}, {1}, start, true).empty());
    EXPECT_EQ(pool.placeOf(2), (std::optional<Place>(Place{10, 1})));
}

} // namespace
} // namespace keyferry
