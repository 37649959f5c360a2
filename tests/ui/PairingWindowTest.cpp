#include "AlertAnswerer.h"
#include "CallbackButton.h"
#include "ElidedLabel.h"
#include "EmptyPhonesView.h"
#include "PairingWindowController.h"
#include "PhoneCardView.h"
#include "QtEventPause.h"
#include "QtPrinters.h"
#include "SystemColors.h"

#include <QApplication>
#include <QCheckBox>
#include <QGuiApplication>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QTest>
#include <QTimer>
#include <QVBoxLayout>

#include <gtest/gtest.h>

namespace keyferry {
namespace {

PairedPhone phone(const std::string& id, const std::string& name) {
    return PairedPhone{id, name, "android", "2.1", 10, 20};
}

std::vector<QWidget*> visibleWindows() {
    std::vector<QWidget*> windows;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (widget->isVisible()) {
            windows.push_back(widget);
        }
    }
    return windows;
}

std::vector<QWidget*> arranged(const PairingWindowController& controller) {
    std::vector<QWidget*> widgets;
    for (int index = 0; index < controller.devicesStack->count(); ++index) {
        widgets.push_back(controller.devicesStack->itemAt(index)->widget());
    }
    return widgets;
}

class PairingWindowTest : public ::testing::Test {
protected:
    void SetUp() override {
        controller = std::make_unique<PairingWindowController>();
        controller->window()->show();
        settle();
    }
    static void settle() {
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
        QCoreApplication::processEvents();
    }
    void show(std::vector<PairedPhone> phones) {
        controller->phones = std::move(phones);
        controller->renderPhones();
        settle();
    }

    std::unique_ptr<PairingWindowController> controller;
};

TEST_F(PairingWindowTest, WindowIsTitledSizedAndBounded) {
    QWidget& window = *controller->window();
    EXPECT_EQ(window.windowTitle(), QStringLiteral("Keyferry"));
    EXPECT_EQ(window.size(), QSize(480, 560));
    EXPECT_EQ(window.minimumSize(), QSize(420, 430));
    window.resize(200, 150);
    settle();
    EXPECT_GE(window.width(), 420);
    EXPECT_GE(window.height(), 430);
}

TEST_F(PairingWindowTest, WindowIsCentredOnTheScreenWhenCreated) {
    PairingWindowController fresh;
    const QPoint centre = fresh.window()->frameGeometry().center();
    const QPoint screenCentre = QGuiApplication::primaryScreen()->availableGeometry().center();
    EXPECT_LE(std::abs(centre.x() - screenCentre.x()), 1);
    EXPECT_LE(std::abs(centre.y() - screenCentre.y()), 1);
}

TEST_F(PairingWindowTest, ControlsStartAsDrawn) {
    EXPECT_EQ(controller->addPhoneButton->text(), QStringLiteral("Generate pairing code"));
    EXPECT_EQ(controller->addPhoneButton->height(), 52);
    EXPECT_EQ(controller->addPhoneButton->width(), controller->window()->width() - 40);
    EXPECT_EQ(controller->addPhoneButton->font().pixelSize(), 14);
    EXPECT_TRUE(controller->addPhoneButton->isDefault());
    EXPECT_EQ(controller->accessibilityButton->text(), QStringLiteral("Enable Accessibility"));
    EXPECT_FALSE(controller->accessibilityButton->isVisible());
    EXPECT_EQ(controller->startupCheckbox->text(), QStringLiteral("Open Keyferry at login"));
    EXPECT_FALSE(controller->startupCheckbox->isChecked());
    EXPECT_FALSE(controller->errorLabel->isVisible());
    EXPECT_EQ(controller->errorLabel->text(), QString());
    EXPECT_EQ(SystemColors::textColor(*controller->errorLabel), SystemColors::red());
    EXPECT_EQ(controller->errorLabel->font().pixelSize(), 12);
    EXPECT_FALSE(controller->stateLine->isVisible());
    EXPECT_FALSE(controller->quitButton->isVisible());
    EXPECT_GE(controller->scrollView().height(), 250);
    // The checkbox keeps its own width, centred under the button.
    const QRect box = controller->startupCheckbox->geometry();
    EXPECT_LT(box.width(), controller->addPhoneButton->width());
    EXPECT_NEAR(box.center().x(), controller->addPhoneButton->geometry().center().x(), 1);
}

TEST_F(PairingWindowTest, NoPhonesShowsOnlyThePlaceholder) {
    show({});
    const auto widgets = arranged(*controller);
    ASSERT_EQ(widgets.size(), 1u);
    auto* placeholder = dynamic_cast<EmptyPhonesView*>(widgets.front());
    ASSERT_NE(placeholder, nullptr);
    EXPECT_EQ(placeholder->height(), 132);
    EXPECT_EQ(placeholder->width(), controller->scrollView().viewport()->width());
    EXPECT_EQ(placeholder->y(), 0);
}

TEST_F(PairingWindowTest, ThreePhonesStackFromTheTopInTheGivenOrder) {
    show({phone("a", "Zeta"), phone("b", "Alpha"), phone("c", "Mid")});
    const auto widgets = arranged(*controller);
    ASSERT_EQ(widgets.size(), 3u);
    const char* names[] = {"Zeta", "Alpha", "Mid"};
    int expectedTop = 0;
    for (std::size_t index = 0; index < 3; ++index) {
        auto* card = dynamic_cast<PhoneCardView*>(widgets[index]);
        ASSERT_NE(card, nullptr);
        EXPECT_EQ(card->nameLabel().text(), QString::fromLatin1(names[index]));
        EXPECT_EQ(card->height(), 82);
        EXPECT_EQ(card->width(), controller->scrollView().viewport()->width());
        EXPECT_EQ(card->y(), expectedTop);
        expectedTop += 82 + 10;
    }
}

TEST_F(PairingWindowTest, ManyPhonesScrollWhileTheButtonsStayInPlace) {
    const QRect buttonBefore = controller->addPhoneButton->geometry();
    const QRect checkboxBefore = controller->startupCheckbox->geometry();
    std::vector<PairedPhone> many;
    for (int index = 0; index < 12; ++index) {
        many.push_back(phone("p" + std::to_string(index), "Phone " + std::to_string(index)));
    }
    show(many);
    EXPECT_EQ(arranged(*controller).size(), 12u);
    QScrollBar* scroller = controller->scrollView().verticalScrollBar();
    EXPECT_TRUE(scroller->isVisible());
    EXPECT_GT(scroller->maximum(), 0);
    EXPECT_EQ(controller->addPhoneButton->geometry(), buttonBefore);
    EXPECT_EQ(controller->startupCheckbox->geometry(), checkboxBefore);
    EXPECT_EQ(controller->scrollView().horizontalScrollBar()->maximum(), 0);
}

TEST_F(PairingWindowTest, RenderingTwiceKeepsOneSetOfCards) {
    show({phone("a", "One"), phone("b", "Two")});
    controller->renderPhones();
    settle();
    EXPECT_EQ(arranged(*controller).size(), 2u);
    EXPECT_EQ(controller->window()->findChildren<PhoneCardView*>().size(), 2);
    EXPECT_EQ(controller->window()->findChildren<EmptyPhonesView*>().size(), 0);
}

TEST_F(PairingWindowTest, EveryCardShowsTheStatusOfTheConnection) {
    struct Row {
        CompanionConnectionState state;
        const char* text;
        QColor color;
    };
    const Row rows[] = {
        {CompanionConnectionState::unpaired, "Offline", SystemColors::secondaryLabel()},
        {CompanionConnectionState::creatingCode, "Offline", SystemColors::secondaryLabel()},
        {CompanionConnectionState::waitingForPhone, "Offline", SystemColors::secondaryLabel()},
        {CompanionConnectionState::permissionRequired, "Accessibility required", SystemColors::orange()},
        {CompanionConnectionState::connecting, "Connecting...", SystemColors::orange()},
        {CompanionConnectionState::connected, "Connected", SystemColors::green()},
        {CompanionConnectionState::reconnecting, "Reconnecting...", SystemColors::orange()},
    };
    for (const Row& row : rows) {
        controller->connectionState = row.state;
        show({phone("a", "One"), phone("b", "Two")});
        for (QWidget* widget : arranged(*controller)) {
            auto* card = dynamic_cast<PhoneCardView*>(widget);
            ASSERT_NE(card, nullptr);
            EXPECT_EQ(card->statusLabel().text(), QStringLiteral("\u25CF  ") + QString::fromLatin1(row.text));
            EXPECT_EQ(SystemColors::textColor(card->statusLabel()), row.color) << row.text;
        }
    }
}

TEST_F(PairingWindowTest, ReturnPressesTheAddButton) {
    int requests = 0;
    controller->onCreateCode = [&requests] { ++requests; };
    controller->errorLabel->setText(QStringLiteral("Earlier trouble"));
    controller->errorLabel->show();
    controller->window()->activateWindow();
    controller->startupCheckbox->setFocus();
    QTest::keyClick(controller->window(), Qt::Key_Return);
    // The button's pressed look lasts a moment before it fires.
    EXPECT_TRUE(testing::processEventsUntil([&requests] { return requests > 0; }, std::chrono::seconds(2)));
    EXPECT_EQ(requests, 1);
    EXPECT_FALSE(controller->errorLabel->isVisible());
    EXPECT_EQ(controller->errorLabel->text(), QString());
}

TEST_F(PairingWindowTest, AddButtonClearsTheErrorAndAsksForACode) {
    int requests = 0;
    controller->onCreateCode = [&requests] { ++requests; };
    controller->errorLabel->setText(QStringLiteral("Earlier trouble"));
    controller->errorLabel->show();
    QTest::mouseClick(controller->addPhoneButton, Qt::LeftButton);
    EXPECT_EQ(requests, 1);
    EXPECT_FALSE(controller->errorLabel->isVisible());
}

TEST_F(PairingWindowTest, ControlsWithoutClosuresDoNothing) {
    controller->accessibilityButton->show();
    settle();
    const std::vector<QWidget*> windowsBefore = visibleWindows();
    const bool checkedBefore = controller->startupCheckbox->isChecked();
    QTest::mouseClick(controller->addPhoneButton, Qt::LeftButton);
    QTest::mouseClick(controller->accessibilityButton, Qt::LeftButton);
    QTest::mouseClick(controller->startupCheckbox, Qt::LeftButton);
    settle();
    EXPECT_NE(controller->startupCheckbox->isChecked(), checkedBefore); // the clicks did arrive
    EXPECT_EQ(visibleWindows(), windowsBefore);
    EXPECT_TRUE(controller->accessibilityButton->isVisible());
    EXPECT_FALSE(controller->errorLabel->isVisible());
}

TEST_F(PairingWindowTest, AccessibilityButtonAndCheckboxCallTheirClosures) {
    int accessibilityRequests = 0;
    std::vector<bool> startupChanges;
    controller->onRequestAccessibility = [&accessibilityRequests] { ++accessibilityRequests; };
    controller->onStartupChanged = [&startupChanges](bool enabled) { startupChanges.push_back(enabled); };
    controller->accessibilityButton->show();
    settle();
    QTest::mouseClick(controller->accessibilityButton, Qt::LeftButton);
    QTest::mouseClick(controller->startupCheckbox, Qt::LeftButton);
    QTest::mouseClick(controller->startupCheckbox, Qt::LeftButton);
    EXPECT_EQ(accessibilityRequests, 1);
    EXPECT_EQ(startupChanges, (std::vector<bool>{true, false}));
}

TEST_F(PairingWindowTest, CancellingARemovalCallsNothing) {
    std::vector<PairedPhone> removed;
    controller->onRemovePhone = [&removed](const PairedPhone& gone) { removed.push_back(gone); };
    show({phone("a", "Ada"), phone("b", "Bob")});
    auto* card = dynamic_cast<PhoneCardView*>(arranged(*controller)[1]);
    uitest::AlertAnswerer answerer(QStringLiteral("Cancel"));
    QTest::mouseClick(&card->removeButton(), Qt::LeftButton);
    EXPECT_TRUE(answerer.seen);
    EXPECT_TRUE(removed.empty());
    EXPECT_EQ(arranged(*controller).size(), 2u);
}

TEST_F(PairingWindowTest, ConfirmingARemovalReportsThatPhoneOnce) {
    std::vector<PairedPhone> removed;
    controller->onRemovePhone = [&removed](const PairedPhone& gone) { removed.push_back(gone); };
    show({phone("a", "Ada"), phone("b", "Bob")});
    auto* card = dynamic_cast<PhoneCardView*>(arranged(*controller)[1]);
    uitest::AlertAnswerer answerer(QStringLiteral("Remove"));
    QTest::mouseClick(&card->removeButton(), Qt::LeftButton);
    ASSERT_TRUE(answerer.seen);
    EXPECT_EQ(answerer.text, QStringLiteral("Remove Bob?"));
    EXPECT_EQ(answerer.informativeText,
              QStringLiteral("This phone will no longer be able to send text to this computer."));
    EXPECT_EQ(answerer.icon, QMessageBox::Warning);
    EXPECT_TRUE(answerer.buttons.contains(QStringLiteral("Remove")));
    EXPECT_TRUE(answerer.buttons.contains(QStringLiteral("Cancel")));
    EXPECT_EQ(answerer.buttons.size(), 2);
    EXPECT_EQ(answerer.defaultButton, QStringLiteral("Remove"));
    ASSERT_EQ(removed.size(), 1u);
    EXPECT_EQ(removed.front(), phone("b", "Bob"));
    // The list changes only when the shell delivers a new one.
    EXPECT_EQ(arranged(*controller).size(), 2u);
}

TEST_F(PairingWindowTest, NamelessPhoneIsAskedAboutByItsEmptyName) {
    show({phone("a", "")});
    auto* card = dynamic_cast<PhoneCardView*>(arranged(*controller)[0]);
    EXPECT_EQ(card->nameLabel().text(), QStringLiteral("Keyferry phone"));
    uitest::AlertAnswerer answerer(QStringLiteral("Cancel"));
    QTest::mouseClick(&card->removeButton(), Qt::LeftButton);
    EXPECT_EQ(answerer.text, QStringLiteral("Remove ?"));
}

TEST_F(PairingWindowTest, RemovalWithoutAClosureAsksAndDoesNothing) {
    show({phone("a", "Ada")});
    auto* card = dynamic_cast<PhoneCardView*>(arranged(*controller)[0]);
    uitest::AlertAnswerer answerer(QStringLiteral("Remove"));
    QTest::mouseClick(&card->removeButton(), Qt::LeftButton);
    EXPECT_TRUE(answerer.seen);
}

TEST_F(PairingWindowTest, CardOutlivingItsControllerDoesNothing) {
    int removals = 0;
    controller->onRemovePhone = [&removals](const PairedPhone&) { ++removals; };
    show({phone("a", "Ada")});
    // Keep the card while the controller and its window go away.
    std::unique_ptr<PhoneCardView> card(dynamic_cast<PhoneCardView*>(arranged(*controller)[0]));
    controller->devicesStack->removeWidget(card.get());
    card->setParent(nullptr);
    controller.reset();
    bool alertShown = false;
    QTimer::singleShot(0, [&alertShown] {
        if (QWidget* modal = QApplication::activeModalWidget()) {
            alertShown = true;
            modal->close();
        }
    });
    card->show();
    QTest::mouseClick(&card->removeButton(), Qt::LeftButton);
    QCoreApplication::processEvents();
    EXPECT_FALSE(alertShown);
    EXPECT_EQ(removals, 0);
}

TEST_F(PairingWindowTest, ClosingOnlyHidesTheWindow) {
    QPointer<QWidget> window(controller->window());
    window->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    ASSERT_FALSE(window.isNull());
    EXPECT_FALSE(window->isVisible());
    window->show();
    EXPECT_TRUE(window->isVisible());
}

TEST_F(PairingWindowTest, TraylessControlsShowTheStateLineAndQuit) {
    int quits = 0;
    controller->onQuit = [&quits] { ++quits; };
    controller->setTraylessControlsVisible(true);
    settle();
    EXPECT_TRUE(controller->stateLine->isVisible());
    ASSERT_TRUE(controller->quitButton->isVisible());
    EXPECT_EQ(controller->quitButton->text(), QStringLiteral("Quit Keyferry"));
    QTest::mouseClick(controller->quitButton, Qt::LeftButton);
    EXPECT_EQ(quits, 1);
}

} // namespace
} // namespace keyferry
