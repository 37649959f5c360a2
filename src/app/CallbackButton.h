#pragma once

#include <QToolButton>

#include <functional>

namespace keyferry {

// A borderless image button that calls `onPress` each time it is pressed (nothing when unset).
// Main thread only.
class CallbackButton : public QToolButton {
    Q_OBJECT

public:
    explicit CallbackButton(QWidget* parent = nullptr);

    std::function<void()> onPress;

private:
    void pressed();
};

} // namespace keyferry
