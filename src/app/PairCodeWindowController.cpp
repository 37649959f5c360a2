#include "PairCodeWindowController.h"

#include "Assets.h"
#include "SerialQueue.h"
#include "SystemColors.h"
#include "SystemFonts.h"
#include "UnicodeNumerals.h"
#include "WindowPlacement.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QTextBoundaryFinder>
#include <QVBoxLayout>
#include <QWindow>

namespace keyferry {

PairCodeWindowController::PairCodeWindowController(SerialQueue& mainThreadQueue) : shellQueue(mainThreadQueue) {}

QWidget* PairCodeWindowController::window() {
    build();
    return windowWidget.get();
}

bool PairCodeWindowController::isOpen() const {
    return isBuilt() && windowWidget->isVisible();
}

void PairCodeWindowController::build() {
    if (isBuilt()) {
        return;
    }
    windowWidget = std::make_unique<QWidget>();
    QWidget& window = *windowWidget;
    window.setWindowTitle(QStringLiteral("Pair a phone"));
    window.setWindowFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint |
                          Qt::CustomizeWindowHint);
    window.setFixedSize(width, height);
    window.installEventFilter(this);
    codeLabel = new QLabel(QStringLiteral("------"), &window);
    statusLabel = new QLabel(QStringLiteral("Waiting for your phone..."), &window);
    configureWindow();
}

PairCodeWindowController::~PairCodeWindowController() {
    if (windowWidget) {
        windowWidget->removeEventFilter(this);
    }
}

void PairCodeWindowController::configureWindow() {
    QWidget& window = *windowWidget;

    auto* icon = new QLabel(&window);
    icon->setFixedSize(42, 42);
    icon->setPixmap(Assets::appIcon().pixmap(QSize(42, 42), window.devicePixelRatioF()));
    icon->setScaledContents(false);
    icon->setAlignment(Qt::AlignCenter);
    auto* title = new QLabel(QStringLiteral("Pair a phone"), &window);
    title->setFont(SystemFonts::system(24, QFont::DemiBold));
    auto* header = new QHBoxLayout;
    header->setSpacing(12);
    header->addWidget(icon, 0, Qt::AlignVCenter);
    header->addWidget(title, 0, Qt::AlignVCenter);

    codeLabel->setFont(SystemFonts::monospacedDigit(42, QFont::DemiBold));
    codeLabel->setAlignment(Qt::AlignCenter);
    codeLabel->setTextFormat(Qt::PlainText);
    statusLabel->setFont(SystemFonts::system(13));
    statusLabel->setAlignment(Qt::AlignCenter);
    statusLabel->setTextFormat(Qt::PlainText);
    SystemColors::setTextColor(*statusLabel, SystemColors::secondaryLabel());

    auto* closeButton = new QPushButton(QStringLiteral("Close"), &window);
    closeButton->setFixedWidth(120);
    closeButton->setAutoDefault(false);
    connect(closeButton, &QPushButton::clicked, this, &PairCodeWindowController::closeWindow);

    auto* column = new QVBoxLayout(&window);
    column->setContentsMargins(30, 0, 30, 0);
    column->setSpacing(18);
    column->addStretch(1);
    column->addLayout(header);
    column->setAlignment(header, Qt::AlignHCenter);
    column->addWidget(codeLabel);
    column->addWidget(statusLabel);
    column->addWidget(closeButton, 0, Qt::AlignHCenter);
    column->addStretch(1);
}

namespace {

// The characters (grapheme clusters, so a numeral keeps its marks) of `code` whose first code point is a
// number, in order.
QStringList numerals(const QString& code) {
    QStringList found;
    QTextBoundaryFinder characters(QTextBoundaryFinder::Grapheme, code);
    for (qsizetype start = 0, end = characters.toNextBoundary(); end > start;
         start = end, end = characters.toNextBoundary()) {
        const QString character = code.mid(start, end - start);
        if (UnicodeNumerals::isNumber(character.toUcs4().value(0))) {
            found.append(character);
        }
    }
    return found;
}

} // namespace

QString PairCodeWindowController::formattedCode(const QString& code) {
    const QStringList found = numerals(code);
    if (found.size() != 6) {
        return code;
    }
    return found.mid(0, 3).join(QString()) + QStringLiteral("  ") + found.mid(3).join(QString());
}

QString PairCodeWindowController::expiryLine(const QDateTime& expiresAt) {
    return QStringLiteral("Expires at ") + QLocale().toString(expiresAt.toLocalTime().time(), QLocale::ShortFormat);
}

void PairCodeWindowController::show(const QString& code, const QDateTime& expiresAt, QWidget* over) {
    build();
    SystemColors::setTextColor(*statusLabel, SystemColors::secondaryLabel());
    codeLabel->setText(formattedCode(code));
    statusLabel->setText(expiryLine(expiresAt));
    QWidget& window = *windowWidget;
    if (over != nullptr) {
        parentWindow = over;
        attach(*over);
        WindowPlacement::centreOver(window, *over);
    } else {
        WindowPlacement::centreOnScreen(window);
    }
    window.show();
    window.raise();
    window.activateWindow();
}

void PairCodeWindowController::attach(QWidget& over) {
    QWidget& window = *windowWidget;
    window.winId();
    over.winId();
    QWindow* handle = window.windowHandle();
    if (handle != nullptr && handle->transientParent() == nullptr) {
        handle->setTransientParent(over.windowHandle());
    }
}

void PairCodeWindowController::detach() {
    QWindow* handle = windowWidget ? windowWidget->windowHandle() : nullptr;
    if (handle != nullptr && parentWindow && handle->transientParent() == parentWindow->windowHandle()) {
        handle->setTransientParent(nullptr);
    }
}

void PairCodeWindowController::setPaired() {
    if (statusLabel != nullptr) {
        statusLabel->setText(QStringLiteral("Phone paired"));
    }
    QPointer<PairCodeWindowController> weakSelf(this);
    shellQueue.postAfter(pairedCloseDelay, [weakSelf] {
        if (weakSelf) {
            weakSelf->close();
        }
    });
}

void PairCodeWindowController::closeWindow() {
    close();
}

void PairCodeWindowController::close() {
    if (isOpen()) {
        windowWidget->close();
    } else {
        // A window already off screen gets no close event; its closing is still told, like any other.
        windowWillClose();
    }
}

bool PairCodeWindowController::eventFilter(QObject* watched, QEvent* event) {
    if (watched == windowWidget.get() && event->type() == QEvent::Close) {
        windowWillClose();
    }
    return QObject::eventFilter(watched, event);
}

void PairCodeWindowController::windowWillClose() {
    detach();
    parentWindow.clear();
    if (statusLabel != nullptr) {
        SystemColors::setTextColor(*statusLabel, SystemColors::secondaryLabel());
    }
    if (onClose) {
        onClose();
    }
}

} // namespace keyferry
