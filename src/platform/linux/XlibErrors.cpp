#include "XlibErrors.h"

#include <mutex>

namespace keyferry {

namespace {

std::atomic<int> protocolErrors{0};

int countProtocolError(Display*, XErrorEvent*) {
    protocolErrors.fetch_add(1);
    return 0;
}

// A broken connection is reported to the process-wide handler first, then to the connection's own exit
// handler below; both return, so the loss only fails the calls.
int ignoreConnectionLoss(Display*) {
    return 0;
}

void markConnectionLost(Display*, void* data) {
    static_cast<std::atomic<bool>*>(data)->store(true);
}

} // namespace

void installXlibErrorHandlers() {
    static std::once_flag once;
    std::call_once(once, [] {
        XInitThreads();
        XSetErrorHandler(countProtocolError);
        XSetIOErrorHandler(ignoreConnectionLoss);
    });
}

int xlibProtocolErrors() {
    return protocolErrors.load();
}

void reportConnectionLoss(Display* display, std::atomic<bool>& lost) {
    XSetIOErrorExitHandler(display, markConnectionLost, &lost);
}

} // namespace keyferry
