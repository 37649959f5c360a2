#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace keyferry::service {

// One answer of the HTTP API: a status and a JSON body. Errors carry {"error": text}.
struct ApiReply {
    int status = 200;
    nlohmann::json body = nlohmann::json::object();
    std::optional<std::int64_t> retryAfterSeconds;

    static ApiReply ok(nlohmann::json body) { return {200, std::move(body), std::nullopt}; }
    static ApiReply error(int status, const std::string& message) {
        return {status, nlohmann::json{{"error", message}}, std::nullopt};
    }
};

} // namespace keyferry::service
