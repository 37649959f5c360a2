#include "QtWebSocketTask.h"

#include <QMetaObject>
#include <QNetworkRequest>
#include <QTimer>
#include <QUrl>

namespace keyferry {

namespace {

std::string closeDescription(const QWebSocket& socket) {
    return "closed with code " + std::to_string(static_cast<int>(socket.closeCode())) + " " +
           socket.closeReason().toStdString();
}

// A socket whose task is gone ends its closing handshake, or is cut after the grace, then goes away.
void retire(QWebSocket& socket, std::chrono::milliseconds grace) {
    if (socket.state() == QAbstractSocket::UnconnectedState) {
        socket.deleteLater();
        return;
    }
    QObject::connect(&socket, &QWebSocket::disconnected, &socket, &QObject::deleteLater);
    const auto goAway = [&socket] { socket.close(QWebSocketProtocol::CloseCodeGoingAway); };
    if (socket.state() == QAbstractSocket::ConnectedState) {
        goAway();
    } else {
        QObject::connect(&socket, &QWebSocket::connected, &socket, goAway);
    }
    QTimer::singleShot(grace, &socket, [&socket] {
        socket.abort();
        socket.deleteLater();
    });
}

} // namespace

QtWebSocketTask::QtWebSocketTask(QtSerialQueue& queue, QSslConfiguration tls, WebSocketRequest request,
                                 QtWebSocketLimits limits)
    : queue_(queue), tls_(std::move(tls)), request_(std::move(request)), limits_(limits) {}

QtWebSocketTask::~QtWebSocketTask() {
    // Nothing else refers to this task any more, so reading the pointer here races with nothing.
    if (QWebSocket* socket = socket_.data()) {
        QMetaObject::invokeMethod(
            socket, [socket, grace = limits_.closingGrace] { retire(*socket, grace); }, Qt::QueuedConnection);
    }
}

template <typename Work> void QtWebSocketTask::onQueue(Work work) {
    queue_.post([self = shared_from_this(), work = std::move(work)]() mutable { work(*self); });
}

void QtWebSocketTask::resume() {
    onQueue([](QtWebSocketTask& task) { task.open(); });
}

void QtWebSocketTask::receive(std::function<void(WebSocketReceiveResult)> completion) {
    onQueue([completion = std::move(completion)](QtWebSocketTask& task) mutable {
        task.receivers_.push_back(std::move(completion));
        task.deliverArrived();
    });
}

void QtWebSocketTask::sendText(std::string text, std::function<void(std::optional<WebSocketError>)> completion) {
    onQueue([text = std::move(text), completion = std::move(completion)](QtWebSocketTask& task) mutable {
        if (task.failure_) {
            task.completeLater(std::move(completion), task.failure_);
        } else if (!task.open_) {
            task.unsentTexts_.emplace_back(std::move(text), std::move(completion));
        } else {
            task.writeText(text, completion);
        }
    });
}

void QtWebSocketTask::sendPing(std::function<void(std::optional<WebSocketError>)> pongHandler) {
    onQueue([pongHandler = std::move(pongHandler)](QtWebSocketTask& task) mutable {
        if (task.failure_) {
            task.completeLater(std::move(pongHandler), task.failure_);
            return;
        }
        const auto number = task.nextPing_++;
        task.pings_.emplace(number, std::move(pongHandler));
        const auto seconds = std::chrono::duration<double>(task.limits_.pongDeadline).count();
        task.queue_.postAfter(seconds, [weakTask = task.weak_from_this(), number] {
            if (const auto alive = weakTask.lock()) {
                alive->pingExpired(number);
            }
        });
        if (task.open_) {
            task.writePing(number);
        } else {
            task.unsentPings_.push_back(number);
        }
    });
}

void QtWebSocketTask::cancel(int closeCode) {
    onQueue([closeCode](QtWebSocketTask& task) {
        if (task.failure_) {
            return;
        }
        task.fail("cancelled with code " + std::to_string(closeCode));
        if (task.socket_) {
            task.socket_->close(static_cast<QWebSocketProtocol::CloseCode>(closeCode));
        }
    });
}

void QtWebSocketTask::open() {
    if (socket_ || failure_) {
        return;
    }
    socket_ = new QWebSocket(QString(), QWebSocketProtocol::VersionLatest, &queue_.context());
    socket_->setSslConfiguration(tls_);
    socket_->setMaxAllowedIncomingMessageSize(limits_.largestIncomingMessage);
    socket_->setMaxAllowedIncomingFrameSize(limits_.largestIncomingMessage);
    watchSocket();
    QNetworkRequest request(QUrl(QString::fromStdString(request_.url)));
    for (const auto& [name, value] : request_.headers) {
        request.setRawHeader(QByteArray::fromStdString(name), QByteArray::fromStdString(value));
    }
    socket_->open(request);
    queue_.postAfter(request_.timeout, [weakTask = weak_from_this()] {
        if (const auto alive = weakTask.lock()) {
            alive->openingExpired();
        }
    });
}

void QtWebSocketTask::watchSocket() {
    QWebSocket* socket = socket_.data();
    const auto weakTask = weak_from_this();
    const auto forTask = [weakTask](auto action) {
        return [weakTask, action](auto&&... arguments) {
            if (const auto alive = weakTask.lock()) {
                action(*alive, arguments...);
            }
        };
    };
    QObject::connect(socket, &QWebSocket::connected, socket, forTask([](QtWebSocketTask& task) { task.opened(); }));
    QObject::connect(socket, &QWebSocket::textMessageReceived, socket,
                     forTask([](QtWebSocketTask& task, const QString& text) {
                         task.arrived({WebSocketMessage::Kind::text, text.toStdString()});
                     }));
    QObject::connect(socket, &QWebSocket::binaryMessageReceived, socket,
                     forTask([](QtWebSocketTask& task, const QByteArray& data) {
                         task.arrived({WebSocketMessage::Kind::binary, data.toStdString()});
                     }));
    QObject::connect(socket, &QWebSocket::pong, socket,
                     forTask([](QtWebSocketTask& task, quint64, const QByteArray& payload) { task.ponged(payload); }));
    const auto closing = forTask([](QtWebSocketTask& task) { task.fail(closeDescription(*task.socket_)); });
    QObject::connect(socket, &QWebSocket::aboutToClose, socket, closing);
    QObject::connect(socket, &QWebSocket::disconnected, socket, closing);
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
    const auto errorSignal = &QWebSocket::errorOccurred;
#else
    const auto errorSignal = qOverload<QAbstractSocket::SocketError>(&QWebSocket::error);
#endif
    QObject::connect(socket, errorSignal, socket, forTask([](QtWebSocketTask& task, QAbstractSocket::SocketError) {
                         task.fail(task.socket_->errorString().toStdString());
                     }));
}

void QtWebSocketTask::opened() {
    if (failure_) {
        return;
    }
    open_ = true;
    for (const auto& [text, completion] : std::exchange(unsentTexts_, {})) {
        writeText(text, completion);
    }
    for (const auto number : std::exchange(unsentPings_, {})) {
        writePing(number);
    }
}

void QtWebSocketTask::arrived(WebSocketMessage message) {
    if (failure_) {
        return;
    }
    arrived_.push_back(std::move(message));
    deliverArrived();
}

void QtWebSocketTask::deliverArrived() {
    while (!receivers_.empty() && (failure_ || !arrived_.empty())) {
        auto receiver = std::move(receivers_.front());
        receivers_.pop_front();
        WebSocketReceiveResult result = WebSocketError{};
        if (failure_) {
            result = *failure_;
        } else {
            result = std::move(arrived_.front());
            arrived_.pop_front();
        }
        queue_.post([receiver = std::move(receiver), result = std::move(result)] { receiver(result); });
    }
}

void QtWebSocketTask::writeText(const std::string& text, const ErrorCompletion& completion) {
    const auto payload = QString::fromStdString(text);
    const auto written = socket_->sendTextMessage(payload);
    if (written == payload.toUtf8().size()) {
        completeLater(completion, std::nullopt);
    } else {
        completeLater(completion, WebSocketError{"the text could not be sent"});
    }
}

void QtWebSocketTask::writePing(std::uint64_t number) {
    socket_->ping(QByteArray::number(static_cast<qulonglong>(number)));
}

void QtWebSocketTask::ponged(const QByteArray& payload) {
    bool isNumber = false;
    const auto number = payload.toULongLong(&isNumber);
    const auto ping = pings_.find(number);
    if (!isNumber || ping == pings_.end()) {
        return; // a pong for a ping that has already failed, or that is not ours
    }
    completeLater(std::move(ping->second), std::nullopt);
    pings_.erase(ping);
}

void QtWebSocketTask::pingExpired(std::uint64_t number) {
    const auto ping = pings_.find(number);
    if (ping == pings_.end()) {
        return;
    }
    completeLater(std::move(ping->second), WebSocketError{"no pong within the deadline"});
    pings_.erase(ping);
}

void QtWebSocketTask::openingExpired() {
    if (open_ || failure_) {
        return;
    }
    fail("the socket did not open in time");
    socket_->abort();
}

void QtWebSocketTask::fail(const std::string& why) {
    if (failure_) {
        return;
    }
    failure_ = WebSocketError{why};
    arrived_.clear();
    deliverArrived();
    for (auto& [text, completion] : std::exchange(unsentTexts_, {})) {
        completeLater(std::move(completion), failure_);
    }
    unsentPings_.clear();
    for (auto& [number, handler] : std::exchange(pings_, {})) {
        completeLater(std::move(handler), failure_);
    }
}

void QtWebSocketTask::completeLater(ErrorCompletion completion, std::optional<WebSocketError> result) {
    queue_.post([completion = std::move(completion), result = std::move(result)] { completion(result); });
}

} // namespace keyferry
