#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

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
// encode() gives the empty string when the reply cannot be written (a member that is not valid UTF-8);
// such a reply is not sent.
struct SocketReply {
    std::string type;
    std::optional<std::string> id;
    std::optional<std::int64_t> at;

    static SocketReply ack(std::string id) { return {"ack", std::move(id), std::nullopt}; }
    std::string encode() const;
};

} // namespace keyferry
