#include "TerminationSignals.h"

#include <QSocketNotifier>

#include <array>
#include <csignal>

#include <sys/socket.h>
#include <unistd.h>

namespace keyferry {

namespace {

std::array<int, 2> signalSockets{-1, -1};

extern "C" void forwardSignal(int) {
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(signalSockets[0], &byte, 1);
}

} // namespace

TerminationSignals::TerminationSignals(std::function<void()> terminate) : onTerminate(std::move(terminate)) {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalSockets.data()) != 0) {
        signalSockets = {-1, -1};
        return;
    }
    notifier = new QSocketNotifier(signalSockets[1], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &TerminationSignals::received);
    struct sigaction action {};
    action.sa_handler = forwardSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signalNumber : {SIGTERM, SIGINT, SIGHUP}) {
        ::sigaction(signalNumber, &action, nullptr);
    }
}

TerminationSignals::~TerminationSignals() {
    if (signalSockets[0] < 0) {
        return;
    }
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    for (const int signalNumber : {SIGTERM, SIGINT, SIGHUP}) {
        ::sigaction(signalNumber, &action, nullptr);
    }
    ::close(signalSockets[0]);
    ::close(signalSockets[1]);
    signalSockets = {-1, -1};
}

void TerminationSignals::received() {
    char byte = 0;
    [[maybe_unused]] const auto read = ::read(signalSockets[1], &byte, 1);
    if (onTerminate) {
        onTerminate();
    }
}

} // namespace keyferry
