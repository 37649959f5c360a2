#include "CompanionService.h"

#include "ApiPaths.h"
#include "CloseCodes.h"

#include <utility>

namespace keyferry {

namespace {

constexpr double socketRequestTimeout = 60.0;

} // namespace

void CompanionService::connectIfPermitted() {
    assertOnQueue();
    if (stopped || !store.isPaired()) {
        return;
    }
    // Never prompt from here: asking the user is the shell's business.
    if (!accessibility.isTrusted(false)) {
        cancelConnection();
        setState(CompanionConnectionState::permissionRequired);
        notify(&CompanionService::onAccessibilityNeeded);
        return;
    }
    connect();
}

void CompanionService::connect() {
    assertOnQueue();
    if (socket || stopped || !store.isPaired()) {
        return;
    }
    const auto token = store.computerToken();
    if (token.empty()) {
        store.clearPairing();
        setState(CompanionConnectionState::unpaired);
        return;
    }
    const auto url = socketURL();
    if (!url) {
        return;
    }
    WebSocketRequest request;
    request.url = *url;
    request.headers.emplace_back("Authorization", bearer(token));
    request.timeout = socketRequestTimeout;
    socket = webSockets.makeTask(request);
    const Task task = socket;
    // Within a back-off series every attempt reads as reconnecting; a fresh start reads as connecting.
    setState(reconnectDelay > initialReconnectDelay ? CompanionConnectionState::reconnecting
                                                    : CompanionConnectionState::connecting);
    task->resume();
    startHeartbeat(task);
    receiveNext(task);
}

// The base URL with scheme "wss" and the connect path in place of its own path; query and fragment kept.
std::optional<std::string> CompanionService::socketURL() const {
    const auto schemeEnd = baseURL.find("://");
    if (schemeEnd == std::string::npos || schemeEnd == 0) {
        return std::nullopt;
    }
    const auto authorityStart = schemeEnd + 3;
    const auto pathStart = baseURL.find_first_of("/?#", authorityStart);
    const auto authority = baseURL.substr(authorityStart, pathStart - authorityStart);
    if (authority.empty()) {
        return std::nullopt;
    }
    std::string rest;
    if (pathStart != std::string::npos) {
        const auto queryStart = baseURL.find_first_of("?#", pathStart);
        if (queryStart != std::string::npos) {
            rest = baseURL.substr(queryStart);
        }
    }
    return "wss://" + authority + std::string(ApiPaths::connect) + rest;
}

void CompanionService::receiveNext(const Task& task) {
    // The task is held weakly: a pending receive must not keep a dropped socket alive.
    task->receive([weakService = weak_from_this(), weakTask = WeakTask(task)](WebSocketReceiveResult result) {
        if (const auto service = weakService.lock()) {
            service->enqueue([weakTask, result = std::move(result)](CompanionService& onQueue) {
                onQueue.handleReceived(weakTask, result);
            });
        }
    });
}

void CompanionService::handleReceived(const WeakTask& weakTask, const WebSocketReceiveResult& result) {
    assertOnQueue();
    const auto task = weakTask.lock();
    // Completions of a closed or replaced socket end their loop here.
    if (!socket || task != socket || stopped) {
        return;
    }
    if (std::holds_alternative<WebSocketError>(result)) {
        handleConnectionLoss(task);
        return;
    }
    handle(std::get<WebSocketMessage>(result), task);
    // The next frame is asked for only once this one is done, its typing included.
    if (task == socket) {
        receiveNext(task);
    }
}

void CompanionService::handle(const WebSocketMessage& message, const Task& task) {
    assertOnQueue();
    // Text and binary frames both carry the JSON bytes as they are.
    const auto decoded = ServerMessage::decode(message.data);
    if (!decoded) {
        return;
    }
    if (decoded->type == MessageType::connected) {
        reconnectDelay = initialReconnectDelay;
        setState(CompanionConnectionState::connected);
        refreshPhonesNow(false);
    } else if (decoded->type == MessageType::phonesChanged) {
        refreshPhonesNow(false);
    } else if (decoded->type == MessageType::insertText) {
        handleInsertText(*decoded, task);
    }
}

void CompanionService::handleInsertText(const ServerMessage& message, const Task& task) {
    if (!message.id) {
        return;
    }
    const auto& id = *message.id;
    if (store.hasProcessedMessage(id)) {
        sendReply(SocketReply::ack(id), task);
        return;
    }
    if (injector.insert(message.text.value_or(std::string()))) {
        // Recorded before the acknowledgement, so a text acknowledged is never typed again.
        store.recordProcessedMessage(id);
        sendReply(SocketReply::ack(id), task);
        notify(&CompanionService::onTextInserted);
        return;
    }
    // Not acknowledged, so that the service delivers the text again once typing works.
    task->cancel(CloseCodes::goingAway);
    socket.reset();
    stopHeartbeat();
    setState(CompanionConnectionState::permissionRequired);
    notify(&CompanionService::onAccessibilityNeeded);
}

void CompanionService::sendReply(const SocketReply& reply, const Task& task) {
    // A reply that cannot be encoded or sent is dropped: a dead socket shows up through receive and the heartbeat.
    auto encoded = reply.encode();
    if (encoded.empty()) {
        return;
    }
    task->sendText(std::move(encoded), [](const std::optional<WebSocketError>&) {});
}

} // namespace keyferry
