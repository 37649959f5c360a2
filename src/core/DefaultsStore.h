#pragma once

#include <optional>
#include <string>
#include <vector>

namespace keyferry {

// The user's small persistent values (string, bool, string array) by key. Owned by the application (or a
// test) and outliving the store that uses it; callers serialise access (the companion store's lock).
// Reads never fail: a missing value, or one of another type, reads as absent. Writes are atomic per key
// and do not report failure.
class DefaultsStore {
public:
    virtual ~DefaultsStore() = default;

    virtual std::optional<std::string> string(const std::string& key) const = 0;
    virtual std::optional<bool> boolean(const std::string& key) const = 0;
    virtual std::optional<std::vector<std::string>> stringArray(const std::string& key) const = 0;

    virtual void setString(const std::string& key, const std::string& value) = 0;
    virtual void setBoolean(const std::string& key, bool value) = 0;
    virtual void setStringArray(const std::string& key, const std::vector<std::string>& value) = 0;
    virtual void remove(const std::string& key) = 0;
};

} // namespace keyferry
