#include "ManualSerialQueue.h"
#include "FakeClock.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace keyferry::fakes {
namespace {

TEST(ManualSerialQueue, PostedTasksWaitForRunUntilIdleAndRunInOrder) {
    ManualSerialQueue queue;
    std::vector<int> ran;
    queue.post([&] { ran.push_back(1); });
    queue.post([&] { ran.push_back(2); });
    EXPECT_TRUE(ran.empty());
    EXPECT_EQ(queue.pendingTaskCount(), 2u);

    EXPECT_EQ(queue.runUntilIdle(), 2u);
    EXPECT_EQ(ran, (std::vector<int>{1, 2}));
    EXPECT_EQ(queue.pendingTaskCount(), 0u);
}

TEST(ManualSerialQueue, RunUntilIdleRunsTasksPostedByTasksButNeverMovesTheClock) {
    ManualSerialQueue queue;
    std::vector<std::string> ran;
    queue.post([&] {
        ran.push_back("outer");
        queue.post([&] { ran.push_back("inner"); });
        queue.postAfter(0.5, [&] { ran.push_back("delayed"); });
    });
    queue.runUntilIdle();
    EXPECT_EQ(ran, (std::vector<std::string>{"outer", "inner"}));
    EXPECT_DOUBLE_EQ(queue.now(), 0.0);
    EXPECT_EQ(queue.pendingDelayedCount(), 1u);
}

TEST(ManualSerialQueue, DelayedWorkRunsOnlyWhenItsDeadlineIsReached) {
    ManualSerialQueue queue;
    int runs = 0;
    queue.postAfter(2.0, [&] { ++runs; });

    queue.advance(1.999);
    EXPECT_EQ(runs, 0);
    queue.advance(0.001);
    EXPECT_EQ(runs, 1);
    queue.advance(10.0);
    EXPECT_EQ(runs, 1);
}

TEST(ManualSerialQueue, AdvanceRunsInDeadlineOrderWithTheClockAtEachDeadline) {
    ManualSerialQueue queue;
    std::vector<std::pair<std::string, double>> ran;
    queue.postAfter(3.0, [&] { ran.emplace_back("three", queue.now()); });
    queue.postAfter(1.0, [&] { ran.emplace_back("one", queue.now()); });
    queue.postAfter(2.0, [&] { ran.emplace_back("two", queue.now()); });

    queue.advance(5.0);
    ASSERT_EQ(ran.size(), 3u);
    EXPECT_EQ(ran[0], (std::pair<std::string, double>{"one", 1.0}));
    EXPECT_EQ(ran[1], (std::pair<std::string, double>{"two", 2.0}));
    EXPECT_EQ(ran[2], (std::pair<std::string, double>{"three", 3.0}));
    EXPECT_DOUBLE_EQ(queue.now(), 5.0);
}

TEST(ManualSerialQueue, EqualDeadlinesRunFirstScheduledFirst) {
    ManualSerialQueue queue;
    std::vector<int> ran;
    for (int index = 0; index < 5; ++index) {
        queue.postAfter(1.0, [&ran, index] { ran.push_back(index); });
    }
    queue.advance(1.0);
    EXPECT_EQ(ran, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST(ManualSerialQueue, WorkScheduledInsideTheWindowRunsWhenDueWithinTheSameAdvance) {
    ManualSerialQueue queue;
    std::vector<double> ranAt;
    queue.postAfter(1.0, [&] {
        ranAt.push_back(queue.now());
        queue.postAfter(2.0, [&] { ranAt.push_back(queue.now()); });
        queue.postAfter(5.0, [&] { ranAt.push_back(queue.now()); });
    });
    queue.advance(4.0);
    EXPECT_EQ(ranAt, (std::vector<double>{1.0, 3.0}));
    EXPECT_EQ(queue.pendingDelayedCount(), 1u);
    EXPECT_EQ(queue.nextDeadline(), 6.0);
}

TEST(ManualSerialQueue, TasksPostedByDelayedWorkRunAtThatWorksTime) {
    ManualSerialQueue queue;
    std::vector<double> ranAt;
    queue.postAfter(1.5, [&] { queue.post([&] { ranAt.push_back(queue.now()); }); });
    queue.advance(3.0);
    EXPECT_EQ(ranAt, (std::vector<double>{1.5}));
}

TEST(ManualSerialQueue, CancelledWorkNeverRunsAndIsNotCounted) {
    ManualSerialQueue queue;
    int runs = 0;
    auto item = queue.postAfter(1.0, [&] { ++runs; });
    EXPECT_FALSE(item->isCancelled());
    EXPECT_EQ(queue.pendingDelayedCount(), 1u);

    item->cancel();
    EXPECT_TRUE(item->isCancelled());
    EXPECT_EQ(queue.pendingDelayedCount(), 0u);
    EXPECT_EQ(queue.nextDeadline(), std::nullopt);
    queue.advance(2.0);
    EXPECT_EQ(runs, 0);
}

TEST(ManualSerialQueue, WorkCancelledByEarlierWorkInTheSameAdvanceDoesNotRun) {
    ManualSerialQueue queue;
    int runs = 0;
    auto later = queue.postAfter(2.0, [&] { ++runs; });
    queue.postAfter(1.0, [&] { later->cancel(); });
    queue.advance(3.0);
    EXPECT_EQ(runs, 0);
}

TEST(ManualSerialQueue, CancellingWorkThatAlreadyRanChangesNothing) {
    ManualSerialQueue queue;
    auto item = queue.postAfter(1.0, [] {});
    queue.advance(1.0);
    item->cancel();
    EXPECT_FALSE(item->isCancelled());
}

TEST(ManualSerialQueue, WorkRunsEvenWhenItsHandleIsDropped) {
    ManualSerialQueue queue;
    int runs = 0;
    queue.postAfter(1.0, [&] { ++runs; });
    queue.advance(1.0);
    EXPECT_EQ(runs, 1);
}

TEST(ManualSerialQueue, TimerTicksAtItsFirstDeadlineThenEveryPeriodWithoutDrift) {
    ManualSerialQueue queue;
    std::vector<double> ticks;
    auto timer = queue.startTimer(20.0, 20.0, [&] { ticks.push_back(queue.now()); });
    EXPECT_EQ(queue.activeTimerCount(), 1u);

    queue.advance(19.9);
    EXPECT_TRUE(ticks.empty());
    for (int step = 0; step < 601; ++step) {
        queue.advance(0.1);
    }
    EXPECT_EQ(ticks, (std::vector<double>{20.0, 40.0, 60.0, 80.0}));
}

TEST(ManualSerialQueue, RepeatedFractionalDelaysLandExactly) {
    ManualSerialQueue queue;
    int runs = 0;
    std::function<void()> poll = [&] {
        ++runs;
        queue.postAfter(1.8, poll);
    };
    queue.postAfter(1.8, poll);
    for (int step = 0; step < 10; ++step) {
        queue.advance(1.8);
    }
    EXPECT_EQ(runs, 10);
}

TEST(ManualSerialQueue, TimerWithDistinctFirstDeadlineAndPeriod) {
    ManualSerialQueue queue;
    std::vector<double> ticks;
    auto timer = queue.startTimer(0.5, 2.0, [&] { ticks.push_back(queue.now()); });
    queue.advance(5.0);
    EXPECT_EQ(ticks, (std::vector<double>{0.5, 2.5, 4.5}));
}

TEST(ManualSerialQueue, ReplacedTimerHandlerRunsForLaterTicks) {
    ManualSerialQueue queue;
    std::vector<std::string> ticks;
    auto timer = queue.startTimer(1.0, 1.0, [&] { ticks.emplace_back("old"); });
    queue.advance(1.0);
    timer->setEventHandler([&] { ticks.emplace_back("new"); });
    queue.advance(2.0);
    EXPECT_EQ(ticks, (std::vector<std::string>{"old", "new", "new"}));
}

TEST(ManualSerialQueue, CancelledTimerNeverTicksAgain) {
    ManualSerialQueue queue;
    int ticks = 0;
    auto timer = queue.startTimer(1.0, 1.0, [&] { ++ticks; });
    queue.advance(2.0);
    timer->cancel();
    EXPECT_EQ(queue.activeTimerCount(), 0u);
    queue.advance(10.0);
    EXPECT_EQ(ticks, 2);
}

TEST(ManualSerialQueue, TimerCancelledFromItsOwnHandlerStops) {
    ManualSerialQueue queue;
    int ticks = 0;
    std::shared_ptr<RepeatingTimer> timer;
    timer = queue.startTimer(1.0, 1.0, [&] {
        ++ticks;
        timer->cancel();
    });
    queue.advance(5.0);
    EXPECT_EQ(ticks, 1);
}

TEST(ManualSerialQueue, IsCurrentOnlyWhileRunningWork) {
    ManualSerialQueue queue;
    std::vector<bool> seen;
    queue.post([&] { seen.push_back(queue.isCurrent()); });
    queue.postAfter(1.0, [&] { seen.push_back(queue.isCurrent()); });
    auto timer = queue.startTimer(1.0, 1.0, [&] { seen.push_back(queue.isCurrent()); });
    EXPECT_FALSE(queue.isCurrent());
    queue.advance(1.0);
    EXPECT_FALSE(queue.isCurrent());
    EXPECT_EQ(seen, (std::vector<bool>{true, true, true}));
}

TEST(ManualSerialQueue, NextDeadlineIsTheEarliestLiveEntry) {
    ManualSerialQueue queue;
    EXPECT_EQ(queue.nextDeadline(), std::nullopt);
    auto late = queue.postAfter(8.0, [] {});
    auto timer = queue.startTimer(20.0, 20.0, [] {});
    auto soon = queue.postAfter(4.0, [] {});
    EXPECT_EQ(queue.nextDeadline(), 4.0);
    EXPECT_EQ(queue.nextDelayedDeadline(), 4.0);
    soon->cancel();
    EXPECT_EQ(queue.nextDeadline(), 8.0);
    late->cancel();
    EXPECT_EQ(queue.nextDeadline(), 20.0);
    EXPECT_EQ(queue.nextDelayedDeadline(), std::nullopt);
}

TEST(ManualSerialQueue, DrivingTheQueueFromItsOwnWorkIsRefused) {
    ManualSerialQueue queue;
    bool refused = false;
    queue.post([&] {
        try {
            queue.runUntilIdle();
        } catch (const std::logic_error&) {
            refused = true;
        }
    });
    queue.runUntilIdle();
    EXPECT_TRUE(refused);
    EXPECT_FALSE(queue.isCurrent());
}

TEST(FakeClock, ReadsTheEpochPlusTheQueuesVirtualTime) {
    ManualSerialQueue queue;
    FakeClock clock(queue);
    EXPECT_DOUBLE_EQ(clock.now(), FakeClock::defaultEpoch);
    queue.advance(2.5);
    EXPECT_DOUBLE_EQ(clock.now(), FakeClock::defaultEpoch + 2.5);
    clock.setEpoch(1000.0);
    EXPECT_DOUBLE_EQ(clock.now(), 1002.5);
}

} // namespace
} // namespace keyferry::fakes
