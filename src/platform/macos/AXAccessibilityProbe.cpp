#include "AXAccessibilityProbe.h"

#include "CFRef.h"

#include <ApplicationServices/ApplicationServices.h>

namespace keyferry {

bool AXAccessibilityProbe::isTrusted(bool prompt) {
    const void* keys[] = {kAXTrustedCheckOptionPrompt};
    const void* values[] = {prompt ? kCFBooleanTrue : kCFBooleanFalse};
    const CFRef<CFDictionaryRef> options(CFDictionaryCreate(
        kCFAllocatorDefault, keys, values, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    return AXIsProcessTrustedWithOptions(options.get());
}

} // namespace keyferry
