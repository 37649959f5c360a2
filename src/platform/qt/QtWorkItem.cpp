#include "QtWorkItem.h"

namespace keyferry {

void QtWorkItem::cancel() {
    cancelled_ = true;
}

bool QtWorkItem::isCancelled() const {
    return cancelled_;
}

} // namespace keyferry
