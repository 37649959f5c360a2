#include "QtSerialQueue.h"
#include "TestMailbox.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QPointer>
#include <QThread>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numeric>
#include <string>
#include <thread>

namespace keyferry {
namespace {

using testing::TestMailbox;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

TEST(QtSerialQueueTest, RunsPostedTasksInOrderOnItsOwnThread) {
    QtSerialQueue queue("test.queue");
    TestMailbox<int> ran;
    TestMailbox<bool> onQueue;
    for (int i = 0; i < 100; ++i) {
        queue.post([&, i] {
            ran.put(i);
            onQueue.put(queue.isCurrent());
        });
    }
    ASSERT_TRUE(ran.waitFor(100));
    std::vector<int> expected(100);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(ran.values(), expected);
    EXPECT_EQ(std::ranges::count(onQueue.values(), true), 100);
    EXPECT_FALSE(queue.isCurrent());
}

TEST(QtSerialQueueTest, TasksPostedFromManyThreadsRunOneAtATime) {
    QtSerialQueue queue("test.queue");
    int running = 0; // touched only by queue tasks: a second one running at once would see 1
    TestMailbox<int> overlaps;
    TestMailbox<int> done;
    std::vector<std::thread> posters;
    for (int thread = 0; thread < 4; ++thread) {
        posters.emplace_back([&] {
            for (int i = 0; i < 250; ++i) {
                queue.post([&] {
                    overlaps.put(running++);
                    --running;
                    done.put(1);
                });
            }
        });
    }
    for (auto& poster : posters) {
        poster.join();
    }
    ASSERT_TRUE(done.waitFor(1000));
    EXPECT_EQ(std::ranges::count(overlaps.values(), 0), 1000);
}

TEST(QtSerialQueueTest, PostNeverRunsTheTaskInsideTheCall) {
    QtSerialQueue queue("test.queue");
    TestMailbox<std::string> events;
    queue.post([&] {
        queue.post([&] { events.put("inner"); });
        events.put("outer done");
    });
    ASSERT_TRUE(events.waitFor(2));
    EXPECT_EQ(events.values(), (std::vector<std::string>{"outer done", "inner"}));
}

TEST(QtSerialQueueTest, DelayedTasksRunInDeadlineOrderAndEqualDeadlinesInPostingOrder) {
    QtSerialQueue queue("test.queue");
    TestMailbox<std::string> ran;
    queue.post([&] {
        queue.postAfter(0.12, [&] { ran.put("c"); });
        queue.postAfter(0.04, [&] { ran.put("a"); });
        queue.postAfter(0.08, [&] { ran.put("b1"); });
        queue.postAfter(0.08, [&] { ran.put("b2"); });
        queue.postAfter(0.08, [&] { ran.put("b3"); });
    });
    ASSERT_TRUE(ran.waitFor(5));
    EXPECT_EQ(ran.values(), (std::vector<std::string>{"a", "b1", "b2", "b3", "c"}));
}

TEST(QtSerialQueueTest, DelayedTaskWaitsAtLeastItsDelay) {
    QtSerialQueue queue("test.queue");
    TestMailbox<double> elapsed;
    const auto posted = Clock::now();
    queue.postAfter(0.15, [&] { elapsed.put(Milliseconds(Clock::now() - posted).count()); });
    ASSERT_TRUE(elapsed.waitFor(1));
    std::printf("[ figures ] postAfter(150 ms) ran after %.2f ms\n", elapsed.values()[0]);
    EXPECT_GE(elapsed.values()[0], 150.0);
    EXPECT_LT(elapsed.values()[0], 150.0 + 200.0); // loose: the machine is shared
}

TEST(QtSerialQueueTest, CancelledDelayedTaskNeverRuns) {
    QtSerialQueue queue("test.queue");
    TestMailbox<std::string> ran;
    queue.post([&] {
        auto cancelled = queue.postAfter(0.05, [&] { ran.put("cancelled"); });
        queue.postAfter(0.10, [&] { ran.put("kept"); });
        cancelled->cancel();
        EXPECT_TRUE(cancelled->isCancelled());
        // A later task that outlives the deadline of the cancelled one marks the end of the observation.
        queue.postAfter(0.20, [&] { ran.put("end"); });
    });
    ASSERT_TRUE(ran.waitFor(2));
    EXPECT_EQ(ran.values(), (std::vector<std::string>{"kept", "end"}));
}

TEST(QtSerialQueueTest, DelayedTaskRunsEvenWhenItsItemIsNotKept) {
    QtSerialQueue queue("test.queue");
    TestMailbox<int> ran;
    queue.postAfter(0.02, [&] { ran.put(1); });
    EXPECT_TRUE(ran.waitFor(1));
}

TEST(QtSerialQueueTest, NegativeAndMeaninglessDelaysRunAsSoonAsPossible) {
    QtSerialQueue queue("test.queue");
    TestMailbox<std::string> ran;
    queue.postAfter(-1, [&] { ran.put("negative"); });
    queue.postAfter(std::nan(""), [&] { ran.put("not a number"); });
    queue.postAfter(0, [&] { ran.put("zero"); });
    queue.postAfter(std::numeric_limits<double>::infinity(), [&] { ran.put("never in this test"); });
    ASSERT_TRUE(ran.waitFor(3));
    EXPECT_EQ(ran.values(), (std::vector<std::string>{"negative", "not a number", "zero"}));
}

TEST(QtSerialQueueTest, RepeatingTimerTicksOnScheduleWithoutDrift) {
    QtSerialQueue queue("test.queue");
    TestMailbox<double> ticks;
    const auto started = Clock::now();
    auto timer = queue.startTimer(0.05, 0.02, [&] { ticks.put(Milliseconds(Clock::now() - started).count()); });
    ASSERT_TRUE(ticks.waitFor(25));
    timer->cancel();
    const auto times = ticks.values();
    double worst = 0;
    double total = 0;
    for (std::size_t i = 0; i < 25; ++i) {
        const double due = 50.0 + 20.0 * static_cast<double>(i);
        const double lateness = times[i] - due;
        EXPECT_GE(lateness, 0.0) << "tick " << i << " came early";
        worst = std::max(worst, lateness);
        total += lateness;
    }
    std::printf("[ figures ] 25 ticks of a 20 ms timer: mean lateness %.3f ms, worst %.3f ms\n", total / 25, worst);
    // Loose, because the machine is shared and a busy scheduler wakes threads late; but lateness must not
    // add up from tick to tick: the last tick is due exactly 24 periods after the first.
    EXPECT_LT(total / 25, 50.0);
    EXPECT_LT(times[24] - (50.0 + 20.0 * 24), 100.0);
}

TEST(QtSerialQueueTest, CancelledTimerStopsAndReplacedHandlerIsTheOneThatRuns) {
    QtSerialQueue queue("test.queue");
    TestMailbox<std::string> ticks;
    std::shared_ptr<RepeatingTimer> timer;
    queue.post([&] {
        timer = queue.startTimer(0.01, 0.01, [&] {
            ticks.put("old");
            timer->setEventHandler([&] {
                ticks.put("new");
                if (ticks.size() == 3) {
                    timer->setEventHandler([] {});
                    timer->cancel();
                    queue.postAfter(0.1, [&] { ticks.put("end"); });
                }
            });
        });
    });
    ASSERT_TRUE(ticks.waitFor(4));
    EXPECT_EQ(ticks.values(), (std::vector<std::string>{"old", "new", "new", "end"}));
}

TEST(QtSerialQueueTest, TimerLetGoByItsOwnerStops) {
    QtSerialQueue queue("test.queue");
    TestMailbox<std::string> ticks;
    queue.post([&] {
        auto timer = queue.startTimer(0.01, 0.01, [&] { ticks.put("tick"); });
        timer.reset();
        queue.postAfter(0.1, [&] { ticks.put("end"); });
    });
    ASSERT_TRUE(ticks.waitFor(1));
    EXPECT_EQ(ticks.values(), (std::vector<std::string>{"end"}));
}

TEST(QtSerialQueueTest, StopDropsLaterWorkAndCanBeRepeated) {
    QtSerialQueue queue("test.queue");
    TestMailbox<std::string> ran;
    queue.post([&] { ran.put("before stop"); });
    ASSERT_TRUE(ran.waitFor(1));
    queue.stop();
    queue.post([&] { ran.put("after stop"); });
    queue.postAfter(0, [&] { ran.put("delayed after stop"); });
    queue.stop();
    QtSerialQueue witness("test.witness"); // a second queue shows that time for the dropped work has passed
    witness.postAfter(0.05, [&] { ran.put("witness"); });
    ASSERT_TRUE(ran.waitFor(2));
    EXPECT_EQ(ran.values(), (std::vector<std::string>{"before stop", "witness"}));
}

TEST(QtSerialQueueTest, DestructionDropsPendingWorkAndObjectsOfTheQueue) {
    TestMailbox<std::string> events;
    QPointer<QObject> child;
    {
        QtSerialQueue queue("test.queue");
        TestMailbox<int> started;
        queue.post([&] {
            child = new QObject(&queue.context());
            QObject::connect(child.data(), &QObject::destroyed,
                             [&] { events.put("child destroyed on queue: " + std::to_string(queue.isCurrent())); });
            started.put(1);
            std::this_thread::sleep_for(std::chrono::milliseconds(50)); // keeps the queue busy while it is destroyed
        });
        queue.post([&] { events.put("pending task ran"); });
        queue.postAfter(0.01, [&] { events.put("delayed task ran"); });
        ASSERT_TRUE(started.waitFor(1));
    }
    EXPECT_TRUE(child.isNull());
    EXPECT_EQ(events.values(), (std::vector<std::string>{"child destroyed on queue: 1"}));
}

// The same queue on the main thread's event loop, as the shell's delayed work runs.
TEST(QtSerialQueueTest, OnTheCallingThreadWorkRunsLaterThroughThatThreadsEventLoop) {
    QtSerialQueue queue{QtSerialQueue::OnCallingThread{}};
    TestMailbox<std::string> ran;
    queue.post([&] { ran.put(queue.isCurrent() && QThread::currentThread() == qApp->thread() ? "main" : "other"); });
    queue.post([&] { ran.put("second"); });
    EXPECT_EQ(ran.size(), 0u);
    EXPECT_TRUE(queue.isCurrent());
    ASSERT_TRUE(ran.waitFor(2));
    EXPECT_EQ(ran.values(), (std::vector<std::string>{"main", "second"}));
}

TEST(QtSerialQueueTest, OnTheCallingThreadDelayedWorkWaitsItsDelayAndTimersTickUntilCancelled) {
    QtSerialQueue queue{QtSerialQueue::OnCallingThread{}};
    TestMailbox<std::string> ran;
    const auto start = Clock::now();
    queue.postAfter(
        0.05, [&] { ran.put("delayed after " + std::to_string(Milliseconds(Clock::now() - start).count() >= 50)); });
    std::shared_ptr<RepeatingTimer> timer = queue.startTimer(0.01, 0.01, [&] {
        ran.put("tick");
        if (std::ranges::count(ran.values(), std::string("tick")) == 3) {
            timer->cancel();
        }
    });
    queue.postAfter(0.15, [&] { ran.put("end"); });
    ASSERT_TRUE(ran.waitFor(5));
    EXPECT_EQ(std::ranges::count(ran.values(), std::string("tick")), 3);
    EXPECT_EQ(std::ranges::count(ran.values(), std::string("delayed after 1")), 1);
    EXPECT_EQ(ran.values().back(), "end");
}

TEST(QtSerialQueueTest, OnTheCallingThreadDestructionDropsPendingWork) {
    TestMailbox<std::string> ran;
    std::shared_ptr<RepeatingTimer> keptTimer;
    {
        QtSerialQueue queue{QtSerialQueue::OnCallingThread{}};
        queue.post([&] { ran.put("pending task ran"); });
        queue.postAfter(0.01, [&] { ran.put("delayed task ran"); });
        keptTimer = queue.startTimer(0.01, 0.01, [&] { ran.put("timer ticked"); });
    }
    QtSerialQueue witness{QtSerialQueue::OnCallingThread{}}; // shows that time for the dropped work has passed
    witness.postAfter(0.05, [&] { ran.put("witness"); });
    ASSERT_TRUE(ran.waitFor(1));
    EXPECT_EQ(ran.values(), (std::vector<std::string>{"witness"}));
}

} // namespace
} // namespace keyferry
