#include "Symbols.h"

#include <QFile>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>

#include <cmath>

namespace keyferry {

namespace {

QImage render(const QString& name, int pixels) {
    QSvgRenderer renderer(Symbols::resourcePath(name));
    if (!renderer.isValid() || pixels <= 0) {
        return {};
    }
    QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter, QRectF(0, 0, pixels, pixels));
    return image;
}

// The shapes of `image` (its alpha) filled with `color`.
QImage filled(QImage image, const QColor& color) {
    if (image.isNull()) {
        return image;
    }
    QPainter painter(&image);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(image.rect(), color);
    return image;
}

QImage tintedImage(const QString& name, const QColor& color, int pixels) {
    return filled(render(name, pixels), color);
}

// The sizes an icon carries; the build renders the tray symbol at the same ones (src/app/CMakeLists.txt).
constexpr int iconSizes[] = {16, 22, 24, 32, 44, 48, 64, 128};

} // namespace

QString Symbols::resourcePath(const QString& name) {
    return QStringLiteral(":/symbols/") + name + QStringLiteral(".svg");
}

bool Symbols::exists(const QString& name) {
    return QFile::exists(resourcePath(name));
}

int Symbols::drawingSize(qreal pointSize) {
    // The symbols' artwork fills about five sixths of their square, like a glyph in its em box.
    return static_cast<int>(std::lround(pointSize * 1.25));
}

QPixmap Symbols::tinted(const QString& name, const QColor& color, qreal pointSize, qreal devicePixelRatio) {
    const int logical = drawingSize(pointSize);
    QImage image = tintedImage(name, color, static_cast<int>(std::lround(logical * devicePixelRatio)));
    if (image.isNull()) {
        return {};
    }
    image.setDevicePixelRatio(devicePixelRatio);
    return QPixmap::fromImage(image);
}

QIcon Symbols::icon(const QString& name, const QColor& color) {
    QIcon icon;
    for (const int pixels : iconSizes) {
        const QImage image = tintedImage(name, color, pixels);
        if (!image.isNull()) {
            icon.addPixmap(QPixmap::fromImage(image));
        }
    }
    return icon;
}

QString Symbols::prerenderedPath(const QString& name, int pixels) {
    return QStringLiteral(":/symbols/") + name + QStringLiteral("/") + QString::number(pixels) + QStringLiteral(".png");
}

QIcon Symbols::prerenderedIcon(const QString& name, const QColor& color) {
    QIcon icon;
    for (const int pixels : iconSizes) {
        const QImage image(prerenderedPath(name, pixels));
        if (!image.isNull()) {
            icon.addPixmap(
                QPixmap::fromImage(filled(image.convertToFormat(QImage::Format_ARGB32_Premultiplied), color)));
        }
    }
    return icon.isNull() ? Symbols::icon(name, color) : icon;
}

QIcon Symbols::templateIcon(const QString& name) {
    QIcon icon = Symbols::icon(name, Qt::black);
    icon.setIsMask(true);
    return icon;
}

} // namespace keyferry
