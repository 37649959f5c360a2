#include "WindowPlacement.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

namespace keyferry {

namespace {

void centreOn(QWidget& window, const QPoint& centre) {
    const QRect frame = window.frameGeometry();
    window.move(centre.x() - frame.width() / 2, centre.y() - frame.height() / 2);
}

} // namespace

void WindowPlacement::centreOnScreen(QWidget& window) {
    const QScreen* screen = window.screen() != nullptr ? window.screen() : QGuiApplication::primaryScreen();
    if (screen != nullptr) {
        centreOn(window, screen->availableGeometry().center());
    }
}

void WindowPlacement::centreOver(QWidget& window, const QWidget& over) {
    centreOn(window, over.frameGeometry().center());
}

} // namespace keyferry
