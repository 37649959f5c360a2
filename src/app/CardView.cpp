#include "CardView.h"

#include "SystemColors.h"

#include <QPainter>
#include <QPen>

namespace keyferry {

CardView::CardView(QWidget* parent) : QWidget(parent) {}

void CardView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(SystemColors::separator(), borderWidth));
    painter.setBrush(SystemColors::controlBackground());
    const qreal inset = borderWidth / 2.0;
    painter.drawRoundedRect(QRectF(rect()).adjusted(inset, inset, -inset, -inset), cornerRadius, cornerRadius);
}

} // namespace keyferry
