#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace keyferry::service {

// The service's log: one line per notable event on standard error, "<UTC time> <level> <message>".
// Messages name addresses, counts and causes, never a credential, a pairing code or a text. Safe from any
// thread (each line is written whole).
namespace ServiceLog {

enum class Level { info, warning, error };

void write(Level level, std::string_view message);
inline void info(std::string_view message) {
    write(Level::info, message);
}
inline void warning(std::string_view message) {
    write(Level::warning, message);
}
inline void error(std::string_view message) {
    write(Level::error, message);
}

// Keeps a repeated event (the same client refused again and again) to one line per key and minute, so
// that a client cannot flood the log. Network thread only.
class Throttle {
public:
    // Whether a line for `key` may be written at `nowMs`; if so, counts it as written.
    bool allows(const std::string& key, std::int64_t nowMs);

private:
    std::unordered_map<std::string, std::int64_t> lastLine_;
    std::int64_t lastSweep_ = 0;
};

} // namespace ServiceLog
} // namespace keyferry::service
