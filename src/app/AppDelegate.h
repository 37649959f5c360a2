#pragma once

#include "CompanionConnectionState.h"
#include "PairCodeWindowController.h"
#include "PairingWindowController.h"

#include <QObject>
#include <QStringList>

#include <memory>

class QAction;
class QMenu;
class QSystemTrayIcon;

namespace keyferry {

class AccessibilityProbe;
class CompanionService;
class RepeatingTimer;
class SerialQueue;

// The application's spine: owns the service, the two windows and the tray item with its menu; wires the
// service's callbacks to the windows and the windows' closures to the service; decides when the main
// window shows or hides by itself; asks for and watches the typing permission; switches open-at-login.
//
// Lives as long as the application. The accessibility probe and the shell queue must outlive it; the service
// is shared with whoever built it. Main thread only: every menu action, closure, service callback and
// scheduled task runs there.
class AppDelegate : public QObject {
public:
    static constexpr const char* backgroundArgument = "--background";
    static constexpr double autoHideDelay = 0.8;
    static constexpr double textInsertedDuration = 1.4;
    static constexpr double permissionPollInterval = 1.5;

    // `arguments` are the process arguments; `trayAvailable` tells whether the desktop can show the tray
    // item (without one the window stands in for it and is shown at launch).
    AppDelegate(std::shared_ptr<CompanionService> service, AccessibilityProbe& accessibility, SerialQueue& shellQueue,
                const QStringList& arguments, bool trayAvailable);
    ~AppDelegate() override;

    // Platform events.
    void applicationDidFinishLaunching();
    bool applicationShouldHandleReopen(bool hasVisibleWindows);
    void applicationWillTerminate();

    // Menu actions.
    void showWindow();
    void addPhone();
    void requestAccessibility();
    void toggleStartup();
    void quit();

    void setStartup(bool enabled);
    void beginPermissionMonitoring();

    // The status line's words for each state.
    static QString statusLine(CompanionConnectionState state);

    // True while the permission timer exists.
    bool isMonitoringPermission() const;

private:
    void configureStatusItem();
    void configureStatusMenu();
    // The tray item: the symbol, carrying the menu that configureStatusMenu made.
    void configureTrayIcon();
    void configurePairingWindow();
    void pairingWindowBuilt();
    void configureServiceCallbacks();
    void presentPairingWindow();
    void presentState(CompanionConnectionState state);
    void setStatusLine(const QString& text);

    // The seven service reports.
    void stateChanged(CompanionConnectionState state);
    void pairCodeReceived(const QString& code, const QDateTime& expiresAt);
    void pairingCompleted();
    void phonesChanged(const std::vector<PairedPhone>& phones);
    void accessibilityNeeded();
    void textInserted();
    void errorReported(const QString& message);

    void pollPermission();

    std::shared_ptr<CompanionService> service;
    AccessibilityProbe& accessibility;
    SerialQueue& shellQueue; // the main thread's delayed work: auto-hide, status reset, permission poll

public:
    // The shell's parts and state, open to the shell's owner and its tests for reading; only the delegate
    // writes them. The menu items are made (and the tray item's menu owned) by configureStatusItem().
    PairingWindowController pairingWindow;
    PairCodeWindowController pairCodeWindow;
    std::unique_ptr<QMenu> statusMenu;
    std::unique_ptr<QSystemTrayIcon> statusItem;
    QAction* statusMenuItem = nullptr;
    QAction* pairingMenuItem = nullptr;
    QAction* startupMenuItem = nullptr;
    std::shared_ptr<RepeatingTimer> permissionTimer;
    bool autoHideWhenConnected = false;
    const bool launchedInBackground;
    bool hasExplicitlyOpenedWindow = false;

private:
    const bool trayAvailable;
};

} // namespace keyferry
