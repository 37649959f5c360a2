#include "ServiceError.h"

#include <string>

namespace keyferry {

bool isHttpStatus(const RequestError& error, std::int64_t code) {
    const auto* serviceError = std::get_if<ServiceError>(&error);
    return serviceError != nullptr && serviceError->isHttpStatus(code);
}

std::string message(const RequestError& error, std::string_view fallback) {
    std::string text(fallback);
    const auto* serviceError = std::get_if<ServiceError>(&error);
    if (serviceError != nullptr && serviceError->kind == ServiceError::Kind::httpStatus) {
        // The body stays out of the message on purpose: the user sees only the status.
        return text + " The server returned " + std::to_string(serviceError->statusCode) + ".";
    }
    return text + " Check your internet connection and try again.";
}

} // namespace keyferry
