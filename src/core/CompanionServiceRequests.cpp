#include "CompanionService.h"

#include "ApiPaths.h"
#include "JsonWriter.h"
#include "Utf8.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <string_view>
#include <utility>

namespace keyferry {

namespace {

constexpr double requestTimeout = 60.0;
constexpr double requestIdleTimeout = 20.0;
constexpr double requestResourceTimeout = 30.0;

// The body text an HTTP error keeps: the reply as UTF-8, or nothing when it is not valid UTF-8.
std::string bodyText(std::string body) {
    return isValidUtf8(body) ? std::move(body) : std::string();
}

template <typename Record> RequestResult<Record> outcomeToResult(HttpOutcome outcome) {
    if (const auto* failure = std::get_if<TransportError>(&outcome)) {
        return RequestError{*failure};
    }
    if (std::holds_alternative<NotHttpResponse>(outcome)) {
        return RequestError{ServiceError::invalidResponse()};
    }
    auto& response = std::get<HttpResponse>(outcome);
    // Unsigned arithmetic keeps exactly 200...299 and nothing else.
    if (static_cast<unsigned>(response.status) - 200U >= 100U) {
        return RequestError{ServiceError::httpStatus(response.status, bodyText(std::move(response.body)))};
    }
    if (auto record = Record::decode(response.body)) {
        return std::move(*record);
    }
    return RequestError{DecodingError{"the reply does not match the expected record"}};
}

} // namespace

std::string CompanionService::bearer(const std::string& token) {
    return std::string(ApiPaths::bearerScheme) + token;
}

std::string CompanionService::urlFor(std::string_view path) const {
    // The path joins the base's own path with one slash, whether or not the base ends with one; a query or
    // fragment of the base stays at the end.
    path.remove_prefix(path.starts_with('/') ? 1 : 0);
    const auto suffixStart = std::min(baseURL.find_first_of("?#"), baseURL.size());
    auto joined = baseURL.substr(0, suffixStart);
    if (joined.empty() || joined.back() != '/') {
        joined += '/';
    }
    return joined.append(path) + baseURL.substr(suffixStart);
}

HttpRequest CompanionService::request(std::string_view path, const std::string& method) const {
    HttpRequest request;
    request.method = method;
    request.url = urlFor(path);
    request.timeout = requestTimeout;
    request.idleTimeout = requestIdleTimeout;
    request.resourceTimeout = requestResourceTimeout;
    request.waitsForConnectivity = true;
    return request;
}

HttpRequest CompanionService::authorizedRequest(std::string_view path, const std::string& method,
                                                const std::optional<nlohmann::json>& body) {
    assertOnQueue();
    auto built = request(path, method);
    // No token still sends "Bearer ": the service's 401 is what tells the user the credential is gone.
    built.headers.emplace_back("Authorization", bearer(store.computerToken()));
    if (body) {
        built.headers.emplace_back("Content-Type", "application/json");
        built.body = jsonBody(*body);
    }
    return built;
}

// Compact JSON; a body that cannot be written (text that is not UTF-8) is left out and the request still goes.
std::optional<std::string> CompanionService::jsonBody(const nlohmann::json& body) {
    auto text = JsonWriter::compact(body);
    return text.empty() ? std::nullopt : std::optional(std::move(text));
}

template <typename Record>
void CompanionService::perform(HttpRequest request, std::function<void(RequestResult<Record>)> completion) {
    http.send(std::move(request), [completion = std::move(completion)](HttpOutcome outcome) {
        completion(outcomeToResult<Record>(std::move(outcome)));
    });
}

void CompanionService::fetchPairStatus(const std::string& token,
                                       std::function<void(RequestResult<PairStatusResponse>)> completion) {
    auto statusRequest = request(ApiPaths::pairStatus, "GET");
    statusRequest.headers.emplace_back("Authorization", bearer(token));
    perform<PairStatusResponse>(std::move(statusRequest), std::move(completion));
}

template <typename Record>
std::function<void(RequestResult<Record>)> CompanionService::onQueue(Completion<Record> handler) {
    return [weakService = weak_from_this(), handler = std::move(handler)](RequestResult<Record> result) {
        const auto service = weakService.lock();
        if (!service) {
            return;
        }
        service->enqueue([handler, result = std::move(result)](CompanionService& onQueueService) {
            handler(onQueueService, result);
        });
    };
}

template void CompanionService::perform<PairingResponse>(HttpRequest,
                                                         std::function<void(RequestResult<PairingResponse>)>);
template void CompanionService::perform<PairedPhonesResponse>(HttpRequest,
                                                              std::function<void(RequestResult<PairedPhonesResponse>)>);
template void CompanionService::perform<RemovePhoneResponse>(HttpRequest,
                                                             std::function<void(RequestResult<RemovePhoneResponse>)>);
template std::function<void(RequestResult<PairingResponse>)>
    CompanionService::onQueue<PairingResponse>(Completion<PairingResponse>);
template std::function<void(RequestResult<PairStatusResponse>)>
    CompanionService::onQueue<PairStatusResponse>(Completion<PairStatusResponse>);
template std::function<void(RequestResult<PairedPhonesResponse>)>
    CompanionService::onQueue<PairedPhonesResponse>(Completion<PairedPhonesResponse>);
template std::function<void(RequestResult<RemovePhoneResponse>)>
    CompanionService::onQueue<RemovePhoneResponse>(Completion<RemovePhoneResponse>);

} // namespace keyferry
