#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace keyferry {

// Strict, typed reading of the members of one JSON object, for the records the two sides exchange.
// A required member that is missing, null or of another JSON type, or an optional member that is present
// with another type, marks the whole read failed; the caller then discards what it read. Integers must be
// JSON integers (not 1.5, not 1e3) that fit in 64 signed bits. Never throws. Not shared between threads.
class JsonReader {
public:
    // The top-level object of `text`; nothing when the text is not exactly one well-formed JSON object
    // (truncated, trailing garbage, bytes that are not UTF-8 inside strings, another top-level type).
    static std::optional<nlohmann::json> parseObject(std::string_view text);

    // The record `readMembers(reader)` makes of `text`; nothing unless the text is one JSON object whose members
    // all fit.
    template <typename Record, typename ReadMembers>
    static std::optional<Record> decodeObject(std::string_view text, ReadMembers readMembers) {
        const auto object = parseObject(text);
        if (!object) {
            return std::nullopt;
        }
        JsonReader reader(*object);
        Record record = readMembers(reader);
        if (!reader.ok()) {
            return std::nullopt;
        }
        return record;
    }

    // `value` must outlive the reader; a value that is not an object makes the read fail at once.
    explicit JsonReader(const nlohmann::json& value);

    std::string requiredString(const char* key);
    std::optional<std::string> optionalString(const char* key);
    std::int64_t requiredInteger(const char* key);
    std::optional<std::int64_t> optionalInteger(const char* key);
    bool requiredBoolean(const char* key);
    std::optional<bool> optionalBoolean(const char* key);
    // The array member; nothing (and the read fails) when missing, null or not an array.
    const nlohmann::json* requiredArray(const char* key);

    void fail() { failed = true; }
    bool ok() const { return !failed; }

private:
    // The member when present and not null; nothing otherwise.
    const nlohmann::json* member(const char* key) const;
    static std::optional<std::int64_t> integerValue(const nlohmann::json& value);
    template <typename T> std::optional<T> optionalOf(const char* key, bool (nlohmann::json::*isType)() const noexcept);

    const nlohmann::json& object;
    bool failed = false;
};

} // namespace keyferry
