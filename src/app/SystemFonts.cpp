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
    QFont font = system(pixelSize, weight);
    font.setStyleHint(font.styleHint(), QFont::PreferDefault);
    return font;
}

} // namespace keyferry
