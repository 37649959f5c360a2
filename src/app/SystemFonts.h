#pragma once

#include <QFont>

namespace keyferry {

// The desktop's interface font at the pixel sizes the windows are laid out in. Main thread only.
class SystemFonts {
public:
    SystemFonts() = delete;

    static QFont system(int pixelSize, QFont::Weight weight = QFont::Normal);

    // The interface font for figures that should keep their width as they change. Desktop interface fonts
    // draw figures of equal width by default, and this Qt offers no way to ask for them, so this is the
    // interface font itself.
    static QFont monospacedDigit(int pixelSize, QFont::Weight weight = QFont::Normal);
};

} // namespace keyferry
