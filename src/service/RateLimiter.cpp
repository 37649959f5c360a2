#include "RateLimiter.h"

#include <algorithm>

namespace keyferry::service {

bool RateLimiter::allows(const std::string& key, std::int64_t now) {
    forgetEndedWindows(now);
    const auto found = windows_.find(key);
    return found == windows_.end() || now - found->second.start >= windowMs_ || found->second.count < allowed_;
}

void RateLimiter::record(const std::string& key, std::int64_t now) {
    Window& window = windows_[key];
    if (window.count == 0 || now - window.start >= windowMs_) {
        window = {now, 0};
    }
    ++window.count;
}

std::int64_t RateLimiter::retryAfterMs(const std::string& key, std::int64_t now) const {
    const auto found = windows_.find(key);
    const std::int64_t left = found == windows_.end() ? 0 : found->second.start + windowMs_ - now;
    return std::max<std::int64_t>(left, 1000);
}

void RateLimiter::forgetEndedWindows(std::int64_t now) {
    if (now - lastSweep_ < windowMs_) {
        return;
    }
    lastSweep_ = now;
    std::erase_if(windows_, [&](const auto& entry) { return now - entry.second.start >= windowMs_; });
}

} // namespace keyferry::service
