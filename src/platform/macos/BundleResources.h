#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace keyferry {

// Files in the running application's bundle (Keyferry.app/Contents/Resources), found through the main
// bundle (CFBundleGetMainBundle, CFBundleCopyResourceURL). Any thread. Nothing when the program does not run
// from a bundle or the bundle lacks the resource.
class BundleResources {
public:
    BundleResources() = delete;

    // The resource `name` of type `type`, for example ("keyferry-app-icon", "png").
    static std::optional<std::filesystem::path> path(const std::string& name, const std::string& type);
};

} // namespace keyferry
