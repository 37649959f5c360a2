#pragma once

#include "DefaultsStore.h"

#include <map>
#include <string>
#include <variant>
#include <vector>

namespace keyferry::fakes {

// Defaults kept in memory; tests may also plant values of any type directly in `values`.
class InMemoryDefaults : public DefaultsStore {
public:
    using Value = std::variant<std::string, bool, std::vector<std::string>>;

    std::optional<std::string> string(const std::string& key) const override { return read<std::string>(key); }
    std::optional<bool> boolean(const std::string& key) const override { return read<bool>(key); }
    std::optional<std::vector<std::string>> stringArray(const std::string& key) const override {
        return read<std::vector<std::string>>(key);
    }

    void setString(const std::string& key, const std::string& value) override { values[key] = value; }
    void setBoolean(const std::string& key, bool value) override { values[key] = value; }
    void setStringArray(const std::string& key, const std::vector<std::string>& value) override { values[key] = value; }
    void remove(const std::string& key) override { values.erase(key); }

    bool contains(const std::string& key) const { return values.contains(key); }

    std::map<std::string, Value> values;

private:
    template <typename T> std::optional<T> read(const std::string& key) const {
        auto found = values.find(key);
        if (found == values.end() || !std::holds_alternative<T>(found->second)) {
            return std::nullopt;
        }
        return std::get<T>(found->second);
    }
};

} // namespace keyferry::fakes
