#include "PlatformPorts.h"
#include "TempFolder.h"

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
        setenv("HOME", home.path().c_str(), 1);
        setenv("XDG_CONFIG_HOME", (home / "config").c_str(), 1);
    }

    TempFolder home{"keyferry-platform-ports"};
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

// The second stop leaves the platform as the first did: the queue stays stopped, the other adapters answer.
TEST_F(PlatformPortsTest, StoppingTwiceIsHarmless) {
    PlatformPorts platform(QtTrust::systemStore());
    SerialQueue& queue = platform.ports().queue;
    std::atomic<bool> ranBeforeStop{false};
    queue.post([&ranBeforeStop] { ranBeforeStop = true; });
    platform.finishQueuedWork(std::chrono::seconds(5));
    ASSERT_TRUE(ranBeforeStop);

    platform.stopQueue();
    platform.stopQueue();
    std::atomic<bool> ranAfterStops{false};
    queue.post([&ranAfterStops] { ranAfterStops = true; });
    platform.finishQueuedWork(std::chrono::milliseconds(100));
    EXPECT_FALSE(ranAfterStops);

    DefaultsStore& defaults = platform.ports().defaults;
    defaults.setString("keyferry.test", "still answers");
    EXPECT_EQ(defaults.string("keyferry.test"), "still answers");
}

} // namespace
} // namespace keyferry
