// Keyferry's entry point: one copy per user, the service on the platform's adapters, the shell, and the
// event loop. "--background" starts it with only the tray item (the form the login registration uses).
#include "AppDelegate.h"
#include "DesktopIntegration.h"
#include "PlatformPorts.h"
#include "QtSerialQueue.h"
#include "ServiceAddress.h"
#include "SingleInstance.h"
#include "TerminationSignals.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QSystemTrayIcon>
#include <QTimer>

#include <chrono>

namespace {

keyferry::QtTrust serviceTrust() {
    const std::string authority = keyferry::serviceCertificateAuthorityPem;
    return authority.empty() ? keyferry::QtTrust::systemStore() : keyferry::QtTrust::systemStoreAnd(authority);
}

// At login the panel may come up after Keyferry: a background start gives the tray a few seconds to
// appear before the window stands in for it.
bool waitForSystemTray(std::chrono::milliseconds limit) {
    QElapsedTimer waited;
    waited.start();
    while (!QSystemTrayIcon::isSystemTrayAvailable() && waited.elapsed() < limit.count()) {
        QEventLoop pause;
        QTimer::singleShot(100, &pause, &QEventLoop::quit);
        pause.exec();
    }
    return QSystemTrayIcon::isSystemTrayAvailable();
}

bool anyWindowVisible() {
    for (const QWidget* window : QApplication::topLevelWidgets()) {
        if (window->isVisible()) {
            return true;
        }
    }
    return false;
}

// Runs the shell until the user (or the session) quits it.
void runShell(keyferry::SingleInstance& instance) {
    keyferry::PlatformPorts platform(serviceTrust());
    keyferry::QtSerialQueue shellQueue{keyferry::QtSerialQueue::OnCallingThread{}};
    auto service = keyferry::CompanionService::make(platform.ports(), KEYFERRY_SERVICE_URL,
                                                    keyferry::DesktopIntegration::computerName());
    const QStringList arguments = QApplication::arguments();
    const bool background = arguments.contains(QString::fromLatin1(keyferry::AppDelegate::backgroundArgument));
    const bool trayAvailable = waitForSystemTray(background ? std::chrono::seconds(5) : std::chrono::seconds(0));
    {
        keyferry::AppDelegate delegate(service, platform.accessibility(), shellQueue, arguments, trayAvailable);
        delegate.pairingWindow.setTypingHelp(QString::fromStdString(platform.typingMissing()));
        const auto reopen = [&delegate] { delegate.applicationShouldHandleReopen(anyWindowVisible()); };
        instance.onReopen = reopen;
        QObject::connect(qApp, &QCoreApplication::aboutToQuit, &delegate,
                         &keyferry::AppDelegate::applicationWillTerminate);
        QTimer::singleShot(0, &delegate, [&delegate, reopen] {
            delegate.applicationDidFinishLaunching();
            // Once the event loop runs, so that the system's own handler is replaced, not the other way round.
            keyferry::DesktopIntegration::onReopen(reopen);
        });
        QApplication::exec();
        keyferry::DesktopIntegration::onReopen(nullptr);
        instance.onReopen = nullptr;
    }
    // The socket's orderly close was queued by the termination steps; give it a moment to leave. Then the
    // network thread stops, so the service is released (when this returns) with nothing of it still running.
    platform.finishQueuedWork(std::chrono::milliseconds(500));
    platform.stopQueue();
}

} // namespace

int main(int argc, char* argv[]) {
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Keyferry"));
    QApplication::setDesktopFileName(QStringLiteral("keyferry"));
    // A tray application: closing its window does not end it.
    QApplication::setQuitOnLastWindowClosed(false);
    keyferry::DesktopIntegration::prepareApplication();
    const keyferry::TerminationSignals termination([] { QCoreApplication::quit(); });

    keyferry::SingleInstance instance;
    if (instance.notifyRunningInstance()) {
        return 0;
    }
    instance.listen();
    runShell(instance);
    return 0;
}
