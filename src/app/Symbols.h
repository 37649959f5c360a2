#pragma once

#include <QColor>
#include <QIcon>
#include <QPixmap>
#include <QString>

namespace keyferry {

// Keyferry's own monochrome symbols ("iphone", "iphone.slash", "trash", "waveform.and.mic"), drawn as SVG
// in the application's resources and tinted when drawn. Main thread only; a missing symbol gives a null
// pixmap or icon, never an error.
class Symbols {
public:
    Symbols() = delete;

    static QString resourcePath(const QString& name);
    static bool exists(const QString& name);

    // The symbol at `pointSize` (the symbol's nominal size, as for a font; the drawing is a little larger),
    // filled with `color`, for a screen with `devicePixelRatio`.
    static QPixmap tinted(const QString& name, const QColor& color, qreal pointSize, qreal devicePixelRatio);

    // The symbol as an icon in `color`, at the usual small sizes.
    static QIcon icon(const QString& name, const QColor& color);

    // The same icon from the images the build rendered (the tray symbol only), so that drawing it needs no
    // SVG renderer; a symbol without them is drawn as icon() draws it.
    static QIcon prerenderedIcon(const QString& name, const QColor& color);
    static QString prerenderedPath(const QString& name, int pixels);

    // The symbol as a template (mask) icon: black shapes whose alpha is all that matters, for a desktop
    // that colours tray icons itself.
    static QIcon templateIcon(const QString& name);

    // The side of the square a symbol of `pointSize` is drawn in.
    static int drawingSize(qreal pointSize);
};

} // namespace keyferry
