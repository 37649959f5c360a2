#include "QtMainThread.h"
#include "QtSerialQueue.h"
#include "TestMailbox.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QThread>

#include <numeric>
#include <string>

namespace keyferry {
namespace {

using testing::TestMailbox;

bool onApplicationThread() {
    return QThread::currentThread() == QCoreApplication::instance()->thread();
}

TEST(QtMainThreadTest, TasksFromAnotherThreadRunOnTheApplicationThreadInOrder) {
    QtMainThread mainThread;
    QtSerialQueue queue("test.queue");
    TestMailbox<int> ran;
    TestMailbox<bool> onMain;
    queue.post([&] {
        for (int i = 0; i < 50; ++i) {
            mainThread.post([&, i] {
                ran.put(i);
                onMain.put(onApplicationThread());
            });
        }
    });
    ASSERT_TRUE(ran.waitFor(50));
    std::vector<int> expected(50);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(ran.values(), expected);
    EXPECT_EQ(std::ranges::count(onMain.values(), true), 50);
}

TEST(QtMainThreadTest, PostFromTheMainThreadIsAsynchronous) {
    QtMainThread mainThread;
    TestMailbox<std::string> events;
    mainThread.post([&] { events.put("task"); });
    events.put("after post");
    ASSERT_TRUE(events.waitFor(2));
    EXPECT_EQ(events.values(), (std::vector<std::string>{"after post", "task"}));
}

TEST(QtMainThreadTest, HandOffKeepsTheOrderAcrossTheQueueAndTheMainThread) {
    QtMainThread mainThread;
    QtSerialQueue queue("test.queue");
    TestMailbox<std::string> events;
    mainThread.post([&] { events.put("main 1"); });
    queue.post([&] { mainThread.post([&] { events.put("from queue"); }); });
    ASSERT_TRUE(events.waitFor(2));
    mainThread.post([&] { events.put("main 2"); });
    ASSERT_TRUE(events.waitFor(3));
    EXPECT_EQ(events.values(), (std::vector<std::string>{"main 1", "from queue", "main 2"}));
}

TEST(QtMainThreadTest, TasksStillPendingWhenItIsDestroyedAreDropped) {
    TestMailbox<std::string> events;
    {
        QtMainThread mainThread;
        mainThread.post([&] { events.put("dropped task ran"); });
    }
    QtMainThread later;
    later.post([&] { events.put("later task"); });
    ASSERT_TRUE(events.waitFor(1));
    EXPECT_EQ(events.values(), std::vector<std::string>{"later task"});
}

} // namespace
} // namespace keyferry
