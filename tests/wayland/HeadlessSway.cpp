#include "HeadlessSway.h"

#include "ReceivedText.h"
#include "Wait.h"

#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace keyferry {

namespace {

using namespace std::chrono_literals;

constexpr const char* testUser = "keyferry-wayland";

passwd* testAccount() {
    if (passwd* account = getpwnam(testUser)) {
        return account;
    }
    HelperProcess useradd({"useradd", "--system", "--no-create-home", "--shell", "/usr/sbin/nologin", testUser});
    useradd.waitForExit(30s);
    passwd* account = getpwnam(testUser);
    if (account == nullptr) {
        throw std::runtime_error("could not create the user keyferry-wayland");
    }
    return account;
}

void giveTo(const std::filesystem::path& path, uid_t uid, gid_t gid, mode_t mode) {
    if (chown(path.c_str(), uid, gid) != 0 || chmod(path.c_str(), mode) != 0) {
        throw std::runtime_error("could not hand " + path.string() + " to the test user");
    }
}

pid_t parentOf(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(stat, line);
    const auto afterName = line.rfind(')');
    if (afterName == std::string::npos) {
        return 0;
    }
    std::istringstream fields(line.substr(afterName + 2));
    char state = 0;
    pid_t parent = 0;
    fields >> state >> parent;
    return parent;
}

// Every process below `root` now.
std::vector<pid_t> descendantsOf(pid_t root) {
    std::vector<pid_t> found{root};
    for (std::size_t index = 0; index < found.size(); ++index) {
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
            const std::string name = entry.path().filename().string();
            if (name.find_first_not_of("0123456789") == std::string::npos &&
                parentOf(std::stoi(name)) == found[index]) {
                found.push_back(std::stoi(name));
            }
        }
    }
    found.erase(found.begin());
    return found;
}

bool running(pid_t pid) {
    return kill(pid, 0) == 0 && parentOf(pid) != 0;
}

} // namespace

HeadlessSway::HeadlessSway() : session("keyferry-sway"), folder(session.path()), runtime(folder / "runtime") {
    uid = getuid();
    gid = getgid();
    if (geteuid() == 0) {
        const passwd* account = testAccount();
        uid = account->pw_uid;
        gid = account->pw_gid;
        switchUser = true;
    }
    std::filesystem::create_directory(runtime);
    giveTo(folder, uid, gid, 0755);
    giveTo(runtime, uid, gid, 0700);
    // Xwayland from the start rather than on demand: started on demand, it ends with its last X client, and
    // sway 1.7 was seen to hang for good in that moment, writing to the Xwayland that no longer read.
    const auto config = folder / "sway.config";
    std::ofstream(config) << "xwayland force\noutput HEADLESS-1 resolution 1280x800\nfocus_follows_mouse no\n";
    // Its log (and Xwayland's) goes to a file, so nothing it leaves behind holds the test's output open.
    sway = run({"sh", "-c", "exec sway -c \"$0\" 2>\"$1\"", config.string(), (folder / "sway.log").string()},
               {{"WLR_BACKENDS", "headless"}, {"WLR_LIBINPUT_NO_DEVICES", "1"}, {"WLR_RENDERER", "pixman"}});
    waitForSockets(20s);
}

HeadlessSway::~HeadlessSway() {
    stopSway();
}

void HeadlessSway::stopSway() noexcept {
    std::vector<pid_t> started;
    try {
        started = swayPid > 0 ? descendantsOf(swayPid) : std::vector<pid_t>{};
    } catch (const std::exception&) {
        // sway's process group still goes below; only strays it started elsewhere could stay
    }
    sway.reset(); // SIGTERM to its process group, SIGKILL after a time limit
    const auto anyRunning = [&started] { return std::ranges::any_of(started, running); };
    if (!testing::waitUntil([&] { return !anyRunning(); }, 5s)) {
        for (const pid_t pid : started) {
            if (running(pid)) {
                kill(pid, SIGKILL);
            }
        }
    }
}

std::string HeadlessSway::install(const std::filesystem::path& program) {
    const auto target = folder / program.filename();
    std::filesystem::copy_file(program, target, std::filesystem::copy_options::overwrite_existing);
    giveTo(target, uid, gid, 0755);
    return target.string();
}

// The command prefix that runs a program as the session's user with only the session's environment.
std::vector<std::string> HeadlessSway::asUser(const std::map<std::string, std::string>& environment) const {
    std::vector<std::string> prefix;
    if (switchUser) {
        // setpriv replaces itself with the program, so the pid the test holds is the client's own.
        prefix = {"setpriv", "--reuid=" + std::to_string(uid), "--regid=" + std::to_string(gid), "--clear-groups",
                  "--"};
    }
    prefix.insert(prefix.end(),
                  {"env", "-i", "PATH=/usr/local/bin:/usr/bin:/bin", "HOME=" + folder.string(),
                   "XDG_RUNTIME_DIR=" + runtime.string(), "LANG=C.UTF-8",
                   // no session bus, so no client starts one of its own that would outlive the test
                   "DBUS_SESSION_BUS_ADDRESS=unix:path=" + (folder / "no-bus").string(), "NO_AT_BRIDGE=1"});
    if (!waylandDisplay.empty()) {
        prefix.push_back("WAYLAND_DISPLAY=" + waylandDisplay);
        prefix.push_back("SWAYSOCK=" + swaySocket);
        prefix.push_back("XDG_SESSION_TYPE=wayland");
    }
    for (const auto& [name, value] : environment) {
        prefix.push_back(name + "=" + value);
    }
    return prefix;
}

std::unique_ptr<HelperProcess> HeadlessSway::run(const std::vector<std::string>& arguments,
                                                 const std::map<std::string, std::string>& environment,
                                                 const std::string& input) {
    std::vector<std::string> command = asUser(environment);
    command.insert(command.end(), arguments.begin(), arguments.end());
    return std::make_unique<HelperProcess>(command, std::map<std::string, std::string>{}, input);
}

void HeadlessSway::waitForSockets(std::chrono::seconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
        for (const auto& entry : std::filesystem::directory_iterator(runtime)) {
            const std::string name = entry.path().filename().string();
            if (name.starts_with("wayland-") && !name.ends_with(".lock")) {
                waylandDisplay = name;
            } else if (name.starts_with("sway-ipc.") && name.ends_with(".sock")) {
                swaySocket = entry.path().string(); // sway-ipc.UID.PID.sock
                const std::string withoutSuffix = name.substr(0, name.size() - 5);
                swayPid = std::stoi(withoutSuffix.substr(withoutSuffix.rfind('.') + 1));
            }
        }
        if (!waylandDisplay.empty() && !swaySocket.empty()) {
            return;
        }
        if (sway->waitForExit(100ms)) {
            throw std::runtime_error("sway exited at start");
        }
    }
    throw std::runtime_error("sway opened no socket in time");
}

std::string HeadlessSway::xDisplay() {
    const auto answer = file("x-display");
    auto swaymsg = run({"swaymsg", "exec", "printf %s \"$DISPLAY\" > " + answer.string()});
    swaymsg->waitForExit(10s);
    std::string display;
    if (!testing::waitUntil([&] { return !(display = fileContents(answer)).empty(); }, 10s)) {
        throw std::runtime_error("sway gave no X display");
    }
    return display;
}

} // namespace keyferry
