#pragma once

#include <QIcon>
#include <QString>

#include <functional>
#include <string>

namespace keyferry {

// What the shell needs from the desktop beyond Qt. One implementation per platform (linux/, macos/), chosen
// by CMake. Main thread only, after the QApplication exists; nothing here fails loudly.
class DesktopIntegration {
public:
    DesktopIntegration() = delete;

    // Called once at start: on macOS an accessory application (no Dock icon, only the status item).
    static void prepareApplication();

    // Brings Keyferry in front of the other applications before a window is presented (macOS: activating
    // ignoring other applications). Qt's own raise and activation follow it.
    static void activateApplication();

    // The tray (status) item's icon, a mask: macOS draws it as a template image in the menu bar's colours.
    static QIcon trayIcon();

    // Opens the system's settings where the typing permission is granted; false where there are none to
    // open (Linux) or they could not be opened.
    static bool openAccessibilitySettings();

    // Calls `handler` whenever the user opens Keyferry again while it runs, where the system reports that
    // itself (macOS: the reopen event); an empty handler stops the reports. A second start of the
    // executable is reported by SingleInstance on every platform.
    static void onReopen(std::function<void()> handler);

    // The computer's name that the first pairing sends; empty when the system reports none.
    static std::string computerName();

    // The application icon's file (macOS: the bundle's resource "keyferry-app-icon" of type "png", else the
    // copy compiled into the program).
    static QString appIconPath();
};

} // namespace keyferry
