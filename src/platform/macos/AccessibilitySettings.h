#pragma once

namespace keyferry {

// Opens System Settings at Privacy & Security > Accessibility, where the user grants Keyferry the
// permission to type: the deep link "x-apple.systempreferences:com.apple.preference.security?
// Privacy_Accessibility", opened with NSWorkspace. Main thread only. False when the link could not be
// formed or the workspace did not open it; callers ignore the result.
class AccessibilitySettings {
public:
    AccessibilitySettings() = delete;

    static constexpr const char* deepLink =
        "x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility";

    static bool open();
};

} // namespace keyferry
