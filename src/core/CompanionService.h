#pragma once

#include "AccessibilityProbe.h"
#include "ApiRecords.h"
#include "Clock.h"
#include "CompanionConnectionState.h"
#include "CompanionStore.h"
#include "DefaultsStore.h"
#include "HttpClient.h"
#include "KeyboardPoster.h"
#include "MainThread.h"
#include "SecretBackend.h"
#include "SerialQueue.h"
#include "ServiceError.h"
#include "SocketMessages.h"
#include "TextInjector.h"
#include "WebSocketTask.h"

#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keyferry {

// What the service needs from the world. Every port must outlive the service.
struct CompanionServicePorts {
    SerialQueue& queue;
    MainThread& mainThread;
    Clock& clock;
    HttpClient& http;
    WebSocketFactory& webSockets;
    DefaultsStore& defaults;
    SecretBackend& secrets;
    KeyboardPoster& keyboard;
    AccessibilityProbe& accessibility;
};

// The one object through which the application talks to the Keyferry web service: pairing, the phone
// list, the WebSocket that brings texts to type, heartbeat and reconnection.
//
// Owned by the application through a shared_ptr (timers, work items and completions hold it weakly).
// Public operations may be called from any thread and only enqueue work on the service's serial queue;
// every field is read and written on that queue only. Callbacks are set on the main thread and always
// run there, asynchronously, in the order the service produced them; an unset callback drops its report.
// Failures never throw: the user learns of them only through onError's one line of text. stop() is the
// orderly shutdown; destroying the service sends nothing, and work still queued for it is dropped.
class CompanionService : public std::enable_shared_from_this<CompanionService> {
public:
    using PairCodeExpiry = std::chrono::system_clock::time_point;

    // `baseURL` is the service's https base URL; `computerName` is what the pairing request calls this
    // computer (the host's name; empty when the system reports none). Construction starts nothing.
    static std::shared_ptr<CompanionService> make(const CompanionServicePorts& ports, std::string baseURL,
                                                  std::string computerName);

    CompanionService(const CompanionService&) = delete;
    CompanionService& operator=(const CompanionService&) = delete;
    ~CompanionService() = default;

    std::function<void(CompanionConnectionState)> onStateChange;
    std::function<void(const std::string& code, PairCodeExpiry expiresAt)> onPairCode;
    std::function<void()> onPairingCompleted;
    std::function<void(const std::vector<PairedPhone>&)> onPhonesChanged;
    std::function<void()> onAccessibilityNeeded;
    std::function<void()> onTextInserted;
    std::function<void(const std::string&)> onError;

    void start();
    void stop();
    void resumeAfterAccessibilityPermission();
    void requestPairingCode();
    void refreshPhones();
    void removePhone(std::string pairingId);

private:
    using Task = std::shared_ptr<WebSocketTask>;
    using WeakTask = std::weak_ptr<WebSocketTask>;
    using Work = std::function<void(CompanionService&)>;
    template <typename Record> using Completion = std::function<void(CompanionService&, RequestResult<Record>)>;

    // Only make() builds a service, so that it is always owned by a shared_ptr.
    struct ConstructionKey {
        explicit ConstructionKey() = default;
    };

public:
    CompanionService(ConstructionKey, const CompanionServicePorts& ports, std::string serviceURL,
                     std::string nameOfThisComputer);

private:
    // Service state, callbacks and threading.
    void enqueue(Work work);
    void dispatchMain(Work report);
    void setState(CompanionConnectionState newState);
    void reportError(std::string text);
    void notify(std::function<void()> CompanionService::*callback);
    void assertOnQueue() const;

    // Socket session and message handling.
    void connectIfPermitted();
    void connect();
    std::optional<std::string> socketURL() const;
    void receiveNext(const Task& task);
    void handleReceived(const WeakTask& weakTask, const WebSocketReceiveResult& result);
    void handle(const WebSocketMessage& message, const Task& task);
    void handleInsertText(const ServerMessage& message, const Task& task);
    void sendReply(const SocketReply& reply, const Task& task);

    // Heartbeat, connection loss and reconnection.
    void startHeartbeat(const Task& task);
    void ping(const WeakTask& weakTask);
    void stopHeartbeat();
    void handleConnectionLoss(const Task& task);
    void decideAfterLoss(const RequestResult<PairStatusResponse>& answer);
    void withdrawPairing(const std::string& reason);
    void scheduleReconnect();
    void cancelConnection();

    // Request layer. Completions of perform() and fetchPairStatus() run on the HTTP client's thread;
    // onQueue() wraps a handler so that it runs on the service's queue instead.
    std::string urlFor(std::string_view path) const;
    HttpRequest request(std::string_view path, const std::string& method) const;
    static std::optional<std::string> jsonBody(const nlohmann::json& body);
    // The value of the "Authorization" header that carries `token`.
    static std::string bearer(const std::string& token);
    HttpRequest authorizedRequest(std::string_view path, const std::string& method,
                                  const std::optional<nlohmann::json>& body);
    template <typename Record> void perform(HttpRequest request, std::function<void(RequestResult<Record>)> completion);
    void fetchPairStatus(const std::string& token, std::function<void(RequestResult<PairStatusResponse>)> completion);
    template <typename Record> std::function<void(RequestResult<Record>)> onQueue(Completion<Record> handler);

    // Pairing flow.
    void requestPairingCodeNow();
    void handlePairingCodeReply(const RequestResult<PairingResponse>& result, bool wasPaired);
    void handleFirstPairingCode(const PairingResponse& response);
    void dispatchPairCode(const PairingResponse& response);
    bool pollMayContinue(const std::string& token, bool expectPaired);
    void fetchPairStatusAfterInterval(const std::string& token, bool expectPaired,
                                      Completion<PairStatusResponse> handleAnswer);
    void pollInitialPairing(const std::string& token);
    void handleInitialPairingStatus(const RequestResult<PairStatusResponse>& result, const std::string& token);
    void pollAdditionalPairing(const std::string& token, std::int64_t expiresAt);
    void handleAdditionalPairingStatus(const RequestResult<PairStatusResponse>& result, const std::string& token,
                                       std::int64_t expiresAt);
    void failPairing(const std::string& text);

    // Phone list and removal.
    void refreshPhonesNow(bool reportErrors);
    void handlePhonesReply(const RequestResult<PairedPhonesResponse>& result, bool reportErrors);
    void removePhoneNow(const std::string& pairingId);
    void dispatchPhones(std::vector<PairedPhone> phones);

    // Where each back-off series of reconnections starts.
    static constexpr double initialReconnectDelay = 1.0;

    CompanionStore store;
    SerialQueue& queue;
    MainThread& mainThread;
    Clock& clock;
    HttpClient& http;
    WebSocketFactory& webSockets;
    AccessibilityProbe& accessibility;
    TextInjector injector;
    const std::string baseURL;
    const std::string computerName;

    Task socket;
    std::shared_ptr<RepeatingTimer> heartbeat;
    std::shared_ptr<WorkItem> reconnectWorkItem;
    double reconnectDelay = initialReconnectDelay;
    bool stopped = false;
    CompanionConnectionState state = CompanionConnectionState::unpaired;
};

} // namespace keyferry
