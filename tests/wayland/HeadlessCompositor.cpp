#include "HeadlessCompositor.h"

#include "ReceivedText.h"
#include "Wait.h"

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <stdexcept>

namespace keyferry {

namespace {

using namespace std::chrono_literals;

constexpr const char* displayName = "keyferry-compositor";

std::filesystem::path newFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "keyferry-compositor-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    return pattern;
}

// The entry with its Exec= naming `program`.
std::string entryFor(const std::filesystem::path& desktopEntry, const std::filesystem::path& program) {
    return std::regex_replace(fileContents(desktopEntry), std::regex("^Exec=.*$", std::regex::multiline),
                              "Exec=" + program.string());
}

} // namespace

HeadlessCompositor::HeadlessCompositor(Kind kind, const std::vector<std::filesystem::path>& grantedPrograms,
                                       const std::filesystem::path& desktopEntry, const std::string& layouts)
    : folder(newFolder()), runtime(folder / "runtime"), desktopName(kind == Kind::mutter ? "GNOME" : "KDE") {
    std::filesystem::create_directory(runtime);
    chmod(runtime.c_str(), 0700);
    // The bus's address goes to a file for the clients; the compositor's log to another, so nothing it leaves
    // behind holds the test's output open.
    compositor = run({"dbus-run-session", "--", "sh", "-c", startScript(kind, grantedPrograms, desktopEntry, layouts),
                      file("bus").string(), displayName, file("compositor.log").string()});
    waitForSession(30s);
}

std::string HeadlessCompositor::startScript(Kind kind, const std::vector<std::filesystem::path>& grantedPrograms,
                                            const std::filesystem::path& desktopEntry, const std::string& layouts) {
    const std::string announceBus = "printf %s \"$DBUS_SESSION_BUS_ADDRESS\" > \"$0\"; ";
    if (kind == Kind::mutter) {
        const std::string mutter = "exec mutter --headless --wayland --no-x11 --virtual-monitor 1280x800 "
                                   "--wayland-display=\"$1\" 2>\"$2\"";
        if (layouts == "us") {
            return announceBus + mutter;
        }
        return announceBus + "export DBUS_SYSTEM_BUS_ADDRESS=\"$DBUS_SESSION_BUS_ADDRESS\"; python3 " +
               std::string(KEYFERRY_FAKE_LOCALE1) + " '" + layouts +
               "' grp:caps_toggle >/dev/null & gdbus wait --session --timeout 20 org.freedesktop.locale1 && " + mutter;
    }
    const auto applications = folder / "data" / "applications";
    std::filesystem::create_directories(applications);
    for (const auto& program : grantedPrograms) {
        const auto copy = folder / program.filename();
        std::filesystem::copy_file(program, copy, std::filesystem::copy_options::overwrite_existing);
        std::ofstream(applications / (program.filename().string() + ".desktop")) << entryFor(desktopEntry, copy);
    }
    std::filesystem::create_directories(folder / "config");
    std::ofstream(folder / "config" / "kxkbrc") << "[Layout]\nLayoutList=" << layouts << "\nUse=true\n";
    std::filesystem::create_directory(folder / "kwin");
    std::filesystem::copy_file("/usr/bin/kwin_wayland", folder / "kwin" / "kwin_wayland");
    return announceBus + "kbuildsycoca5 >/dev/null 2>&1; KWIN_COMPOSE=Q exec " + (folder / "kwin").string() +
           "/kwin_wayland --virtual --width 1280 --height 800 --socket \"$1\" --no-lockscreen "
           "--no-global-shortcuts --no-kactivities 2>\"$2\"";
}

HeadlessCompositor::~HeadlessCompositor() {
    compositor.reset(); // SIGTERM to its process group (the bus included), SIGKILL after a time limit
    // The compositor may still be writing its last files as dbus-run-session ends: removed until gone.
    testing::waitUntil(
        [this] {
            std::error_code ignored;
            std::filesystem::remove_all(folder, ignored);
            return !std::filesystem::exists(folder, ignored);
        },
        10s);
}

std::unique_ptr<HelperProcess> HeadlessCompositor::run(const std::vector<std::string>& arguments,
                                                       const std::map<std::string, std::string>& environment,
                                                       const std::string& input) {
    std::vector<std::string> command{"env",
                                     "-i",
                                     "PATH=/usr/local/bin:/usr/bin:/bin",
                                     "HOME=" + folder.string(),
                                     "XDG_RUNTIME_DIR=" + runtime.string(),
                                     "XDG_DATA_HOME=" + (folder / "data").string(),
                                     "XDG_CONFIG_HOME=" + (folder / "config").string(),
                                     "XDG_CACHE_HOME=" + (folder / "cache").string(),
                                     "LANG=C.UTF-8",
                                     "NO_AT_BRIDGE=1",
                                     "XDG_SESSION_TYPE=wayland",
                                     "XDG_CURRENT_DESKTOP=" + desktopName};
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

void HeadlessCompositor::waitForSession(std::chrono::seconds limit) {
    bool exited = false;
    const bool ready = testing::waitUntil(
        [&] {
            exited = compositor->waitForExit(std::chrono::milliseconds(0)).has_value();
            return exited || (std::filesystem::exists(runtime / displayName) && !fileContents(file("bus")).empty());
        },
        limit);
    if (exited) {
        throw std::runtime_error("the compositor exited at start: " + log());
    }
    if (!ready) {
        throw std::runtime_error("the compositor opened no socket in time: " + log());
    }
    busAddress = fileContents(file("bus"));
}

std::string HeadlessCompositor::log() const {
    return fileContents(file("compositor.log"));
}

} // namespace keyferry
