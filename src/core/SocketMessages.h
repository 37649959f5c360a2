#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace keyferry {

// One frame from the service. "type" is required; "id" and "text" are optional strings; anything else is
// ignored. A frame that does not fit decodes to nothing.
struct ServerMessage {
    std::string type;
    std::optional<std::string> id;
    std::optional<std::string> text;

    static std::optional<ServerMessage> decode(std::string_view json);
};

// One frame to the service, encoded compactly; "id" and "at" are written only when present.
struct SocketReply {
    std::string type;
    std::optional<std::string> id;
    std::optional<std::int64_t> at;

    static SocketReply ack(std::string id) { return {"ack", std::move(id), std::nullopt}; }
    std::string encode() const;
};

} // namespace keyferry
