#pragma once

#include "HelperProcess.h"
#include "TempFolder.h"

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace keyferry {

// A headless sway (with Xwayland) in a temporary folder, for tests and benchmarks. sway refuses to run as
// root, so when the caller is root the compositor and every client run as an unprivileged user created for
// the purpose ("keyferry-wayland", made once with useradd), with a fresh 0700 XDG_RUNTIME_DIR of its own.
// Programs to run are copied into the folder first, so the user need not reach the build tree.
//
// Owned by the test; at destruction stops sway (SIGTERM, then SIGKILL), then whatever sway had started
// (Xwayland, its exec'd commands) that is still running, by pid, and removes the folder. Every client started
// through run() is a HelperProcess the caller owns and stops the same way. Not thread-safe.
// Throws std::runtime_error when sway cannot be started or never opens its socket.
class HeadlessSway {
public:
    HeadlessSway();
    ~HeadlessSway();
    HeadlessSway(const HeadlessSway&) = delete;
    HeadlessSway& operator=(const HeadlessSway&) = delete;

    // Copies a program (or script) into the session's folder; returns the path to run it by.
    std::string install(const std::filesystem::path& program);

    // Starts a client of the session as its user, with the session's environment plus `environment`.
    std::unique_ptr<HelperProcess> run(const std::vector<std::string>& arguments,
                                       const std::map<std::string, std::string>& environment = {},
                                       const std::string& input = {});

    // The Xwayland display (":N") sway gives its clients; Xwayland itself starts with the first X client.
    std::string xDisplay();

    // The compositor's socket, as an absolute path that WAYLAND_DISPLAY may hold.
    std::string waylandSocket() const { return (runtime / waylandDisplay).string(); }

    // A file in the session's folder that the session's user may write.
    std::filesystem::path file(const std::string& name) const { return folder / name; }

private:
    std::vector<std::string> asUser(const std::map<std::string, std::string>& environment) const;
    void waitForSockets(std::chrono::seconds limit);
    void stopSway() noexcept;

    TempFolder session; // removed after everything that ran in it has stopped
    std::filesystem::path folder;
    std::filesystem::path runtime;
    uid_t uid = 0;
    gid_t gid = 0;
    bool switchUser = false;
    std::string waylandDisplay;
    std::string swaySocket;
    pid_t swayPid = 0;
    std::unique_ptr<HelperProcess> sway;
};

} // namespace keyferry
