#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

namespace keyferry {

// The startup manager's own failure. Everything else is the file system's error, passed on unchanged.
enum class StartupError {
    missingExecutable = 1, // the running executable's path is unknown
};

const std::error_category& startupErrorCategory();
std::error_code make_error_code(StartupError error);

// Opens Keyferry at login by keeping one per-user registration file, and stops it by deleting that file:
// the file's existence is the whole setting. On Apple the file is a launch agent property list
// (~/Library/LaunchAgents/com.quillix.companion.plist); elsewhere it is an XDG autostart entry
// ($XDG_CONFIG_HOME/autostart/com.quillix.companion.desktop, ~/.config when unset). Both start the
// executable that wrote them with "--background".
//
// Stateless; every operation reads the environment afresh. Called on the main thread; short synchronous
// file operations. Failures are returned as error codes (empty on success); nothing throws.
class StartupManager {
public:
    StartupManager() = delete;

    static constexpr const char* label = "com.quillix.companion";
    static constexpr const char* backgroundArgument = "--background";

    // Where this platform's registration file lives (named after the launch agent it is on Apple). Defined
    // with runningExecutable() in the platform's own source (macos/, linux/).
    static std::filesystem::path launchAgentURL();

    // True when a file exists at launchAgentURL(), whatever its content.
    static bool isEnabled();

    // True writes the registration for the running executable; false removes it (nothing to remove is fine).
    static std::error_code setEnabled(bool enabled);

    // Writes the registration atomically, naming the running executable.
    static std::error_code writeRegistration();

    // Writes the registration for `executable` (StartupError::missingExecutable when absent) to `file`,
    // creating its folder: the work behind writeRegistration(), with its inputs given. The file's name picks
    // the format: a launch agent property list for ".plist", a desktop entry otherwise.
    static std::error_code writeRegistration(const std::optional<std::filesystem::path>& executable,
                                             const std::filesystem::path& file);

    // The absolute path of the running executable, when the system tells it (inside an application bundle:
    // the bundle's Contents/MacOS/Keyferry).
    static std::optional<std::filesystem::path> runningExecutable();

    // The current user's home folder: $HOME when set, else the password database's entry; empty when neither.
    static std::filesystem::path homeFolder();

    // The two registration formats, both available everywhere so that both can be checked anywhere.
    static std::string launchAgentPropertyList(const std::filesystem::path& executable);
    static std::string autostartDesktopEntry(const std::filesystem::path& executable);

    // The two file locations for a given environment (home folder, XDG_CONFIG_HOME value or empty).
    static std::filesystem::path launchAgentPath(const std::filesystem::path& home);
    static std::filesystem::path autostartEntryPath(const std::filesystem::path& home,
                                                    const std::string& xdgConfigHome);
};

} // namespace keyferry

template <> struct std::is_error_code_enum<keyferry::StartupError> : std::true_type {};
