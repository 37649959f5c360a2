#pragma once

#include "HttpClient.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>

namespace keyferry {

struct WebSocketRequest {
    std::string url;
    HttpHeaders headers;
    double timeout = 60.0;
};

struct WebSocketMessage {
    enum class Kind { text, binary };
    Kind kind = Kind::text;
    std::string data; // UTF-8 text of a text frame, or the bytes of a binary frame
};

// The socket failed or closed. `description` is for tests and debugging only.
struct WebSocketError {
    std::string description;
};

using WebSocketReceiveResult = std::variant<WebSocketMessage, WebSocketError>;

// One client WebSocket, driven pull-style: nothing is delivered until receive() asks for the next message,
// and messages that arrive before that wait, in order. Shared by its factory's caller and the adapter's
// internals; every method may be called from the service's queue. Completions and pong handlers run on a
// thread of the adapter's choosing. After the socket fails or is cancelled, every outstanding and later
// receive completes with an error, and pong handlers are told the error.
class WebSocketTask {
public:
    virtual ~WebSocketTask() = default;

    // Opens the connection.
    virtual void resume() = 0;

    // Completes once with the next message, or with an error when the socket is (or becomes) unusable.
    virtual void receive(std::function<void(WebSocketReceiveResult)> completion) = 0;

    // Sends one text frame; the completion gets an error when it could not be sent.
    virtual void sendText(std::string text, std::function<void(std::optional<WebSocketError>)> completion) = 0;

    // Sends a protocol ping; the handler runs once: no error when the pong arrived, else why it did not.
    virtual void sendPing(std::function<void(std::optional<WebSocketError>)> pongHandler) = 0;

    // Closes the socket with the given close code and no reason.
    virtual void cancel(int closeCode) = 0;
};

// Makes WebSocket tasks. Owned by the application (or a test) and outliving the service; called on the
// service's queue; never fails (a socket that cannot open reports it through its first receive).
class WebSocketFactory {
public:
    virtual ~WebSocketFactory() = default;

    virtual std::shared_ptr<WebSocketTask> makeTask(const WebSocketRequest& request) = 0;
};

} // namespace keyferry
