#pragma once

#include "HelperProcess.h"

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace keyferry {

// A headless GNOME or KDE compositor (mutter, or KWin on its virtual backend; Wayland only, one 1280x800
// output) on a private session bus of its own (dbus-run-session), in a temporary folder that holds its
// XDG_RUNTIME_DIR, HOME and XDG data, config and cache folders, for tests and benchmarks. Clients started with
// run() get only the session's environment: its Wayland display, its bus, its folders.
//
// KWin: /usr/bin/kwin_wayland carries a file capability that this kind of machine refuses, so a plain copy
// named kwin_wayland runs from the folder. Programs to be granted KDE's fake input are copied into the folder
// first, each named by the Exec= of a copy of `desktopEntry` in the private XDG data folder, and the service
// cache is built (kbuildsycoca5) before KWin starts. The compositor's keymap holds `layouts` (such as "us,de").
// mutter reads them where GNOME keeps them without GNOME Shell, from the locale service on the system bus: a
// stand-in for it (fake-locale1.py) serves them on the session bus, which mutter is given as its system bus
// too; Caps Lock then switches to the next layout, as GNOME Shell would lock it.
//
// Owned by the test; at destruction stops the compositor and the bus (SIGTERM to their process group, then
// SIGKILL), and removes the folder. Every client started through run() is a HelperProcess the caller owns
// and stops the same way. Not thread-safe. Throws std::runtime_error when the compositor cannot be started
// or never opens its socket.
class HeadlessCompositor {
public:
    enum class Kind { mutter, kwin };

    explicit HeadlessCompositor(Kind kind, const std::vector<std::filesystem::path>& grantedPrograms = {},
                                const std::filesystem::path& desktopEntry = {}, const std::string& layouts = "us");
    ~HeadlessCompositor();
    HeadlessCompositor(const HeadlessCompositor&) = delete;
    HeadlessCompositor& operator=(const HeadlessCompositor&) = delete;

    std::unique_ptr<HelperProcess> run(const std::vector<std::string>& arguments,
                                       const std::map<std::string, std::string>& environment = {},
                                       const std::string& input = {});

    // A file in the session's folder; programs granted fake input are there under their own names.
    std::filesystem::path file(const std::string& name) const { return folder / name; }

    // What the compositor wrote to its standard error so far.
    std::string log() const;

private:
    std::string startScript(Kind kind, const std::vector<std::filesystem::path>& grantedPrograms,
                            const std::filesystem::path& desktopEntry, const std::string& layouts);
    void waitForSession(std::chrono::seconds limit);

    std::filesystem::path folder;
    std::filesystem::path runtime;
    std::string desktopName;
    std::string busAddress;
    std::unique_ptr<HelperProcess> compositor;
};

} // namespace keyferry
