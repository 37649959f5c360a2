#include "QtPrinters.h"
#include "ShellHarness.h"

#include <QAction>
#include <QMenu>
#include <QPushButton>
#include <QTest>

#include <gtest/gtest.h>

namespace keyferry {
namespace {

using uitest::ShellHarness;

QAction& accessibilityItem(AppDelegate& delegate) {
    return *delegate.statusMenu->actions().at(5);
}

// An installation that was unpaired at launch (so nothing asked for the permission yet) and is paired by
// the time the user chooses "Accessibility permission".
class PermissionMonitoringTest : public ::testing::Test {
protected:
    void SetUp() override {
        shell.launch({QStringLiteral("--background")});
        shell.settle();
        shell.markPaired();
    }
    AppDelegate& delegate() { return *shell.delegate; }
    std::vector<bool> promptFlags() const { return shell.accessibility.promptFlags(); }

    ShellHarness shell;
};

TEST_F(PermissionMonitoringTest, GrantedPermissionTellsTheServiceAtOnce) {
    ASSERT_EQ(accessibilityItem(delegate()).text(), QStringLiteral("Accessibility permission"));
    accessibilityItem(delegate()).trigger();
    EXPECT_EQ(promptFlags(), (std::vector<bool>{true}));
    EXPECT_FALSE(delegate().isMonitoringPermission());
    EXPECT_EQ(shell.shellQueue.activeTimerCount(), 0u);
    shell.settle();
    EXPECT_EQ(shell.webSockets.taskCount(), 1u);
    EXPECT_EQ(delegate().statusMenuItem->text(), QStringLiteral("Connecting..."));
}

TEST_F(PermissionMonitoringTest, MissingPermissionIsPolledSilentlyUntilGranted) {
    shell.accessibility.trusted = false;
    accessibilityItem(delegate()).trigger();
    EXPECT_EQ(promptFlags(), (std::vector<bool>{true}));
    EXPECT_TRUE(delegate().isMonitoringPermission());
    shell.advance(1.45);
    EXPECT_EQ(promptFlags().size(), 1u); // the first poll comes 1.5 seconds after the request
    shell.advance(0.05);
    EXPECT_EQ(promptFlags(), (std::vector<bool>{true, false}));
    shell.advance(1.5);
    EXPECT_EQ(promptFlags(), (std::vector<bool>{true, false, false}));
    EXPECT_EQ(shell.webSockets.taskCount(), 0u);

    shell.accessibility.trusted = true;
    shell.advance(1.5);
    EXPECT_FALSE(delegate().isMonitoringPermission());
    EXPECT_EQ(shell.shellQueue.activeTimerCount(), 0u);
    EXPECT_EQ(shell.webSockets.taskCount(), 1u);
    const std::size_t callsWhenGranted = promptFlags().size();
    shell.advance(6.0);
    EXPECT_EQ(promptFlags().size(), callsWhenGranted);
    EXPECT_EQ(shell.webSockets.taskCount(), 1u);
}

TEST_F(PermissionMonitoringTest, AskingThreeTimesKeepsOneTimerAndTellsTheServiceOnce) {
    shell.accessibility.trusted = false;
    for (int ask = 0; ask < 3; ++ask) {
        accessibilityItem(delegate()).trigger();
        if (ask < 2) {
            shell.advance(0.4);
        }
    }
    EXPECT_EQ(promptFlags(), (std::vector<bool>{true, true, true}));
    EXPECT_EQ(shell.shellQueue.activeTimerCount(), 1u);
    // The running timer was not restarted: its first poll comes 1.5 s after the first request.
    shell.accessibility.trusted = true;
    shell.advance(0.65);
    EXPECT_EQ(promptFlags().size(), 3u);
    shell.advance(0.05);
    // The shell's silent poll, then the service's own silent test as it connects.
    EXPECT_EQ(promptFlags(), (std::vector<bool>{true, true, true, false, false}));
    EXPECT_EQ(shell.webSockets.taskCount(), 1u);
    shell.advance(5.0);
    EXPECT_EQ(shell.webSockets.taskCount(), 1u);
    EXPECT_EQ(shell.shellQueue.activeTimerCount(), 0u);
}

TEST_F(PermissionMonitoringTest, RevokingDoesNotRestartMonitoringByItself) {
    shell.accessibility.trusted = false;
    accessibilityItem(delegate()).trigger();
    shell.accessibility.trusted = true;
    shell.advance(1.5);
    ASSERT_FALSE(delegate().isMonitoringPermission());
    shell.accessibility.trusted = false;
    const std::size_t calls = promptFlags().size();
    shell.advance(10.0);
    EXPECT_FALSE(delegate().isMonitoringPermission());
    EXPECT_EQ(promptFlags().size(), calls);
    // A new request starts it again.
    accessibilityItem(delegate()).trigger();
    EXPECT_TRUE(delegate().isMonitoringPermission());
}

TEST_F(PermissionMonitoringTest, WindowButtonAsksLikeTheMenu) {
    shell.accessibility.trusted = false;
    delegate().pairingWindow.window()->show();
    delegate().pairingWindow.accessibilityButton->show();
    QTest::mouseClick(delegate().pairingWindow.accessibilityButton, Qt::LeftButton);
    EXPECT_EQ(promptFlags(), (std::vector<bool>{true}));
    EXPECT_TRUE(delegate().isMonitoringPermission());
}

TEST_F(PermissionMonitoringTest, AccessibilityNeededStartsMonitoringEvenInTheBackground) {
    shell.accessibility.trusted = false;
    shell.service->resumeAfterAccessibilityPermission();
    shell.settle();
    EXPECT_TRUE(delegate().isMonitoringPermission());
    EXPECT_TRUE(delegate().pairingWindow.window()->isVisible());
    EXPECT_EQ(promptFlags(), (std::vector<bool>{false})); // the service's own silent test
}

} // namespace
} // namespace keyferry
