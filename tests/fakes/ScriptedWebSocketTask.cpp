#include "ScriptedWebSocketTask.h"

#include <stdexcept>
#include <utility>

namespace keyferry::fakes {

ScriptedWebSocketTask::ScriptedWebSocketTask(WebSocketRequest original) : madeFrom(std::move(original)) {}

void ScriptedWebSocketTask::receive(std::function<void(WebSocketReceiveResult)> completion) {
    ++receiveCalls;
    receivers.push_back(std::move(completion));
}

void ScriptedWebSocketTask::sendText(std::string text, std::function<void(std::optional<WebSocketError>)> completion) {
    if (onSend) {
        onSend(text);
    }
    sent.push_back(SentText{std::move(text), std::move(completion)});
    if (completeSendsAtOnce) {
        completeSend(sent.size() - 1);
    }
}

void ScriptedWebSocketTask::sendPing(std::function<void(std::optional<WebSocketError>)> pongHandler) {
    ++pings;
    pongHandlers.push_back(std::move(pongHandler));
}

std::vector<std::string> ScriptedWebSocketTask::sentTexts() const {
    std::vector<std::string> texts;
    texts.reserve(sent.size());
    for (const auto& item : sent) {
        texts.push_back(item.text);
    }
    return texts;
}

void ScriptedWebSocketTask::deliver(WebSocketReceiveResult result) {
    if (receivers.empty()) {
        throw std::logic_error("no receive is pending on this task");
    }
    auto completion = std::move(receivers.front());
    receivers.pop_front();
    if (completion) {
        completion(std::move(result));
    }
}

void ScriptedWebSocketTask::deliverText(std::string text) {
    deliver(WebSocketMessage{WebSocketMessage::Kind::text, std::move(text)});
}

void ScriptedWebSocketTask::deliverBinary(std::string bytes) {
    deliver(WebSocketMessage{WebSocketMessage::Kind::binary, std::move(bytes)});
}

void ScriptedWebSocketTask::deliverError(std::string description) {
    deliver(WebSocketError{std::move(description)});
}

void ScriptedWebSocketTask::answerPing(std::optional<WebSocketError> error) {
    if (pongHandlers.empty()) {
        throw std::logic_error("no ping is pending on this task");
    }
    auto handler = std::move(pongHandlers.front());
    pongHandlers.pop_front();
    if (handler) {
        handler(std::move(error));
    }
}

void ScriptedWebSocketTask::completeSend(std::size_t index, std::optional<WebSocketError> error) {
    if (index >= sent.size() || !sent[index].completion) {
        throw std::logic_error("send " + std::to_string(index) + " is not waiting for completion");
    }
    auto completion = std::move(sent[index].completion);
    sent[index].completion = nullptr;
    completion(std::move(error));
}

void ScriptedWebSocketTask::failAllPending(std::string description) {
    // Only what is pending now: a completion that asks again gets a fresh, pending receive.
    auto pendingReceivers = std::exchange(receivers, {});
    auto pendingPongs = std::exchange(pongHandlers, {});
    for (auto& completion : pendingReceivers) {
        if (completion) {
            completion(WebSocketError{description});
        }
    }
    for (auto& handler : pendingPongs) {
        if (handler) {
            handler(WebSocketError{description});
        }
    }
}

} // namespace keyferry::fakes
