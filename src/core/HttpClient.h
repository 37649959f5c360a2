#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace keyferry {

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

// The value of the first header named `name` (compared without regard to ASCII case), if any.
std::optional<std::string> headerValue(const HttpHeaders& headers, std::string_view name);

// One HTTP exchange. The time limits travel with the request so that every adapter honours them:
// `timeout` is the request's own limit and `idleTimeout` the client-wide one for time without progress, so
// the exchange ends after min(timeout, idleTimeout) seconds without data; the whole exchange (waiting for the
// network included) is abandoned after `resourceTimeout` seconds; and while the network is down the request
// waits for it instead of failing at once when `waitsForConnectivity` is set.
struct HttpRequest {
    std::string method = "GET";
    std::string url;
    HttpHeaders headers;
    std::optional<std::string> body;
    double timeout = 60.0;
    double idleTimeout = 20.0;
    double resourceTimeout = 30.0;
    bool waitsForConnectivity = true;
};

struct HttpResponse {
    int status = 0;
    HttpHeaders headers;
    std::string body;
};

// The transport failed (no connection, TLS refused, timed out, ...). `description` is for tests and
// debugging only; the user never sees it.
struct TransportError {
    std::string description;
};

// The exchange ended without an error but what came back was not an HTTP response.
struct NotHttpResponse {};

using HttpOutcome = std::variant<HttpResponse, TransportError, NotHttpResponse>;

// Performs HTTP exchanges. Owned by the application (or a test) and outliving the service. send() may be
// called from the service's queue; the completion runs exactly once, on a thread of the client's
// choosing, with the response (any status) or the reason there is none.
class HttpClient {
public:
    virtual ~HttpClient() = default;

    virtual void send(HttpRequest request, std::function<void(HttpOutcome)> completion) = 0;
};

} // namespace keyferry
