#pragma once

#include <QLabel>

namespace keyferry {

// A one-line label that cuts its text at the tail with an ellipsis when it is too narrow, instead of
// growing. text() stays the whole text; displayedText() is what is drawn. Main thread only.
class ElidedLabel : public QLabel {
public:
    explicit ElidedLabel(const QString& text, QWidget* parent = nullptr);

    QString displayedText() const;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace keyferry
