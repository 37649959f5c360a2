#pragma once

#include "QtSerialQueue.h"
#include "QtTrust.h"
#include "QtWebSocketLimits.h"
#include "WebSocketTask.h"

namespace keyferry {

// Makes QtWebSocketTasks on one queue with one trust setting and one set of limits. Owned by the
// application (or a test); the queue must outlive it and every task it made. Callable from any thread.
class QtWebSocketFactory : public WebSocketFactory {
public:
    QtWebSocketFactory(QtSerialQueue& queue, const QtTrust& trust, QtWebSocketLimits limits = {});

    std::shared_ptr<WebSocketTask> makeTask(const WebSocketRequest& request) override;

private:
    QtSerialQueue& queue_;
    const QSslConfiguration tls_;
    const QtWebSocketLimits limits_;
};

} // namespace keyferry
