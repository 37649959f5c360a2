#pragma once

#include "HelperProcess.h"
#include "TempFolder.h"

#include <filesystem>
#include <map>
#include <memory>
#include <string>

namespace keyferry {

// A private D-Bus session bus in a temporary folder, with temporary HOME and XDG folders for whatever runs on
// it, optionally with gnome-keyring's Secret Service (a login keyring created and unlocked with a password).
// The bus activates nothing by itself. Sets DBUS_SESSION_BUS_ADDRESS for this process; stops everything and
// removes the folder at destruction. Owned by a test; throws std::runtime_error when a program does not start.
class PrivateSessionBus {
public:
    PrivateSessionBus();
    ~PrivateSessionBus();
    PrivateSessionBus(const PrivateSessionBus&) = delete;
    PrivateSessionBus& operator=(const PrivateSessionBus&) = delete;

    // Starts gnome-keyring-daemon with only its secrets component, unlocking the login keyring.
    void startKeyring();

    const std::string& address() const { return busAddress; }

private:
    std::map<std::string, std::string> environment() const;

    TempFolder session; // removed after the bus and the keyring have stopped
    std::filesystem::path folder;
    std::string busAddress;
    std::unique_ptr<HelperProcess> bus;
    std::unique_ptr<HelperProcess> keyring;
};

} // namespace keyferry
