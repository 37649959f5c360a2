#include "ElidedLabel.h"
#include "QtPrinters.h"
#include "ShellHarness.h"

#include <QAction>
#include <QCoreApplication>
#include <QKeySequence>
#include <QMenu>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QVBoxLayout>

#include <gtest/gtest.h>

namespace keyferry {
namespace {

using uitest::ShellHarness;

class StatusMenuTest : public ::testing::Test {
protected:
    ShellHarness shell;
};

TEST_F(StatusMenuTest, MenuHoldsItsItemsInOrder) {
    AppDelegate& delegate = shell.launch({QStringLiteral("--background")});
    const QList<QAction*> items = delegate.statusMenu->actions();
    ASSERT_EQ(items.size(), 9);
    const QStringList titles{QStringLiteral("Keyferry"),
                             QStringLiteral("Not paired"),
                             QString(),
                             QStringLiteral("Open Keyferry"),
                             QStringLiteral("Add phone"),
                             QStringLiteral("Accessibility permission"),
                             QStringLiteral("Open at login"),
                             QString(),
                             QStringLiteral("Quit Keyferry")};
    for (int index = 0; index < items.size(); ++index) {
        EXPECT_EQ(items[index]->text(), titles[index]) << index;
    }
    EXPECT_TRUE(items[2]->isSeparator());
    EXPECT_TRUE(items[7]->isSeparator());
    EXPECT_FALSE(items[0]->isEnabled());
    EXPECT_FALSE(items[1]->isEnabled());
    for (const int enabled : {3, 4, 5, 6, 8}) {
        EXPECT_TRUE(items[enabled]->isEnabled()) << enabled;
    }
    EXPECT_EQ(items[3]->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_O));
    EXPECT_EQ(items[8]->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Q));
    EXPECT_TRUE(items[3]->isShortcutVisibleInContextMenu());
    EXPECT_TRUE(items[8]->isShortcutVisibleInContextMenu());
    for (const int plain : {0, 1, 4, 5, 6}) {
        EXPECT_TRUE(items[plain]->shortcut().isEmpty()) << plain;
    }
    EXPECT_TRUE(items[6]->isCheckable());
    EXPECT_FALSE(items[6]->isChecked());
    EXPECT_EQ(delegate.statusMenuItem, items[1]);
    EXPECT_EQ(delegate.pairingMenuItem, items[4]);
    EXPECT_EQ(delegate.startupMenuItem, items[6]);
}

TEST_F(StatusMenuTest, TrayItemCarriesTheSymbolAndTheMenu) {
    AppDelegate& delegate = shell.launch({QStringLiteral("--background")});
    ASSERT_NE(delegate.statusItem, nullptr);
    EXPECT_FALSE(delegate.statusItem->icon().isNull());
    // A mask, so that a desktop that recolours tray icons (the macOS menu bar) draws it as a template.
    EXPECT_TRUE(delegate.statusItem->icon().isMask());
    EXPECT_EQ(delegate.statusItem->toolTip(), QStringLiteral("Keyferry"));
    EXPECT_EQ(delegate.statusItem->contextMenu(), delegate.statusMenu.get());
}

TEST_F(StatusMenuTest, APlainClickOnTheTrayItemOpensTheMenu) {
    AppDelegate& delegate = shell.launch({QStringLiteral("--background")});
    Q_EMIT delegate.statusItem->activated(QSystemTrayIcon::Trigger);
    EXPECT_TRUE(delegate.statusMenu->isVisible());
    delegate.statusMenu->hide();
}

TEST_F(StatusMenuTest, QuitKeyferryEndsTheEventLoop) {
    AppDelegate& delegate = shell.launch({QStringLiteral("--background")});
    QAction* quit = delegate.statusMenu->actions().at(8);
    QTimer::singleShot(0, quit, &QAction::trigger);
    QTimer safety; // ends the loop only if quitting failed
    safety.setSingleShot(true);
    QObject::connect(&safety, &QTimer::timeout, [] { QCoreApplication::exit(1); });
    safety.start(5000);
    EXPECT_EQ(QCoreApplication::exec(), 0);
}

TEST_F(StatusMenuTest, StateLineReadsNotPairedBeforeTheFirstReport) {
    shell.markPaired();
    AppDelegate& delegate = shell.launch({QStringLiteral("--background")});
    EXPECT_EQ(shell.mainThread.pendingCount(), 0u);
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Not paired"));
    shell.settle();
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Connecting..."));
}

TEST_F(StatusMenuTest, EveryStateHasItsLine) {
    EXPECT_EQ(AppDelegate::statusLine(CompanionConnectionState::unpaired), QStringLiteral("Not paired"));
    EXPECT_EQ(AppDelegate::statusLine(CompanionConnectionState::creatingCode),
              QStringLiteral("Creating pairing code..."));
    EXPECT_EQ(AppDelegate::statusLine(CompanionConnectionState::waitingForPhone),
              QStringLiteral("Waiting for your phone"));
    EXPECT_EQ(AppDelegate::statusLine(CompanionConnectionState::permissionRequired),
              QStringLiteral("Accessibility access required"));
    EXPECT_EQ(AppDelegate::statusLine(CompanionConnectionState::connecting), QStringLiteral("Connecting..."));
    EXPECT_EQ(AppDelegate::statusLine(CompanionConnectionState::connected), QStringLiteral("Connected"));
    EXPECT_EQ(AppDelegate::statusLine(CompanionConnectionState::reconnecting), QStringLiteral("Reconnecting..."));
}

TEST_F(StatusMenuTest, CreatingCodeDisablesTheWindowsButtonButNotTheMenuItem) {
    AppDelegate& delegate = shell.launch();
    shell.settle();
    QPushButton& button = *delegate.pairingWindow.addPhoneButton;
    delegate.pairingMenuItem->trigger();
    shell.settle();
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Creating pairing code..."));
    EXPECT_FALSE(button.isEnabled());
    EXPECT_EQ(button.text(), QStringLiteral("Creating code..."));
    EXPECT_TRUE(delegate.pairingMenuItem->isEnabled());
    EXPECT_EQ(delegate.pairingWindow.connectionState, CompanionConnectionState::creatingCode);

    shell.http.respondTo(
        "v1/computers/pair/start", 200,
        R"({"computerId":"c","computerToken":"t","pairCode":"123456","expiresAt":1800000600000,"status":"pending"})");
    shell.settle();
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Waiting for your phone"));
    EXPECT_TRUE(button.isEnabled());
    EXPECT_EQ(button.text(), QStringLiteral("Generate pairing code"));
}

TEST_F(StatusMenuTest, AccessibilityButtonShowsOnlyWhilePermissionIsRequired) {
    shell.markPaired();
    shell.accessibility.trusted = false;
    AppDelegate& delegate = shell.launch();
    QPushButton& button = *delegate.pairingWindow.accessibilityButton;
    EXPECT_FALSE(button.isVisible());
    shell.settle();
    EXPECT_EQ(delegate.pairingWindow.connectionState, CompanionConnectionState::permissionRequired);
    EXPECT_TRUE(button.isVisible());
    shell.answerPhones({});
    shell.accessibility.trusted = true;
    shell.advance(1.5);
    EXPECT_EQ(delegate.pairingWindow.connectionState, CompanionConnectionState::connecting);
    EXPECT_FALSE(button.isVisible());
    shell.confirmConnection();
    EXPECT_FALSE(button.isVisible());
}

TEST_F(StatusMenuTest, EveryStateChangeRedrawsTheCards) {
    shell.markPaired();
    AppDelegate& delegate = shell.launch();
    shell.settle();
    shell.answerPhones({ShellHarness::phone("p1", "Ada")});
    auto statusOf = [&delegate] {
        auto* card = dynamic_cast<PhoneCardView*>(delegate.pairingWindow.devicesStack->itemAt(0)->widget());
        return card == nullptr ? QString() : card->statusLabel().text();
    };
    EXPECT_EQ(statusOf(), QStringLiteral("\u25CF  Connecting..."));
    shell.confirmConnection();
    EXPECT_EQ(statusOf(), QStringLiteral("\u25CF  Connected"));
    shell.webSockets.lastTask().deliverError("Socket is not connected");
    shell.settle();
    shell.http.respondTo("v1/computers/pair/status", 200,
                         R"({"computerId":"computer-1","name":"n","status":"active","paired":true,"expiresAt":1})");
    shell.settle();
    EXPECT_EQ(delegate.statusMenuItem->text(), QStringLiteral("Reconnecting..."));
    EXPECT_EQ(statusOf(), QStringLiteral("\u25CF  Reconnecting..."));
}

} // namespace
} // namespace keyferry
