#pragma once

#include "AccessibilityProbe.h"

#include <cstddef>
#include <vector>

namespace keyferry::fakes {

// Answers `trusted` (true unless the test says otherwise) and records the prompt flag of every call.
// Single-threaded.
class SettableAccessibilityProbe : public AccessibilityProbe {
public:
    bool isTrusted(bool prompt) override;

    bool trusted = true;

    const std::vector<bool>& promptFlags() const { return prompts; }
    std::size_t callCount() const { return prompts.size(); }

private:
    std::vector<bool> prompts;
};

} // namespace keyferry::fakes
