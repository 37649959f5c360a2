#include "CompanionService.h"

#include "ApiPaths.h"
#include "PlatformWords.h"

#include <nlohmann/json.hpp>

#include <utility>

namespace keyferry {

void CompanionService::refreshPhonesNow(bool reportErrors) {
    assertOnQueue();
    if (!store.isPaired()) {
        dispatchPhones({});
        return;
    }
    perform<PairedPhonesResponse>(
        authorizedRequest(ApiPaths::computerPhones, "GET", std::nullopt),
        onQueue<PairedPhonesResponse>(
            [reportErrors](CompanionService& service, RequestResult<PairedPhonesResponse> result) {
                service.handlePhonesReply(result, reportErrors);
            }));
}

void CompanionService::handlePhonesReply(const RequestResult<PairedPhonesResponse>& result, bool reportErrors) {
    assertOnQueue();
    if (const auto* response = std::get_if<PairedPhonesResponse>(&result)) {
        dispatchPhones(response->phones);
        return;
    }
    const auto& error = std::get<RequestError>(result);
    // A rejected credential means this computer was removed, whoever asked and whether or not they listen.
    if (isHttpStatus(error, 401)) {
        cancelConnection();
        withdrawPairing(computerRemovedText);
    } else if (reportErrors) {
        reportError(message(error, "Could not refresh paired phones."));
    }
}

void CompanionService::removePhoneNow(const std::string& pairingId) {
    assertOnQueue();
    if (!store.isPaired() || pairingId.empty()) {
        return;
    }
    perform<RemovePhoneResponse>(
        authorizedRequest(ApiPaths::removePhone, "POST", RemovePhoneRequest{pairingId}.toJson()),
        onQueue<RemovePhoneResponse>([](CompanionService& service, RequestResult<RemovePhoneResponse> result) {
            // "removed" is not looked at: the reload shows whether the phone is gone. No status is special here.
            if (const auto* error = std::get_if<RequestError>(&result)) {
                service.reportError(message(*error, "Could not remove this phone."));
            } else {
                service.refreshPhonesNow(true);
            }
        }));
}

void CompanionService::dispatchPhones(std::vector<PairedPhone> phones) {
    assertOnQueue();
    dispatchMain([phones = std::move(phones)](CompanionService& service) {
        if (service.onPhonesChanged) {
            service.onPhonesChanged(phones);
        }
    });
}

} // namespace keyferry
