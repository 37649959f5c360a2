#pragma once

#include "TestCertificates.h"
#include "TestHttpReply.h"
#include "TestHttpRequest.h"
#include "TestWebSocketPeer.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QSslServer>

#include <functional>
#include <optional>
#include <string>

namespace keyferry::testing {

// An HTTPS + WebSocket server on 127.0.0.1 that plays the Keyferry service under a test's control: each
// HTTP request gets the reply the handler returns (no reply: the connection stays silent; the default
// handler answers 404), and a request that asks for a WebSocket is accepted as a TestWebSocketPeer, which
// the test drives. Lives on the test's main thread and needs its event loop; stops listening and closes
// every connection when destroyed.
class TlsTestServer : public QObject {
public:
    using Handler = std::function<std::optional<TestHttpReply>(const TestHttpRequest&)>;

    explicit TlsTestServer(const TestCertificates& certificates);

    // Listens on 127.0.0.1 at `port` (0: a free one).
    bool listen(quint16 port = 0);
    quint16 port() const;
    // "https://127.0.0.1:<port>"
    std::string baseUrl() const;
    // "wss://127.0.0.1:<port>" + path
    std::string webSocketUrl(const std::string& path) const;

    void setHandler(Handler handler);
    QList<TestHttpRequest> requests() const;
    QList<TestHttpRequest> requestsTo(const QByteArray& path) const;

    // WebSockets accepted so far, in order; the server keeps owning them.
    qsizetype webSocketCount() const;
    TestWebSocketPeer& webSocket(qsizetype index) const;
    // Told each WebSocket as it is accepted.
    std::function<void(TestWebSocketPeer&)> onWebSocket;

private:
    void accept();
    std::optional<TestHttpReply> answer(const TestHttpRequest& request);
    void upgrade(QSslSocket& socket, const TestHttpRequest& request);

    QSslServer server_;
    Handler handler_;
    QList<TestHttpRequest> requests_;
    QList<QPointer<TestWebSocketPeer>> webSockets_;
};

} // namespace keyferry::testing
