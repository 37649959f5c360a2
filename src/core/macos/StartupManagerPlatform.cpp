// Where the login registration lives on macOS (the per-user launch agents), and how the running executable
// is found there.
#include "StartupManager.h"

#include <cstdint>

#include <mach-o/dyld.h>

namespace keyferry {

namespace fs = std::filesystem;

fs::path StartupManager::launchAgentURL() {
    return launchAgentPath(homeFolder());
}

std::optional<fs::path> StartupManager::runningExecutable() {
    std::uint32_t size = 0;
    _NSGetExecutablePath(nullptr, &size);
    std::string buffer(size, '\0');
    if (size == 0 || _NSGetExecutablePath(buffer.data(), &size) != 0) {
        return std::nullopt;
    }
    // The loader may report a path through symbolic links or with "..": the registration names the file.
    std::error_code error;
    const fs::path resolved = fs::canonical(buffer.c_str(), error);
    return error ? std::nullopt : std::optional<fs::path>(resolved);
}

} // namespace keyferry
