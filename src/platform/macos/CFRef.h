#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

namespace keyferry {

// Owns one CoreFoundation reference obtained from a Create or Copy call and releases it exactly once.
// Move-only; an empty CFRef (nullptr) releases nothing. Same thread rules as the object it holds.
template <typename Reference> class CFRef {
public:
    CFRef() = default;
    explicit CFRef(Reference reference) : reference_(reference) {}
    ~CFRef() { reset(); }

    CFRef(CFRef&& other) noexcept : reference_(std::exchange(other.reference_, nullptr)) {}
    CFRef& operator=(CFRef&& other) noexcept {
        if (this != &other) {
            reset();
            reference_ = std::exchange(other.reference_, nullptr);
        }
        return *this;
    }
    CFRef(const CFRef&) = delete;
    CFRef& operator=(const CFRef&) = delete;

    Reference get() const { return reference_; }
    explicit operator bool() const { return reference_ != nullptr; }

private:
    void reset() {
        if (reference_ != nullptr) {
            CFRelease(reference_);
            reference_ = nullptr;
        }
    }

    Reference reference_ = nullptr;
};

} // namespace keyferry
