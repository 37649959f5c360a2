#include "ApiRouter.h"

#include "ApiPaths.h"
#include "ApiRecords.h"
#include "JsonReader.h"
#include "ServiceLog.h"
#include "WebAssets.h"

#include <optional>

namespace keyferry::service {
namespace {

namespace http = boost::beast::http;
// Which side's calls a path belongs to.
constexpr std::string_view computerPrefix = "/v1/computers/";
constexpr std::string_view phonePrefix = "/v1/phones/";

// A phone's pairing request; "platform" and "appVersion" may be left out.
struct PhonePairRequest {
    std::string code;
    std::string name;
    std::string platform;
    std::string appVersion;
};

std::optional<PhonePairRequest> phonePairRequest(std::string_view body) {
    return JsonReader::decodeObject<PhonePairRequest>(body, [](JsonReader& reader) {
        return PhonePairRequest{.code = reader.requiredString("code"),
                                .name = reader.requiredString("name"),
                                .platform = reader.optionalString("platform").value_or("web"),
                                .appVersion = reader.optionalString("appVersion").value_or("")};
    });
}

std::optional<std::string> sentText(std::string_view body) {
    return JsonReader::decodeObject<std::string>(body,
                                                 [](JsonReader& reader) { return reader.requiredString("text"); });
}

// The requests that carry a JSON body. Each must say so: a web page of another origin may send
// text/plain without asking the browser's permission, but not application/json.
bool takesJsonBody(const ApiRouter::Request& request, std::string_view path) {
    return request.method() == http::verb::post && (path == ApiPaths::pairStart || path == ApiPaths::removePhone ||
                                                    path == ApiPaths::phonePair || path == ApiPaths::phoneTexts);
}

// Whether the request declares "application/json" (parameters such as charset allowed).
bool declaresJson(const ApiRouter::Request& request) {
    std::string_view type = request[http::field::content_type];
    type = type.substr(0, type.find(';'));
    while (!type.empty() && (type.back() == ' ' || type.back() == '\t')) {
        type.remove_suffix(1);
    }
    return boost::beast::iequals(type, "application/json");
}

ApiReply badBody(const char* expected) {
    return ApiReply::error(400, std::string("The body must be ") + expected + ".");
}

ApiReply methodNotAllowed() {
    return ApiReply::error(405, "This method is not allowed here.");
}

ApiReply notFound() {
    return ApiReply::error(404, "There is nothing here.");
}

void setCommonHeaders(ApiRouter::Response& response) {
    response.set(http::field::server, "keyferry-service");
    response.set("X-Content-Type-Options", "nosniff");
    response.set("Referrer-Policy", "no-referrer");
}

ApiRouter::Response jsonResponse(const ApiRouter::Request& request, const ApiReply& reply) {
    ApiRouter::Response response{static_cast<http::status>(reply.status), request.version()};
    setCommonHeaders(response);
    response.set(http::field::content_type, "application/json");
    response.set(http::field::cache_control, "no-store");
    if (reply.retryAfterSeconds) {
        response.set(http::field::retry_after, std::to_string(*reply.retryAfterSeconds));
    }
    response.keep_alive(request.keep_alive());
    response.body() = reply.body.dump();
    response.prepare_payload();
    return response;
}

} // namespace

ApiRouter::ApiRouter(ServiceCore& core, std::string authorityPem)
    : core_(core), authorityPem_(std::move(authorityPem)) {}

ApiRouter::Response ApiRouter::handle(const Request& request, const std::string& clientAddress) {
    const std::string_view target = request.target();
    const std::string_view path = target.substr(0, target.find('?'));
    if (!path.starts_with(ApiPaths::versionPrefix)) {
        return staticFile(request, path);
    }
    try {
        return jsonResponse(request, route(request, clientAddress));
    } catch (const std::exception& error) {
        // Most likely the database (disk full, locked, damaged); the message names the cause, not the data.
        ServiceLog::error(std::string("a request failed: ") + error.what());
        return errorResponse(request, 500, "The service could not complete the request.");
    }
}

std::string ApiRouter::bearerToken(const Request& request) {
    const std::string_view value = request[http::field::authorization];
    constexpr std::string_view scheme = ApiPaths::bearerScheme;
    if (value.size() <= scheme.size() || !boost::beast::iequals(value.substr(0, scheme.size()), scheme)) {
        return {};
    }
    std::string_view token = value.substr(scheme.size());
    while (!token.empty() && token.front() == ' ') {
        token.remove_prefix(1);
    }
    return std::string(token);
}

ApiRouter::Response ApiRouter::errorResponse(const Request& request, int status, const std::string& message) {
    Response response = jsonResponse(request, ApiReply::error(status, message));
    response.keep_alive(false);
    return response;
}

ApiReply ApiRouter::route(const Request& request, const std::string& clientAddress) {
    const std::string_view target = request.target();
    const std::string_view path = target.substr(0, target.find('?'));
    if (takesJsonBody(request, path) && !declaresJson(request)) {
        return ApiReply::error(415, "The body must be JSON sent with \"Content-Type: application/json\".");
    }
    if (path.starts_with(computerPrefix)) {
        return routeComputer(request, path, clientAddress);
    }
    if (path.starts_with(phonePrefix)) {
        return routePhone(request, path, clientAddress);
    }
    return notFound();
}

ApiReply ApiRouter::routeComputer(const Request& request, std::string_view path, const std::string& clientAddress) {
    const bool isPost = request.method() == http::verb::post;
    const bool isGet = request.method() == http::verb::get;
    const std::string token = bearerToken(request);
    if (path == ApiPaths::pairStart) {
        if (!isPost) {
            return methodNotAllowed();
        }
        const auto body = PairStartRequest::decode(request.body());
        if (!body) {
            return badBody("a JSON object with the strings \"name\" and \"platform\"");
        }
        return core_.startPairing(body->name, body->platform, clientAddress);
    }
    if (path == ApiPaths::pairCode) {
        return isPost ? core_.newPairCode(token) : methodNotAllowed();
    }
    if (path == ApiPaths::pairStatus) {
        return isGet ? core_.pairStatus(token) : methodNotAllowed();
    }
    if (path == ApiPaths::computerPhones) {
        return isGet ? core_.computerPhones(token) : methodNotAllowed();
    }
    if (path == ApiPaths::removePhone) {
        if (!isPost) {
            return methodNotAllowed();
        }
        if (!core_.authenticateComputer(token)) {
            return core_.removePhone(token, {});
        }
        const auto body = RemovePhoneRequest::decode(request.body());
        if (!body) {
            return badBody("a JSON object with the string \"pairingId\"");
        }
        return core_.removePhone(token, body->pairingId);
    }
    if (path == ApiPaths::connect) {
        return core_.authenticateComputer(token) ? ApiReply::error(426, "This address takes a WebSocket upgrade.")
                                                 : ApiReply::error(401, "The credential is not valid.");
    }
    return notFound();
}

ApiReply ApiRouter::routePhone(const Request& request, std::string_view path, const std::string& clientAddress) {
    const bool isPost = request.method() == http::verb::post;
    const bool isGet = request.method() == http::verb::get;
    const std::string token = bearerToken(request);
    if (path == ApiPaths::phonePair) {
        if (!isPost) {
            return methodNotAllowed();
        }
        const auto body = phonePairRequest(request.body());
        if (!body) {
            return badBody("a JSON object with the strings \"code\" and \"name\" (and optionally \"platform\" and "
                           "\"appVersion\")");
        }
        return core_.pairPhone(body->code, body->name, body->platform, body->appVersion, clientAddress);
    }
    if (path == ApiPaths::phoneInfo) {
        return isGet ? core_.phoneInfo(token) : methodNotAllowed();
    }
    if (path == ApiPaths::phoneTexts) {
        if (isGet) {
            return core_.phoneTexts(token);
        }
        if (!isPost) {
            return methodNotAllowed();
        }
        const auto text = sentText(request.body());
        if (!text) {
            ApiReply identity = core_.phoneInfo(token);
            return identity.status == 401 ? identity : badBody("a JSON object with the string \"text\"");
        }
        return core_.sendText(token, *text);
    }
    if (path == ApiPaths::phoneUnpair) {
        return isPost ? core_.unpairPhone(token) : methodNotAllowed();
    }
    if (path == ApiPaths::phoneRemoveComputer) {
        return isPost ? core_.removeComputer(token) : methodNotAllowed();
    }
    return notFound();
}

ApiRouter::Response ApiRouter::staticFile(const Request& request, std::string_view path) const {
    const bool isRead = request.method() == http::verb::get || request.method() == http::verb::head;
    const WebAsset* asset = WebAssets::find(path);
    if (!isRead || (!asset && path != "/ca.pem")) {
        return jsonResponse(request, isRead ? notFound() : methodNotAllowed());
    }
    Response response{http::status::ok, request.version()};
    setCommonHeaders(response);
    if (asset) {
        response.set(http::field::content_type, asset->contentType);
        response.body() = std::string(asset->content);
    } else {
        response.set(http::field::content_type, "application/x-pem-file");
        response.set(http::field::content_disposition, "attachment; filename=\"keyferry-ca.pem\"");
        response.body() = authorityPem_;
    }
    response.set(http::field::cache_control, "no-cache");
    response.set("Content-Security-Policy",
                 "default-src 'self'; connect-src 'self'; img-src 'self' data:; frame-ancestors 'none'");
    response.keep_alive(request.keep_alive());
    response.prepare_payload();
    if (request.method() == http::verb::head) {
        response.body().clear();
    }
    return response;
}

} // namespace keyferry::service
