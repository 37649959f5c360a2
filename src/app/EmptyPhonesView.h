#pragma once

#include "CardView.h"

class QLabel;

namespace keyferry {

// The placeholder of an empty phone list: a crossed-out phone over "No phones paired". Owns its child
// widgets (Qt parent ownership). Main thread only.
class EmptyPhonesView : public CardView {
    Q_OBJECT

public:
    static constexpr int placeholderHeight = 132;

    explicit EmptyPhonesView(QWidget* parent = nullptr);

    QLabel& iconView() const { return *icon; }
    QLabel& titleLabel() const { return *title; }

private:
    QLabel* icon;
    QLabel* title;
};

} // namespace keyferry
