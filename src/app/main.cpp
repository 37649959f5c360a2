// Keyferry's entry point: one copy per user, the service on the platform's adapters, the shell, and the
// event loop. "--background" starts it with only the tray item (the form the login registration uses).
#include "AppDelegate.h"
#include "PlatformPorts.h"
#include "QtShellScheduler.h"
#include "ServiceAddress.h"
#include "SingleInstance.h"

#include <QApplication>
#include <QSysInfo>
#include <QSystemTrayIcon>
#include <QTimer>

namespace {

std::string computerName() {
    const QString host = QSysInfo::machineHostName();
    return host.isEmpty() ? std::string("computer") : host.toStdString();
}

keyferry::QtTrust serviceTrust() {
    const std::string authority = keyferry::serviceCertificateAuthorityPem;
    return authority.empty() ? keyferry::QtTrust::systemStore() : keyferry::QtTrust::systemStoreAnd(authority);
}

bool anyWindowVisible() {
    for (const QWidget* window : QApplication::topLevelWidgets()) {
        if (window->isVisible()) {
            return true;
        }
    }
    return false;
}

} // namespace

int main(int argc, char* argv[]) {
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Keyferry"));
    QApplication::setDesktopFileName(QStringLiteral("keyferry"));
    // A tray application: closing its window does not end it.
    QApplication::setQuitOnLastWindowClosed(false);

    keyferry::SingleInstance instance;
    if (instance.notifyRunningInstance()) {
        return 0;
    }
    instance.listen();

    keyferry::PlatformPorts platform(serviceTrust());
    keyferry::QtShellScheduler scheduler;
    {
        auto service = keyferry::CompanionService::make(platform.ports(), KEYFERRY_SERVICE_URL, computerName());
        keyferry::AppDelegate delegate(service, platform.accessibility(), scheduler, QApplication::arguments(),
                                       QSystemTrayIcon::isSystemTrayAvailable());
        instance.onReopen = [&delegate] { delegate.applicationShouldHandleReopen(anyWindowVisible()); };
        QObject::connect(&application, &QCoreApplication::aboutToQuit, &delegate,
                         &keyferry::AppDelegate::applicationWillTerminate);
        QTimer::singleShot(0, &delegate, &keyferry::AppDelegate::applicationDidFinishLaunching);
        QApplication::exec();
        instance.onReopen = nullptr;
        platform.finishQueuedWork(std::chrono::milliseconds(500));
    }
    return 0;
}
