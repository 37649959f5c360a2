#pragma once

#include "QtSerialQueue.h"
#include "QtWebSocketLimits.h"
#include "WebSocketTask.h"

#include <QByteArray>
#include <QPointer>
#include <QSslConfiguration>
#include <QWebSocket>

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace keyferry {

// One client WebSocket on a QWebSocket that lives on the queue's thread. Shared by the caller and the work
// it has posted; every method may be called from any thread and only posts work to the queue, where every
// completion and pong handler then runs, never inside the call that asked for it. Sends and pings asked for
// before the socket is open wait for it. A ping fails when the socket fails first or no pong comes within
// the pong deadline. Once the socket has failed or been cancelled, messages not yet received are dropped
// and every receive, send and ping completes with an error. When the last owner lets the task go, an open
// socket is closed with 1001 (going away) and cut if the closing handshake is not over within the grace.
class QtWebSocketTask : public WebSocketTask, public std::enable_shared_from_this<QtWebSocketTask> {
public:
    QtWebSocketTask(QtSerialQueue& queue, QSslConfiguration tls, WebSocketRequest request, QtWebSocketLimits limits);
    ~QtWebSocketTask() override;

    QtWebSocketTask(const QtWebSocketTask&) = delete;
    QtWebSocketTask& operator=(const QtWebSocketTask&) = delete;

    void resume() override;
    void receive(std::function<void(WebSocketReceiveResult)> completion) override;
    void sendText(std::string text, std::function<void(std::optional<WebSocketError>)> completion) override;
    void sendPing(std::function<void(std::optional<WebSocketError>)> pongHandler) override;
    void cancel(int closeCode) override;

private:
    using ReceiveCompletion = std::function<void(WebSocketReceiveResult)>;
    using ErrorCompletion = std::function<void(std::optional<WebSocketError>)>;

    template <typename Work> void onQueue(Work work);
    void open();
    void watchSocket();
    void opened();
    void arrived(WebSocketMessage message);
    void deliverArrived();
    void writeText(const std::string& text, const ErrorCompletion& completion);
    void writePing(std::uint64_t number);
    void ponged(const QByteArray& payload);
    void pingExpired(std::uint64_t number);
    void openingExpired();
    void fail(const std::string& why);
    void completeLater(ErrorCompletion completion, std::optional<WebSocketError> result);

    QtSerialQueue& queue_;
    const QSslConfiguration tls_;
    const WebSocketRequest request_;
    const QtWebSocketLimits limits_;

    // Touched on the queue's thread only.
    QPointer<QWebSocket> socket_;
    bool open_ = false;
    std::optional<WebSocketError> failure_;
    std::deque<WebSocketMessage> arrived_;
    std::deque<ReceiveCompletion> receivers_;
    std::deque<std::pair<std::string, ErrorCompletion>> unsentTexts_;
    std::deque<std::uint64_t> unsentPings_;
    std::map<std::uint64_t, ErrorCompletion> pings_;
    std::uint64_t nextPing_ = 0;
};

} // namespace keyferry
