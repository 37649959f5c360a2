#pragma once

#include "HttpClient.h"
#include "QtSerialQueue.h"
#include "QtTrust.h"

#include <QNetworkAccessManager>
#include <QPointer>

#include <memory>

namespace keyferry {

// HTTP over one QNetworkAccessManager that lives on the queue's thread, with one trust setting (use one
// client per trust setting). Owned by the application (or a test); the queue must outlive it. send() may be
// called from any thread; the exchange and its completion run on the queue. Each request's limits hold:
// no progress for min(timeout, idleTimeout) seconds ends the exchange, and resourceTimeout bounds all of
// it, waiting for the network included. With waitsForConnectivity, a network that cannot be reached
// (connection refused, host not found, network unreachable: nothing was sent) is tried again after 0.25,
// 0.5, 1 and then every 2 seconds until that bound. Any HTTP status is a response; a failure without one is
// a TransportError; an exchange that ends cleanly without an HTTP status (data: URLs) is NotHttpResponse.
// Exchanges still running when the client is destroyed, or when the queue stops, are abandoned without
// completing.
class QtHttpClient : public HttpClient {
public:
    QtHttpClient(QtSerialQueue& queue, QtTrust trust);
    ~QtHttpClient() override;

    QtHttpClient(const QtHttpClient&) = delete;
    QtHttpClient& operator=(const QtHttpClient&) = delete;

    void send(HttpRequest request, std::function<void(HttpOutcome)> completion) override;

private:
    QtSerialQueue& queue_;
    const QSslConfiguration tls_;
    // Lives on the queue's thread, owned by the queue's context; cleared when the queue stops first.
    QPointer<QNetworkAccessManager> manager_;
};

} // namespace keyferry
