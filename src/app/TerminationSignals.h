#pragma once

#include <QObject>

#include <functional>

class QSocketNotifier;

namespace keyferry {

// Turns SIGTERM, SIGINT and SIGHUP (logout, Ctrl+C, a closed terminal) into an orderly quit on the main
// thread, so that the application's termination steps run as they do for "Quit Keyferry". One per
// process, made on the main thread after the application object; the signal handlers only write one
// byte to a socket pair, which is all a handler may safely do. If the socket pair cannot be made, the
// signals keep their default effect.
class TerminationSignals : public QObject {
public:
    explicit TerminationSignals(std::function<void()> onTerminate);
    ~TerminationSignals() override;

    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;

private:
    void received();

    std::function<void()> onTerminate;
    QSocketNotifier* notifier = nullptr;
};

} // namespace keyferry
