#include "PrivateSessionBus.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace keyferry {

PrivateSessionBus::PrivateSessionBus() : session("keyferry-bus"), folder(session.path()) {
    for (const char* name : {"home", "data", "config", "cache", "runtime"}) {
        std::filesystem::create_directories(folder / name);
    }
    std::filesystem::permissions(folder / "runtime", std::filesystem::perms::owner_all);
    const auto configuration = folder / "session.conf";
    std::ofstream(configuration)
        << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig><type>session</type><listen>unix:dir="
        << folder.string()
        << "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
           "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
           "<allow own=\"*\"/></policy></busconfig>\n";
    bus = std::make_unique<HelperProcess>(std::vector<std::string>{"dbus-daemon", "--nofork", "--print-address=1",
                                                                   "--config-file=" + configuration.string()},
                                          environment());
    const auto address = bus->readLine(std::chrono::seconds(10));
    if (!address || address->empty()) {
        throw std::runtime_error("dbus-daemon did not start");
    }
    busAddress = *address;
    setenv("DBUS_SESSION_BUS_ADDRESS", busAddress.c_str(), 1);
}

PrivateSessionBus::~PrivateSessionBus() {
    keyring.reset();
    bus.reset();
}

std::map<std::string, std::string> PrivateSessionBus::environment() const {
    return {{"HOME", (folder / "home").string()},
            {"XDG_DATA_HOME", (folder / "data").string()},
            {"XDG_CONFIG_HOME", (folder / "config").string()},
            {"XDG_CACHE_HOME", (folder / "cache").string()},
            {"XDG_RUNTIME_DIR", (folder / "runtime").string()},
            {"DBUS_SESSION_BUS_ADDRESS", busAddress},
            {"DISPLAY", ""},
            {"WAYLAND_DISPLAY", ""}};
}

void PrivateSessionBus::startKeyring() {
    keyring = std::make_unique<HelperProcess>(
        std::vector<std::string>{"gnome-keyring-daemon", "--foreground", "--unlock", "--components=secrets"},
        environment(), "keyferry-test-password");
}

} // namespace keyferry
