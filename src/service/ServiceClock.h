#pragma once

#include <atomic>
#include <cstdint>

namespace keyferry::service {

// Where the service reads the time. Every expiry and rate window is measured with it, so tests can move
// time forward instead of waiting. Implementations are read from the service's single network thread and
// must be safe to advance from another thread.
class ServiceClock {
public:
    virtual ~ServiceClock() = default;
    // Milliseconds since the Unix epoch.
    virtual std::int64_t nowMs() const = 0;
};

// The wall clock.
class SystemClock final : public ServiceClock {
public:
    std::int64_t nowMs() const override;
};

// A clock that moves only when told to; for tests.
class ManualClock final : public ServiceClock {
public:
    explicit ManualClock(std::int64_t startMs) : now_(startMs) {}
    std::int64_t nowMs() const override { return now_.load(); }
    void advanceMs(std::int64_t milliseconds) { now_ += milliseconds; }

private:
    std::atomic<std::int64_t> now_;
};

} // namespace keyferry::service
