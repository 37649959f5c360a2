#include "Assets.h"
#include "CallbackButton.h"
#include "ElidedLabel.h"
#include "EmptyPhonesView.h"
#include "PhoneCardView.h"
#include "QtPrinters.h"
#include "Symbols.h"
#include "SystemColors.h"
#include "TempFolder.h"

#include <QFile>
#include <QLabel>
#include <QTest>

#include <gtest/gtest.h>

#include <cstdlib>

namespace keyferry {
namespace {

PairedPhone namedPhone(const std::string& name) {
    return PairedPhone{"p1", name, "ios", "1.0", 1, 2};
}

PhoneStatus connectedStatus() {
    return {QStringLiteral("Connected"), SystemColors::green()};
}

std::unique_ptr<PhoneCardView> shownCard(const PairedPhone& phone, const PhoneStatus& status,
                                         std::function<void()> onRemove = {}, int width = 440) {
    auto card = std::make_unique<PhoneCardView>(phone, status, std::move(onRemove));
    card->resize(width, PhoneCardView::cardHeight);
    card->show();
    QCoreApplication::processEvents();
    return card;
}

QImage imageOf(const QIcon& icon) {
    return icon.pixmap(QSize(64, 64), 1.0).toImage().convertToFormat(QImage::Format_ARGB32);
}

TEST(PhoneCardView, EmptyNameReadsAsKeyferryPhone) {
    const auto card = shownCard(namedPhone(""), connectedStatus());
    EXPECT_EQ(card->nameLabel().text(), QStringLiteral("Keyferry phone"));
}

TEST(PhoneCardView, NameOfOneBlankIsShownAsTheBlank) {
    const auto card = shownCard(namedPhone(" "), connectedStatus());
    EXPECT_EQ(card->nameLabel().text(), QStringLiteral(" "));
}

TEST(PhoneCardView, ShowsTheNameOnly) {
    const auto card = shownCard(namedPhone("Ada's phone"), connectedStatus());
    EXPECT_EQ(card->nameLabel().text(), QStringLiteral("Ada's phone"));
    EXPECT_EQ(card->nameLabel().font().pixelSize(), 14);
    EXPECT_EQ(card->nameLabel().font().weight(), QFont::DemiBold);
}

TEST(PhoneCardView, LongNameIsCutWithAnEllipsisAndKeepsClearOfTheRemoveButton) {
    const std::string longName(300, 'W');
    const auto card = shownCard(namedPhone(longName), connectedStatus(), {}, 420);
    const ElidedLabel& name = card->nameLabel();
    EXPECT_TRUE(name.displayedText().endsWith(QChar(0x2026)));
    EXPECT_LT(name.displayedText().size(), static_cast<qsizetype>(longName.size()));
    EXPECT_EQ(name.height(), name.sizeHint().height()); // one line
    const int nameRight = name.mapTo(card.get(), QPoint(name.width(), 0)).x();
    const int statusRight = card->statusLabel().mapTo(card.get(), QPoint(card->statusLabel().width(), 0)).x();
    const int removeLeft = card->removeButton().geometry().left();
    EXPECT_GE(removeLeft - nameRight, 12);
    EXPECT_GE(removeLeft - statusRight, 12);
    EXPECT_GE(name.width(), 80);
}

TEST(PhoneCardView, LaysOutIconTextAndButtonAsDrawn) {
    const auto card = shownCard(namedPhone("Pixel"), connectedStatus());
    const QRect icon = card->iconView().geometry();
    EXPECT_EQ(icon.size(), QSize(36, 44));
    EXPECT_EQ(icon.left(), 18);
    EXPECT_EQ(icon.center().y(), card->rect().center().y());
    const QRect remove = card->removeButton().geometry();
    EXPECT_EQ(remove.size(), QSize(32, 32));
    EXPECT_EQ(card->width() - (remove.right() + 1), 14);
    EXPECT_NEAR(remove.center().y(), card->rect().center().y(), 1);
    const int textLeft = card->nameLabel().mapTo(card.get(), QPoint(0, 0)).x();
    EXPECT_EQ(textLeft - (icon.right() + 1), 14);
    EXPECT_EQ(card->removeButton().accessibleName(), QStringLiteral("Remove phone"));
    EXPECT_EQ(card->iconView().accessibleName(), QStringLiteral("Phone"));
}

TEST(PhoneCardView, StatusCarriesTheColourOfTheState) {
    const auto connected = shownCard(namedPhone("A"), connectedStatus());
    EXPECT_EQ(connected->statusLabel().text(), QStringLiteral("\u25CF  Connected"));
    EXPECT_EQ(SystemColors::textColor(connected->statusLabel()), SystemColors::green());
    EXPECT_EQ(connected->statusLabel().font().pixelSize(), 12);

    const auto offline = shownCard(namedPhone("A"), {QStringLiteral("Offline"), SystemColors::secondaryLabel()});
    EXPECT_EQ(offline->statusLabel().text(), QStringLiteral("\u25CF  Offline"));
    EXPECT_EQ(SystemColors::textColor(offline->statusLabel()), SystemColors::secondaryLabel());
}

TEST(PhoneCardView, RemoveButtonCallsEachTimeWithoutAsking) {
    int removals = 0;
    const auto card = shownCard(namedPhone("A"), connectedStatus(), [&removals] { ++removals; });
    QTest::mouseClick(&card->removeButton(), Qt::LeftButton);
    QTest::mouseClick(&card->removeButton(), Qt::LeftButton);
    EXPECT_EQ(removals, 2);
}

TEST(CallbackButton, WithoutAClosureDoesNothing) {
    CallbackButton button;
    button.resize(32, 32);
    button.show();
    QTest::mouseClick(&button, Qt::LeftButton);
    int presses = 0;
    button.onPress = [&presses] { ++presses; };
    QTest::mouseClick(&button, Qt::LeftButton);
    EXPECT_EQ(presses, 1);
}

TEST(EmptyPhonesView, ShowsTheCrossedOutPhoneOverItsTitle) {
    EmptyPhonesView placeholder;
    placeholder.resize(440, EmptyPhonesView::placeholderHeight);
    placeholder.show();
    QCoreApplication::processEvents();
    EXPECT_EQ(placeholder.titleLabel().text(), QStringLiteral("No phones paired"));
    EXPECT_EQ(placeholder.titleLabel().font().pixelSize(), 15);
    EXPECT_EQ(placeholder.iconView().size(), QSize(42, 42));
    EXPECT_EQ(placeholder.iconView().accessibleName(), QStringLiteral("No phones"));
    const QRect icon = placeholder.iconView().geometry();
    const QRect title = placeholder.titleLabel().geometry();
    EXPECT_EQ(title.top() - (icon.bottom() + 1), 10);
    EXPECT_NEAR(icon.center().x(), placeholder.rect().center().x(), 1);
    EXPECT_NEAR(title.center().x(), placeholder.rect().center().x(), 1);
    EXPECT_NEAR((icon.top() + title.bottom()) / 2.0, placeholder.rect().center().y(), 1.5);
}

TEST(CardView, DrawsTheCardLook) {
    EmptyPhonesView placeholder;
    placeholder.resize(200, EmptyPhonesView::placeholderHeight);
    const QImage image = placeholder.grab().toImage();
    EXPECT_EQ(QColor(image.pixel(100, 5)), SystemColors::controlBackground());
    // The top edge is the border, the corner is outside the rounded card.
    EXPECT_NE(QColor(image.pixel(100, 0)), SystemColors::controlBackground());
    EXPECT_NE(QColor(image.pixel(0, 0)), QColor(image.pixel(100, 0)));
}

TEST(Symbols, EveryProductSymbolIsDrawn) {
    for (const char* name : {"iphone", "iphone.slash", "trash", "waveform.and.mic"}) {
        const QPixmap pixmap = Symbols::tinted(QString::fromLatin1(name), Qt::red, 23, 1.0);
        ASSERT_FALSE(pixmap.isNull()) << name;
        const QImage image = pixmap.toImage();
        int inked = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const QColor pixel = image.pixelColor(x, y);
                if (pixel.alpha() > 200) {
                    EXPECT_EQ(pixel.red(), 255) << name;
                    ++inked;
                }
            }
        }
        EXPECT_GT(inked, 20) << name;
    }
}

TEST(Symbols, PrerenderedTraySymbolLooksLikeTheDrawnOne) {
    const QString name = QStringLiteral("waveform.and.mic");
    ASSERT_TRUE(QFile::exists(Symbols::prerenderedPath(name, 22)));
    const QIcon prerendered = Symbols::prerenderedIcon(name, Qt::red);
    const QIcon drawn = Symbols::icon(name, Qt::red);
    ASSERT_EQ(prerendered.availableSizes(), drawn.availableSizes());
    for (const QSize& size : drawn.availableSizes()) {
        const QImage expected = drawn.pixmap(size).toImage().convertToFormat(QImage::Format_ARGB32);
        const QImage actual = prerendered.pixmap(size).toImage().convertToFormat(QImage::Format_ARGB32);
        ASSERT_EQ(actual.size(), expected.size());
        int different = 0;
        for (int y = 0; y < expected.height(); ++y) {
            for (int x = 0; x < expected.width(); ++x) {
                const QColor want = expected.pixelColor(x, y), got = actual.pixelColor(x, y);
                if (std::abs(want.alpha() - got.alpha()) > 2 || (got.alpha() > 0 && got.red() < 250)) {
                    ++different;
                }
            }
        }
        EXPECT_EQ(different, 0) << size.width();
    }
}

TEST(Symbols, TemplateIconIsAMask) {
    EXPECT_TRUE(Symbols::templateIcon(QStringLiteral("waveform.and.mic")).isMask());
}

TEST(Assets, AppIconIsTheRenderedImage) {
    const QIcon icon = Assets::appIcon();
    ASSERT_FALSE(icon.isNull());
    EXPECT_NE(imageOf(icon), imageOf(Assets::loadAppIcon(QStringLiteral(":/no-such-icon.png"))));
    EXPECT_EQ(icon.availableSizes().value(0), QSize(512, 512));
}

TEST(Assets, MissingResourceFallsBackToTheSymbol) {
    const QIcon icon = Assets::loadAppIcon(QStringLiteral(":/no-such-icon.png"));
    ASSERT_FALSE(icon.isNull());
    EXPECT_EQ(imageOf(icon), imageOf(Symbols::icon(QStringLiteral("waveform.and.mic"), Qt::black)));
}

TEST(Assets, UnreadableResourceFallsBackToTheSymbol) {
    const TempFolder folder;
    const QString path = QString::fromStdString((folder / "keyferry-app-icon.png").string());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("this is not a PNG");
    file.close();
    EXPECT_EQ(imageOf(Assets::loadAppIcon(path)),
              imageOf(Symbols::icon(QStringLiteral("waveform.and.mic"), Qt::black)));
}

} // namespace
} // namespace keyferry
