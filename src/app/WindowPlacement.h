#pragma once

class QWidget;

namespace keyferry {

// Places top-level windows by their frames. Main thread only; a window without a screen stays where it is.
class WindowPlacement {
public:
    WindowPlacement() = delete;

    // Centres `window` on the available area of its screen (the primary screen before it has one).
    static void centreOnScreen(QWidget& window);

    // Moves `window` so that its centre lies on the centre of `over`.
    static void centreOver(QWidget& window, const QWidget& over);
};

} // namespace keyferry
