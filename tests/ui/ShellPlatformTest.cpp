#include "QtPrinters.h"
#include "QtShellScheduler.h"
#include "TerminationSignals.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTest>

#include <gtest/gtest.h>

#include <csignal>

namespace keyferry {
namespace {

// These run on the real event loop with short real delays: they check the Qt timers behind the port.

TEST(QtShellScheduler, RunsAOneShotTaskLaterNeverAtOnce) {
    QtShellScheduler scheduler;
    QElapsedTimer clock;
    clock.start();
    qint64 ranAfter = -1;
    scheduler.after(0.05, [&] { ranAfter = clock.elapsed(); });
    EXPECT_EQ(ranAfter, -1);
    EXPECT_TRUE(QTest::qWaitFor([&] { return ranAfter >= 0; }, 2000));
    EXPECT_GE(ranAfter, 45);
}

TEST(QtShellScheduler, RepeatsUntilInvalidated) {
    QtShellScheduler scheduler;
    int ticks = 0;
    const auto timer = scheduler.repeating(0.02, [&ticks] { ++ticks; });
    EXPECT_TRUE(timer->isValid());
    EXPECT_TRUE(QTest::qWaitFor([&ticks] { return ticks >= 3; }, 2000));
    timer->invalidate();
    EXPECT_FALSE(timer->isValid());
    const int ticksWhenStopped = ticks;
    QTest::qWait(100);
    EXPECT_EQ(ticks, ticksWhenStopped);
}

TEST(QtShellScheduler, TasksOfAGoneSchedulerNeverRun) {
    bool ran = false;
    {
        QtShellScheduler scheduler;
        scheduler.after(0.01, [&ran] { ran = true; });
    }
    QTest::qWait(60);
    EXPECT_FALSE(ran);
}

TEST(TerminationSignals, TermIsTurnedIntoACallOnTheMainThread) {
    int calls = 0;
    {
        const TerminationSignals termination([&calls] { ++calls; });
        std::raise(SIGTERM);
        EXPECT_EQ(calls, 0); // nothing runs inside the signal handler
        EXPECT_TRUE(QTest::qWaitFor([&calls] { return calls == 1; }, 2000));
        std::raise(SIGINT);
        EXPECT_TRUE(QTest::qWaitFor([&calls] { return calls == 2; }, 2000));
    }
}

} // namespace
} // namespace keyferry
