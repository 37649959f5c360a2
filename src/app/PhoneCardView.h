#pragma once

#include "ApiRecords.h"
#include "CardView.h"

#include <QColor>
#include <QString>

#include <functional>

class QLabel;

namespace keyferry {

class CallbackButton;
class ElidedLabel;

// The line a phone card shows under the name: the computer's connection state, in words and colour.
struct PhoneStatus {
    QString text;
    QColor color;
};

// One paired phone in the list: phone symbol, name, status line and a remove button. Shows only the
// phone's name. The remove button calls `onRemove` each time it is pressed, without asking. Owns its
// child widgets (Qt parent ownership). Main thread only.
class PhoneCardView : public CardView {
    Q_OBJECT

public:
    static constexpr int cardHeight = 82;
    static constexpr const char* unnamedPhone = "Keyferry phone";

    PhoneCardView(const PairedPhone& phone, const PhoneStatus& status, std::function<void()> onRemove,
                  QWidget* parent = nullptr);

    QLabel& iconView() const { return *icon; }
    ElidedLabel& nameLabel() const { return *name; }
    ElidedLabel& statusLabel() const { return *status; }
    CallbackButton& removeButton() const { return *remove; }

private:
    QLabel* icon;
    ElidedLabel* name;
    ElidedLabel* status;
    CallbackButton* remove;
};

} // namespace keyferry
