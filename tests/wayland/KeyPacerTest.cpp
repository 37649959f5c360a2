#include "KeyPacer.h"

#include <gtest/gtest.h>

namespace keyferry {
namespace {

using namespace std::chrono_literals;

constexpr KeyPacer::Timing timing{500us, 1500us, 10};

// Sends `keys` keys, each as soon as the pacer allows; the moment of the last one.
KeyPacer::TimePoint sendAsSoonAsAllowed(KeyPacer& pacer, KeyPacer::TimePoint start, int keys) {
    KeyPacer::TimePoint at = start;
    for (int key = 0; key < keys; ++key) {
        at = pacer.nextKeysAt(at);
        pacer.sent(at);
    }
    return at;
}

TEST(KeyPacer, AShortTextGoesAtOneKeyPerKeyInterval) {
    KeyPacer pacer(timing);
    const KeyPacer::TimePoint start{1s};
    EXPECT_EQ(sendAsSoonAsAllowed(pacer, start, 10) - start, 9 * 500us);
}

TEST(KeyPacer, ALongTextSettlesAtTheSlowClientsPace) {
    KeyPacer pacer(timing);
    const KeyPacer::TimePoint start{1s};
    const auto first = sendAsSoonAsAllowed(pacer, start, 100);
    const auto next = sendAsSoonAsAllowed(pacer, first, 100);
    EXPECT_NEAR(std::chrono::duration<double>(next - first).count(), 100 * 0.0015, 0.0001);
}

TEST(KeyPacer, TheModelledClientNeverHasMoreThanTheBurstQueued) {
    KeyPacer pacer(timing);
    KeyPacer::TimePoint at{1s};
    for (int key = 0; key < 1000; ++key) {
        at = pacer.nextKeysAt(at);
        pacer.sent(at);
        // Keys sent so far minus keys a client reading one per 1.5 ms has read.
        const double read = std::chrono::duration<double>(at - KeyPacer::TimePoint{1s}).count() / 0.0015;
        ASSERT_LE(key + 1 - read, timing.burstKeys + 1e-6) << key;
    }
}

TEST(KeyPacer, AfterAPauseTheBurstIsAvailableAgain) {
    KeyPacer pacer(timing);
    const auto end = sendAsSoonAsAllowed(pacer, KeyPacer::TimePoint{1s}, 200);
    const KeyPacer::TimePoint later = end + 1s;
    EXPECT_EQ(sendAsSoonAsAllowed(pacer, later, 10) - later, 9 * 500us);
}

TEST(KeyPacer, NeverSoonerThanAskedNorCloserThanTheKeyInterval) {
    KeyPacer pacer(timing);
    const KeyPacer::TimePoint start{1s};
    pacer.sent(start);
    EXPECT_EQ(pacer.nextKeysAt(start), start + 500us);
    EXPECT_EQ(pacer.nextKeysAt(start + 2s), start + 2s);
}

TEST(KeyPacer, KeysSentTogetherCountTogether) {
    KeyPacer pacer(timing);
    const KeyPacer::TimePoint start{1s};
    pacer.sent(start, 10);
    // The burst is full: five more may go once the modelled client has read five.
    EXPECT_NEAR(std::chrono::duration<double>(pacer.nextKeysAt(start, 5) - start).count(), 5 * 0.0015, 1e-6);
}

TEST(KeyPacer, ABatchKeepsTheKeyIntervalOfEachOfItsKeys) {
    KeyPacer pacer(timing);
    const KeyPacer::TimePoint start{1s};
    pacer.sent(start, 4);
    EXPECT_EQ(pacer.nextKeysAt(start, 1), start + 4 * 500us);
}

} // namespace
} // namespace keyferry
