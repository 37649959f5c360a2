#include "DesktopIntegration.h"

#include "Assets.h"
#include "Symbols.h"
#include "SystemColors.h"

#include <QSysInfo>

namespace keyferry {

void DesktopIntegration::prepareApplication() {}

void DesktopIntegration::activateApplication() {}

QIcon DesktopIntegration::trayIcon() {
    // Tray hosts here seldom recolour icons: draw the symbol in the desktop's text colour, still marked as a
    // mask for those that do.
    QIcon symbol = Symbols::prerenderedIcon(QStringLiteral("waveform.and.mic"), SystemColors::label());
    symbol.setIsMask(true);
    return symbol;
}

bool DesktopIntegration::openAccessibilitySettings() {
    // There is no settings pane to open: typing becomes possible when the display allows it.
    return false;
}

void DesktopIntegration::onReopen(std::function<void()>) {}

std::string DesktopIntegration::computerName() {
    return QSysInfo::machineHostName().toStdString();
}

QString DesktopIntegration::appIconPath() {
    return QString::fromLatin1(Assets::appIconResource);
}

} // namespace keyferry
