#include "JsonReader.h"

#include <limits>

namespace keyferry {

std::optional<nlohmann::json> JsonReader::parseObject(std::string_view text) {
    // A raw NUL byte is never valid JSON, but the parser would take it for the end of the input.
    if (text.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    // Without exceptions a parse error yields a "discarded" value instead of throwing.
    auto parsed = nlohmann::json::parse(text.begin(), text.end(), nullptr, false);
    if (parsed.is_discarded() || !parsed.is_object()) {
        return std::nullopt;
    }
    return parsed;
}

JsonReader::JsonReader(const nlohmann::json& value) : object(value), failed(!value.is_object()) {}

const nlohmann::json* JsonReader::member(const char* key) const {
    if (failed) {
        return nullptr;
    }
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) {
        return nullptr;
    }
    return &*found;
}

std::optional<std::int64_t> JsonReader::integerValue(const nlohmann::json& value) {
    if (value.is_number_unsigned()) {
        const auto unsignedValue = value.get<std::uint64_t>();
        if (unsignedValue > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            return std::nullopt;
        }
        return static_cast<std::int64_t>(unsignedValue);
    }
    if (value.is_number_integer()) {
        return value.get<std::int64_t>();
    }
    return std::nullopt; // floats (1.5, 1e3, numbers too large for 64 bits), strings, ...
}

template <typename T>
std::optional<T> JsonReader::optionalOf(const char* key, bool (nlohmann::json::*isType)() const noexcept) {
    const auto* value = member(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    if (!(value->*isType)()) {
        failed = true;
        return std::nullopt;
    }
    return value->get<T>();
}

std::string JsonReader::requiredString(const char* key) {
    if (auto value = optionalString(key)) {
        return *value;
    }
    failed = true;
    return {};
}

std::optional<std::string> JsonReader::optionalString(const char* key) {
    return optionalOf<std::string>(key, &nlohmann::json::is_string);
}

std::int64_t JsonReader::requiredInteger(const char* key) {
    if (auto value = optionalInteger(key)) {
        return *value;
    }
    failed = true;
    return 0;
}

std::optional<std::int64_t> JsonReader::optionalInteger(const char* key) {
    const auto* value = member(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    auto integer = integerValue(*value);
    if (!integer) {
        failed = true;
    }
    return integer;
}

bool JsonReader::requiredBoolean(const char* key) {
    if (auto value = optionalBoolean(key)) {
        return *value;
    }
    failed = true;
    return false;
}

std::optional<bool> JsonReader::optionalBoolean(const char* key) {
    return optionalOf<bool>(key, &nlohmann::json::is_boolean);
}

const nlohmann::json* JsonReader::requiredArray(const char* key) {
    const auto* value = member(key);
    if (value == nullptr || !value->is_array()) {
        failed = true;
        return nullptr;
    }
    return value;
}

} // namespace keyferry
