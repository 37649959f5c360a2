#include "SocketMessages.h"

#include "JsonReader.h"

namespace keyferry {

std::optional<ServerMessage> ServerMessage::decode(std::string_view json) {
    const auto object = JsonReader::parseObject(json);
    if (!object) {
        return std::nullopt;
    }
    JsonReader reader(*object);
    ServerMessage message{
        .type = reader.requiredString("type"),
        .id = reader.optionalString("id"),
        .text = reader.optionalString("text"),
    };
    if (!reader.ok()) {
        return std::nullopt;
    }
    return message;
}

std::string SocketReply::encode() const {
    nlohmann::json object = {{"type", type}};
    if (id) {
        object["id"] = *id;
    }
    if (at) {
        object["at"] = *at;
    }
    try {
        return object.dump();
    } catch (const nlohmann::json::exception&) {
        return {}; // a member that is not valid UTF-8 cannot be written
    }
}

} // namespace keyferry
