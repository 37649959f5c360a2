// Where the login registration lives on Linux, and how the running executable is found there.
#include "StartupManager.h"

#include <cstdlib>

namespace keyferry {

namespace fs = std::filesystem;

fs::path StartupManager::launchAgentURL() {
    const char* xdgConfigHome = std::getenv("XDG_CONFIG_HOME");
    return autostartEntryPath(homeFolder(), xdgConfigHome == nullptr ? std::string() : std::string(xdgConfigHome));
}

std::optional<fs::path> StartupManager::runningExecutable() {
    std::error_code error;
    const fs::path resolved = fs::read_symlink("/proc/self/exe", error);
    if (error || !resolved.is_absolute()) {
        return std::nullopt;
    }
    return resolved;
}

} // namespace keyferry
