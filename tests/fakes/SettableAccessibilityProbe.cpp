#include "SettableAccessibilityProbe.h"

namespace keyferry::fakes {

bool SettableAccessibilityProbe::isTrusted(bool prompt) {
    prompts.push_back(prompt);
    return trusted;
}

} // namespace keyferry::fakes
