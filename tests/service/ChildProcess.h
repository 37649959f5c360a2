#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace keyferry::service {

// A child program for tests: its standard output is read line by line with a time limit; standard error
// is inherited. The destructor ends it (SIGTERM, SIGKILL after 5 s) and reaps it; if this process dies
// first, the child is killed. Failure to start throws std::runtime_error. Owned by one thread.
class ChildProcess {
public:
    // `arguments[0]` is the program's path; `environment` entries are added to (or replace) this process's.
    explicit ChildProcess(const std::vector<std::string>& arguments,
                          const std::map<std::string, std::string>& environment = {});
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return pid_; }
    // The next line of output without its newline, or nothing on time-out or end of output.
    std::optional<std::string> readLine(std::chrono::milliseconds timeout);
    // The exit status once the child has ended within `timeout` (-1 for a signal), or nothing.
    std::optional<int> wait(std::chrono::milliseconds timeout);
    // Sends `signal` and reaps the child (SIGKILL after 5 s).
    void stop(int signal);

private:
    pid_t pid_ = -1;
    int output_ = -1;
    std::string pending_;
};

} // namespace keyferry::service
