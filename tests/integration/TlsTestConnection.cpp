#include "TlsTestConnection.h"

namespace keyferry::testing {

TlsTestConnection::TlsTestConnection(QSslSocket& socket, Answer answer, Upgrade upgrade, QObject& parent)
    : QObject(&parent), socket_(socket), answer_(std::move(answer)), upgrade_(std::move(upgrade)) {
    socket_.setParent(this);
    connect(&socket_, &QSslSocket::readyRead, this, &TlsTestConnection::readRequests);
    connect(&socket_, &QSslSocket::disconnected, this, &QObject::deleteLater);
    connect(&trickleTimer_, &QTimer::timeout, this, &TlsTestConnection::trickle);
    readRequests();
}

void TlsTestConnection::readRequests() {
    buffer_ += socket_.readAll();
    while (!silent_) {
        auto request = takeRequest();
        if (!request) {
            return;
        }
        if (request->header("Upgrade").compare("websocket", Qt::CaseInsensitive) == 0) {
            disconnect(&socket_, nullptr, this, nullptr);
            upgrade_(socket_, *request); // the socket now belongs to its WebSocket peer
            deleteLater();
            return;
        }
        if (const auto answer = answer_(*request)) {
            reply(*answer);
        } else {
            silent_ = true;
        }
    }
}

std::optional<TestHttpRequest> TlsTestConnection::takeRequest() {
    const auto headEnd = buffer_.indexOf("\r\n\r\n");
    if (headEnd < 0) {
        return std::nullopt;
    }
    const auto lines = buffer_.left(headEnd).split('\n');
    TestHttpRequest request;
    const auto requestLine = lines.first().trimmed().split(' ');
    request.method = requestLine.value(0);
    request.path = requestLine.value(1);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const auto colon = lines[i].indexOf(':');
        if (colon > 0) {
            request.headers.append({lines[i].left(colon).trimmed(), lines[i].mid(colon + 1).trimmed()});
        }
    }
    const auto length = request.header("Content-Length").toLongLong();
    if (buffer_.size() < headEnd + 4 + length) {
        return std::nullopt;
    }
    request.body = buffer_.mid(headEnd + 4, length);
    buffer_.remove(0, headEnd + 4 + length);
    return request;
}

void TlsTestConnection::reply(const TestHttpReply& answer) {
    QByteArray head = "HTTP/1.1 " + QByteArray::number(answer.status) + " Scripted\r\n";
    head += "Content-Length: " + QByteArray::number(answer.body.size()) + "\r\n";
    for (const auto& [name, value] : answer.headers) {
        head += name + ": " + value + "\r\n";
    }
    head += "\r\n";
    if (answer.trickleInterval.count() > 0) {
        socket_.write(head);
        trickling_ += answer.body;
        trickleTimer_.start(answer.trickleInterval);
        return;
    }
    socket_.write(head + answer.body);
}

void TlsTestConnection::trickle() {
    if (trickling_.isEmpty()) {
        trickleTimer_.stop();
        return;
    }
    socket_.write(trickling_.left(1));
    trickling_.remove(0, 1);
}

} // namespace keyferry::testing
