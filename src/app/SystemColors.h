#pragma once

#include <QColor>

class QWidget;

namespace keyferry {

// The desktop palette's equivalents of the system colours the windows are drawn with. Grey tones come from
// the application palette; the four accent colours have a light and a dark variant, chosen by the
// lightness of the palette's window colour. Main thread only.
class SystemColors {
public:
    SystemColors() = delete;

    static QColor windowBackground();
    static QColor controlBackground();
    static QColor separator();
    static QColor label();
    static QColor secondaryLabel();
    static QColor red();
    static QColor green();
    static QColor orange();
    static QColor blue();

    // Sets the colour a label (or any widget) draws its text in.
    static void setTextColor(QWidget& widget, const QColor& color);
    static QColor textColor(const QWidget& widget);
};

} // namespace keyferry
