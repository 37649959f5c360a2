#include "AlertAnswerer.h"

#include <QAbstractButton>
#include <QApplication>
#include <QPushButton>
#include <QTimer>

namespace keyferry::uitest {

AlertAnswerer::AlertAnswerer(QString buttonToPress) : button(std::move(buttonToPress)) {
    QTimer::singleShot(0, [this] { answer(); });
}

void AlertAnswerer::answer() {
    auto* alert = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (alert == nullptr) {
        QTimer::singleShot(10, [this] { answer(); });
        return;
    }
    seen = true;
    text = alert->text();
    informativeText = alert->informativeText();
    icon = alert->icon();
    for (QAbstractButton* candidate : alert->buttons()) {
        buttons.append(candidate->text());
    }
    defaultButton = alert->defaultButton() != nullptr ? alert->defaultButton()->text() : QString();
    for (QAbstractButton* candidate : alert->buttons()) {
        if (candidate->text() == button) {
            candidate->click();
            return;
        }
    }
    alert->reject();
}

} // namespace keyferry::uitest
