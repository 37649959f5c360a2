#include "CompanionService.h"

#include "CloseCodes.h"
#include "PlatformWords.h"

#include <algorithm>
#include <utility>

namespace keyferry {

namespace {

constexpr double firstHeartbeat = 20.0;
constexpr double heartbeatPeriod = 20.0;
constexpr double largestReconnectDelay = 15.0;

bool meansPairingGone(const RequestResult<PairStatusResponse>& answer) {
    if (const auto* response = std::get_if<PairStatusResponse>(&answer)) {
        // Only "status" decides; the "paired" flag is deliberately not consulted.
        return response->status == PairingStatus::revoked || response->status == PairingStatus::expired;
    }
    return isHttpStatus(std::get<RequestError>(answer), 401);
}

} // namespace

void CompanionService::startHeartbeat(const Task& task) {
    assertOnQueue();
    stopHeartbeat();
    heartbeat =
        queue.startTimer(firstHeartbeat, heartbeatPeriod, [weakService = weak_from_this(), weakTask = WeakTask(task)] {
            if (const auto service = weakService.lock()) {
                service->ping(weakTask);
            }
        });
}

void CompanionService::ping(const WeakTask& weakTask) {
    assertOnQueue();
    const auto task = weakTask.lock();
    if (!task || task != socket) {
        return;
    }
    // A protocol ping; only the platform decides that it failed, there is no timeout of our own.
    task->sendPing([weakService = weak_from_this(), weakTask](std::optional<WebSocketError> error) {
        const auto service = weakService.lock();
        if (!error || !service) {
            return;
        }
        service->enqueue([weakTask](CompanionService& onQueue) {
            if (const auto failed = weakTask.lock()) {
                onQueue.handleConnectionLoss(failed);
            }
        });
    });
}

void CompanionService::stopHeartbeat() {
    assertOnQueue();
    if (heartbeat) {
        // The no-op goes in first so that a tick already on its way finds nothing to do.
        heartbeat->setEventHandler([] {});
        heartbeat->cancel();
    }
    heartbeat.reset();
}

void CompanionService::handleConnectionLoss(const Task& task) {
    assertOnQueue();
    if (!socket || task != socket) {
        return;
    }
    // Let go without cancelling: the task has failed already.
    socket.reset();
    stopHeartbeat();
    if (stopped || !store.isPaired()) {
        return;
    }
    // The state stays as it is while the service is asked whether the pairing still stands.
    fetchPairStatus(store.computerToken(), onQueue<PairStatusResponse>(
                                               [](CompanionService& service, RequestResult<PairStatusResponse> answer) {
                                                   service.decideAfterLoss(answer);
                                               }));
}

void CompanionService::decideAfterLoss(const RequestResult<PairStatusResponse>& answer) {
    assertOnQueue();
    if (meansPairingGone(answer)) {
        withdrawPairing(computerRemovedText);
    } else {
        scheduleReconnect();
    }
}

// The service no longer accepts this computer's pairing: forget it, show the unpaired state and an empty
// phone list, then say why. Nothing is scheduled.
void CompanionService::withdrawPairing(const std::string& reason) {
    assertOnQueue();
    store.clearPairing();
    setState(CompanionConnectionState::unpaired);
    dispatchPhones({});
    reportError(reason);
}

void CompanionService::scheduleReconnect() {
    assertOnQueue();
    if (stopped || !store.isPaired()) {
        return;
    }
    if (reconnectWorkItem) {
        reconnectWorkItem->cancel();
    }
    setState(CompanionConnectionState::reconnecting);
    reconnectWorkItem = queue.postAfter(reconnectDelay, [weakService = weak_from_this()] {
        if (const auto service = weakService.lock()) {
            service->reconnectWorkItem.reset();
            service->connectIfPermitted();
        }
    });
    // Grown after use, so the first attempt of a series waits one second.
    reconnectDelay = std::min(reconnectDelay * 2.0, largestReconnectDelay);
}

void CompanionService::cancelConnection() {
    assertOnQueue();
    if (reconnectWorkItem) {
        reconnectWorkItem->cancel();
    }
    reconnectWorkItem.reset();
    stopHeartbeat();
    if (socket) {
        socket->cancel(CloseCodes::goingAway);
    }
    socket.reset();
    reconnectDelay = initialReconnectDelay;
}

} // namespace keyferry
