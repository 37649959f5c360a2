#pragma once

#include <QFont>

namespace keyferry {

// The desktop's interface font at the pixel sizes the windows are laid out in. Main thread only.
class SystemFonts {
public:
    SystemFonts() = delete;

    static QFont system(int pixelSize, QFont::Weight weight = QFont::Normal);

    // The interface font, with figures of equal width (the usual default of desktop fonts; fixed-pitch
    // digits are asked for explicitly where the font offers the choice).
    static QFont monospacedDigit(int pixelSize, QFont::Weight weight = QFont::Normal);
};

} // namespace keyferry
