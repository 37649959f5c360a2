#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace keyferry {

// A program a test starts for itself (a display server, a receiver, a keyring), with its standard output
// readable line by line. Owned by the test; stopped (SIGTERM, then SIGKILL) at destruction, so nothing is
// left running. Not thread-safe. Throws std::runtime_error when the program cannot be started.
class HelperProcess {
public:
    HelperProcess(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment = {},
                  const std::string& input = {});
    ~HelperProcess();
    HelperProcess(const HelperProcess&) = delete;
    HelperProcess& operator=(const HelperProcess&) = delete;

    // The next line of standard output, without its line feed; none at end of output or after `timeout`.
    std::optional<std::string> readLine(std::chrono::milliseconds timeout);

    // Waits for the exit; the exit status, or none after `timeout` (the process is then still running).
    std::optional<int> waitForExit(std::chrono::milliseconds timeout);

    void stop();

private:
    pid_t child = -1;
    int outputFd = -1;
    std::string pending;
};

} // namespace keyferry
