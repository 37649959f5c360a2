#include "SystemFonts.h"

#include <QApplication>

namespace keyferry {

QFont SystemFonts::system(int pixelSize, QFont::Weight weight) {
    QFont font = QApplication::font();
    font.setPixelSize(pixelSize);
    font.setWeight(weight);
    return font;
}

QFont SystemFonts::monospacedDigit(int pixelSize, QFont::Weight weight) {
    return system(pixelSize, weight);
}

} // namespace keyferry
