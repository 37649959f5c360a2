#include "QtWebSocketFactory.h"

#include "QtWebSocketTask.h"

namespace keyferry {

QtWebSocketFactory::QtWebSocketFactory(QtSerialQueue& queue, const QtTrust& trust, QtWebSocketLimits limits)
    : queue_(queue), tls_(trust.sslConfiguration()), limits_(limits) {}

std::shared_ptr<WebSocketTask> QtWebSocketFactory::makeTask(const WebSocketRequest& request) {
    return std::make_shared<QtWebSocketTask>(queue_, tls_, request, limits_);
}

} // namespace keyferry
