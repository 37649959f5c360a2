#include "PlatformPorts.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <thread>

namespace keyferry {
namespace {

// The application's own adapters, with the user's folders pointed into a temporary folder (the defaults
// file is created at construction).
class PlatformPortsTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(home.isValid());
        const QByteArray path = home.path().toUtf8();
        setenv("HOME", path.constData(), 1);
        setenv("XDG_CONFIG_HOME", (path + "/config").constData(), 1);
    }

    QTemporaryDir home;
};

TEST_F(PlatformPortsTest, StoppingTheQueueLetsTheTaskUnderWayFinishAndRunsNothingAfterIt) {
    PlatformPorts platform(QtTrust::systemStore());
    SerialQueue& queue = platform.ports().queue;
    std::promise<void> started;
    std::atomic<bool> finished{false};
    std::atomic<bool> laterRan{false};
    queue.post([&started, &finished] {
        started.set_value();
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        finished = true;
    });
    queue.post([&laterRan] { laterRan = true; });
    started.get_future().wait();

    platform.stopQueue();
    EXPECT_TRUE(finished);
    EXPECT_FALSE(laterRan);
    queue.post([&laterRan] { laterRan = true; });
    platform.finishQueuedWork(std::chrono::milliseconds(100));
    EXPECT_FALSE(laterRan);
}

TEST_F(PlatformPortsTest, StoppingTwiceIsHarmless) {
    PlatformPorts platform(QtTrust::systemStore());
    platform.stopQueue();
    platform.stopQueue();
    SUCCEED();
}

} // namespace
} // namespace keyferry
