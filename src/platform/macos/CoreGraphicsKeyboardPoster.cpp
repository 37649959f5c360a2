#include "CoreGraphicsKeyboardPoster.h"

#include "CFRef.h"

#include <ApplicationServices/ApplicationServices.h>

#include <algorithm>
#include <array>

namespace keyferry {

namespace {

constexpr CGKeyCode payloadKey = 0;

} // namespace

bool CoreGraphicsKeyboardPoster::postKeyPair(std::u16string_view units) {
    if (units.empty() || units.size() > maximumUnits) {
        return false;
    }
    const CFRef<CGEventRef> down(CGEventCreateKeyboardEvent(nullptr, payloadKey, true));
    const CFRef<CGEventRef> up(CGEventCreateKeyboardEvent(nullptr, payloadKey, false));
    if (!down || !up) {
        return false;
    }
    std::array<UniChar, maximumUnits> payload{};
    std::copy(units.begin(), units.end(), payload.begin());
    const auto length = static_cast<UniCharCount>(units.size());
    CGEventKeyboardSetUnicodeString(down.get(), length, payload.data());
    CGEventKeyboardSetUnicodeString(up.get(), length, payload.data());
    CGEventPost(kCGHIDEventTap, down.get());
    CGEventPost(kCGHIDEventTap, up.get());
    return true;
}

} // namespace keyferry
