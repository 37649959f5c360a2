#pragma once

#include "HelperProcess.h"

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace keyferry {

// A headless mutter (GNOME's compositor, Wayland only, one 1280x800 virtual monitor) on a private session
// bus of its own (dbus-run-session), in a temporary folder that holds its XDG_RUNTIME_DIR and HOME, for tests
// and benchmarks. Clients started with run() get only the session's environment: its Wayland display, its
// bus, its folders.
//
// Owned by the test; at destruction stops mutter and the bus (SIGTERM to their process group, then
// SIGKILL), and removes the folder. Every client started through run() is a HelperProcess the caller owns
// and stops the same way. Not thread-safe. Throws std::runtime_error when mutter cannot be started or never
// opens its socket.
class HeadlessMutter {
public:
    HeadlessMutter();
    ~HeadlessMutter();
    HeadlessMutter(const HeadlessMutter&) = delete;
    HeadlessMutter& operator=(const HeadlessMutter&) = delete;

    std::unique_ptr<HelperProcess> run(const std::vector<std::string>& arguments,
                                       const std::map<std::string, std::string>& environment = {},
                                       const std::string& input = {});

    // A file in the session's folder.
    std::filesystem::path file(const std::string& name) const { return folder / name; }

    // What mutter wrote to its standard error so far.
    std::string log() const;

private:
    void waitForSession(std::chrono::seconds limit);

    std::filesystem::path folder;
    std::filesystem::path runtime;
    std::string busAddress;
    std::unique_ptr<HelperProcess> mutter;
};

} // namespace keyferry
