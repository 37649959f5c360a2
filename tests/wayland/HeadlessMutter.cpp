#include "HeadlessMutter.h"

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace keyferry {

namespace {

using namespace std::chrono_literals;

constexpr const char* displayName = "keyferry-mutter";

std::filesystem::path newFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "keyferry-mutter-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    return pattern;
}

std::string textOf(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

} // namespace

HeadlessMutter::HeadlessMutter() : folder(newFolder()), runtime(folder / "runtime") {
    std::filesystem::create_directory(runtime);
    chmod(runtime.c_str(), 0700);
    // The bus's address goes to a file for the clients; mutter's log to another, so nothing it leaves
    // behind holds the test's output open.
    const std::string script = "printf %s \"$DBUS_SESSION_BUS_ADDRESS\" > \"$0\"; exec mutter --headless --wayland "
                               "--no-x11 --virtual-monitor 1280x800 --wayland-display=\"$1\" 2>\"$2\"";
    mutter = run({"dbus-run-session", "--", "sh", "-c", script, file("bus").string(), displayName,
                  file("mutter.log").string()});
    waitForSession(30s);
}

HeadlessMutter::~HeadlessMutter() {
    mutter.reset(); // SIGTERM to its process group (the bus included), SIGKILL after a time limit
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

std::unique_ptr<HelperProcess> HeadlessMutter::run(const std::vector<std::string>& arguments,
                                                   const std::map<std::string, std::string>& environment,
                                                   const std::string& input) {
    std::vector<std::string> command{"env", "-i", "PATH=/usr/local/bin:/usr/bin:/bin", "HOME=" + folder.string(),
                                     "XDG_RUNTIME_DIR=" + runtime.string(), "LANG=C.UTF-8", "NO_AT_BRIDGE=1",
                                     "XDG_SESSION_TYPE=wayland", "XDG_CURRENT_DESKTOP=GNOME",
                                     "GSETTINGS_BACKEND=memory"};
    if (!busAddress.empty()) {
        command.push_back("DBUS_SESSION_BUS_ADDRESS=" + busAddress);
        command.push_back("WAYLAND_DISPLAY=" + std::string(displayName));
    }
    for (const auto& [name, value] : environment) {
        command.push_back(name + "=" + value);
    }
    command.insert(command.end(), arguments.begin(), arguments.end());
    return std::make_unique<HelperProcess>(command, std::map<std::string, std::string>{}, input);
}

void HeadlessMutter::waitForSession(std::chrono::seconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
        if (std::filesystem::exists(runtime / displayName) && !textOf(file("bus")).empty()) {
            busAddress = textOf(file("bus"));
            return;
        }
        if (mutter->waitForExit(100ms)) {
            throw std::runtime_error("mutter exited at start: " + log());
        }
    }
    throw std::runtime_error("mutter opened no socket in time: " + log());
}

std::string HeadlessMutter::log() const { return textOf(file("mutter.log")); }

} // namespace keyferry
