#include "CallbackButton.h"

namespace keyferry {

CallbackButton::CallbackButton(QWidget* parent) : QToolButton(parent) {
    setAutoRaise(true);
    setToolButtonStyle(Qt::ToolButtonIconOnly);
    setCursor(Qt::PointingHandCursor);
    connect(this, &QToolButton::clicked, this, &CallbackButton::pressed);
}

void CallbackButton::pressed() {
    if (onPress) {
        onPress();
    }
}

} // namespace keyferry
