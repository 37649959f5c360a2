#include "HelperProcess.h"
#include "Wait.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>

namespace keyferry {
namespace {

using namespace std::chrono_literals;

// Whether the process exists and has not ended (an ended one may wait as a zombie for its new parent).
bool isRunning(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    if (!std::getline(stat, line)) {
        return false;
    }
    const auto afterName = line.rfind(')');
    return afterName != std::string::npos && afterName + 2 < line.size() && line[afterName + 2] != 'Z';
}

TEST(HelperProcess, ReadsTheProgramsOutputLineByLineAndGivesItsExitStatus) {
    HelperProcess program({"sh", "-c", "echo first; echo second; exit 3"});
    EXPECT_EQ(program.readLine(5s), "first");
    EXPECT_EQ(program.readLine(5s), "second");
    EXPECT_EQ(program.readLine(5s), std::nullopt);
    EXPECT_EQ(program.waitForExit(5s), 3);
}

TEST(HelperProcess, FeedsItsInputAndEndsIt) {
    HelperProcess program({"cat"}, {}, "typed\n");
    EXPECT_EQ(program.readLine(5s), "typed");
    EXPECT_EQ(program.waitForExit(5s), 0);
}

TEST(HelperProcess, AddsReplacesAndRemovesEnvironmentVariables) {
    setenv("KEYFERRY_SUPPORT_REMOVED", "present", 1);
    HelperProcess program({"sh", "-c", "echo \"$KEYFERRY_SUPPORT_ADDED:${KEYFERRY_SUPPORT_REMOVED-unset}\""},
                          {{"KEYFERRY_SUPPORT_ADDED", "added"}, {"KEYFERRY_SUPPORT_REMOVED", ""}});
    EXPECT_EQ(program.readLine(5s), "added:unset");
    unsetenv("KEYFERRY_SUPPORT_REMOVED");
}

TEST(HelperProcess, ReadingGivesUpAfterItsTimeLimit) {
    HelperProcess program({"sleep", "30"});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(program.readLine(100ms), std::nullopt);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 100ms);
    EXPECT_EQ(program.waitForExit(0ms), std::nullopt);
}

TEST(HelperProcess, ReadingNeverGivesUpBeforeItsTimeLimit) {
    HelperProcess program({"sleep", "30"});
    for (int attempt = 0; attempt < 50; ++attempt) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(program.readLine(3ms), std::nullopt);
        ASSERT_GE(std::chrono::steady_clock::now() - start, 3ms) << "attempt " << attempt;
    }
}

TEST(HelperProcess, StoppingEndsTheProgramAndWhatItStarted) {
    HelperProcess program({"sh", "-c", "sleep 30 & echo $!; wait"});
    const auto grandchild = program.readLine(5s);
    ASSERT_TRUE(grandchild.has_value());
    const pid_t started = std::stoi(*grandchild);
    ASSERT_TRUE(isRunning(started));
    program.stop();
    EXPECT_EQ(program.pid(), -1);
    EXPECT_TRUE(testing::waitUntil([&] { return !isRunning(started); }, 5s));
}

TEST(HelperProcess, AProgramIgnoringTermIsKilled) {
    HelperProcess program({"sh", "-c", "trap '' TERM; echo ready; while :; do sleep 0.1; done"});
    ASSERT_EQ(program.readLine(5s), "ready");
    const auto start = std::chrono::steady_clock::now();
    program.stop();
    EXPECT_EQ(program.pid(), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
}

TEST(HelperProcess, KillAsFirstSignalEndsItAsACrashWould) {
    HelperProcess program({"sh", "-c", "echo ready; exec sleep 30"});
    ASSERT_EQ(program.readLine(5s), "ready");
    const pid_t pid = program.pid();
    program.stop(SIGKILL);
    EXPECT_FALSE(isRunning(pid));
}

TEST(HelperProcess, AMissingProgramExitsWith127) {
    HelperProcess program({"keyferry-no-such-program"});
    EXPECT_EQ(program.waitForExit(5s), 127);
}

} // namespace
} // namespace keyferry
