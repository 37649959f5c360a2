#include "SystemColors.h"

#include <QApplication>
#include <QPalette>
#include <QWidget>

namespace keyferry {

namespace {

QPalette palette() {
    return QApplication::palette();
}

bool isDark() {
    return palette().color(QPalette::Window).lightness() < 128;
}

QColor withAlpha(QColor color, int alpha) {
    color.setAlpha(alpha);
    return color;
}

} // namespace

QColor SystemColors::windowBackground() {
    return palette().color(QPalette::Window);
}

QColor SystemColors::controlBackground() {
    return palette().color(QPalette::Base);
}

QColor SystemColors::separator() {
    return withAlpha(palette().color(QPalette::WindowText), 38);
}

QColor SystemColors::label() {
    return palette().color(QPalette::WindowText);
}

QColor SystemColors::secondaryLabel() {
    return withAlpha(palette().color(QPalette::WindowText), 140);
}

QColor SystemColors::red() {
    return isDark() ? QColor(255, 69, 58) : QColor(255, 59, 48);
}

QColor SystemColors::green() {
    return isDark() ? QColor(48, 209, 88) : QColor(40, 167, 69);
}

QColor SystemColors::orange() {
    return isDark() ? QColor(255, 159, 10) : QColor(245, 140, 0);
}

QColor SystemColors::blue() {
    return isDark() ? QColor(10, 132, 255) : QColor(0, 122, 255);
}

void SystemColors::setTextColor(QWidget& widget, const QColor& color) {
    QPalette colored = widget.palette();
    colored.setColor(QPalette::WindowText, color);
    colored.setColor(QPalette::Text, color);
    widget.setPalette(colored);
}

QColor SystemColors::textColor(const QWidget& widget) {
    return widget.palette().color(QPalette::WindowText);
}

} // namespace keyferry
