#pragma once

#include "ServiceCore.h"

#include <boost/beast/http.hpp>

#include <string>

namespace keyferry::service {

// Turns one HTTP request into its response: the JSON API of computers and phones, the phone page and
// the authority certificate. Parses and checks request bodies, then hands the fields to ServiceCore.
// Borrows the core, which must outlive it; network thread only. Never throws for a bad request: every
// failure becomes a JSON error answer.
class ApiRouter {
public:
    using Request = boost::beast::http::request<boost::beast::http::string_body>;
    using Response = boost::beast::http::response<boost::beast::http::string_body>;

    ApiRouter(ServiceCore& core, std::string authorityPem);

    Response handle(const Request& request, const std::string& clientAddress);

    // The token of an "Authorization: Bearer ..." header, or the empty text.
    static std::string bearerToken(const Request& request);
    // The JSON error answer sent outside the router (body too large, bad WebSocket upgrade).
    static Response errorResponse(const Request& request, int status, const std::string& message);

private:
    ApiReply route(const Request& request, const std::string& clientAddress);
    ApiReply routeComputer(const Request& request, std::string_view path, const std::string& clientAddress);
    ApiReply routePhone(const Request& request, std::string_view path, const std::string& clientAddress);
    Response staticFile(const Request& request, std::string_view path) const;

    ServiceCore& core_;
    std::string authorityPem_;
};

} // namespace keyferry::service
