#include "DesktopIntegration.h"

#include "AccessibilitySettings.h"
#include "ApplicationActivation.h"
#include "Assets.h"
#include "BundleResources.h"
#include "LocalizedHostName.h"
#include "ReopenEvents.h"
#include "Symbols.h"

#include <utility>

namespace keyferry {

void DesktopIntegration::prepareApplication() {
    ApplicationActivation::becomeAccessory();
}

void DesktopIntegration::activateApplication() {
    ApplicationActivation::activateIgnoringOtherApps();
}

QIcon DesktopIntegration::trayIcon() {
    return Symbols::templateIcon(QStringLiteral("waveform.and.mic"));
}

bool DesktopIntegration::openAccessibilitySettings() {
    return AccessibilitySettings::open();
}

void DesktopIntegration::onReopen(std::function<void()> handler) {
    if (handler) {
        ReopenEvents::install(std::move(handler));
    } else {
        ReopenEvents::uninstall();
    }
}

std::string DesktopIntegration::computerName() {
    return LocalizedHostName::current();
}

QString DesktopIntegration::appIconPath() {
    const auto bundled = BundleResources::path("keyferry-app-icon", "png");
    return bundled ? QString::fromStdString(bundled->string()) : QString::fromLatin1(Assets::appIconResource);
}

} // namespace keyferry
