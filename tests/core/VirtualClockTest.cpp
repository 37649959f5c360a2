#include "VirtualClock.h"
#include "ManualSerialQueue.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace keyferry::fakes {
namespace {

// The service's queue and the shell's on one clock, as the shell tests run them.
class VirtualClockTest : public ::testing::Test {
protected:
    VirtualClock clock;
    ManualSerialQueue service{clock};
    ManualSerialQueue shell{clock};
    std::vector<std::string> ran;
};

TEST_F(VirtualClockTest, QueuesOnOneClockShareItsTime) {
    service.advance(1.5);
    EXPECT_DOUBLE_EQ(clock.now(), 1.5);
    EXPECT_DOUBLE_EQ(service.now(), 1.5);
    EXPECT_DOUBLE_EQ(shell.now(), 1.5);
    shell.advance(0.5);
    EXPECT_DOUBLE_EQ(service.now(), 2.0);
}

TEST_F(VirtualClockTest, RunsTheWorkOfEveryQueueInDeadlineOrder) {
    service.postAfter(3, [&] { ran.push_back("service at " + std::to_string(clock.now())); });
    shell.postAfter(1, [&] { ran.push_back("shell at " + std::to_string(clock.now())); });
    service.postAfter(2, [&] { ran.push_back("service at " + std::to_string(clock.now())); });

    EXPECT_EQ(clock.advance(5), 3u);
    EXPECT_EQ(ran, (std::vector<std::string>{"shell at 1.000000", "service at 2.000000", "service at 3.000000"}));
    EXPECT_DOUBLE_EQ(clock.now(), 5.0);
}

TEST_F(VirtualClockTest, AmongEqualDeadlinesTheFirstScheduledRunsFirstWhicheverQueueHoldsIt) {
    shell.postAfter(1, [&] { ran.push_back("shell 1"); });
    service.postAfter(1, [&] { ran.push_back("service 1"); });
    shell.postAfter(1, [&] { ran.push_back("shell 2"); });
    clock.advance(1);
    EXPECT_EQ(ran, (std::vector<std::string>{"shell 1", "service 1", "shell 2"}));
}

TEST_F(VirtualClockTest, WorkScheduledOnAnotherQueueInsideTheWindowRunsWhenDue) {
    service.postAfter(1,
                      [&] { shell.postAfter(0.5, [&] { ran.push_back("posted " + std::to_string(clock.now())); }); });
    const auto timer = shell.startTimer(0.75, 0.75, [&] { ran.push_back("tick " + std::to_string(clock.now())); });
    clock.advance(2);
    EXPECT_EQ(ran, (std::vector<std::string>{"tick 0.750000", "tick 1.500000", "posted 1.500000"}));
    timer->cancel();
}

TEST_F(VirtualClockTest, RunUntilIdleRunsOnlyThatQueuesWork) {
    int serviceRan = 0;
    int shellRan = 0;
    service.post([&] { ++serviceRan; });
    shell.post([&] { ++shellRan; });
    EXPECT_EQ(shell.runUntilIdle(), 1u);
    EXPECT_EQ(serviceRan, 0);
    EXPECT_EQ(shellRan, 1);
}

TEST_F(VirtualClockTest, CannotBeAdvancedFromInsideAQueuesWork) {
    bool refused = false;
    shell.post([&] {
        try {
            clock.advance(1);
        } catch (const std::logic_error&) {
            refused = true;
        }
    });
    shell.runUntilIdle();
    EXPECT_TRUE(refused);
    EXPECT_DOUBLE_EQ(clock.now(), 0.0);
}

TEST_F(VirtualClockTest, AGoneQueueLeavesTheClock) {
    bool gone = false;
    {
        ManualSerialQueue leaving(clock);
        leaving.postAfter(1, [&] { gone = true; });
    }
    EXPECT_EQ(clock.advance(2), 0u);
    EXPECT_FALSE(gone);
}

} // namespace
} // namespace keyferry::fakes
