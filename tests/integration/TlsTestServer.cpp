#include "TlsTestServer.h"

#include "TlsTestConnection.h"

#include <QCryptographicHash>
#include <QSslKey>

namespace keyferry::testing {

namespace {

QByteArray acceptKey(const QByteArray& key) {
    const QByteArray magic = "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    return QCryptographicHash::hash(key + magic, QCryptographicHash::Sha1).toBase64();
}

} // namespace

TlsTestServer::TlsTestServer(const TestCertificates& certificates)
    : handler_([](const TestHttpRequest&) {
          return TestHttpReply{404, "not found", {}, {}};
      }) {
    auto configuration = QSslConfiguration::defaultConfiguration();
    configuration.setLocalCertificate(QSslCertificate(certificates.serverCertificatePem(), QSsl::Pem));
    configuration.setPrivateKey(QSslKey(certificates.serverKeyPem(), QSsl::Ec, QSsl::Pem));
    configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
    server_.setSslConfiguration(configuration);
    connect(&server_, &QSslServer::pendingConnectionAvailable, this, &TlsTestServer::accept);
}

bool TlsTestServer::listen(quint16 port) {
    return server_.listen(QHostAddress::LocalHost, port);
}

quint16 TlsTestServer::port() const {
    return server_.serverPort();
}

std::string TlsTestServer::baseUrl() const {
    return "https://127.0.0.1:" + std::to_string(port());
}

std::string TlsTestServer::webSocketUrl(const std::string& path) const {
    return "wss://127.0.0.1:" + std::to_string(port()) + path;
}

void TlsTestServer::setHandler(Handler handler) {
    handler_ = std::move(handler);
}

QList<TestHttpRequest> TlsTestServer::requests() const {
    return requests_;
}

QList<TestHttpRequest> TlsTestServer::requestsTo(const QByteArray& path) const {
    QList<TestHttpRequest> matching;
    for (const auto& request : requests_) {
        if (request.path == path) {
            matching.append(request);
        }
    }
    return matching;
}

qsizetype TlsTestServer::webSocketCount() const {
    return webSockets_.size();
}

TestWebSocketPeer& TlsTestServer::webSocket(qsizetype index) const {
    return *webSockets_.at(index);
}

void TlsTestServer::accept() {
    while (server_.hasPendingConnections()) {
        auto* socket = qobject_cast<QSslSocket*>(server_.nextPendingConnection());
        new TlsTestConnection(
            *socket, [this](const TestHttpRequest& request) { return answer(request); },
            [this](QSslSocket& upgraded, const TestHttpRequest& request) { upgrade(upgraded, request); }, *this);
    }
}

std::optional<TestHttpReply> TlsTestServer::answer(const TestHttpRequest& request) {
    requests_.append(request);
    return handler_(request);
}

void TlsTestServer::upgrade(QSslSocket& socket, const TestHttpRequest& request) {
    requests_.append(request);
    socket.write("HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                 "Sec-WebSocket-Accept: " +
                 acceptKey(request.header("Sec-WebSocket-Key")) + "\r\n\r\n");
    auto* peer = new TestWebSocketPeer(socket, request, *this);
    webSockets_.append(peer);
    if (onWebSocket) {
        onWebSocket(*peer);
    }
}

} // namespace keyferry::testing
