#pragma once

#include "TestHttpReply.h"
#include "TestHttpRequest.h"

#include <QObject>
#include <QSslSocket>
#include <QTimer>

#include <functional>
#include <optional>

namespace keyferry::testing {

// One HTTP/1.1 connection of the TLS test server: parses requests one after another (keep-alive), asks
// for each reply, and hands the socket over when a request asks to become a WebSocket. A reply that is
// absent is never sent: the connection then stays silent. Owned by the server (Qt parent).
class TlsTestConnection : public QObject {
public:
    using Answer = std::function<std::optional<TestHttpReply>(const TestHttpRequest&)>;
    using Upgrade = std::function<void(QSslSocket&, const TestHttpRequest&)>;

    TlsTestConnection(QSslSocket& socket, Answer answer, Upgrade upgrade, QObject& parent);

private:
    void readRequests();
    std::optional<TestHttpRequest> takeRequest();
    void reply(const TestHttpReply& answer);
    void trickle();

    QSslSocket& socket_;
    const Answer answer_;
    const Upgrade upgrade_;
    QByteArray buffer_;
    bool silent_ = false;
    QByteArray trickling_;
    QTimer trickleTimer_;
};

} // namespace keyferry::testing
