#pragma once

namespace keyferry {

// The two NSApplication calls about activation that Qt does not make for Keyferry. Main thread only, after
// the QApplication exists.
class ApplicationActivation {
public:
    ApplicationActivation() = delete;

    // NSApplicationActivationPolicyAccessory: no Dock icon and no menu bar of its own, only the status item
    // (also when the executable runs outside its bundle, where LSUIElement is not read).
    static void becomeAccessory();

    // activateIgnoringOtherApps: YES, so that a window presented from the status item comes to the front
    // although another application is active.
    static void activateIgnoringOtherApps();
};

} // namespace keyferry
