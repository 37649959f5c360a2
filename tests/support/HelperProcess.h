#pragma once

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace keyferry {

// A program a test starts for itself (a display server, a receiver, a keyring, the service, a browser), with
// its standard output readable line by line; standard error is inherited, standard input is `input` then
// its end. It runs in a process group of its own, and dies with the test process even when that is killed.
// Owned by the test; stopped (its group: SIGTERM, then SIGKILL after 3 s) at destruction, so nothing is left
// running. Not thread-safe. Throws std::runtime_error when the program cannot be started.
class HelperProcess {
public:
    // `arguments[0]` is the program, looked up in PATH; `environment` adds to, replaces or (with an empty
    // value) removes variables of this process's environment.
    HelperProcess(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment = {},
                  const std::string& input = {});
    ~HelperProcess();
    HelperProcess(const HelperProcess&) = delete;
    HelperProcess& operator=(const HelperProcess&) = delete;

    // The next line of standard output, without its line feed; none at end of output or after `timeout`.
    std::optional<std::string> readLine(std::chrono::milliseconds timeout);

    // Waits for the exit; the exit status (128 + the signal's number when a signal ended it), or none after
    // `timeout` (the process is then still running).
    std::optional<int> waitForExit(std::chrono::milliseconds timeout);

    // Sends `firstSignal` to the process group, then SIGKILL if it has not ended 3 s later; reaps it. Does
    // nothing once the process has been reaped. SIGKILL as the first signal ends it as a crash would.
    void stop(int firstSignal = SIGTERM);

    // The process's id (also its group's), while it has not been reaped.
    pid_t pid() const { return child; }

private:
    pid_t child = -1;
    int outputFd = -1;
    std::string pending;
};

} // namespace keyferry
