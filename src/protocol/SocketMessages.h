#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace keyferry {

// The "type" of each frame on the computer's WebSocket.
namespace MessageType {
// Service to computer: the connection is ready; texts may follow.
inline constexpr std::string_view connected = "connected";
// Service to computer: the list of paired phones changed.
inline constexpr std::string_view phonesChanged = "phones_changed";
// Service to computer: a text to type, with its "id" and "text".
inline constexpr std::string_view insertText = "insert_text";
// Computer to service: the text with this "id" was typed.
inline constexpr std::string_view ack = "ack";
} // namespace MessageType

// One frame from the service. "type" is required; "id" and "text" are optional strings; anything else is
// ignored. A frame that does not fit decodes to nothing.
struct ServerMessage {
    std::string type;
    std::optional<std::string> id;
    std::optional<std::string> text;

    static std::optional<ServerMessage> decode(std::string_view json);
    static ServerMessage connected() { return {std::string(MessageType::connected), {}, {}}; }
    static ServerMessage phonesChanged() { return {std::string(MessageType::phonesChanged), {}, {}}; }
    static ServerMessage insertText(std::string id, std::string text) {
        return {std::string(MessageType::insertText), std::move(id), std::move(text)};
    }
    // Compact JSON, "id" and "text" only when present; the empty string when a member is not valid UTF-8.
    std::string encode() const;
};

// One frame to the service, encoded compactly; "id" and "at" are written only when present.
// encode() gives the empty string when the reply cannot be written (a member that is not valid UTF-8);
// such a reply is not sent. decode() reads strictly: "type" a string, "id" a string and "at" an integer when
// present; anything else fails.
struct SocketReply {
    std::string type;
    std::optional<std::string> id;
    std::optional<std::int64_t> at;

    static SocketReply ack(std::string id) { return {std::string(MessageType::ack), std::move(id), std::nullopt}; }
    static std::optional<SocketReply> decode(std::string_view json);
    std::string encode() const;
};

} // namespace keyferry
