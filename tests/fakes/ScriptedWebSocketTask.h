#pragma once

#include "WebSocketTask.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace keyferry::fakes {

// A WebSocket task played by the test. It records what the code under test does with it (resume, sent
// texts, pings, cancel close codes) and keeps every receive completion pending until the test delivers a
// message or an error, which calls the oldest pending completion synchronously on the test's thread.
//
// Sends: by default each send completes at once, successfully, inside sendText(); with
// `completeSendsAtOnce` false the completion waits for completeSend(). Pings: each pong handler waits for
// answerPing(). The fake never completes anything by itself, not even after cancel(): the test plays the
// adapter's closing with deliverError() / failAllPending(). Single-threaded.
class ScriptedWebSocketTask : public WebSocketTask {
public:
    struct SentText {
        std::string text;
        std::function<void(std::optional<WebSocketError>)> completion; // empty once completed
    };

    explicit ScriptedWebSocketTask(WebSocketRequest original);

    void resume() override { ++resumes; }
    void receive(std::function<void(WebSocketReceiveResult)> completion) override;
    void sendText(std::string text, std::function<void(std::optional<WebSocketError>)> completion) override;
    void sendPing(std::function<void(std::optional<WebSocketError>)> pongHandler) override;
    void cancel(int closeCode) override { closeCodes.push_back(closeCode); }

    // The request the task was made from.
    const WebSocketRequest& request() const { return madeFrom; }

    // What the code under test did.
    int resumeCount() const { return resumes; }
    bool wasResumed() const { return resumes > 0; }
    const std::vector<int>& cancelCloseCodes() const { return closeCodes; }
    bool wasCancelled() const { return !closeCodes.empty(); }
    std::vector<std::string> sentTexts() const;
    std::size_t sentCount() const { return sent.size(); }
    std::size_t pingCount() const { return pings; }
    std::size_t pendingPingCount() const { return pongHandlers.size(); }
    std::size_t receiveCallCount() const { return receiveCalls; }
    bool hasPendingReceive() const { return !receivers.empty(); }
    std::size_t pendingReceiveCount() const { return receivers.size(); }

    // Deliveries to the oldest pending receive; each throws std::logic_error when none is pending.
    void deliverText(std::string text);
    void deliverBinary(std::string bytes);
    void deliverError(std::string description = "Socket is not connected");

    // Answers the oldest pending ping: no error means the pong arrived. Throws when none is pending.
    void answerPing(std::optional<WebSocketError> error = std::nullopt);

    // Completes a send made while `completeSendsAtOnce` was false (throws if already completed).
    void completeSend(std::size_t index, std::optional<WebSocketError> error = std::nullopt);

    // Fails every pending receive and ping, as the adapter does when the socket dies.
    void failAllPending(std::string description = "Socket is not connected");

    bool completeSendsAtOnce = true;
    // Called inside sendText() with the text, before the send completes: lets a test see what else had
    // happened by the time a frame left.
    std::function<void(const std::string& text)> onSend;

private:
    void deliver(WebSocketReceiveResult result);

    WebSocketRequest madeFrom;
    int resumes = 0;
    std::vector<int> closeCodes;
    std::vector<SentText> sent;
    std::size_t pings = 0;
    std::size_t receiveCalls = 0;
    std::deque<std::function<void(WebSocketReceiveResult)>> receivers;
    std::deque<std::function<void(std::optional<WebSocketError>)>> pongHandlers;
};

} // namespace keyferry::fakes
