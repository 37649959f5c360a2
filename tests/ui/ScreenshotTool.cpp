// Puts the shell on a real X display (run it inside with-desktop.sh) and saves screenshots of the whole
// screen as PNG files in the given folder: the main window without phones, with three phones in the
// connected, permission-required and creating-code states, the pairing-code window over it, and the tray
// menu open. Each file is read back and must not be blank. Prints one line per screenshot; exits non-zero
// when a screenshot is missing or blank.
//   keyferry_ui_screenshots <output folder>
#include "ShellHarness.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QImage>
#include <QLocale>
#include <QMenu>
#include <QScreen>
#include <QSet>
#include <QSystemTrayIcon>
#include <QTest>

#include <chrono>
#include <cstdio>

namespace {

using keyferry::AppDelegate;
using keyferry::CompanionConnectionState;
using keyferry::uitest::ShellHarness;

void pause(int milliseconds) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < milliseconds) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
}

bool waitForTray(int milliseconds) {
    QElapsedTimer timer;
    timer.start();
    while (!QSystemTrayIcon::isSystemTrayAvailable() && timer.elapsed() < milliseconds) {
        pause(50);
    }
    return QSystemTrayIcon::isSystemTrayAvailable();
}

// The number of distinct colours on a grid of samples: a blank capture has one.
int distinctColours(const QImage& image) {
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += 3) {
        for (int x = 0; x < image.width(); x += 3) {
            colours.insert(image.pixel(x, y));
        }
    }
    return static_cast<int>(colours.size());
}

class Photographer {
public:
    explicit Photographer(QString folder) : directory(std::move(folder)) { QDir().mkpath(directory); }

    void take(const QString& name) {
        pause(400);
        const QString path = QDir(directory).filePath(name + QStringLiteral(".png"));
        const QPixmap screen = QGuiApplication::primaryScreen()->grabWindow(0);
        const bool saved = screen.save(path, "PNG");
        const QImage readBack(path);
        const int colours = readBack.isNull() ? 0 : distinctColours(readBack);
        const bool good = saved && !readBack.isNull() && colours >= 16;
        std::printf("%s %s %dx%d, %d colours sampled\n", good ? "saved" : "BLANK OR MISSING", path.toUtf8().constData(),
                    readBack.width(), readBack.height(), colours);
        allGood = allGood && good;
    }

    // A window that never reached the screen spoils the screenshots that follow.
    void require(bool shown, const char* what) {
        if (!shown) {
            std::printf("NOT SHOWN: %s\n", what);
            allGood = false;
        }
    }

    bool allGood = true;

private:
    QString directory;
};

std::vector<keyferry::PairedPhone> threePhones() {
    return {ShellHarness::phone("p1", "Ada's iPhone"), ShellHarness::phone("p2", "Pixel 8"),
            ShellHarness::phone("p3", "")};
}

} // namespace

int main(int argc, char* argv[]) {
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    if (argc != 2) {
        std::fputs("usage: keyferry_ui_screenshots <output folder>\n", stderr);
        return 2;
    }
    const bool tray = waitForTray(5000);
    std::printf("system tray available: %s\n", tray ? "yes" : "no");
    Photographer photographer(QString::fromLocal8Bit(argv[1]));

    ShellHarness shell;
    AppDelegate& delegate = shell.launch({}, tray);
    shell.settle();
    photographer.require(QTest::qWaitForWindowExposed(&shell.mainWindow()), "main window");
    photographer.take(QStringLiteral("main-window-no-phones"));

    // The reports the service makes, played through the callbacks the shell installed.
    shell.service->onPhonesChanged(threePhones());
    shell.service->onStateChange(CompanionConnectionState::connected);
    photographer.take(QStringLiteral("main-window-three-phones-connected"));
    shell.service->onStateChange(CompanionConnectionState::permissionRequired);
    photographer.take(QStringLiteral("main-window-three-phones-permission-required"));
    shell.service->onStateChange(CompanionConnectionState::creatingCode);
    photographer.take(QStringLiteral("main-window-three-phones-creating-code"));

    shell.service->onStateChange(CompanionConnectionState::waitingForPhone);
    shell.service->onPairCode("482913", std::chrono::system_clock::now() + std::chrono::minutes(10));
    photographer.require(QTest::qWaitForWindowExposed(&shell.codeWindow()), "pairing-code window");
    photographer.take(QStringLiteral("pairing-code-window"));
    delegate.pairCodeWindow.close();

    const QRect icon = delegate.statusItem->geometry();
    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    const QPoint anchor = icon.isValid() ? icon.bottomLeft() + QPoint(0, 2) : QPoint(screen.right() - 260, 30);
    std::printf("tray icon at %d,%d %dx%d\n", icon.x(), icon.y(), icon.width(), icon.height());
    delegate.statusMenu->popup(anchor);
    photographer.require(QTest::qWaitForWindowExposed(delegate.statusMenu.get()), "tray menu");
    photographer.take(QStringLiteral("tray-menu-open"));
    delegate.statusMenu->hide();

    return photographer.allGood ? 0 : 1;
}
