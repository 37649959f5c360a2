#include "ElidedLabel.h"

#include <QPainter>

namespace keyferry {

ElidedLabel::ElidedLabel(const QString& text, QWidget* parent) : QLabel(text, parent) {
    setTextFormat(Qt::PlainText);
    setWordWrap(false);
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
}

QString ElidedLabel::displayedText() const {
    return fontMetrics().elidedText(text(), Qt::ElideRight, contentsRect().width());
}

QSize ElidedLabel::minimumSizeHint() const {
    return {0, QLabel::minimumSizeHint().height()};
}

void ElidedLabel::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(contentsRect(), static_cast<int>(alignment()) | Qt::TextSingleLine, displayedText());
}

} // namespace keyferry
