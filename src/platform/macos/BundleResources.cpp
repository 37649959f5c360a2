#include "BundleResources.h"

#include "CFRef.h"
#include "CFStrings.h"

#include <CoreFoundation/CoreFoundation.h>

#include <array>
#include <climits>

namespace keyferry {

std::optional<std::filesystem::path> BundleResources::path(const std::string& name, const std::string& type) {
    CFBundleRef bundle = CFBundleGetMainBundle();
    const CFRef<CFStringRef> resourceName = CFStrings::string(name);
    const CFRef<CFStringRef> resourceType = CFStrings::string(type);
    if (bundle == nullptr || !resourceName || !resourceType) {
        return std::nullopt;
    }
    const CFRef<CFURLRef> url(CFBundleCopyResourceURL(bundle, resourceName.get(), resourceType.get(), nullptr));
    std::array<UInt8, PATH_MAX> buffer{};
    if (!url || !CFURLGetFileSystemRepresentation(url.get(), true, buffer.data(), buffer.size())) {
        return std::nullopt;
    }
    return std::filesystem::path(reinterpret_cast<const char*>(buffer.data()));
}

} // namespace keyferry
