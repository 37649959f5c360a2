#pragma once

namespace keyferry {

// The wall clock. Owned by the application (or a test); any thread may read it; it never fails.
class Clock {
public:
    virtual ~Clock() = default;

    // Seconds since 1970-01-01T00:00:00Z, with a fractional part.
    virtual double now() const = 0;
};

} // namespace keyferry
