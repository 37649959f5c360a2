#include "CFStrings.h"

namespace keyferry {

namespace {

const UInt8* byteData(std::string_view text) {
    return reinterpret_cast<const UInt8*>(text.data());
}

} // namespace

CFRef<CFStringRef> CFStrings::string(std::string_view utf8) {
    return CFRef<CFStringRef>(CFStringCreateWithBytes(kCFAllocatorDefault, byteData(utf8),
                                                      static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, false));
}

CFRef<CFDataRef> CFStrings::data(std::string_view bytes) {
    return CFRef<CFDataRef>(CFDataCreate(kCFAllocatorDefault, byteData(bytes), static_cast<CFIndex>(bytes.size())));
}

CFRef<CFArrayRef> CFStrings::stringArray(const std::vector<std::string>& utf8Strings) {
    std::vector<CFRef<CFStringRef>> strings;
    std::vector<const void*> values;
    strings.reserve(utf8Strings.size());
    values.reserve(utf8Strings.size());
    for (const std::string& text : utf8Strings) {
        strings.push_back(string(text));
        if (!strings.back()) {
            return {};
        }
        values.push_back(strings.back().get());
    }
    // The array retains its elements; the CFRefs above release this function's own references.
    return CFRef<CFArrayRef>(
        CFArrayCreate(kCFAllocatorDefault, values.data(), static_cast<CFIndex>(values.size()), &kCFTypeArrayCallBacks));
}

std::optional<std::string> CFStrings::utf8(CFTypeRef value) {
    if (value == nullptr || CFGetTypeID(value) != CFStringGetTypeID()) {
        return std::nullopt;
    }
    const auto text = static_cast<CFStringRef>(value);
    const CFRange whole = CFRangeMake(0, CFStringGetLength(text));
    CFIndex size = 0;
    CFStringGetBytes(text, whole, kCFStringEncodingUTF8, 0, false, nullptr, 0, &size);
    std::string converted(static_cast<std::size_t>(size), '\0');
    CFStringGetBytes(text, whole, kCFStringEncodingUTF8, 0, false, reinterpret_cast<UInt8*>(converted.data()), size,
                     nullptr);
    return converted;
}

std::optional<std::string> CFStrings::bytes(CFTypeRef value) {
    if (value == nullptr || CFGetTypeID(value) != CFDataGetTypeID()) {
        return std::nullopt;
    }
    const auto data = static_cast<CFDataRef>(value);
    const CFIndex length = CFDataGetLength(data);
    if (length == 0) {
        return std::string();
    }
    return std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data)), static_cast<std::size_t>(length));
}

std::optional<std::vector<std::string>> CFStrings::utf8Array(CFTypeRef value) {
    if (value == nullptr || CFGetTypeID(value) != CFArrayGetTypeID()) {
        return std::nullopt;
    }
    const auto array = static_cast<CFArrayRef>(value);
    std::vector<std::string> converted;
    const CFIndex count = CFArrayGetCount(array);
    converted.reserve(static_cast<std::size_t>(count));
    for (CFIndex index = 0; index < count; ++index) {
        std::optional<std::string> element = utf8(CFArrayGetValueAtIndex(array, index));
        if (!element) {
            return std::nullopt;
        }
        converted.push_back(std::move(*element));
    }
    return converted;
}

} // namespace keyferry
