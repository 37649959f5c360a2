#include "JsonWriter.h"

namespace keyferry::JsonWriter {

std::string compact(const nlohmann::json& value) {
    try {
        return value.dump();
    } catch (const nlohmann::json::exception&) {
        return {};
    }
}

} // namespace keyferry::JsonWriter
