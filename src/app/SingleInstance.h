#pragma once

#include <QObject>
#include <QString>

#include <functional>

class QLocalServer;

namespace keyferry {

// Keeps Keyferry to one running copy per user. A copy started while another runs tells the running one to
// reopen (present its window) and then exits; the running copy listens on a per-user local socket in the
// user's runtime folder. Owned by the entry point; main thread only. Failures are not errors: a socket
// that cannot be opened just leaves the copy running on its own.
class SingleInstance : public QObject {
public:
    // The per-user socket of the default instance: in $XDG_RUNTIME_DIR, else the temporary folder with the
    // user id in the name.
    static QString defaultName();

    explicit SingleInstance(QString serverName = defaultName());
    ~SingleInstance() override;

    // True when another copy is running and has acknowledged the request to reopen; waits at most
    // `timeoutMilliseconds` for it.
    bool notifyRunningInstance(int timeoutMilliseconds = 2000) const;

    // Starts answering later copies (removing a socket left behind by a copy that crashed). False when the
    // socket could not be opened.
    bool listen();

    // Called on the main thread each time a later copy asks this one to reopen.
    std::function<void()> onReopen;

    QString serverName() const { return name; }

private:
    void accept();

    QString name;
    QLocalServer* server;
};

} // namespace keyferry
