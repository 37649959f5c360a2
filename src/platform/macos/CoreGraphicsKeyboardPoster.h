#pragma once

#include "KeyboardPoster.h"

namespace keyferry {

// Types text into the focused application on macOS with CoreGraphics events that carry the text itself as
// their Unicode payload, so any character is typed whatever the keyboard layout.
//
// Each call makes a key-down and a key-up event with no event source and virtual key 0
// (CGEventCreateKeyboardEvent), gives both the chunk's UTF-16 units (CGEventKeyboardSetUnicodeString),
// posts the down event and then the up event at the HID event tap (CGEventPost, kCGHIDEventTap) and
// releases both. Nothing waits between the two or between calls.
//
// Ownership: owned by the application, outliving the injector. Thread: called from the service's queue, one
// call at a time; keeps no state. Failure: false when `units` is empty or longer than maximumUnits, or an
// event could not be created; without the Accessibility permission the system drops the events silently, so
// the caller tests the permission first (AXIsProcessTrustedWithOptions).
class CoreGraphicsKeyboardPoster final : public KeyboardPoster {
public:
    bool postKeyPair(std::u16string_view units) override;
};

} // namespace keyferry
