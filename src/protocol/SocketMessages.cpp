#include "SocketMessages.h"

#include "JsonReader.h"
#include "JsonWriter.h"

namespace keyferry {

std::optional<ServerMessage> ServerMessage::decode(std::string_view json) {
    return JsonReader::decodeObject<ServerMessage>(json, [](JsonReader& reader) {
        return ServerMessage{
            .type = reader.requiredString("type"),
            .id = reader.optionalString("id"),
            .text = reader.optionalString("text"),
        };
    });
}

std::string ServerMessage::encode() const {
    nlohmann::json object = {{"type", type}};
    JsonWriter::setIfPresent(object, "id", id);
    JsonWriter::setIfPresent(object, "text", text);
    return JsonWriter::compact(object);
}

std::optional<SocketReply> SocketReply::decode(std::string_view json) {
    return JsonReader::decodeObject<SocketReply>(json, [](JsonReader& reader) {
        return SocketReply{
            .type = reader.requiredString("type"),
            .id = reader.optionalString("id"),
            .at = reader.optionalInteger("at"),
        };
    });
}

std::string SocketReply::encode() const {
    nlohmann::json object = {{"type", type}};
    JsonWriter::setIfPresent(object, "id", id);
    JsonWriter::setIfPresent(object, "at", at);
    return JsonWriter::compact(object);
}

} // namespace keyferry
