#pragma once

#include <QWidget>

class QVBoxLayout;

namespace keyferry {

// The document widget of the phone list's scroll area: whatever is put in its `stack` starts at the top
// edge and the rest of the height stays empty, so the cards stack downwards and scroll vertically.
// Owns its layouts (Qt parent ownership). Main thread only.
class FlippedView : public QWidget {
public:
    explicit FlippedView(QWidget* parent = nullptr);

    // The column the content goes into.
    QVBoxLayout& stack() const { return *content; }

private:
    QVBoxLayout* content;
};

} // namespace keyferry
