#include "RecordingMainThread.h"

#include <gtest/gtest.h>

#include <vector>

namespace keyferry::fakes {
namespace {

TEST(RecordingMainThread, PostOnlyRecordsAndDrainRunsInOrderIncludingTasksPostedWhileDraining) {
    RecordingMainThread mainThread;
    std::vector<int> ran;
    mainThread.post([&] {
        ran.push_back(1);
        mainThread.post([&] { ran.push_back(3); });
    });
    mainThread.post([&] { ran.push_back(2); });
    EXPECT_TRUE(ran.empty());
    EXPECT_EQ(mainThread.pendingCount(), 2u);

    EXPECT_EQ(mainThread.drain(), 3u);
    EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(mainThread.pendingCount(), 0u);
    EXPECT_EQ(mainThread.postedCount(), 3u);
}

} // namespace
} // namespace keyferry::fakes
