#include "FlippedView.h"

#include <QVBoxLayout>

namespace keyferry {

FlippedView::FlippedView(QWidget* parent) : QWidget(parent), content(new QVBoxLayout) {
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->setSpacing(0);
    content->setContentsMargins(0, 0, 0, 0);
    outer->addLayout(content);
    outer->addStretch(1);
}

} // namespace keyferry
