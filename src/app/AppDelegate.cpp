#include "AppDelegate.h"

#include "AccessibilityProbe.h"
#include "Assets.h"
#include "CompanionService.h"
#include "ShellScheduler.h"
#include "StartupManager.h"
#include "Symbols.h"
#include "SystemColors.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QCursor>
#include <QGuiApplication>
#include <QLabel>
#include <QMenu>
#include <QPointer>
#include <QPushButton>
#include <QScreen>
#include <QSystemTrayIcon>

#if defined(__APPLE__)
#include <QDesktopServices>
#include <QUrl>
#endif

#include <chrono>

namespace keyferry {

namespace {

QDateTime toDateTime(CompanionService::PairCodeExpiry expiresAt) {
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(expiresAt.time_since_epoch()).count();
    return QDateTime::fromMSecsSinceEpoch(milliseconds);
}

void centreOnScreen(QWidget& window) {
    const QScreen* screen = window.screen() != nullptr ? window.screen() : QGuiApplication::primaryScreen();
    if (screen == nullptr) {
        return;
    }
    const QRect frame = window.frameGeometry();
    const QPoint centre = screen->availableGeometry().center();
    window.move(centre.x() - frame.width() / 2, centre.y() - frame.height() / 2);
}

} // namespace

AppDelegate::AppDelegate(std::shared_ptr<CompanionService> companionService, AccessibilityProbe& accessibilityProbe,
                         ShellScheduler& shellScheduler, const QStringList& arguments, bool trayIsAvailable)
    : service(std::move(companionService)), accessibility(accessibilityProbe), scheduler(shellScheduler),
      pairCodeWindowController(shellScheduler),
      background(arguments.contains(QString::fromLatin1(backgroundArgument), Qt::CaseSensitive)),
      trayAvailable(trayIsAvailable) {}

AppDelegate::~AppDelegate() = default;

QString AppDelegate::statusLine(CompanionConnectionState state) {
    switch (state) {
    case CompanionConnectionState::unpaired: return QStringLiteral("Not paired");
    case CompanionConnectionState::creatingCode: return QStringLiteral("Creating pairing code...");
    case CompanionConnectionState::waitingForPhone: return QStringLiteral("Waiting for your phone");
    case CompanionConnectionState::permissionRequired: return QStringLiteral("Accessibility access required");
    case CompanionConnectionState::connecting: return QStringLiteral("Connecting...");
    case CompanionConnectionState::connected: return QStringLiteral("Connected");
    case CompanionConnectionState::reconnecting: return QStringLiteral("Reconnecting...");
    }
    return {};
}

void AppDelegate::applicationDidFinishLaunching() {
    if (StartupManager::isEnabled()) {
        // Names the executable that runs now; a failure here changes nothing the user asked for.
        static_cast<void>(StartupManager::writeRegistration());
    }
    // Without a tray the window is the application's only presence, so it is shown whatever the arguments.
    explicitlyOpened = !background || !trayAvailable;
    QApplication::setWindowIcon(Assets::appIcon());
    configureStatusItem();
    configurePairingWindow();
    configureServiceCallbacks();
    pairingWindowController.setTraylessControlsVisible(!trayAvailable);
    pairingWindowController.startupCheckbox->setChecked(StartupManager::isEnabled());
    service->start();
    if (explicitlyOpened) {
        presentPairingWindow();
    }
}

bool AppDelegate::applicationShouldHandleReopen(bool) {
    explicitlyOpened = true;
    presentPairingWindow();
    return true;
}

void AppDelegate::applicationWillTerminate() {
    if (permissionTimer) {
        permissionTimer->invalidate();
    }
    service->stop();
}

void AppDelegate::configureStatusItem() {
    menu = std::make_unique<QMenu>();
    QAction* heading = menu->addAction(QStringLiteral("Keyferry"));
    heading->setEnabled(false);
    statusAction = menu->addAction(QStringLiteral("Not paired"));
    statusAction->setEnabled(false);
    menu->addSeparator();
    QAction* open = menu->addAction(QStringLiteral("Open Keyferry"), this, &AppDelegate::showWindow);
    open->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_O));
    pairingAction = menu->addAction(QStringLiteral("Add phone"), this, &AppDelegate::addPhone);
    menu->addAction(QStringLiteral("Accessibility permission"), this, &AppDelegate::requestAccessibility);
    startupAction = menu->addAction(QStringLiteral("Open at login"));
    startupAction->setCheckable(true);
    startupAction->setChecked(StartupManager::isEnabled());
    connect(startupAction, &QAction::triggered, this, [this](bool checked) {
        // The check mark follows the outcome of the change, not the click.
        startupAction->setChecked(!checked);
        toggleStartup();
    });
    menu->addSeparator();
    QAction* quitAction = menu->addAction(QStringLiteral("Quit Keyferry"), this, &AppDelegate::quit);
    quitAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    for (QAction* action : {open, quitAction}) {
        action->setShortcutVisibleInContextMenu(true);
    }

    trayIcon = std::make_unique<QSystemTrayIcon>();
#if defined(__APPLE__)
    trayIcon->setIcon(Symbols::templateIcon(QStringLiteral("waveform.and.mic")));
#else
    // Tray hosts here seldom recolour icons: draw the symbol in the desktop's text colour, still marked
    // as a mask for those that do.
    QIcon symbol = Symbols::icon(QStringLiteral("waveform.and.mic"), SystemColors::label());
    symbol.setIsMask(true);
    trayIcon->setIcon(symbol);
#endif
    trayIcon->setToolTip(QStringLiteral("Keyferry"));
    trayIcon->setContextMenu(menu.get());
    connect(trayIcon.get(), &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        // A plain click opens the menu too, as a menu-bar item does.
        if (reason == QSystemTrayIcon::Trigger) {
            menu->popup(QCursor::pos());
        }
    });
    if (trayAvailable) {
        trayIcon->show();
    }
}

void AppDelegate::configurePairingWindow() {
    QPointer<AppDelegate> weakSelf(this);
    pairingWindowController.onCreateCode = [weakSelf] {
        if (weakSelf) {
            weakSelf->service->requestPairingCode();
        }
    };
    pairingWindowController.onRemovePhone = [weakSelf](const PairedPhone& phone) {
        if (weakSelf) {
            weakSelf->service->removePhone(phone.id);
        }
    };
    pairingWindowController.onRequestAccessibility = [weakSelf] {
        if (weakSelf) {
            weakSelf->requestAccessibility();
        }
    };
    pairingWindowController.onStartupChanged = [weakSelf](bool enabled) {
        if (weakSelf) {
            weakSelf->setStartup(enabled);
        }
    };
    pairingWindowController.onQuit = [weakSelf] {
        if (weakSelf) {
            weakSelf->quit();
        }
    };
}

void AppDelegate::configureServiceCallbacks() {
    QPointer<AppDelegate> weakSelf(this);
    service->onStateChange = [weakSelf](CompanionConnectionState state) {
        if (weakSelf) {
            weakSelf->stateChanged(state);
        }
    };
    service->onPairCode = [weakSelf](const std::string& code, CompanionService::PairCodeExpiry expiresAt) {
        if (weakSelf) {
            weakSelf->pairCodeReceived(QString::fromStdString(code), toDateTime(expiresAt));
        }
    };
    service->onPairingCompleted = [weakSelf] {
        if (weakSelf) {
            weakSelf->pairingCompleted();
        }
    };
    service->onPhonesChanged = [weakSelf](const std::vector<PairedPhone>& phones) {
        if (weakSelf) {
            weakSelf->phonesChanged(phones);
        }
    };
    service->onAccessibilityNeeded = [weakSelf] {
        if (weakSelf) {
            weakSelf->accessibilityNeeded();
        }
    };
    service->onTextInserted = [weakSelf] {
        if (weakSelf) {
            weakSelf->textInserted();
        }
    };
    service->onError = [weakSelf](const std::string& message) {
        if (weakSelf) {
            weakSelf->errorReported(QString::fromStdString(message));
        }
    };
}

void AppDelegate::presentPairingWindow() {
    QWidget* window = pairingWindowController.window();
    if (window == nullptr) {
        return;
    }
    if (!window->isVisible()) {
        centreOnScreen(*window);
    }
    window->show();
    window->raise();
    window->activateWindow();
}

void AppDelegate::setStatusLine(const QString& text) {
    statusAction->setText(text);
    pairingWindowController.stateLine->setText(text);
}

void AppDelegate::presentState(CompanionConnectionState state) {
    PairingWindowController& window = pairingWindowController;
    window.connectionState = state;
    const bool creatingCode = state == CompanionConnectionState::creatingCode;
    window.addPhoneButton->setEnabled(!creatingCode);
    window.addPhoneButton->setText(creatingCode ? QStringLiteral("Creating code...")
                                                : QStringLiteral("Generate pairing code"));
    window.accessibilityButton->setVisible(state == CompanionConnectionState::permissionRequired);
    window.renderPhones();
}

void AppDelegate::stateChanged(CompanionConnectionState state) {
    setStatusLine(statusLine(state));
    presentState(state);
    switch (state) {
    case CompanionConnectionState::connected:
        if (autoHide) {
            autoHide = false;
            if (!explicitlyOpened) {
                QPointer<AppDelegate> self(this);
                scheduler.after(autoHideDelay, [self] {
                    if (self && self->pairingWindowController.window() != nullptr) {
                        self->pairingWindowController.window()->hide();
                    }
                });
            }
        }
        break;
    case CompanionConnectionState::permissionRequired:
        autoHide = true;
        if (explicitlyOpened) {
            presentPairingWindow();
            beginPermissionMonitoring();
        }
        break;
    case CompanionConnectionState::unpaired:
        if (explicitlyOpened) {
            presentPairingWindow();
        }
        break;
    case CompanionConnectionState::creatingCode:
    case CompanionConnectionState::waitingForPhone:
    case CompanionConnectionState::connecting:
    case CompanionConnectionState::reconnecting:
        break;
    }
}

void AppDelegate::pairCodeReceived(const QString& code, const QDateTime& expiresAt) {
    presentPairingWindow();
    pairCodeWindowController.show(code, expiresAt, pairingWindowController.window());
}

void AppDelegate::pairingCompleted() {
    pairCodeWindowController.setPaired();
    service->refreshPhones();
    if (!accessibility.isTrusted(false)) {
        autoHide = true;
    }
}

void AppDelegate::phonesChanged(const std::vector<PairedPhone>& phones) {
    pairingWindowController.phones = phones;
    pairingWindowController.renderPhones();
}

void AppDelegate::accessibilityNeeded() {
    autoHide = true;
    presentPairingWindow();
    beginPermissionMonitoring();
}

void AppDelegate::textInserted() {
    setStatusLine(QStringLiteral("Text inserted"));
    QPointer<AppDelegate> self(this);
    scheduler.after(textInsertedDuration, [self] {
        if (self) {
            self->setStatusLine(QStringLiteral("Connected"));
        }
    });
}

void AppDelegate::errorReported(const QString& message) {
    const QWidget* codeWindow = pairCodeWindowController.window();
    if (codeWindow != nullptr && codeWindow->isVisible()) {
        pairCodeWindowController.statusLabel->setText(message);
        SystemColors::setTextColor(*pairCodeWindowController.statusLabel, SystemColors::red());
        return;
    }
    pairingWindowController.errorLabel->setText(message);
    pairingWindowController.errorLabel->setVisible(!message.isEmpty());
    presentPairingWindow();
}

void AppDelegate::showWindow() {
    explicitlyOpened = true;
    presentPairingWindow();
}

void AppDelegate::addPhone() {
    explicitlyOpened = true;
    presentPairingWindow();
    service->requestPairingCode();
}

void AppDelegate::toggleStartup() {
    setStartup(!StartupManager::isEnabled());
}

void AppDelegate::quit() {
    QCoreApplication::quit();
}

void AppDelegate::setStartup(bool enabled) {
    if (!StartupManager::setEnabled(enabled)) {
        startupAction->setChecked(enabled);
        pairingWindowController.startupCheckbox->setChecked(enabled);
        return;
    }
    pairingWindowController.errorLabel->setText(QStringLiteral("Could not update the login setting."));
    pairingWindowController.errorLabel->show();
    presentPairingWindow();
}

void AppDelegate::requestAccessibility() {
    if (accessibility.isTrusted(true)) {
        service->resumeAfterAccessibilityPermission();
        return;
    }
#if defined(__APPLE__)
    QDesktopServices::openUrl(
        QUrl(QStringLiteral("x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility")));
#endif
    // Elsewhere there is no settings pane to open: typing becomes possible when the display allows it.
    beginPermissionMonitoring();
}

void AppDelegate::beginPermissionMonitoring() {
    if (permissionTimer) {
        return;
    }
    QPointer<AppDelegate> weakSelf(this);
    permissionTimer = scheduler.repeating(permissionPollInterval, [weakSelf] {
        if (weakSelf) {
            weakSelf->pollPermission();
        }
    });
}

void AppDelegate::pollPermission() {
    if (!accessibility.isTrusted(false)) {
        return;
    }
    permissionTimer->invalidate();
    permissionTimer.reset();
    service->resumeAfterAccessibilityPermission();
}

bool AppDelegate::isMonitoringPermission() const {
    return permissionTimer != nullptr;
}

} // namespace keyferry
