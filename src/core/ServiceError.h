#pragma once

#include "HttpClient.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace keyferry {

// The service's HTTP error: a status outside 200-299 (with the body as text), or no HTTP response.
struct ServiceError {
    enum class Kind { httpStatus, invalidResponse };

    Kind kind = Kind::invalidResponse;
    std::int64_t statusCode = 0;
    std::string body;

    static ServiceError httpStatus(std::int64_t statusCode, std::string body) {
        return {Kind::httpStatus, statusCode, std::move(body)};
    }
    static ServiceError invalidResponse() { return {}; }

    bool isHttpStatus(std::int64_t code) const { return kind == Kind::httpStatus && statusCode == code; }
};

// A 2xx reply whose body is not the expected record.
struct DecodingError {
    std::string description;
};

// Everything an API request can fail with.
using RequestError = std::variant<ServiceError, TransportError, DecodingError>;

// The outcome of an API request: the decoded record, or why there is none.
template <typename Record> using RequestResult = std::variant<Record, RequestError>;

// True when the error is the service's HTTP status `code`.
bool isHttpStatus(const RequestError& error, std::int64_t code);

// The one line the user sees for a failed request: the fallback plus what went wrong.
std::string message(const RequestError& error, std::string_view fallback);

} // namespace keyferry
