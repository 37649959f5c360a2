#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>

namespace keyferry::JsonWriter {

// Writing the records both sides exchange. Never throws.

// Sets `key` to the value when there is one; an absent value writes no member at all.
template <typename T> void setIfPresent(nlohmann::json& object, const char* key, const std::optional<T>& value) {
    if (value) {
        object[key] = *value;
    }
}

// Compact JSON text; the empty string when a string in `value` is not valid UTF-8 (such JSON cannot be written).
std::string compact(const nlohmann::json& value);

} // namespace keyferry::JsonWriter
