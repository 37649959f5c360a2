#include "StartupManager.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string_view>

#include <pwd.h>
#include <unistd.h>

namespace keyferry {

namespace fs = std::filesystem;

namespace {

class StartupErrorCategory : public std::error_category {
public:
    const char* name() const noexcept override { return "keyferry.startup"; }
    std::string message(int value) const override {
        return value == static_cast<int>(StartupError::missingExecutable) ? "the executable's path is unknown"
                                                                          : "unknown startup error";
    }
};

// Escapes the five characters XML reserves, for element content.
std::string xmlEscaped(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char character : text) {
        switch (character) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&apos;";
            break;
        default:
            escaped += character;
            break;
        }
    }
    return escaped;
}

// One Exec argument, always double-quoted, written as a desktop-entry string value: inside the quotes
// '"', '`', '$' and '\' take a backslash, and that backslash (like any other) is doubled by the string
// escaping of the file format; '%' is a field code introducer and must be doubled.
std::string desktopExecArgument(std::string_view argument) {
    std::string quoted = "\"";
    for (const char character : argument) {
        switch (character) {
        case '"':
        case '`':
        case '$':
            quoted += "\\\\";
            quoted += character;
            break;
        case '\\':
            quoted += "\\\\\\\\";
            break;
        case '%':
            quoted += "%%";
            break;
        case '\n':
            quoted += "\\n";
            break;
        case '\t':
            quoted += "\\t";
            break;
        case '\r':
            quoted += "\\r";
            break;
        default:
            quoted += character;
            break;
        }
    }
    quoted += '"';
    return quoted;
}

// Replaces `file` in one step: a complete temporary file beside it is renamed over it, so a failed write
// never leaves a partial registration behind.
std::error_code writeAtomically(const fs::path& file, const std::string& bytes) {
    fs::path temporary = file;
    temporary += ".tmp-" + std::to_string(getpid());
    {
        std::ofstream stream(temporary, std::ios::binary | std::ios::trunc);
        if (!stream) {
            return {errno != 0 ? errno : EIO, std::generic_category()};
        }
        stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        stream.flush();
        if (!stream) {
            std::error_code ignored;
            fs::remove(temporary, ignored);
            return std::make_error_code(std::errc::io_error);
        }
    }
    std::error_code error;
    fs::rename(temporary, file, error);
    if (error) {
        std::error_code ignored;
        fs::remove(temporary, ignored);
    }
    return error;
}

} // namespace

const std::error_category& startupErrorCategory() {
    static const StartupErrorCategory category;
    return category;
}

std::error_code make_error_code(StartupError error) {
    return {static_cast<int>(error), startupErrorCategory()};
}

fs::path StartupManager::launchAgentPath(const fs::path& home) {
    return home / "Library" / "LaunchAgents" / (std::string(label) + ".plist");
}

fs::path StartupManager::autostartEntryPath(const fs::path& home, const std::string& xdgConfigHome) {
    // The XDG base directory rules ignore a relative XDG_CONFIG_HOME.
    const fs::path configHome =
        !xdgConfigHome.empty() && fs::path(xdgConfigHome).is_absolute() ? fs::path(xdgConfigHome) : home / ".config";
    return configHome / "autostart" / (std::string(label) + ".desktop");
}

bool StartupManager::isEnabled() {
    std::error_code error;
    return fs::exists(launchAgentURL(), error);
}

fs::path StartupManager::homeFolder() {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
        return home;
    }
    if (const passwd* entry = getpwuid(getuid()); entry != nullptr && entry->pw_dir != nullptr) {
        return entry->pw_dir;
    }
    return {};
}

std::string StartupManager::launchAgentPropertyList(const fs::path& executable) {
    // Keys in the order the system's serialiser writes them (sorted).
    return std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                       "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                       "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                       "<plist version=\"1.0\">\n"
                       "<dict>\n"
                       "\t<key>Label</key>\n"
                       "\t<string>") +
           label +
           "</string>\n"
           "\t<key>ProcessType</key>\n"
           "\t<string>Interactive</string>\n"
           "\t<key>ProgramArguments</key>\n"
           "\t<array>\n"
           "\t\t<string>" +
           xmlEscaped(executable.string()) +
           "</string>\n"
           "\t\t<string>" +
           backgroundArgument +
           "</string>\n"
           "\t</array>\n"
           "\t<key>RunAtLoad</key>\n"
           "\t<true/>\n"
           "</dict>\n"
           "</plist>\n";
}

std::string StartupManager::autostartDesktopEntry(const fs::path& executable) {
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Keyferry\n"
           "Exec=" +
           desktopExecArgument(executable.string()) + " " + backgroundArgument + "\n";
}

std::error_code StartupManager::writeRegistration(const std::optional<fs::path>& executable, const fs::path& file) {
    if (!executable || executable->empty()) {
        return StartupError::missingExecutable;
    }
    std::error_code error;
    fs::create_directories(file.parent_path(), error);
    if (error) {
        return error;
    }
    const std::string bytes =
        file.extension() == ".plist" ? launchAgentPropertyList(*executable) : autostartDesktopEntry(*executable);
    return writeAtomically(file, bytes);
}

std::error_code StartupManager::writeRegistration() {
    return writeRegistration(runningExecutable(), launchAgentURL());
}

std::error_code StartupManager::setEnabled(bool enabled) {
    if (enabled) {
        return writeRegistration();
    }
    const fs::path file = launchAgentURL();
    std::error_code error;
    if (!fs::exists(file, error)) {
        return {};
    }
    fs::remove(file, error);
    return error;
}

} // namespace keyferry
