#include "Assets.h"

#include "DesktopIntegration.h"
#include "Symbols.h"

#include <QImageReader>
#include <QPixmap>

namespace keyferry {

QIcon Assets::appIcon() {
    static const QIcon icon = loadAppIcon(DesktopIntegration::appIconPath());
    return icon;
}

QIcon Assets::loadAppIcon(const QString& path) {
    QImageReader reader(path);
    const QImage image = reader.read();
    if (!image.isNull()) {
        return QIcon(QPixmap::fromImage(image));
    }
    const QString fallback = QStringLiteral("waveform.and.mic");
    if (Symbols::exists(fallback)) {
        return Symbols::icon(fallback, Qt::black);
    }
    return QIcon();
}

} // namespace keyferry
