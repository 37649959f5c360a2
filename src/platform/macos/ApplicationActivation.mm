#include "ApplicationActivation.h"

#import <AppKit/AppKit.h>

namespace keyferry {

void ApplicationActivation::becomeAccessory() {
    [[NSApplication sharedApplication] setActivationPolicy:NSApplicationActivationPolicyAccessory];
}

void ApplicationActivation::activateIgnoringOtherApps() {
    [[NSApplication sharedApplication] activateIgnoringOtherApps:YES];
}

} // namespace keyferry
