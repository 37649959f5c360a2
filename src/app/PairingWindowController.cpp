#include "PairingWindowController.h"

#include "ElidedLabel.h"
#include "EmptyPhonesView.h"
#include "FlippedView.h"
#include "PlatformWords.h"
#include "SystemColors.h"
#include "SystemFonts.h"
#include "WindowPlacement.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>
#include <QShortcut>
#include <QVBoxLayout>

namespace keyferry {

PairingWindowController::PairingWindowController() = default;

QWidget* PairingWindowController::window() {
    build();
    return windowWidget.get();
}

void PairingWindowController::build() {
    if (isBuilt()) {
        return;
    }
    windowWidget = std::make_unique<QWidget>();
    QWidget& window = *windowWidget;
    window.setWindowTitle(QStringLiteral("Keyferry"));
    window.setWindowFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowSystemMenuHint | Qt::WindowMinimizeButtonHint |
                          Qt::WindowMaximizeButtonHint | Qt::WindowCloseButtonHint);
    window.resize(width, height);
    window.setMinimumSize(minimumWidth, minimumHeight);
    WindowPlacement::centreOnScreen(window);

    errorLabel = new QLabel(QString(), &window);
    typingHelpLine = new ElidedLabel(QString(), &window);
    addPhoneButton = new QPushButton(QStringLiteral("Generate pairing code"), &window);
    accessibilityButton = new QPushButton(QStringLiteral("Enable Accessibility"), &window);
    startupCheckbox = new QCheckBox(QStringLiteral("Open Keyferry at login"), &window);
    stateLine = new QLabel(QStringLiteral("Not paired"), &window);
    quitButton = new QPushButton(QStringLiteral("Quit Keyferry"), &window);
    configureWindow();
    if (onBuilt) {
        onBuilt();
    }
}

PairingWindowController::~PairingWindowController() = default;

void PairingWindowController::configureWindow() {
    QWidget& window = *windowWidget;
    window.setAutoFillBackground(true);
    QPalette background = window.palette();
    background.setColor(QPalette::Window, SystemColors::windowBackground());
    window.setPalette(background);

    configurePhoneList();
    configureControls();

    auto* outerColumn = new QVBoxLayout(&window);
    outerColumn->setContentsMargins(20, 20, 20, 18);
    outerColumn->setSpacing(16);
    outerColumn->addWidget(scrollArea, 1);
    outerColumn->addLayout(bottomColumn());

    renderPhones();
}

void PairingWindowController::configurePhoneList() {
    flippedView = new FlippedView;
    flippedView->setAutoFillBackground(false);
    devicesStack = &flippedView->stack();
    devicesStack->setSpacing(10);
    scrollArea = new QScrollArea(windowWidget.get());
    scrollArea->setFrameShape(QFrame::NoFrame);
    scrollArea->setWidgetResizable(true);
    scrollArea->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scrollArea->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    scrollArea->viewport()->setAutoFillBackground(false);
    scrollArea->setWidget(flippedView);
    scrollArea->setMinimumHeight(250);
}

void PairingWindowController::configureControls() {
    QWidget& window = *windowWidget;
    errorLabel->setFont(SystemFonts::system(12));
    SystemColors::setTextColor(*errorLabel, SystemColors::red());
    errorLabel->setAlignment(Qt::AlignCenter);
    errorLabel->setWordWrap(true);
    errorLabel->setTextFormat(Qt::PlainText);
    errorLabel->setMaximumHeight(errorLabel->fontMetrics().lineSpacing() * 2 + 2);
    errorLabel->hide();

    typingHelpLine->setFont(SystemFonts::system(11));
    SystemColors::setTextColor(*typingHelpLine, SystemColors::secondaryLabel());
    typingHelpLine->setAlignment(Qt::AlignCenter);
    typingHelpLine->setTextFormat(Qt::PlainText);
    setTypingHelp(typingHelp);
    showTypingHelp(typingHelpShown);

    accessibilityButton->hide();
    connect(accessibilityButton, &QPushButton::clicked, this, &PairingWindowController::requestAccessibility);

    addPhoneButton->setFont(SystemFonts::system(14, QFont::DemiBold));
    addPhoneButton->setFixedHeight(52);
    addPhoneButton->setDefault(true);
    connect(addPhoneButton, &QPushButton::clicked, this, &PairingWindowController::createCode);
    // Return (and the keypad's Enter) press the default button anywhere in the window.
    for (const auto key : {Qt::Key_Return, Qt::Key_Enter}) {
        auto* shortcut = new QShortcut(QKeySequence(key), &window);
        connect(shortcut, &QShortcut::activated, addPhoneButton, &QPushButton::animateClick);
    }

    connect(startupCheckbox, &QCheckBox::clicked, this, &PairingWindowController::startupChanged);

    SystemColors::setTextColor(*stateLine, SystemColors::secondaryLabel());
    connect(quitButton, &QPushButton::clicked, this, [this] {
        if (onQuit) {
            onQuit();
        }
    });
    setTraylessControlsVisible(traylessControlsShown);
}

QVBoxLayout* PairingWindowController::bottomColumn() const {
    auto* traylessRow = new QHBoxLayout;
    traylessRow->addWidget(stateLine, 1);
    traylessRow->addWidget(quitButton);

    auto* column = new QVBoxLayout;
    column->setSpacing(10);
    column->addWidget(errorLabel);
    column->addWidget(typingHelpLine);
    column->addWidget(accessibilityButton);
    column->addWidget(addPhoneButton);
    column->addWidget(startupCheckbox, 0, Qt::AlignHCenter);
    column->addLayout(traylessRow);
    return column;
}

void PairingWindowController::setTypingHelp(const QString& line) {
    typingHelp = line;
    if (!isBuilt()) {
        return;
    }
    typingHelpLine->setText(line);
    typingHelpLine->setToolTip(line); // the whole line, where the window is too narrow for it
}

void PairingWindowController::showTypingHelp(bool visible) {
    typingHelpShown = visible;
    if (!isBuilt()) {
        return;
    }
    typingHelpLine->setVisible(visible && !typingHelpLine->text().isEmpty());
}

void PairingWindowController::setTraylessControlsVisible(bool visible) {
    traylessControlsShown = visible;
    if (!isBuilt()) {
        return;
    }
    stateLine->setVisible(visible);
    quitButton->setVisible(visible);
}

void PairingWindowController::clearStack() {
    while (QLayoutItem* item = devicesStack->takeAt(0)) {
        if (QWidget* widget = item->widget()) {
            // Out of the window at once; freed later, since a card's own button may be what led here.
            widget->hide();
            widget->setParent(nullptr);
            widget->deleteLater();
        }
        delete item;
    }
}

void PairingWindowController::renderPhones() {
    if (!isBuilt()) {
        return;
    }
    clearStack();
    if (phones.empty()) {
        auto* placeholder = new EmptyPhonesView(flippedView);
        placeholder->setFixedHeight(EmptyPhonesView::placeholderHeight);
        devicesStack->addWidget(placeholder);
        return;
    }
    const PhoneStatus status = phoneStatus();
    QPointer<PairingWindowController> weakSelf(this);
    for (const PairedPhone& phone : phones) {
        auto* card = new PhoneCardView(
            phone, status,
            [weakSelf, phone] {
                if (weakSelf) {
                    weakSelf->confirmRemoval(phone);
                }
            },
            flippedView);
        card->setFixedHeight(PhoneCardView::cardHeight);
        devicesStack->addWidget(card);
    }
}

PhoneStatus PairingWindowController::phoneStatus() const {
    switch (connectionState) {
    case CompanionConnectionState::permissionRequired:
        return {QStringLiteral("Accessibility required"), SystemColors::orange()};
    case CompanionConnectionState::connecting:
        return {QStringLiteral("Connecting..."), SystemColors::orange()};
    case CompanionConnectionState::connected:
        return {QStringLiteral("Connected"), SystemColors::green()};
    case CompanionConnectionState::reconnecting:
        return {QStringLiteral("Reconnecting..."), SystemColors::orange()};
    case CompanionConnectionState::unpaired:
    case CompanionConnectionState::creatingCode:
    case CompanionConnectionState::waitingForPhone:
        break;
    }
    return {QStringLiteral("Offline"), SystemColors::secondaryLabel()};
}

void PairingWindowController::confirmRemoval(PairedPhone phone) {
    QMessageBox alert(windowWidget.get());
    alert.setIcon(QMessageBox::Warning);
    alert.setWindowTitle(QStringLiteral("Keyferry"));
    alert.setTextFormat(Qt::PlainText);
    alert.setText(QStringLiteral("Remove ") + QString::fromStdString(phone.name) + QStringLiteral("?"));
    alert.setInformativeText(QStringLiteral("This phone will no longer be able to send text to this ") +
                             QString::fromLatin1(thisComputerWord) + QStringLiteral("."));
    QPushButton* removeButton = alert.addButton(QStringLiteral("Remove"), QMessageBox::AcceptRole);
    QPushButton* cancelButton = alert.addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    alert.setDefaultButton(removeButton);
    alert.setEscapeButton(cancelButton);
    alert.exec();
    if (alert.clickedButton() == removeButton && onRemovePhone) {
        onRemovePhone(phone);
    }
}

void PairingWindowController::createCode() {
    if (isBuilt()) {
        errorLabel->setText(QString());
        errorLabel->hide();
    }
    if (onCreateCode) {
        onCreateCode();
    }
}

void PairingWindowController::requestAccessibility() {
    if (onRequestAccessibility) {
        onRequestAccessibility();
    }
}

void PairingWindowController::startupChanged() {
    if (onStartupChanged) {
        onStartupChanged(startupCheckbox->isChecked());
    }
}

} // namespace keyferry
