#pragma once

#include <QDateTime>
#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>
#include <memory>

class QLabel;
class QWidget;

namespace keyferry {

class SerialQueue;

// The "Pair a phone" window: the application icon, the pairing code in large digits, a status line (the
// expiry time, an error in red, or "Phone paired") and "Close". Shown over the main window as its child
// (a transient window kept above it, centred on it) and detached again when it closes.
//
// Owns its window and labels (Qt parent ownership); the window is built on first use (window() or show()),
// then reused for every code; until then the label pointers are null. The shell's main-thread queue must
// outlive it. Main thread only.
class PairCodeWindowController : public QObject {
public:
    static constexpr int width = 400;
    static constexpr int height = 270;
    static constexpr double pairedCloseDelay = 0.7;

    explicit PairCodeWindowController(SerialQueue& shellQueue);
    ~PairCodeWindowController() override;

    // Called each time the window is about to close.
    std::function<void()> onClose;

    QLabel* codeLabel = nullptr;
    QLabel* statusLabel = nullptr;
    // The window this one is shown over (attached to) while it is open; written by the controller only.
    QPointer<QWidget> parentWindow;

    // The window, built first if it is not yet.
    QWidget* window();
    // Whether the window is on screen (false while it is not built).
    bool isOpen() const;
    bool isBuilt() const { return windowWidget != nullptr; }

    // Shows `code` (six numerals as 3 + two blanks + 3, anything else as received) and its expiry, over
    // `over` when given, else centred on the screen.
    void show(const QString& code, const QDateTime& expiresAt, QWidget* over);

    // Says "Phone paired" and closes the window 0.7 seconds later.
    void setPaired();

    // The "Close" button.
    void closeWindow();
    void close();

    // The code as shown: the numerals (characters with a Unicode numeric type) of a six-numeral code grouped
    // 3 + two blanks + 3, anything else unchanged.
    static QString formattedCode(const QString& code);
    // "Expires at " and the time in the locale's short time format.
    static QString expiryLine(const QDateTime& expiresAt);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void build();
    void configureWindow();
    void windowWillClose();
    void attach(QWidget& over);
    void detach();

    SerialQueue& shellQueue;
    std::unique_ptr<QWidget> windowWidget;
};

} // namespace keyferry
