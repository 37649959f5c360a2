#pragma once

#include <QMessageBox>
#include <QString>
#include <QStringList>

namespace keyferry::uitest {

// Answers the next modal alert (a QMessageBox) by clicking the button with the given title, as soon as it
// is on screen, and remembers what the alert showed. Main thread only.
class AlertAnswerer {
public:
    explicit AlertAnswerer(QString buttonToPress);

    bool seen = false;
    QString text;
    QString informativeText;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QStringList buttons; // in the order they were added
    QString defaultButton;

private:
    void answer();

    QString button;
};

} // namespace keyferry::uitest
