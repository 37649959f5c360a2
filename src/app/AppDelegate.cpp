#include "AppDelegate.h"

#include "AccessibilityProbe.h"
#include "Assets.h"
#include "CompanionService.h"
#include "DesktopIntegration.h"
#include "SerialQueue.h"
#include "StartupManager.h"
#include "SystemColors.h"
#include "WindowPlacement.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QCursor>
#include <QLabel>
#include <QMenu>
#include <QPointer>
#include <QPushButton>
#include <QSystemTrayIcon>

#include <chrono>

namespace keyferry {

namespace {

QDateTime toDateTime(CompanionService::PairCodeExpiry expiresAt) {
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(expiresAt.time_since_epoch()).count();
    return QDateTime::fromMSecsSinceEpoch(milliseconds);
}

} // namespace

AppDelegate::AppDelegate(std::shared_ptr<CompanionService> companionService, AccessibilityProbe& accessibilityProbe,
                         SerialQueue& mainThreadQueue, const QStringList& arguments, bool trayIsAvailable)
    : service(std::move(companionService)), accessibility(accessibilityProbe), shellQueue(mainThreadQueue),
      pairCodeWindow(mainThreadQueue),
      launchedInBackground(arguments.contains(QString::fromLatin1(backgroundArgument), Qt::CaseSensitive)),
      trayAvailable(trayIsAvailable) {}

// The queue outlives the delegate, and its timers tick until cancelled.
AppDelegate::~AppDelegate() {
    if (permissionTimer) {
        permissionTimer->cancel();
    }
}

QString AppDelegate::statusLine(CompanionConnectionState state) {
    switch (state) {
    case CompanionConnectionState::unpaired:
        return QStringLiteral("Not paired");
    case CompanionConnectionState::creatingCode:
        return QStringLiteral("Creating pairing code...");
    case CompanionConnectionState::waitingForPhone:
        return QStringLiteral("Waiting for your phone");
    case CompanionConnectionState::permissionRequired:
        return QStringLiteral("Accessibility access required");
    case CompanionConnectionState::connecting:
        return QStringLiteral("Connecting...");
    case CompanionConnectionState::connected:
        return QStringLiteral("Connected");
    case CompanionConnectionState::reconnecting:
        return QStringLiteral("Reconnecting...");
    }
    return {};
}

void AppDelegate::applicationDidFinishLaunching() {
    if (StartupManager::isEnabled()) {
        // Names the executable that runs now; a failure here changes nothing the user asked for.
        static_cast<void>(StartupManager::writeRegistration());
    }
    // Without a tray the window is the application's only presence, so it is shown whatever the arguments.
    hasExplicitlyOpenedWindow = !launchedInBackground || !trayAvailable;
    configureStatusItem();
    configurePairingWindow();
    configureServiceCallbacks();
    pairingWindow.setTraylessControlsVisible(!trayAvailable);
    service->start();
    if (hasExplicitlyOpenedWindow) {
        presentPairingWindow();
    }
}

bool AppDelegate::applicationShouldHandleReopen(bool) {
    hasExplicitlyOpenedWindow = true;
    presentPairingWindow();
    return true;
}

void AppDelegate::applicationWillTerminate() {
    if (permissionTimer) {
        permissionTimer->cancel();
    }
    service->stop();
}

void AppDelegate::configureStatusItem() {
    configureStatusMenu();
    configureTrayIcon();
}

void AppDelegate::configureStatusMenu() {
    statusMenu = std::make_unique<QMenu>();
    QAction* heading = statusMenu->addAction(QStringLiteral("Keyferry"));
    heading->setEnabled(false);
    statusMenuItem = statusMenu->addAction(QStringLiteral("Not paired"));
    statusMenuItem->setEnabled(false);
    statusMenu->addSeparator();
    QAction* open = statusMenu->addAction(QStringLiteral("Open Keyferry"), this, &AppDelegate::showWindow);
    open->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_O));
    pairingMenuItem = statusMenu->addAction(QStringLiteral("Add phone"), this, &AppDelegate::addPhone);
    statusMenu->addAction(QStringLiteral("Accessibility permission"), this, &AppDelegate::requestAccessibility);
    startupMenuItem = statusMenu->addAction(QStringLiteral("Open at login"));
    startupMenuItem->setCheckable(true);
    startupMenuItem->setChecked(StartupManager::isEnabled());
    connect(startupMenuItem, &QAction::triggered, this, [this](bool checked) {
        // The check mark follows the outcome of the change, not the click.
        startupMenuItem->setChecked(!checked);
        toggleStartup();
    });
    statusMenu->addSeparator();
    QAction* quitAction = statusMenu->addAction(QStringLiteral("Quit Keyferry"), this, &AppDelegate::quit);
    quitAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    for (QAction* action : {open, quitAction}) {
        action->setShortcutVisibleInContextMenu(true);
    }
}

void AppDelegate::configureTrayIcon() {
    statusItem = std::make_unique<QSystemTrayIcon>();
    statusItem->setIcon(DesktopIntegration::trayIcon());
    statusItem->setToolTip(QStringLiteral("Keyferry"));
    statusItem->setContextMenu(statusMenu.get());
    connect(statusItem.get(), &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        // A plain click opens the menu too, as a menu-bar item does.
        if (reason == QSystemTrayIcon::Trigger) {
            statusMenu->popup(QCursor::pos());
        }
    });
    if (trayAvailable) {
        statusItem->show();
    }
}

void AppDelegate::configurePairingWindow() {
    QPointer<AppDelegate> weakSelf(this);
    pairingWindow.onCreateCode = [weakSelf] {
        if (weakSelf) {
            weakSelf->service->requestPairingCode();
        }
    };
    pairingWindow.onRemovePhone = [weakSelf](const PairedPhone& phone) {
        if (weakSelf) {
            weakSelf->service->removePhone(phone.id);
        }
    };
    pairingWindow.onRequestAccessibility = [weakSelf] {
        if (weakSelf) {
            weakSelf->requestAccessibility();
        }
    };
    pairingWindow.onStartupChanged = [weakSelf](bool enabled) {
        if (weakSelf) {
            weakSelf->setStartup(enabled);
        }
    };
    pairingWindow.onQuit = [weakSelf] {
        if (weakSelf) {
            weakSelf->quit();
        }
    };
    pairingWindow.onBuilt = [weakSelf] {
        if (weakSelf) {
            weakSelf->pairingWindowBuilt();
        }
    };
}

// The window is built when first needed; it starts from what the tray item already shows.
void AppDelegate::pairingWindowBuilt() {
    // Every window of the application carries the icon; loading it waits for the first one.
    QApplication::setWindowIcon(Assets::appIcon());
    pairingWindow.stateLine->setText(statusMenuItem->text());
    pairingWindow.startupCheckbox->setChecked(StartupManager::isEnabled());
    presentState(pairingWindow.connectionState);
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
    QWidget* window = pairingWindow.window();
    if (!window->isVisible()) {
        WindowPlacement::centreOnScreen(*window);
    }
    window->show();
    DesktopIntegration::activateApplication();
    window->raise();
    window->activateWindow();
}

void AppDelegate::setStatusLine(const QString& text) {
    statusMenuItem->setText(text);
    if (pairingWindow.isBuilt()) {
        pairingWindow.stateLine->setText(text);
    }
}

void AppDelegate::presentState(CompanionConnectionState state) {
    PairingWindowController& window = pairingWindow;
    window.connectionState = state;
    if (!window.isBuilt()) {
        return;
    }
    const bool creatingCode = state == CompanionConnectionState::creatingCode;
    window.addPhoneButton->setEnabled(!creatingCode);
    window.addPhoneButton->setText(creatingCode ? QStringLiteral("Creating code...")
                                                : QStringLiteral("Generate pairing code"));
    window.accessibilityButton->setVisible(state == CompanionConnectionState::permissionRequired);
    window.showTypingHelp(state == CompanionConnectionState::permissionRequired);
    window.renderPhones();
}

void AppDelegate::stateChanged(CompanionConnectionState state) {
    setStatusLine(statusLine(state));
    presentState(state);
    switch (state) {
    case CompanionConnectionState::connected:
        if (autoHideWhenConnected) {
            autoHideWhenConnected = false;
            if (!hasExplicitlyOpenedWindow) {
                QPointer<AppDelegate> self(this);
                shellQueue.postAfter(autoHideDelay, [self] {
                    if (self && self->pairingWindow.isBuilt()) {
                        self->pairingWindow.window()->hide();
                    }
                });
            }
        }
        break;
    case CompanionConnectionState::permissionRequired:
        autoHideWhenConnected = true;
        if (hasExplicitlyOpenedWindow) {
            presentPairingWindow();
            beginPermissionMonitoring();
        }
        break;
    case CompanionConnectionState::unpaired:
        if (hasExplicitlyOpenedWindow) {
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
    pairCodeWindow.show(code, expiresAt, pairingWindow.window());
}

void AppDelegate::pairingCompleted() {
    pairCodeWindow.setPaired();
    service->refreshPhones();
    if (!accessibility.isTrusted(false)) {
        autoHideWhenConnected = true;
    }
}

void AppDelegate::phonesChanged(const std::vector<PairedPhone>& phones) {
    pairingWindow.phones = phones;
    pairingWindow.renderPhones();
}

void AppDelegate::accessibilityNeeded() {
    autoHideWhenConnected = true;
    presentPairingWindow();
    beginPermissionMonitoring();
}

void AppDelegate::textInserted() {
    setStatusLine(QStringLiteral("Text inserted"));
    QPointer<AppDelegate> self(this);
    shellQueue.postAfter(textInsertedDuration, [self] {
        if (self) {
            self->setStatusLine(QStringLiteral("Connected"));
        }
    });
}

void AppDelegate::errorReported(const QString& message) {
    if (pairCodeWindow.isOpen()) {
        pairCodeWindow.statusLabel->setText(message);
        SystemColors::setTextColor(*pairCodeWindow.statusLabel, SystemColors::red());
        return;
    }
    pairingWindow.build();
    pairingWindow.errorLabel->setText(message);
    pairingWindow.errorLabel->setVisible(!message.isEmpty());
    presentPairingWindow();
}

void AppDelegate::showWindow() {
    hasExplicitlyOpenedWindow = true;
    presentPairingWindow();
}

void AppDelegate::addPhone() {
    hasExplicitlyOpenedWindow = true;
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
        startupMenuItem->setChecked(enabled);
        if (pairingWindow.isBuilt()) {
            pairingWindow.startupCheckbox->setChecked(enabled);
        }
        return;
    }
    pairingWindow.build();
    pairingWindow.errorLabel->setText(QStringLiteral("Could not update the login setting."));
    pairingWindow.errorLabel->show();
    presentPairingWindow();
}

void AppDelegate::requestAccessibility() {
    if (accessibility.isTrusted(true)) {
        service->resumeAfterAccessibilityPermission();
        return;
    }
    // Whether the settings opened changes nothing: the permission is watched either way.
    static_cast<void>(DesktopIntegration::openAccessibilitySettings());
    beginPermissionMonitoring();
}

void AppDelegate::beginPermissionMonitoring() {
    if (permissionTimer) {
        return;
    }
    QPointer<AppDelegate> weakSelf(this);
    permissionTimer = shellQueue.startTimer(permissionPollInterval, permissionPollInterval, [weakSelf] {
        if (weakSelf) {
            weakSelf->pollPermission();
        }
    });
}

void AppDelegate::pollPermission() {
    if (!accessibility.isTrusted(false)) {
        return;
    }
    permissionTimer->cancel();
    permissionTimer.reset();
    service->resumeAfterAccessibilityPermission();
}

bool AppDelegate::isMonitoringPermission() const {
    return permissionTimer != nullptr;
}

} // namespace keyferry
