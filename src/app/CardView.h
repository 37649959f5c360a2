#pragma once

#include <QWidget>

namespace keyferry {

// The card look shared by the phone card and the placeholder: the control-background colour inside a
// one-pixel separator-coloured border with corners of radius 10. Main thread only.
class CardView : public QWidget {
    Q_OBJECT

public:
    explicit CardView(QWidget* parent = nullptr);

    static constexpr int cornerRadius = 10;
    static constexpr int borderWidth = 1;

protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace keyferry
