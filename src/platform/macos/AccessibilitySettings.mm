#include "AccessibilitySettings.h"

#import <AppKit/AppKit.h>

namespace keyferry {

bool AccessibilitySettings::open() {
    @autoreleasepool {
        NSURL* link = [NSURL URLWithString:[NSString stringWithUTF8String:deepLink]];
        if (link == nil) {
            return false;
        }
        return [[NSWorkspace sharedWorkspace] openURL:link];
    }
}

} // namespace keyferry
