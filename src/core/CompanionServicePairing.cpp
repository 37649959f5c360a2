#include "CompanionService.h"

#include "PlatformWords.h"

#include <nlohmann/json.hpp>

#include <utility>

namespace keyferry {

namespace {

constexpr double pollInterval = 1.8;
constexpr const char* codeExpiredText = "The pairing code expired. Create a new code and try again.";
constexpr const char* credentialRejectedText = "The pairing credential is no longer valid.";

} // namespace

void CompanionService::requestPairingCodeNow() {
    assertOnQueue();
    const bool wasPaired = store.isPaired();
    HttpRequest codeRequest;
    if (wasPaired) {
        codeRequest = authorizedRequest("v1/computers/pair/code", "POST", std::nullopt);
    } else {
        cancelConnection();
        // Whatever an earlier, unfinished pairing left behind is dropped.
        store.clearPairing();
        setState(CompanionConnectionState::creatingCode);
        codeRequest = request("v1/computers/pair/start", "POST");
        codeRequest.headers.emplace_back("Content-Type", "application/json");
        codeRequest.body = jsonBody({{"name", computerName}, {"platform", platformName}});
    }
    perform<PairingResponse>(std::move(codeRequest),
                             onQueue<PairingResponse>([wasPaired](CompanionService& service,
                                                                  RequestResult<PairingResponse> result) {
                                 service.handlePairingCodeReply(result, wasPaired);
                             }));
}

void CompanionService::handlePairingCodeReply(const RequestResult<PairingResponse>& result, bool wasPaired) {
    assertOnQueue();
    if (const auto* error = std::get_if<RequestError>(&result)) {
        if (!wasPaired) {
            setState(CompanionConnectionState::unpaired);
        }
        reportError(message(*error, "Could not create a pairing code."));
        return;
    }
    const auto& response = std::get<PairingResponse>(result);
    if (!wasPaired) {
        handleFirstPairingCode(response);
        return;
    }
    // Adding a phone leaves the connection and the state alone.
    dispatchPairCode(response);
    pollAdditionalPairing(store.computerToken(), response.expiresAt);
}

void CompanionService::handleFirstPairingCode(const PairingResponse& response) {
    const auto token = response.computerToken.value_or(std::string());
    if (token.empty()) {
        failPairing("The pairing service did not return a computer credential.");
        return;
    }
    if (store.savePairing(response.computerId, token, false).has_value()) {
        failPairing("Could not save the pairing credential in Keychain.");
        return;
    }
    // The state change is posted before the code, so the shell learns it first.
    setState(CompanionConnectionState::waitingForPhone);
    dispatchPairCode(response);
    pollInitialPairing(token);
}

void CompanionService::failPairing(const std::string& text) {
    store.clearPairing();
    setState(CompanionConnectionState::unpaired);
    reportError(text);
}

void CompanionService::dispatchPairCode(const PairingResponse& response) {
    assertOnQueue();
    const auto expiry = std::chrono::time_point_cast<PairCodeExpiry::duration>(
        std::chrono::time_point<std::chrono::system_clock, std::chrono::duration<double>>(
            std::chrono::duration<double>(static_cast<double>(response.expiresAt) / 1000.0)));
    dispatchMain([code = response.pairCode, expiry](CompanionService& service) {
        if (service.onPairCode) {
            service.onPairCode(code, expiry);
        }
    });
}

// A poll goes on only while the stored credential is still the one it started with: a newer code, a cleared
// pairing or a stopped service ends it quietly.
bool CompanionService::pollMayContinue(const std::string& token, bool expectPaired) {
    return !stopped && store.isPaired() == expectPaired && store.computerToken() == token;
}

void CompanionService::pollInitialPairing(const std::string& token) {
    assertOnQueue();
    if (!pollMayContinue(token, false)) {
        return;
    }
    // No deadline of its own: the code's expiry is the service's business here.
    queue.postAfter(pollInterval, [weakService = weak_from_this(), token] {
        const auto service = weakService.lock();
        if (!service || !service->pollMayContinue(token, false)) {
            return;
        }
        service->fetchPairStatus(
            token, service->onQueue<PairStatusResponse>(
                       [token](CompanionService& onQueue, RequestResult<PairStatusResponse> result) {
                           onQueue.handleInitialPairingStatus(result, token);
                       }));
    });
}

void CompanionService::handleInitialPairingStatus(const RequestResult<PairStatusResponse>& result,
                                                  const std::string& token) {
    assertOnQueue();
    if (store.computerToken() != token) {
        return;
    }
    if (const auto* error = std::get_if<RequestError>(&result)) {
        if (isHttpStatus(*error, 401)) {
            failPairing(credentialRejectedText);
        } else {
            pollInitialPairing(token);
        }
        return;
    }
    const auto& status = std::get<PairStatusResponse>(result).status;
    if (status == "active") {
        store.setPaired(true);
        refreshPhonesNow(false);
        notify(&CompanionService::onPairingCompleted);
        connectIfPermitted();
    } else if (status == "expired" || status == "revoked") {
        // A revoked pairing is told with the same words as an expired code.
        failPairing(codeExpiredText);
    } else {
        pollInitialPairing(token);
    }
}

void CompanionService::pollAdditionalPairing(const std::string& token, std::int64_t expiresAt) {
    assertOnQueue();
    if (!pollMayContinue(token, true)) {
        return;
    }
    if (!(clock.now() * 1000.0 < static_cast<double>(expiresAt))) {
        reportError(codeExpiredText);
        return;
    }
    queue.postAfter(pollInterval, [weakService = weak_from_this(), token, expiresAt] {
        const auto service = weakService.lock();
        if (!service || !service->pollMayContinue(token, true)) {
            return;
        }
        service->fetchPairStatus(
            token, service->onQueue<PairStatusResponse>(
                       [token, expiresAt](CompanionService& onQueue, RequestResult<PairStatusResponse> result) {
                           onQueue.handleAdditionalPairingStatus(result, token, expiresAt);
                       }));
    });
}

void CompanionService::handleAdditionalPairingStatus(const RequestResult<PairStatusResponse>& result,
                                                     const std::string& token, std::int64_t expiresAt) {
    assertOnQueue();
    if (store.computerToken() != token) {
        return;
    }
    if (const auto* error = std::get_if<RequestError>(&result)) {
        if (isHttpStatus(*error, 401)) {
            // The connection is left alone here; the phone list's own 401 is what cancels it.
            store.clearPairing();
            setState(CompanionConnectionState::unpaired);
            dispatchPhones({});
            reportError(credentialRejectedText);
        } else {
            pollAdditionalPairing(token, expiresAt);
        }
        return;
    }
    const auto& response = std::get<PairStatusResponse>(result);
    if (response.pairingExpired == true) {
        reportError(codeExpiredText);
    } else if (response.pairingPending.value_or(true)) {
        pollAdditionalPairing(token, expiresAt);
    } else {
        refreshPhonesNow(false);
        notify(&CompanionService::onPairingCompleted);
    }
}

} // namespace keyferry
