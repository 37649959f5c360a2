#include "ServiceLog.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace keyferry::service::ServiceLog {
namespace {

constexpr std::int64_t throttleMs = 60'000;

const char* nameOf(Level level) {
    switch (level) {
    case Level::info:
        return "info";
    case Level::warning:
        return "warning";
    case Level::error:
        break;
    }
    return "error";
}

std::string timestamp() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    char withMillis[40];
    std::snprintf(withMillis, sizeof withMillis, "%.*s.%03dZ", static_cast<int>(length), text,
                  static_cast<int>(millis));
    return withMillis;
}

} // namespace

void write(Level level, std::string_view message) {
    std::string line = timestamp() + " " + nameOf(level) + " " + std::string(message) + "\n";
    // One write(2) per line, so that lines of concurrent writers never interleave.
    const char* data = line.data();
    std::size_t left = line.size();
    while (left > 0) {
        const ssize_t written = ::write(STDERR_FILENO, data, left);
        if (written <= 0) {
            return; // nowhere to report a failing standard error
        }
        data += written;
        left -= static_cast<std::size_t>(written);
    }
}

bool Throttle::allows(const std::string& key, std::int64_t nowMs) {
    if (nowMs - lastSweep_ >= throttleMs) {
        lastSweep_ = nowMs;
        std::erase_if(lastLine_, [&](const auto& entry) { return nowMs - entry.second >= throttleMs; });
    }
    const auto [entry, added] = lastLine_.try_emplace(key, nowMs);
    if (!added && nowMs - entry->second < throttleMs) {
        return false;
    }
    entry->second = nowMs;
    return true;
}

} // namespace keyferry::service::ServiceLog
