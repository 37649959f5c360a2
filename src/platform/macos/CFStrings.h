#pragma once

#include "CFRef.h"

#include <CoreFoundation/CoreFoundation.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keyferry {

// Conversions between UTF-8 text and CoreFoundation strings, data and string arrays. Pure functions, any
// thread. A creation that fails (text that is not UTF-8, no memory) gives an empty CFRef; a conversion from
// an object of another type gives nothing.
class CFStrings {
public:
    CFStrings() = delete;

    static CFRef<CFStringRef> string(std::string_view utf8);
    static CFRef<CFDataRef> data(std::string_view bytes);
    static CFRef<CFArrayRef> stringArray(const std::vector<std::string>& utf8Strings);

    static std::optional<std::string> utf8(CFTypeRef value);
    static std::optional<std::string> bytes(CFTypeRef value);
    static std::optional<std::vector<std::string>> utf8Array(CFTypeRef value);
};

} // namespace keyferry
