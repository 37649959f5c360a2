#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

namespace keyferry::service {

// Counts events per key (a client address) in fixed one-minute windows and says when a key has used up
// its allowance. Memory stays bounded: windows that have ended are dropped as new ones open. Used from
// the service's network thread only.
class RateLimiter {
public:
    RateLimiter(int allowedPerWindow, std::int64_t windowMs) : allowed_(allowedPerWindow), windowMs_(windowMs) {}

    // Whether `key` may act now (it has fewer than the allowed events in its current window).
    bool allows(const std::string& key, std::int64_t now);
    void record(const std::string& key, std::int64_t now);
    // Milliseconds until `key`'s window ends (at least 1 000, for a Retry-After header).
    std::int64_t retryAfterMs(const std::string& key, std::int64_t now) const;

private:
    struct Window {
        std::int64_t start = 0;
        int count = 0;
    };
    void forgetEndedWindows(std::int64_t now);

    int allowed_;
    std::int64_t windowMs_;
    std::int64_t lastSweep_ = 0;
    std::unordered_map<std::string, Window> windows_;
};

} // namespace keyferry::service
