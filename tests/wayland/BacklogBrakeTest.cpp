#include "BacklogBrake.h"

#include <gtest/gtest.h>

namespace keyferry {
namespace {

constexpr std::uint32_t buffer = 200000;

BacklogBrake::Connections connections(std::uint32_t receiverQueued, std::uint32_t otherQueued) {
    return {{1, receiverQueued, buffer}, {2, otherQueued, buffer}};
}

TEST(BacklogBrake, AConnectionThatGrowsWithTheKeysAndHoldsOverHalfItsBufferHoldsTheNextKeysBack) {
    BacklogBrake brake;
    EXPECT_EQ(brake.excess(connections(0, 0)), 0u);
    brake.keysSent();
    EXPECT_EQ(brake.excess(connections(buffer / 2 + 10, 0)), 10u);
}

TEST(BacklogBrake, OnceTheReceiverHasReadBackToHalfItsBufferKeysGoAgain) {
    BacklogBrake brake;
    brake.excess(connections(0, 0));
    brake.keysSent();
    ASSERT_GT(brake.excess(connections(buffer, 0)), 0u);
    EXPECT_EQ(brake.excess(connections(buffer / 2, 0)), 0u);
}

TEST(BacklogBrake, ABusyConnectionThatTheKeysDoNotGoToNeverHoldsTypingUp) {
    BacklogBrake brake;
    brake.excess(connections(0, buffer));
    brake.keysSent();
    EXPECT_EQ(brake.excess(connections(100, buffer)), 0u);
    brake.keysSent();
    EXPECT_EQ(brake.excess(connections(200, buffer - 50)), 0u);
}

TEST(BacklogBrake, AConnectionThatGrowsWhileNoKeysWentIsNotTheReceiver) {
    BacklogBrake brake;
    brake.excess(connections(0, 0));
    EXPECT_EQ(brake.excess(connections(0, buffer)), 0u);
    brake.keysSent();
    EXPECT_EQ(brake.excess(connections(0, buffer)), 0u);
}

TEST(BacklogBrake, AReceiverStaysOneWhenItStopsGrowing) {
    BacklogBrake brake;
    brake.excess(connections(0, 0));
    brake.keysSent();
    brake.excess(connections(1000, 0));
    EXPECT_EQ(brake.excess(connections(buffer, 0)), buffer / 2);
}

} // namespace
} // namespace keyferry
