#pragma once

#include "HelperProcess.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace keyferry::service {

// The keyferry application with everything around it, on the private desktop the caller runs in (DISPLAY,
// HOME and a session bus already private, as tests/ui/with-desktop.sh and dbus-run-session make them):
// gnome-keyring's Secret Service, keyferry-service on the address compiled into the e2e build of the
// application, a receiving window that records what it is typed, and the application itself. Everything
// is stopped at destruction. Failures to start throw std::runtime_error. Owned by one test or benchmark.
class AppSession {
public:
    explicit AppSession(const std::filesystem::path& folder);
    ~AppSession();
    AppSession(const AppSession&) = delete;
    AppSession& operator=(const AppSession&) = delete;

    // Presses "Generate pairing code" in the application's window and returns the code it shows, read from
    // the service's store (a person reads it off the screen).
    std::string requestPairingCode();
    // Waits until the pairing-code window closed (a phone paired), then gives the receiver the focus.
    void focusReceiverAfterPairing();
    // Ends the application and starts it again with these arguments (e.g. "--background", as at login).
    void restartApplication(const std::vector<std::string>& arguments);
    pid_t applicationPid() const { return app_->pid(); }
    std::string received() const;
    // The file the receiving window appends every character it is typed to.
    std::filesystem::path receivedFile() const { return folder_ / "received.txt"; }
    // A PNG of the whole screen, in the e2e screenshots folder.
    static void screenshot(const std::string& name);

private:
    std::filesystem::path folder_;
    std::unique_ptr<HelperProcess> keyring_;
    std::unique_ptr<HelperProcess> service_;
    std::unique_ptr<HelperProcess> receiver_;
    std::unique_ptr<HelperProcess> app_;
};

} // namespace keyferry::service
