#include "CompanionService.h"

#include "ApiPaths.h"
#include "PlatformWords.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <utility>

namespace keyferry {

namespace {

constexpr double pollInterval = 1.8;
constexpr const char* codeExpiredText = "The pairing code expired. Create a new code and try again.";
constexpr const char* credentialRejectedText = "The pairing credential is no longer valid.";

// The reply's milliseconds as a point in time. A time the clock type cannot hold (about 292 years either side
// of 1970) is pinned to its nearest end rather than wrapping round to the other.
CompanionService::PairCodeExpiry expiryOf(std::int64_t expiresAtMs) {
    using Expiry = CompanionService::PairCodeExpiry;
    const std::chrono::duration<double> sinceEpoch(static_cast<double>(expiresAtMs) / 1000.0);
    if (sinceEpoch >= Expiry::max().time_since_epoch()) {
        return Expiry::max();
    }
    if (sinceEpoch <= Expiry::min().time_since_epoch()) {
        return Expiry::min();
    }
    return Expiry(std::chrono::duration_cast<Expiry::duration>(sinceEpoch));
}

} // namespace

void CompanionService::requestPairingCodeNow() {
    assertOnQueue();
    const bool wasPaired = store.isPaired();
    HttpRequest codeRequest;
    if (wasPaired) {
        codeRequest = authorizedRequest(ApiPaths::pairCode, "POST", std::nullopt);
    } else {
        cancelConnection();
        // Whatever an earlier, unfinished pairing left behind is dropped.
        store.clearPairing();
        setState(CompanionConnectionState::creatingCode);
        codeRequest = request(ApiPaths::pairStart, "POST");
        codeRequest.headers.emplace_back("Content-Type", "application/json");
        codeRequest.body = jsonBody(PairStartRequest{computerName, platformName}.toJson());
    }
    perform<PairingResponse>(
        std::move(codeRequest),
        onQueue<PairingResponse>([wasPaired](CompanionService& service, RequestResult<PairingResponse> result) {
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
    dispatchMain([code = response.pairCode, expiry = expiryOf(response.expiresAt)](CompanionService& service) {
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
    fetchPairStatusAfterInterval(token, false,
                                 [token](CompanionService& service, RequestResult<PairStatusResponse> result) {
                                     service.handleInitialPairingStatus(result, token);
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
    if (status == PairingStatus::active) {
        store.setPaired(true);
        refreshPhonesNow(false);
        notify(&CompanionService::onPairingCompleted);
        connectIfPermitted();
    } else if (status == PairingStatus::expired || status == PairingStatus::revoked) {
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
    fetchPairStatusAfterInterval(
        token, true, [token, expiresAt](CompanionService& service, RequestResult<PairStatusResponse> result) {
            service.handleAdditionalPairingStatus(result, token, expiresAt);
        });
}

// The wait between two passes of a poll; afterwards the poll's own checks run again (not the add-phone
// deadline), then the status is asked for with the poll's token and the answer handled on the queue.
void CompanionService::fetchPairStatusAfterInterval(const std::string& token, bool expectPaired,
                                                    Completion<PairStatusResponse> handleAnswer) {
    queue.postAfter(pollInterval,
                    [weakService = weak_from_this(), token, expectPaired, handleAnswer = std::move(handleAnswer)] {
                        const auto service = weakService.lock();
                        if (!service || !service->pollMayContinue(token, expectPaired)) {
                            return;
                        }
                        service->fetchPairStatus(token, service->onQueue<PairStatusResponse>(handleAnswer));
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
            withdrawPairing(credentialRejectedText);
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
