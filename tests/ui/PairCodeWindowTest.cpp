#include "ManualSerialQueue.h"
#include "PairCodeWindowController.h"
#include "QtPrinters.h"
#include "SystemColors.h"

#include <QFontMetrics>
#include <QGuiApplication>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <QTimeZone>
#include <QWindow>

#include <gtest/gtest.h>

namespace keyferry {
namespace {

QDateTime expiry() {
    return QDateTime(QDate(2026, 11, 21), QTime(15, 42, 10), Qt::LocalTime);
}

class PairCodeWindowTest : public ::testing::Test {
protected:
    void SetUp() override {
        parent.resize(480, 560);
        parent.move(100, 80);
        parent.show();
        QCoreApplication::processEvents();
        controller.onClose = [this] { ++closes; };
        window(); // built as the first code would build it
    }
    QWidget& window() { return *controller.window(); }
    QPushButton& closeButton() {
        for (QPushButton* button : window().findChildren<QPushButton*>()) {
            if (button->text() == QStringLiteral("Close")) {
                return *button;
            }
        }
        throw std::logic_error("no Close button");
    }

    fakes::ManualSerialQueue shellQueue;
    QWidget parent;
    PairCodeWindowController controller{shellQueue};
    int closes = 0;
};

QString shown(const QString& code) {
    return PairCodeWindowController::formattedCode(code);
}

TEST(PairCodeFormatting, SixNumeralsAreGroupedThreeAndThree) {
    EXPECT_EQ(shown(QStringLiteral("482913")), QStringLiteral("482  913"));
    EXPECT_EQ(shown(QStringLiteral("48 29 13")), QStringLiteral("482  913"));
    EXPECT_EQ(shown(QStringLiteral("123-456")), QStringLiteral("123  456"));
}

TEST(PairCodeFormatting, AnythingElseIsShownAsReceived) {
    EXPECT_EQ(shown(QStringLiteral("ABC123")), QStringLiteral("ABC123"));
    EXPECT_EQ(shown(QStringLiteral("1234567")), QStringLiteral("1234567"));
    EXPECT_EQ(shown(QStringLiteral("12345")), QStringLiteral("12345"));
    EXPECT_EQ(shown(QString()), QString());
}

TEST(PairCodeFormatting, NumeralsOfEveryScriptCount) {
    // Arabic-Indic digits 4 8 2 9 1 3.
    const QString arabicIndic = QStringLiteral("\u0664\u0668\u0662-\u0669\u0661\u0663");
    EXPECT_EQ(shown(arabicIndic), QStringLiteral("\u0664\u0668\u0662  \u0669\u0661\u0663"));
    // Full-width digits, and numerals that are not decimal digits (Roman twelve, vulgar half).
    EXPECT_EQ(shown(QStringLiteral("\uFF11\uFF12\uFF13 456")), QStringLiteral("\uFF11\uFF12\uFF13  456"));
    EXPECT_EQ(shown(QStringLiteral("\u216B\u00BD3456")), QStringLiteral("\u216B\u00BD3  456"));
    // A numeral outside the basic plane (mathematical bold digit one) is one numeral.
    const QString bold = QString::fromUcs4(U"\U0001D7CF23456");
    EXPECT_EQ(shown(bold), QString::fromUcs4(U"\U0001D7CF23  456"));
}

TEST(PairCodeFormatting, HanNumeralsAreNumbersToo) {
    // One to six, and the accounting forms of one to six with a hyphen between.
    EXPECT_EQ(shown(QStringLiteral("\u4E00\u4E8C\u4E09\u56DB\u4E94\u516D")),
              QStringLiteral("\u4E00\u4E8C\u4E09  \u56DB\u4E94\u516D"));
    EXPECT_EQ(shown(QStringLiteral("\u58F9\u8CB3\u53C3-\u8086\u4F0D\u9678")),
              QStringLiteral("\u58F9\u8CB3\u53C3  \u8086\u4F0D\u9678"));
    // Other ideographs are not numbers.
    EXPECT_EQ(shown(QStringLiteral("\u4E2D12345")), QStringLiteral("\u4E2D12345"));
}

TEST(PairCodeFormatting, ANumeralKeepsTheMarksThatBelongToIt) {
    // 4 and 8 each with a combining diaeresis: one character each, a number, kept whole.
    EXPECT_EQ(shown(QStringLiteral("4\u03088\u03082913")), QStringLiteral("4\u03088\u03082  913"));
    // Keycap sequences are numbers too.
    EXPECT_EQ(shown(QStringLiteral("1\uFE0F\u20E323 456")), QStringLiteral("1\uFE0F\u20E323  456"));
    // A mark on a letter does not make it a number, and a letter with a mark is one character.
    EXPECT_EQ(shown(QStringLiteral("A\u0308-482913")), QStringLiteral("482  913"));
}

TEST(PairCodeFormatting, ExpiryIsTheShortTimeOfTheLocale) {
    EXPECT_EQ(PairCodeWindowController::expiryLine(expiry()),
              QStringLiteral("Expires at ") + QLocale().toString(QTime(15, 42), QLocale::ShortFormat));
    EXPECT_TRUE(PairCodeWindowController::expiryLine(expiry()).startsWith(QStringLiteral("Expires at 3:42")));
    EXPECT_TRUE(PairCodeWindowController::expiryLine(expiry()).endsWith(QStringLiteral("PM")));
    // No date, even for a code that expires on another day.
    const QDateTime nextYear(QDate(2027, 1, 2), QTime(9, 5), Qt::LocalTime);
    EXPECT_EQ(PairCodeWindowController::expiryLine(nextYear),
              QStringLiteral("Expires at ") + QLocale().toString(QTime(9, 5), QLocale::ShortFormat));
}

TEST_F(PairCodeWindowTest, StartsHiddenWithPlaceholders) {
    EXPECT_FALSE(window().isVisible());
    EXPECT_EQ(window().windowTitle(), QStringLiteral("Pair a phone"));
    EXPECT_EQ(window().size(), QSize(400, 270));
    EXPECT_EQ(window().minimumSize(), window().maximumSize()); // not resizable
    EXPECT_EQ(controller.codeLabel->text(), QStringLiteral("------"));
    EXPECT_EQ(controller.statusLabel->text(), QStringLiteral("Waiting for your phone..."));
    EXPECT_EQ(controller.codeLabel->font().pixelSize(), 42);
    EXPECT_EQ(controller.statusLabel->font().pixelSize(), 13);
    EXPECT_EQ(SystemColors::textColor(*controller.statusLabel), SystemColors::secondaryLabel());
    EXPECT_EQ(closeButton().width(), 120);
}

TEST_F(PairCodeWindowTest, CodeFiguresShareOneWidth) {
    const QFontMetrics metrics(controller.codeLabel->font());
    const int zeroWidth = metrics.horizontalAdvance(QLatin1Char('0'));
    for (char figure = '1'; figure <= '9'; ++figure) {
        EXPECT_EQ(metrics.horizontalAdvance(QLatin1Char(figure)), zeroWidth) << figure;
    }
    EXPECT_EQ(controller.codeLabel->font().weight(), QFont::DemiBold);
}

TEST_F(PairCodeWindowTest, ShowsTheCodeCentredOverItsParent) {
    controller.show(QStringLiteral("482913"), expiry(), &parent);
    QCoreApplication::processEvents();
    EXPECT_TRUE(window().isVisible());
    EXPECT_EQ(controller.codeLabel->text(), QStringLiteral("482  913"));
    EXPECT_TRUE(controller.statusLabel->text().startsWith(QStringLiteral("Expires at 3:42")));
    EXPECT_EQ(controller.parentWindow.data(), &parent);
    ASSERT_NE(window().windowHandle(), nullptr);
    EXPECT_EQ(window().windowHandle()->transientParent(), parent.windowHandle());
    const QPoint centre = window().frameGeometry().center();
    const QPoint parentCentre = parent.frameGeometry().center();
    EXPECT_LE(std::abs(centre.x() - parentCentre.x()), 1);
    EXPECT_LE(std::abs(centre.y() - parentCentre.y()), 1);
}

TEST_F(PairCodeWindowTest, WithoutAParentItIsCentredOnTheScreen) {
    controller.show(QStringLiteral("482913"), expiry(), nullptr);
    QCoreApplication::processEvents();
    EXPECT_EQ(controller.parentWindow.data(), nullptr);
    EXPECT_EQ(window().windowHandle()->transientParent(), nullptr);
    const QPoint centre = window().frameGeometry().center();
    const QPoint screenCentre = QGuiApplication::primaryScreen()->availableGeometry().center();
    EXPECT_LE(std::abs(centre.x() - screenCentre.x()), 1);
    EXPECT_LE(std::abs(centre.y() - screenCentre.y()), 1);
}

TEST_F(PairCodeWindowTest, ASecondShowReplacesTheCodeAndRecentres) {
    controller.show(QStringLiteral("482913"), expiry(), &parent);
    parent.move(300, 200);
    QCoreApplication::processEvents();
    controller.show(QStringLiteral("ABC123"), expiry().addSecs(60), &parent);
    QCoreApplication::processEvents();
    EXPECT_EQ(controller.codeLabel->text(), QStringLiteral("ABC123"));
    EXPECT_TRUE(controller.statusLabel->text().startsWith(QStringLiteral("Expires at 3:43")));
    EXPECT_LE(std::abs(window().frameGeometry().center().x() - parent.frameGeometry().center().x()), 1);
    EXPECT_EQ(closes, 0);
}

TEST_F(PairCodeWindowTest, CloseButtonClosesAndDetaches) {
    controller.show(QStringLiteral("482913"), expiry(), &parent);
    QTest::mouseClick(&closeButton(), Qt::LeftButton);
    EXPECT_FALSE(window().isVisible());
    EXPECT_EQ(closes, 1);
    EXPECT_EQ(controller.parentWindow.data(), nullptr);
    EXPECT_EQ(window().windowHandle()->transientParent(), nullptr);
    // Code and status stay until the next show.
    EXPECT_EQ(controller.codeLabel->text(), QStringLiteral("482  913"));
}

TEST_F(PairCodeWindowTest, PairedSaysSoAndClosesSevenTenthsOfASecondLater) {
    controller.show(QStringLiteral("482913"), expiry(), &parent);
    controller.setPaired();
    EXPECT_EQ(controller.statusLabel->text(), QStringLiteral("Phone paired"));
    shellQueue.advance(0.69);
    EXPECT_TRUE(window().isVisible());
    shellQueue.advance(0.01);
    EXPECT_FALSE(window().isVisible());
    EXPECT_EQ(closes, 1);
    EXPECT_EQ(window().windowHandle()->transientParent(), nullptr);
}

TEST_F(PairCodeWindowTest, DelayedCloseStillRunsAfterAClosingByHand) {
    controller.show(QStringLiteral("482913"), expiry(), &parent);
    controller.setPaired();
    QTest::mouseClick(&closeButton(), Qt::LeftButton);
    EXPECT_EQ(closes, 1);
    shellQueue.advance(0.7);
    EXPECT_EQ(closes, 2);
    EXPECT_FALSE(window().isVisible());
}

TEST_F(PairCodeWindowTest, DelayedCloseClosesANewlyShownCode) {
    controller.show(QStringLiteral("482913"), expiry(), &parent);
    controller.setPaired();
    shellQueue.advance(0.3);
    controller.show(QStringLiteral("111222"), expiry(), &parent);
    EXPECT_TRUE(window().isVisible());
    shellQueue.advance(0.4);
    EXPECT_FALSE(window().isVisible());
    EXPECT_EQ(controller.codeLabel->text(), QStringLiteral("111  222"));
}

TEST_F(PairCodeWindowTest, DelayedCloseOfAGoneControllerDoesNothing) {
    auto doomed = std::make_unique<PairCodeWindowController>(shellQueue);
    doomed->show(QStringLiteral("482913"), expiry(), nullptr);
    doomed->setPaired();
    doomed.reset();
    EXPECT_EQ(shellQueue.advance(1.0), 1u);
}

TEST_F(PairCodeWindowTest, ANewShowTurnsAnErrorBackToTheSecondaryColour) {
    controller.show(QStringLiteral("482913"), expiry(), &parent);
    controller.statusLabel->setText(QStringLiteral("Could not create a pairing code."));
    SystemColors::setTextColor(*controller.statusLabel, SystemColors::red());
    controller.show(QStringLiteral("482913"), expiry(), &parent);
    EXPECT_EQ(SystemColors::textColor(*controller.statusLabel), SystemColors::secondaryLabel());
    EXPECT_TRUE(controller.statusLabel->text().startsWith(QStringLiteral("Expires at")));
}

TEST_F(PairCodeWindowTest, ClosingTurnsTheStatusBackToTheSecondaryColour) {
    controller.show(QStringLiteral("482913"), expiry(), &parent);
    SystemColors::setTextColor(*controller.statusLabel, SystemColors::red());
    window().close();
    EXPECT_EQ(SystemColors::textColor(*controller.statusLabel), SystemColors::secondaryLabel());
}

TEST_F(PairCodeWindowTest, AfterClosingItIsNoLongerAChildOfTheParent) {
    controller.show(QStringLiteral("482913"), expiry(), &parent);
    window().close();
    EXPECT_EQ(window().windowHandle()->transientParent(), nullptr);
    const QPoint before = window().pos();
    parent.move(parent.pos() + QPoint(50, 50));
    QCoreApplication::processEvents();
    EXPECT_EQ(window().pos(), before);
    // Shown again, it is attached again.
    controller.show(QStringLiteral("482913"), expiry(), &parent);
    EXPECT_EQ(window().windowHandle()->transientParent(), parent.windowHandle());
}

TEST_F(PairCodeWindowTest, AParentThatWentAwayIsNotDetachedFrom) {
    auto shortLived = std::make_unique<QWidget>();
    shortLived->show();
    controller.show(QStringLiteral("482913"), expiry(), shortLived.get());
    shortLived.reset();
    EXPECT_EQ(controller.parentWindow.data(), nullptr);
    window().close();
    EXPECT_EQ(closes, 1);
    EXPECT_FALSE(window().isVisible());
}

} // namespace
} // namespace keyferry
