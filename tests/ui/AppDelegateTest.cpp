#include "AlertAnswerer.h"
#include "CallbackButton.h"
#include "ElidedLabel.h"
#include "PhoneCardView.h"
#include "QtPrinters.h"
#include "ShellHarness.h"
#include "StartupManager.h"
#include "SystemColors.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QGuiApplication>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QTest>
#include <QVBoxLayout>

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

namespace keyferry {
namespace {

using uitest::ShellHarness;

constexpr std::int64_t codeExpiry = 1'800'000'600'000; // ten minutes after the fake clock's start

std::string pairingCodeJson(const std::string& code) {
    return R"({"computerId":"computer-1","computerToken":"token-1","pairCode":")" + code + R"(","expiresAt":)" +
           std::to_string(codeExpiry) + R"(,"status":"pending"})";
}

std::string pairStatusJson(const std::string& status) {
    return R"({"computerId":"computer-1","name":"test-computer","status":")" + status +
           R"(","paired":true,"expiresAt":)" + std::to_string(codeExpiry) + "}";
}

QAction* menuItem(AppDelegate& delegate, const QString& title) {
    for (QAction* action : delegate.statusMenu->actions()) {
        if (action->text() == title) {
            return action;
        }
    }
    return nullptr;
}

class AppDelegateTest : public ::testing::Test {
protected:
    // A launched, paired computer whose socket the service has confirmed.
    AppDelegate& launchConnected(const QStringList& arguments = {}) {
        shell.markPaired();
        AppDelegate& delegate = shell.launch(arguments);
        shell.settle();
        shell.answerPhones({ShellHarness::phone("p1", "Ada's phone")});
        shell.confirmConnection();
        return delegate;
    }
    // Asks for a code from the window's button and lets the service answer with one.
    void showPairingCode(const std::string& code = "482913") {
        QTest::mouseClick(shell.delegate->pairingWindow.addPhoneButton, Qt::LeftButton);
        shell.settle();
        shell.http.respondTo("v1/computers/pair/start", 200, pairingCodeJson(code));
        shell.settle();
    }

    ShellHarness shell;
};

TEST_F(AppDelegateTest, PlainStartShowsTheWindowCentred) {
    AppDelegate& delegate = shell.launch();
    EXPECT_FALSE(delegate.launchedInBackground);
    EXPECT_TRUE(delegate.hasExplicitlyOpenedWindow);
    QWidget& window = shell.mainWindow();
    EXPECT_TRUE(window.isVisible());
    const QPoint centre = window.frameGeometry().center();
    const QPoint screenCentre = QGuiApplication::primaryScreen()->availableGeometry().center();
    EXPECT_LE(std::abs(centre.x() - screenCentre.x()), 1);
    EXPECT_LE(std::abs(centre.y() - screenCentre.y()), 1);
}

TEST_F(AppDelegateTest, PresentingAHiddenWindowCentresIt) {
    AppDelegate& delegate = shell.launch({QStringLiteral("--background")});
    shell.mainWindow().move(5, 5);
    delegate.showWindow();
    const QPoint centre = shell.mainWindow().frameGeometry().center();
    const QPoint screenCentre = QGuiApplication::primaryScreen()->availableGeometry().center();
    EXPECT_LE(std::abs(centre.x() - screenCentre.x()), 1);
    EXPECT_LE(std::abs(centre.y() - screenCentre.y()), 1);
}

TEST_F(AppDelegateTest, PresentingAVisibleWindowDoesNotMoveIt) {
    AppDelegate& delegate = shell.launch();
    shell.mainWindow().move(10, 20);
    const QPoint before = shell.mainWindow().pos();
    delegate.showWindow();
    EXPECT_EQ(shell.mainWindow().pos(), before);
}

TEST_F(AppDelegateTest, BackgroundStartShowsNoWindow) {
    AppDelegate& delegate = shell.launch({QStringLiteral("--background")});
    EXPECT_TRUE(delegate.launchedInBackground);
    EXPECT_FALSE(delegate.hasExplicitlyOpenedWindow);
    shell.settle();
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Not paired"));
    EXPECT_FALSE(shell.mainWindow().isVisible());
    EXPECT_FALSE(shell.codeWindow().isVisible());
}

TEST_F(AppDelegateTest, ConnectedBackgroundStartBuildsNeitherWindow) {
    AppDelegate& delegate = launchConnected({QStringLiteral("--background")});
    shell.advance(1.0); // past the moment a window shown for the permission would hide again
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Connected"));
    EXPECT_FALSE(delegate.pairingWindow.isBuilt());
    EXPECT_FALSE(delegate.pairCodeWindow.isBuilt());
}

TEST_F(AppDelegateTest, WindowFirstOpenedLaterShowsWhatTheTrayShows) {
    AppDelegate& delegate = launchConnected({QStringLiteral("--background")});
    delegate.startupMenuItem->trigger();
    ASSERT_TRUE(delegate.startupMenuItem->isChecked());
    ASSERT_FALSE(delegate.pairingWindow.isBuilt());

    menuItem(delegate, QStringLiteral("Open Keyferry"))->trigger();
    const PairingWindowController& window = delegate.pairingWindow;
    EXPECT_TRUE(shell.mainWindow().isVisible());
    EXPECT_EQ(window.stateLine->text(), QStringLiteral("Connected"));
    EXPECT_TRUE(window.startupCheckbox->isChecked());
    EXPECT_FALSE(window.accessibilityButton->isVisible());
    EXPECT_TRUE(window.addPhoneButton->isEnabled());
    ASSERT_EQ(window.devicesStack->count(), 1);
    EXPECT_NE(dynamic_cast<PhoneCardView*>(window.devicesStack->itemAt(0)->widget()), nullptr);
    EXPECT_FALSE(QApplication::windowIcon().isNull());
}

TEST_F(AppDelegateTest, WindowFirstOpenedWhilePermissionIsMissingOffersIt) {
    shell.markPaired();
    shell.accessibility.trusted = false;
    AppDelegate& delegate = shell.launch({QStringLiteral("--background")});
    delegate.pairingWindow.setTypingHelp(QStringLiteral("Typing needs a display that allows it."));
    shell.queue.runUntilIdle();
    ASSERT_TRUE(shell.mainThread.runOne()); // permissionRequired, before the window is asked for
    ASSERT_FALSE(delegate.pairingWindow.isBuilt());

    delegate.showWindow();
    EXPECT_TRUE(delegate.pairingWindow.accessibilityButton->isVisible());
    EXPECT_TRUE(delegate.pairingWindow.typingHelpLine->isVisible());
    EXPECT_EQ(delegate.pairingWindow.typingHelpLine->text(), QStringLiteral("Typing needs a display that allows it."));
}

TEST_F(AppDelegateTest, OnlyTheExactArgumentMeansBackground) {
    EXPECT_FALSE(shell.launch({QStringLiteral("--background=1"), QStringLiteral("-background")}).launchedInBackground);
    EXPECT_TRUE(shell.mainWindow().isVisible());
}

TEST_F(AppDelegateTest, BackgroundUnpairedReportShowsNoWindowUntilOpenKeyferry) {
    AppDelegate& delegate = shell.launch({QStringLiteral("--background")});
    // The service reports creatingCode, then unpaired, with the window never opened.
    shell.service->requestPairingCode();
    shell.settle();
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Creating pairing code..."));
    shell.http.respondTo("v1/computers/pair/start", 503, "{}");
    shell.queue.runUntilIdle();
    shell.mainThread.runOne(); // unpaired
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Not paired"));
    EXPECT_FALSE(shell.mainWindow().isVisible());
    shell.mainThread.drain(); // the error, which presents the window
    shell.mainWindow().hide();

    menuItem(delegate, QStringLiteral("Open Keyferry"))->trigger();
    EXPECT_TRUE(shell.mainWindow().isVisible());
    shell.mainWindow().hide();
    shell.service->requestPairingCode();
    shell.settle();
    shell.http.respondTo("v1/computers/pair/start", 503, "{}");
    shell.queue.runUntilIdle();
    shell.mainThread.runOne(); // unpaired
    EXPECT_TRUE(shell.mainWindow().isVisible());
}

TEST_F(AppDelegateTest, BackgroundPermissionFlowShowsTheWindowOnlyWhenAskedAndHidesItWhenConnected) {
    shell.markPaired();
    shell.accessibility.trusted = false;
    AppDelegate& delegate = shell.launch({QStringLiteral("--background")});
    shell.queue.runUntilIdle();
    ASSERT_TRUE(shell.mainThread.runOne()); // permissionRequired
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Accessibility access required"));
    EXPECT_FALSE(shell.mainWindow().isVisible());
    EXPECT_FALSE(delegate.isMonitoringPermission());
    EXPECT_TRUE(delegate.autoHideWhenConnected);

    ASSERT_TRUE(shell.mainThread.runOne()); // onAccessibilityNeeded
    EXPECT_TRUE(shell.mainWindow().isVisible());
    EXPECT_TRUE(delegate.isMonitoringPermission());
    EXPECT_FALSE(delegate.hasExplicitlyOpenedWindow);
    shell.settle();
    shell.answerPhones({ShellHarness::phone("p1", "Ada's phone")});

    shell.accessibility.trusted = true;
    shell.advance(1.5);
    EXPECT_FALSE(delegate.isMonitoringPermission());
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Connecting..."));
    shell.confirmConnection();
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Connected"));
    EXPECT_FALSE(delegate.autoHideWhenConnected);
    shell.advance(0.75);
    EXPECT_TRUE(shell.mainWindow().isVisible());
    shell.advance(0.05);
    EXPECT_FALSE(shell.mainWindow().isVisible());
}

TEST_F(AppDelegateTest, ExplicitlyOpenedWindowStaysAfterThePermissionFlow) {
    shell.markPaired();
    shell.accessibility.trusted = false;
    AppDelegate& delegate = shell.launch();
    shell.settle();
    EXPECT_TRUE(shell.mainWindow().isVisible());
    EXPECT_TRUE(delegate.isMonitoringPermission());
    EXPECT_TRUE(shell.delegate->pairingWindow.accessibilityButton->isVisible());
    shell.answerPhones({});
    shell.accessibility.trusted = true;
    shell.advance(1.5);
    shell.confirmConnection();
    EXPECT_FALSE(delegate.autoHideWhenConnected);
    shell.advance(2.0);
    EXPECT_TRUE(shell.mainWindow().isVisible());
    EXPECT_FALSE(shell.delegate->pairingWindow.accessibilityButton->isVisible());
}

TEST_F(AppDelegateTest, WithoutTypingTheWindowSaysInOneLineWhatTheDesktopLacksUntilTypingWorks) {
    shell.markPaired();
    shell.accessibility.trusted = false;
    AppDelegate& delegate = shell.launch();
    const QString lack = QStringLiteral("This Wayland desktop offers no virtual keyboard (see the README)");
    delegate.pairingWindow.setTypingHelp(lack);
    shell.settle();
    QLabel* line = delegate.pairingWindow.typingHelpLine;
    EXPECT_TRUE(line->isVisible());
    EXPECT_EQ(line->text(), lack);
    EXPECT_FALSE(line->wordWrap());
    shell.answerPhones({});
    shell.accessibility.trusted = true;
    shell.advance(1.5);
    shell.confirmConnection();
    EXPECT_FALSE(line->isVisible());
}

TEST_F(AppDelegateTest, ADesktopThatLacksNothingShowsNoTypingLine) {
    shell.markPaired();
    shell.accessibility.trusted = false;
    AppDelegate& delegate = shell.launch();
    shell.settle();
    EXPECT_TRUE(delegate.pairingWindow.accessibilityButton->isVisible());
    EXPECT_FALSE(delegate.pairingWindow.typingHelpLine->isVisible());
}

TEST_F(AppDelegateTest, PermissionRequiredWithTheWindowOpenedPresentsItAndStartsMonitoring) {
    AppDelegate& delegate = shell.launch();
    shell.settle();
    shell.mainWindow().hide();
    shell.accessibility.trusted = false;
    // The state report alone, without the service's separate request for the permission.
    shell.service->onStateChange(CompanionConnectionState::permissionRequired);
    EXPECT_TRUE(shell.mainWindow().isVisible());
    EXPECT_TRUE(delegate.isMonitoringPermission());
    EXPECT_TRUE(delegate.autoHideWhenConnected);
}

TEST_F(AppDelegateTest, TwoInsertionsASecondApartReturnToConnectedAfterTheFirstOnesTime) {
    AppDelegate& delegate = launchConnected();
    shell.sendText("m1", "hello");
    EXPECT_EQ(shell.keyboard.typedText(), "hello");
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Text inserted"));
    shell.advance(1.0);
    shell.sendText("m2", " world");
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Text inserted"));
    shell.advance(0.35);
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Text inserted"));
    shell.advance(0.05);
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Connected"));
    shell.advance(1.0);
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Connected"));
}

TEST_F(AppDelegateTest, TextInsertedResetSaysConnectedWhateverTheStateIsBy) {
    AppDelegate& delegate = launchConnected();
    shell.sendText("m1", "hi");
    shell.webSockets.lastTask().deliverError("Socket is not connected");
    shell.settle();
    shell.advance(1.4);
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Connected"));
}

TEST_F(AppDelegateTest, ErrorWhileTheCodeWindowIsUpIsShownThereInRed) {
    AppDelegate& delegate = shell.launch();
    shell.settle();
    showPairingCode();
    ASSERT_TRUE(shell.codeWindow().isVisible());
    // The service withdraws the fresh credential: its message goes to the code window.
    shell.advance(1.8);
    shell.http.respondTo("v1/computers/pair/status", 401, "{}");
    shell.settle();
    PairCodeWindowController& codeWindow = delegate.pairCodeWindow;
    EXPECT_EQ(codeWindow.statusLabel->text(), QStringLiteral("The pairing credential is no longer valid."));
    EXPECT_EQ(SystemColors::textColor(*codeWindow.statusLabel), SystemColors::red());
    EXPECT_FALSE(delegate.pairingWindow.errorLabel->isVisible());
    EXPECT_EQ(delegate.pairingWindow.errorLabel->text(), QString());
}

TEST_F(AppDelegateTest, ErrorWithTheCodeWindowClosedGoesToTheErrorLine) {
    AppDelegate& delegate = shell.launch({QStringLiteral("--background")});
    shell.settle();
    shell.service->requestPairingCode();
    shell.settle();
    shell.http.respondTo("v1/computers/pair/start", 500, "{}");
    shell.settle();
    EXPECT_TRUE(delegate.pairingWindow.errorLabel->isVisible());
    EXPECT_EQ(delegate.pairingWindow.errorLabel->text(),
              QStringLiteral("Could not create a pairing code. The server returned 500."));
    EXPECT_TRUE(shell.mainWindow().isVisible());
}

TEST_F(AppDelegateTest, EmptyErrorHidesTheLineAndStillBringsTheWindowForward) {
    AppDelegate& delegate = shell.launch({QStringLiteral("--background")});
    shell.settle();
    shell.mainWindow(); // the window of an earlier error, closed since
    delegate.pairingWindow.errorLabel->setText(QStringLiteral("Earlier trouble"));
    delegate.pairingWindow.errorLabel->show();
    // The service never words an empty error; its callback is played directly.
    shell.service->onError("");
    EXPECT_FALSE(delegate.pairingWindow.errorLabel->isVisible());
    EXPECT_EQ(delegate.pairingWindow.errorLabel->text(), QString());
    EXPECT_TRUE(shell.mainWindow().isVisible());
}

TEST_F(AppDelegateTest, ReopeningAlwaysAnswersTrueAndPresentsTheWindow) {
    AppDelegate& delegate = shell.launch({QStringLiteral("--background")});
    shell.settle();
    EXPECT_TRUE(delegate.applicationShouldHandleReopen(false));
    EXPECT_TRUE(shell.mainWindow().isVisible());
    EXPECT_TRUE(delegate.hasExplicitlyOpenedWindow);
    EXPECT_TRUE(delegate.applicationShouldHandleReopen(true));
    shell.mainWindow().hide();
    EXPECT_TRUE(delegate.applicationShouldHandleReopen(true));
    EXPECT_TRUE(shell.mainWindow().isVisible());
}

TEST_F(AppDelegateTest, FailingLoginSettingLeavesTheCheckMarkAndSaysSo) {
    AppDelegate& delegate = shell.launch({QStringLiteral("--background")});
    shell.settle();
    // A file where the autostart folder should be: the entry cannot be written.
    std::filesystem::create_directories(shell.autostartEntry().parent_path().parent_path());
    std::ofstream(shell.autostartEntry().parent_path()) << "in the way";
    delegate.startupMenuItem->trigger();
    EXPECT_FALSE(delegate.startupMenuItem->isChecked());
    EXPECT_FALSE(delegate.pairingWindow.startupCheckbox->isChecked());
    EXPECT_EQ(delegate.pairingWindow.errorLabel->text(), QStringLiteral("Could not update the login setting."));
    EXPECT_TRUE(delegate.pairingWindow.errorLabel->isVisible());
    EXPECT_TRUE(shell.mainWindow().isVisible());
    EXPECT_FALSE(delegate.hasExplicitlyOpenedWindow);
}

TEST_F(AppDelegateTest, FailingCheckboxKeepsWhatTheUserClicked) {
    AppDelegate& delegate = shell.launch();
    shell.settle();
    std::filesystem::create_directories(shell.autostartEntry().parent_path().parent_path());
    std::ofstream(shell.autostartEntry().parent_path()) << "in the way";
    QTest::mouseClick(delegate.pairingWindow.startupCheckbox, Qt::LeftButton);
    EXPECT_TRUE(delegate.pairingWindow.startupCheckbox->isChecked());
    EXPECT_FALSE(delegate.startupMenuItem->isChecked());
    EXPECT_EQ(delegate.pairingWindow.errorLabel->text(), QStringLiteral("Could not update the login setting."));
}

TEST_F(AppDelegateTest, LoginSettingFollowsTheMenuAndTheCheckbox) {
    AppDelegate& delegate = shell.launch();
    shell.settle();
    delegate.startupMenuItem->trigger();
    EXPECT_TRUE(std::filesystem::exists(shell.autostartEntry()));
    EXPECT_TRUE(delegate.startupMenuItem->isChecked());
    EXPECT_TRUE(delegate.pairingWindow.startupCheckbox->isChecked());
    QTest::mouseClick(delegate.pairingWindow.startupCheckbox, Qt::LeftButton);
    EXPECT_FALSE(std::filesystem::exists(shell.autostartEntry()));
    EXPECT_FALSE(delegate.startupMenuItem->isChecked());
    EXPECT_FALSE(delegate.pairingWindow.startupCheckbox->isChecked());
}

TEST_F(AppDelegateTest, LaunchRefreshesAnExistingRegistration) {
    std::filesystem::create_directories(shell.autostartEntry().parent_path());
    std::ofstream(shell.autostartEntry()) << "[Desktop Entry]\nExec=/moved/away/keyferry --background\n";
    AppDelegate& delegate = shell.launch();
    std::ifstream entry(shell.autostartEntry());
    const std::string content((std::istreambuf_iterator<char>(entry)), std::istreambuf_iterator<char>());
    EXPECT_NE(content.find(StartupManager::runningExecutable()->string()), std::string::npos);
    EXPECT_EQ(content.find("/moved/away"), std::string::npos);
    EXPECT_TRUE(delegate.startupMenuItem->isChecked());
    EXPECT_TRUE(delegate.pairingWindow.startupCheckbox->isChecked());
}

TEST_F(AppDelegateTest, LaunchWithoutARegistrationWritesNone) {
    AppDelegate& delegate = shell.launch();
    EXPECT_FALSE(std::filesystem::exists(shell.autostartEntry()));
    EXPECT_FALSE(delegate.startupMenuItem->isChecked());
    EXPECT_FALSE(delegate.pairingWindow.startupCheckbox->isChecked());
}

TEST_F(AppDelegateTest, PairingCodeOpensTheCodeWindowOverTheMainWindow) {
    AppDelegate& delegate = shell.launch({QStringLiteral("--background")});
    shell.settle();
    shell.service->requestPairingCode();
    shell.settle();
    shell.http.respondTo("v1/computers/pair/start", 200, pairingCodeJson("482913"));
    shell.settle();
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Waiting for your phone"));
    EXPECT_TRUE(shell.mainWindow().isVisible());
    EXPECT_TRUE(shell.codeWindow().isVisible());
    EXPECT_EQ(delegate.pairCodeWindow.codeLabel->text(), QStringLiteral("482  913"));
    EXPECT_EQ(delegate.pairCodeWindow.parentWindow.data(), &shell.mainWindow());
    const QDateTime expiry = QDateTime::fromMSecsSinceEpoch(codeExpiry);
    EXPECT_EQ(delegate.pairCodeWindow.statusLabel->text(), PairCodeWindowController::expiryLine(expiry));
}

TEST_F(AppDelegateTest, CompletedPairingClosesTheCodeWindowAndListsThePhones) {
    AppDelegate& delegate = shell.launch();
    shell.settle();
    showPairingCode();
    shell.advance(1.8);
    shell.http.respondTo("v1/computers/pair/status", 200, pairStatusJson("active"));
    shell.settle();
    EXPECT_EQ(delegate.pairCodeWindow.statusLabel->text(), QStringLiteral("Phone paired"));
    // The service loads the list once, and the shell asks again.
    EXPECT_EQ(shell.http.countForPath("v1/computers/phones"), 2u);
    EXPECT_FALSE(delegate.autoHideWhenConnected);
    shell.answerPhones({ShellHarness::phone("p1", "Ada's phone")});
    shell.answerPhones({ShellHarness::phone("p1", "Ada's phone"), ShellHarness::phone("p2", "Bob")});
    EXPECT_EQ(delegate.pairingWindow.phones.size(), 2u);
    EXPECT_EQ(delegate.pairingWindow.devicesStack->count(), 2);
    shell.advance(0.7);
    EXPECT_FALSE(shell.codeWindow().isVisible());
    EXPECT_TRUE(shell.mainWindow().isVisible());
}

TEST_F(AppDelegateTest, PairingWithoutThePermissionArmsTheAutoHide) {
    AppDelegate& delegate = shell.launch();
    shell.settle();
    showPairingCode();
    shell.accessibility.trusted = false;
    shell.advance(1.8);
    shell.http.respondTo("v1/computers/pair/status", 200, pairStatusJson("active"));
    shell.settle();
    EXPECT_TRUE(delegate.autoHideWhenConnected);
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Accessibility access required"));
}

TEST_F(AppDelegateTest, AddPhoneOpensTheWindowAndAsksForACode) {
    AppDelegate& delegate = shell.launch({QStringLiteral("--background")});
    shell.settle();
    delegate.pairingMenuItem->trigger();
    EXPECT_TRUE(shell.mainWindow().isVisible());
    EXPECT_TRUE(delegate.hasExplicitlyOpenedWindow);
    shell.settle();
    EXPECT_EQ(shell.http.countForPath("v1/computers/pair/start"), 1u);
}

TEST_F(AppDelegateTest, ConfirmedRemovalAsksTheServiceToRemoveThatPhone) {
    AppDelegate& delegate = launchConnected();
    const auto cards = delegate.pairingWindow.window()->findChildren<PhoneCardView*>();
    ASSERT_EQ(cards.size(), 1);
    uitest::AlertAnswerer answerer(QStringLiteral("Remove"));
    QTest::mouseClick(&cards.front()->removeButton(), Qt::LeftButton);
    shell.settle();
    const auto removals = shell.http.indicesForPath("v1/computers/phones/remove");
    ASSERT_EQ(removals.size(), 1u);
    EXPECT_NE(shell.http.request(removals.front()).body.value_or("").find("\"p1\""), std::string::npos);
}

TEST_F(AppDelegateTest, PhoneListFromTheServiceIsRendered) {
    AppDelegate& delegate = launchConnected();
    EXPECT_EQ(delegate.pairingWindow.devicesStack->count(), 1);
    auto* card = dynamic_cast<PhoneCardView*>(delegate.pairingWindow.devicesStack->itemAt(0)->widget());
    ASSERT_NE(card, nullptr);
    EXPECT_EQ(card->statusLabel().text(), QStringLiteral("\u25CF  Connected"));
}

TEST_F(AppDelegateTest, TerminationStopsTheServiceAndThePermissionTimer) {
    shell.markPaired();
    shell.accessibility.trusted = false;
    AppDelegate& delegate = shell.launch();
    shell.settle();
    ASSERT_TRUE(delegate.isMonitoringPermission());
    delegate.applicationWillTerminate();
    EXPECT_EQ(shell.shellQueue.activeTimerCount(), 0u);
    shell.settle();
    // Granting now changes nothing: no poll runs and the stopped service connects no more.
    shell.accessibility.trusted = true;
    shell.advance(3.0);
    EXPECT_EQ(shell.webSockets.taskCount(), 0u);
}

TEST_F(AppDelegateTest, TerminationClosesTheSocketAsGoingAway) {
    AppDelegate& delegate = launchConnected();
    delegate.applicationWillTerminate();
    shell.settle();
    EXPECT_EQ(shell.webSockets.lastTask().cancelCloseCodes(), (std::vector<int>{1001}));
}

TEST_F(AppDelegateTest, WithoutATrayTheWindowStandsInForIt) {
    AppDelegate& delegate = shell.launch({QStringLiteral("--background")}, false);
    shell.settle();
    EXPECT_TRUE(shell.mainWindow().isVisible());
    PairingWindowController& window = delegate.pairingWindow;
    EXPECT_TRUE(window.stateLine->isVisible());
    EXPECT_EQ(window.stateLine->text(), QStringLiteral("Not paired"));
    EXPECT_TRUE(window.quitButton->isVisible());
    shell.service->requestPairingCode();
    shell.settle();
    EXPECT_EQ(window.stateLine->text(), QStringLiteral("Creating pairing code..."));
}

TEST_F(AppDelegateTest, WithATrayTheWindowHasNoQuitButton) {
    AppDelegate& delegate = shell.launch();
    shell.settle();
    EXPECT_FALSE(delegate.pairingWindow.stateLine->isVisible());
    EXPECT_FALSE(delegate.pairingWindow.quitButton->isVisible());
}

TEST_F(AppDelegateTest, CallbacksOfAGoneDelegateDoNothing) {
    shell.launch();
    shell.settle();
    shell.service->requestPairingCode();
    shell.delegate.reset();
    shell.settle();
    shell.http.respondTo("v1/computers/pair/start", 500, "{}");
    shell.queue.runUntilIdle();
    EXPECT_GT(shell.mainThread.pendingCount(), 0u); // the failure's reports are on their way to the delegate
    shell.settle();
    EXPECT_EQ(shell.mainThread.pendingCount(), 0u);
    for (const QWidget* window : QApplication::topLevelWidgets()) {
        EXPECT_FALSE(window->isVisible())
            << window->metaObject()->className() << " " << window->windowTitle().toStdString();
    }
}

} // namespace
} // namespace keyferry
